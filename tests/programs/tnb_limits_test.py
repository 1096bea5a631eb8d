# SPDX-License-Identifier: MIT
"""Hand-made banks that try to take much time or memory: the inspector stays fast and small on any file."""

import os
import random
import re
import struct
import subprocess

import tnb_reader
from hand_bank import HandBank, chunk, sync_points
from program_case import BIN, ProgramCase, write_riff
from program_case import chunk as riff_chunk
from tnb_reader import HAS_NAMES, KADPCM, OPUS, VORBIS

MAXIMUM_SECONDS, MAXIMUM_BYTES = 2, 200 << 20
SANITIZED = any(mark in (BIN / "tnb").read_bytes() for mark in (b"__asan_init", b"__tsan_init"))

SILENCE = struct.pack("<HBh", 3, 62, 0) # one channel of a superblock
COMMANDS = (["info"], ["info", "--json"], ["validate"], ["extract", "-o", "out", "-f"], ["diff", "x.tnb"])


def alike(count, build):
    """A bank of count sounds, each made by build(bank)."""
    bank = HandBank()
    for _ in range(count):
        build(bank)
    return bank


class Limits(ProgramCase):
    def run_within_limits(self, path, *arguments):
        """Exit status and all output of a run that may take 2 s of processor time and 200 MB."""
        with open(self.work / "output", "w+b") as output:
            tool = subprocess.Popen([BIN / "tnb", *arguments, path], cwd=self.work, stdout=output,
                                    stderr=subprocess.STDOUT, env=self.environment())
            _, status, usage = os.wait4(tool.pid, 0)
            tool.returncode = os.waitstatus_to_exitcode(status)
            output.seek(0)
            text = output.read(1 << 20).decode(errors="replace")
        self.assertIn(tool.returncode, (0, 1, 2), text[-2000:])
        if not SANITIZED:
            # The system's time for new files depends on the file system and on what was removed from it before.
            system = 0 if arguments[0] == "extract" else usage.ru_stime
            self.assertLess(usage.ru_utime + system, MAXIMUM_SECONDS)
            self.assertLess(usage.ru_maxrss << 10, MAXIMUM_BYTES)
        return tool.returncode, text

    def assert_statuses(self, data, info, validate, extract, words=""):
        (self.work / "x.tnb").write_bytes(data)
        for arguments in COMMANDS:
            status, text = self.run_within_limits("x.tnb", *arguments)
            expected = {"info": info, "validate": validate, "extract": extract, "diff": 2 if extract else 0}[arguments[0]]
            self.assertEqual(status, expected, f"{arguments[0]}: {text[:500]}")
            self.assertTrue(re.search(words, text), text[:500])

    def assert_refused(self, data, words=""):
        self.assert_statuses(data, 1, 1, 1, words)

    def assert_whole(self, data):
        self.assert_statuses(data, 0, 0, 0)


class SharingTest(Limits):
    def test_nothing_but_a_setup_is_in_two_sounds(self):
        bank = HandBank() # 5,000 rows on one chunk
        points, frame = bank.part(chunk(b"SYNC", sync_points([(0, b"")] * 65536))), bank.part(bytes(2))
        for _ in range(5000):
            bank.sound(points, frame, 1)
        self.assert_refused(bank.bytes(), "share bytes")

        bank = HandBank() # 2,000 rows on one sound
        nothing, data = bank.part(b""), bank.part(SILENCE * 86000)
        for _ in range(2000):
            bank.sound(nothing, data, 86000 * 2048, KADPCM)
        self.assert_refused(bank.bytes(), "share bytes")

        bank = HandBank() # 5,000 rows on one name
        nothing = bank.part(b"")
        bank.sound(nothing, nothing, 0, name=b"n" * 65535)
        for _ in range(5000):
            bank.sound(nothing, nothing, 0, name_offset=0, name_bytes=65535)
        self.assert_refused(bank.bytes(), "names of its sounds share bytes")

    def test_overlaps_are_found_wherever_they_lie(self):
        def bank(shift=0, order=(0, 1, 2), **header):
            made = HandBank()
            setup = made.setup(bytes(7))
            parts = [(made.part(chunk(b"LATE", bytes(9))), made.part(bytes(32))) for _ in range(3)]
            parts[1] = (parts[1][0], made.again(parts[1][1], shift))
            for i in order:
                made.sound(*parts[i], 16, setup=setup, name=b"s%d" % i)
            return made.bytes(**header)

        for order in ((0, 1, 2), (2, 0, 1)):
            self.assert_whole(bank(0, order))
            for shift in (-1, 1):
                self.assert_refused(bank(shift, order), "share bytes")
        for field in ("index_offset", "setup_rows", "names_offset"):
            self.assert_refused(bank(**{field: 160}), "lies outside the tables or overlaps another")

        shuffled = HandBank()
        parts = [(shuffled.part(b""), shuffled.part(bytes(2))) for _ in range(20000)]
        random.Random(1).shuffle(parts)
        for part in parts:
            shuffled.sound(*part, 1)
        (self.work / "x.tnb").write_bytes(shuffled.bytes())
        self.assertEqual(self.run_within_limits("x.tnb", "validate")[0], 0)

    def test_names(self):
        for flags, name, header, words in (
            (HAS_NAMES, b"a\0b", {}, "zero byte"),
            (0, b"a", {}, "index of names doesn't fit"),
            (HAS_NAMES, b"a", {"index_count": 0}, "index of names doesn't fit"),
            (HAS_NAMES, b"n" * 65536, {}, "name is too long"),
        ):
            with self.subTest(name=name[:5], flags=flags, header=header):
                bank = HandBank(flags)
                bank.sound(bank.part(b""), bank.part(bytes(2)), 1, name=name)
                self.assert_refused(bank.bytes(**header), words)

    def test_sync_points_beyond_those_that_a_bank_holds_are_left_out(self):
        count = 43000 # rows with one name
        points = b"".join(struct.pack("<II4sIII", 1, i, b"data", 0, 0, i) for i in range(count))
        label = riff_chunk(b"labl", struct.pack("<I", 1) + b"n" * 120)
        path = write_riff(self.work / "in" / "many.wav", bytes(2 * count))
        chunks = riff_chunk(b"cue ", struct.pack("<I", count) + points) + riff_chunk(b"LIST", b"adtl" + label)
        data = path.read_bytes() + chunks
        path.write_bytes(data[:4] + struct.pack("<I", len(data) - 8) + data[8:])
        status, output = self.run_tool(path, "-o", "x.tnb")
        self.assertEqual(status, 0)
        self.assertIn("many.wav: 11225 of its markers were left out, because a bank stores at most 65,536 for a sound", output)
        self.assertEqual(self.run_within_limits("x.tnb", "validate")[0], 0)


class CostTest(Limits):
    """Each bank takes only as much time and memory as its contents need."""

    def encoded(self, name, channels, samples, rate=48000):
        """Setup and data of a sound as encoded by the programs."""
        write_riff(self.folder_in / "a.wav", samples, channels, rate)
        bank = tnb_reader.Bank(self.build("encoded.tnb", "-format", name, "-no_loop").read_bytes())
        return bank, bank.sounds[0], bytes(bank.sound_data(bank.sounds[0]))

    def test_sync_points_and_names(self):
        data = bytes(2)
        for points, status in (([(0, b"")] * 65536, 0), ([(0, b"")] * 65537, 1), ([(1, b"\x1b" * 120)] * 60000, 0),
                               ([(0, b"n" * 65535)] * 120, 0), ([(0, b"n" * 65536)], 1), ([(0, b"a\0")], 1),
                               ([(2, b"")], 1)):
            with self.subTest(points=len(points), name=points[0][1][:5]):
                bank = HandBank()
                bank.sound(bank.part(chunk(b"SYNC", sync_points(points))), bank.part(data), 1)
                self.assert_statuses(bank.bytes(), status, status, status)
        self.assert_whole(alike(100, lambda bank: bank.sound(
            bank.part(chunk(b"SYNC", sync_points([(0, b"\x9b")] * 1500))), bank.part(data), 1, name=b"n" * 65535)).bytes())

    def test_chunks(self):
        for chunks, status in ((chunk(b"LATE", b"") * (1 << 20), 0), (chunk(b"LATE", bytes((8 << 20) - 8)), 0),
                               (chunk(b"LATE", bytes((8 << 20) - 7)), 1), (chunk(b"SEEK", b"") * 2, 1),
                               (chunk(b"LOOP", struct.pack("<QQ", 0, 1)) * 2, 1), (chunk(b"LATE", b"") * 2, 0)):
            with self.subTest(chunks=chunks[:8], size=len(chunks)):
                bank = HandBank()
                bank.sound(bank.part(chunks), bank.part(bytes(2)), 1)
                self.assert_statuses(bank.bytes(), status, status, status)

    def test_seek_points(self):
        def bank(points, blocks=131073, channels=1, length=None):
            made = HandBank()
            seek = made.part(chunk(b"SEEK", b"".join(struct.pack("<QQ", *point) for point in points)))
            made.sound(seek, made.part(SILENCE * channels * blocks), length or blocks * 2048, KADPCM, channels)
            return made.bytes()

        def every(count, step=1, size=5):
            return [(2048 * step * i, size * step * i) for i in range(1, count)]

        self.assert_whole(bank(every(131073)))
        self.assert_refused(bank(every(131074), 131074))
        self.assert_whole(bank(every(2700, 1, 160), 2700, 32))
        self.assert_statuses(bank([(i, i) for i in range(1, 131073)]), 0, 1, 0)

    def test_many_small_sounds(self):
        for row_bytes, count in ((96, 100000), (4096, 2000)):
            bank = HandBank(row_bytes=row_bytes)
            none = bank.part(b"")
            for i in range(count):
                bank.sound(none, none, 0, name=b"same" if i % 2 else b"")
            self.assert_whole_info(bank.bytes())

    def assert_whole_info(self, data):
        """Without extraction, which would take too long to write its files."""
        (self.work / "x.tnb").write_bytes(data)
        for arguments in COMMANDS[:3]:
            self.assertEqual(self.run_within_limits("x.tnb", *arguments)[0], 0)

    def test_headers_that_many_sounds_share(self):
        for name, channels, codec in (("vorbis", 32, VORBIS), ("vorbis", 1, VORBIS), ("opus", 32, OPUS)):
            with self.subTest(format=name, channels=channels):
                encoded, sound, data = self.encoded(name, channels, bytes(2 * channels * 100))
                made = HandBank()
                setup = made.setup(encoded.setups[0])
                for _ in range(2000 // channels):
                    made.sound(made.part(b""), made.part(data), 100, codec, channels, pre_skip=sound["preSkip"],
                               setup=setup)
                self.assert_whole(made.bytes())
        for codec in (VORBIS, OPUS):
            made = HandBank() # large and useless
            setup = made.setup(struct.pack("<I", 30) + bytes((1 << 20) - 4))
            for _ in range(3000):
                made.sound(made.part(b""), made.part(bytes(2)), 100, codec, setup=setup)
            self.assert_statuses(made.bytes(), 0, 1, 1)

    def test_corrections_and_pre_skips(self):
        encoded, sound, data = self.encoded("vorbis", 32, bytes(2 * 32 * 5000))
        seam = b"".join(struct.pack("<QI", 0, 1024) + b"\xff" * (32 * (16 + 256)) for _ in range(8))
        made = HandBank()
        setup = made.setup(encoded.setups[0])
        for _ in range(20):
            made.sound(made.part(chunk(b"SEAM", seam)), made.part(data), 4000, VORBIS, 32, pre_skip=sound["preSkip"],
                       setup=setup)
        self.assert_whole(made.bytes())
        for codec, pre_skip in ((VORBIS, 131073), (VORBIS, (1 << 31) - 1), (OPUS, 0xFFFFFFFF), (KADPCM, 1), (0, 1)):
            made = HandBank()
            setup = made.setup(encoded.setups[0])
            made.sound(made.part(b""), made.part(bytes(1 << 20)), 1, codec, pre_skip=pre_skip, setup=setup)
            self.assert_refused(made.bytes(), "length")
        made = HandBank() # the maximum pre-skip, in the shortest packets
        setup = made.setup(encoded.setups[0])
        made.sound(made.part(b""), made.part(b"\1\0" * 4000), 1, VORBIS, 32, pre_skip=131072, setup=setup)
        self.assert_whole(made.bytes())

    def test_sizes_of_gigabytes(self):
        """Files with holes, which take no space."""
        huge = 5 << 30
        for size, row, header in ((None, {}, {"tables": huge}), (None, {}, {"names_bytes": huge, "tables": huge + 1000}),
                                  (None, {"name_bytes": 0xFFFFFFFF}, {"names_bytes": huge, "tables": huge + 1000}),
                                  ("chunks", {}, {}), ("setup", {}, {})):
            with self.subTest(size=size, row=row, header=header):
                made = HandBank()
                none = made.part(b"")
                setup = (none[0], 0xFFFFFFFF, 0) if size == "setup" else none
                made.setups.append(setup)
                chunks = (none[0], 0xFFFFFFFF, 0) if size == "chunks" else none
                made.sound(chunks, none, 0, setup=0, **row)
                path = self.work / "x.tnb"
                path.write_bytes(made.bytes(file=huge + 4096, **header))
                os.truncate(path, huge + 4096)
                for arguments in COMMANDS:
                    status, text = self.run_within_limits("x.tnb", *arguments)
                    self.assertEqual(status, 2 if "diff" in arguments else 1)
                    self.assertRegex(text, "too large")

    def test_packets(self):
        encoded, _, _ = self.encoded("opus", 1, bytes(2 * 4800))
        for data in (b"\x81\x82\x83\1" + bytes(3 << 20), b"\xff\xff\x7f" + bytes((2 << 20) - 1)):
            made = HandBank()
            setup = made.setup(encoded.setups[0])
            made.sound(made.part(b""), made.part(data), 1000, OPUS, setup=setup)
            self.assert_statuses(made.bytes(), 0, 1, 1)

    def test_keys(self):
        """Argon2id with the maximum that a reader accepts, and with more."""
        for passes, memory, status in ((16, 65536, 2), (17, 65536, 1), (16, 65537, 1), (2, 7, 1), (0, 8, 1)):
            with self.subTest(passes=passes, memory=memory):
                front = tnb_reader.MAGIC + struct.pack("<HHIIIQQII72x", 2, 0, 128, 1, 65536, 1, 145, passes, memory)
                data = front + struct.pack("<Q", tnb_reader.checksum(front)) + bytes(17)
                (self.work / "x.tnb").write_bytes(data)
                self.assertEqual(self.run_within_limits("x.tnb", "info", "--key", "k")[0], status)
