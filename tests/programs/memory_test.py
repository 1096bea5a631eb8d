# SPDX-License-Identifier: MIT
"""Builds with little memory: fewer workers or a message, but never a crash or a different bank."""

import os
import resource
import struct
import unittest

from program_case import ALL_WRITTEN, BIN, BUILD_FAILED, SOUNDS_MISSING, ProgramCase, write_riff, write_wav

LIBRARY = (BIN / "lib" / "libtarnokL.so.14").read_bytes()
MEGABYTE = 1 << 20


@unittest.skipIf(b"__asan_init" in LIBRARY or b"__tsan_init" in LIBRARY, "sanitizers take what address space there is")
class MemoryTest(ProgramCase):
    def build_within(self, megabytes, name, form):
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (megabytes * MEGABYTE,) * 2)
        cache = self.work / f"cache {megabytes} {form}"
        cache.mkdir()
        return self.run_tool("./in", "-o", name, "-format", form, "-thread_count", "8", "-cache_dir", cache.name,
                             preexec_fn=limit)

    def test_a_limit_on_the_address_space_costs_workers_and_nothing_else(self):
        for number in range(8):
            write_riff(self.folder_in / f"{number}.wav", os.urandom(600_000), 2)
        for form in ("vorbis", "opus"):
            expected = self.build(f"free_{form}.tnb", "-format", form).read_bytes()
            for megabytes in (120, 200, 280, 360, 440, 520, 586, 700):
                with self.subTest(form=form, megabytes=megabytes):
                    status, output = self.build_within(megabytes, "limited.tnb", form)
                    self.assertEqual(status, ALL_WRITTEN, output)
                    self.assertEqual((self.work / "limited.tnb").read_bytes(), expected)

    def test_too_little_for_a_single_worker_is_refused_in_words(self):
        write_wav(self.folder_in / "a.wav")
        outcomes = [self.build_within(megabytes, "b.tnb", "vorbis") for megabytes in range(70, 120, 5)]
        for status, output in outcomes:
            self.assertIn(status, (ALL_WRITTEN, BUILD_FAILED, 127), output)  # 127: the libraries can't be loaded
        self.assertTrue(any("address space of this process (ulimit -v) leaves" in output for _, output in outcomes))

    @unittest.skipUnless((BIN / "lib" / "kess_ffmpeg.so").exists(), "without the decoder module")
    def test_a_sound_whose_decoder_finds_no_room_is_named_and_never_overwritten(self):
        write_wav(self.folder_in / "a.wav")
        start = struct.pack(">I4s4sI4s4s", 24, b"ftyp", b"M4A ", 0, b"M4A ", b"isom")
        (self.folder_in / "b.m4a").write_bytes(start)
        status, output = self.build_within(150, "b.tnb", "pcm")
        self.assertEqual(status, SOUNDS_MISSING, output)
        self.assertRegex(output, "left out '.*b.m4a': out of memory")
        goal = self.work / "recording.tnb"
        goal.write_bytes(start)
        status, output = self.build_within(150, goal.name, "kadpcm")
        self.assertEqual(goal.read_bytes(), start, output)
