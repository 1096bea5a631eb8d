# SPDX-License-Identifier: MIT
"""The engine's C interface: from C99 and from the examples."""

import os
import pathlib
import re
import struct
import sys
import unittest

os.environ["KESS_LIBRARY"] = str(pathlib.Path(os.environ["TARNOK_BIN"]) / "lib" / "libkessL.so.14")

from program_case import BIN, ProgramCase, write_riff, write_wav

LIBRARY = pathlib.Path(os.environ["KESS_LIBRARY"]).read_bytes()
IS_SANITIZED = b"__asan_init" in LIBRARY or b"__tsan_init" in LIBRARY

PROGRAMS = BIN.parent / "tests"
SOURCE = pathlib.Path(__file__).parent
HEADER = SOURCE.parents[1] / "engine" / "include" / "kess.h"


class CInterfaceTest(ProgramCase):
    def setUp(self):
        super().setUp()
        self.ramp = write_riff(self.folder_in / "ramp.wav", struct.pack("<3000h", *range(3000)), rate=48000,
                               loop=(1000, 1999), cues=((1500, "half"),))
        write_wav(self.folder_in / "tone.wav", 1)

    def test_a_c_program_uses_every_function(self):
        bank = self.build("x.tnb", "-format", "pcm", "-write_peak_volume", key="key")
        status, output = self.run_tool(bank, "key", self.ramp, program=PROGRAMS / "c_interface")
        self.assertEqual((status, output), (0, ""))
        functions = set(re.findall(r"^KESS_API .*?\b(KESS_\w+)\(", HEADER.read_text(), re.MULTILINE))
        used = set(re.findall(r"\b(KESS_\w+)\(", (SOURCE / "c_interface.c").read_text()))
        self.assertGreater(len(functions), 30)
        self.assertEqual(functions - used, set())

    def test_the_c_example_lists_and_plays_a_bank(self):
        program = PROGRAMS / "play_bank_c"
        for key in ([], ["key"]):
            bank = self.build("x.tnb", "-format", "pcm", key="".join(key))
            status, samples, errors = self.run_program(bank, "ramp", *key, program=program, encoding=None,
                                                       stderr=-1)
            self.assertEqual((status, errors), (0, b""))
            values = [round(value * 32768) for value, in struct.iter_unpack("<f", samples)]
            self.assertEqual(values, [*range(2000), *range(1000, 3000)])
        self.assertEqual(self.run_tool(self.build("x.tnb"), program=program),
                         (0, "ramp: 1 channels, 48000 Hz, 0.06 s\ntone: 1 channels, 44100 Hz, 1.00 s\n"))
        for arguments, said in ((["missing.tnb"], "missing.tnb: File not found."), (["x.tnb", "nobody"], "nobody: "),
                                ([self.ramp, "ramp"], "ramp: A bank has no samples")):
            status, output = self.run_tool(*arguments, program=program)
            self.assertEqual(status, 1)
            self.assertIn(said, output)

    def test_the_snippet_in_the_readme_plays_a_sound_or_says_why_not(self):
        program = PROGRAMS / "readme_snippet"
        self.assertEqual(self.run_tool(program=program), (1, "File not found.\n"))
        write_wav(self.folder_in / "bell.wav")
        self.build("effects.tnb")
        self.assertEqual(self.run_tool(program=program), (0, "1024 frames\n"))

    @unittest.skipIf(IS_SANITIZED, "the interpreter can't load a sanitized library")
    def test_the_python_module_lists_decodes_and_reports(self):
        import kess
        bank = self.build("x.tnb", "-format", "pcm", key="key")
        with kess.Engine() as engine:
            for source in (bank, bank.read_bytes()):
                with engine.open(source, "key") as opened:
                    self.assertEqual([sound.name for sound in opened.sounds()], ["ramp", "tone"])
                    ramp = opened.sound("ramp")
                    self.assertEqual((ramp.channels, ramp.rate, ramp.length, ramp.loop_points),
                                     (1, 48000, 3000, (1000, 2000)))
                    voices = [ramp.voice(), ramp.voice()]
                voices[0].loop(1)
                voices[1].seek(2500)
                for voice, expected in zip(voices, ([*range(2000), *range(1000, 3000)], range(2500, 3000))):
                    with voice:
                        values = [round(value * 32768) for block in voice.blocks(700) for value in block]
                    self.assertEqual(values, [*expected])
                for ended in (ramp, opened, voices[0]):
                    with self.assertRaises(kess.Error):
                        ended.read(1)
            for arguments, result in ((("none.tnb",), 18), ((bank, "wrong"), 70), ((b"text",), 19)):
                with self.assertRaises(kess.Error) as caught:
                    engine.open(*arguments)
                self.assertEqual(caught.exception.result, result)
        status, output = self.run_tool(pathlib.Path(kess.__file__).with_name("list_bank.py"), bank, "key",
                                       program=sys.executable, env=dict(os.environ))
        self.assertEqual(status, 0, output)
        self.assertIn("ramp: 0.062 s, peak 0.092, level 0.053\n", output)
