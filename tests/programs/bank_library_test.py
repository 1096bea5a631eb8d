# SPDX-License-Identifier: MIT
"""The static library for banks alone: what it needs, what it shows, and that it plays as the engine does."""

import re
import subprocess

from program_case import BIN, FORMATS, ProgramCase, write_riff, write_wav

PROGRAMS = BIN.parent / "tests"
ARCHIVE = BIN.parent / "archive" / "libkess_bank.a"


class BankLibraryTest(ProgramCase):
    def play(self, program, *arguments):
        return self.run_program(*arguments, program=PROGRAMS / program, encoding=None, stderr=subprocess.PIPE)

    def test_a_program_plays_banks_as_with_the_engine(self):
        write_riff(self.folder_in / "loop.wav", bytes(range(250)) * 80, 2, loop=(1000, 3999))
        write_wav(self.folder_in / "tone.wav", seconds=0.5, rate=48000)
        for name in FORMATS:
            for key in ([], ["key"]):
                with self.subTest(format=name, key=key):
                    bank = self.build("x.tnb", "-format", name, key="".join(key))
                    for sound in ("loop", "tone"):
                        played = self.play("play_bank_static", bank, sound, *key)
                        self.assertEqual((played[0], played[2]), (0, b""))
                        self.assertEqual(played, self.play("play_bank_c", bank, sound, *key))
        for refused in (self.work / "a.wav", "missing.tnb"):
            status, _, errors = self.play("play_bank_static", refused)
            self.assertEqual(status, 1)
            self.assertRegex(errors, b"Unsupported file|File not found")

    def test_it_needs_the_codecs_of_banks_alone(self):
        needed = subprocess.run(["readelf", "-d", PROGRAMS / "play_bank_static"], capture_output=True, text=True, check=True)
        libraries = set(re.findall(r"NEEDED.*\[lib(\w[\w+]*)", needed.stdout))
        runtime = {"c", "m", "stdc++", "gcc_s", "asan", "ubsan", "tsan"}
        self.assertEqual(libraries - runtime, {"vorbis", "opus", "sodium", "xxhash"} | libraries & {"ogg"})

    def test_it_shows_the_interface_and_nothing_else(self):
        symbols = subprocess.run(["nm", "-gC", "--defined-only", ARCHIVE], capture_output=True, text=True, check=True)
        named = re.findall(r"^[0-9a-f]+ [TDRB] (.*)$", symbols.stdout, re.MULTILINE)
        self.assertGreater(len(named), 60)
        self.assertEqual([name for name in named if not name.startswith("KESS")], [])

    def test_the_engine_is_not_changed_by_a_program_that_exports_the_same_functions(self):
        library = BIN / "lib" / "libkessL.so.14"
        found = subprocess.run(["readelf", "-rW", library], capture_output=True, text=True, check=True)
        self.assertIn("JUMP_SLO", found.stdout)
        self.assertNotRegex(found.stdout, r"JUMP_SLO.*KESS")
