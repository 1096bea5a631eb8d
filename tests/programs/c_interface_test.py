# SPDX-License-Identifier: MIT
"""The engine's C interface: from C99 and from the examples."""

import pathlib
import re
import struct

from program_case import BIN, ProgramCase, write_riff, write_wav

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
