# SPDX-License-Identifier: MIT
"""Runs the bank inspector as its users do: real banks, damaged banks, hostile names, exit statuses, files on disk."""

import json
import os
import random
import resource
import signal
import struct

import tnb_reader
from program_case import BIN, FORMATS, LOSSY, ProgramCase, packet_starts, read_riff, write_riff, write_wav

WHOLE, DAMAGED, UNREADABLE = 0, 1, 2
EXAMPLE = BIN.parent / "tests" / "play_bank"


def noise(count, seed=1):
    return random.Random(seed).randbytes(count)


def reseal(bank):
    """Corrects the checksums of a bank in a bytearray."""
    rows, row_bytes, count = (struct.unpack_from(code, bank, at)[0] for code, at in (("<Q", 56), ("<I", 64), ("<I", 28)))
    for row in range(rows, rows + count * row_bytes, row_bytes):
        chunks_size, = struct.unpack_from("<I", bank, row + 28)
        chunks, data, data_size = struct.unpack_from("<QQQ", bank, row + 40)
        struct.pack_into("<Q", bank, row + 32, tnb_reader.checksum(bank[chunks:chunks + chunks_size]))
        struct.pack_into("<Q", bank, row + 64, tnb_reader.checksum(bank[data:data + data_size]))
    tables_size, = struct.unpack_from("<Q", bank, 112)
    struct.pack_into("<Q", bank, 120, tnb_reader.checksum(bank[160:160 + tables_size]))
    struct.pack_into("<Q", bank, 152, tnb_reader.checksum(bank[:152]))


class TnbCase(ProgramCase):
    def assert_fails(self, status, words, *arguments, output="", **options):
        result, written, errors = self.tnb(*arguments, **options)
        self.assertEqual((result, written or ""), (status, output), errors)
        self.assertRegex(errors, words)

    def make_sounds(self):
        write_riff(self.folder_in / "loop.wav", noise(20000 * 4), 2, 48000, loop=(1000, 18999),
                   cues=((0, "start"), (7000, ""), (19999, "größer")))
        write_wav(self.folder_in / "tone.wav", seconds=3, rate=48000)

    def files(self, folder):
        return sorted(str(p.relative_to(self.work / folder)) for p in (self.work / folder).rglob("*"))


class InfoTest(TnbCase):
    def test_lists_and_extracts_what_a_bank_contains(self):
        self.make_sounds()
        for name in FORMATS:
            for key in (None, "secret"):
                with self.subTest(format=name, key=key):
                    path = self.build("x.tnb", "-format", name, "-quality", "40", "-write_peak_volume", key=key)
                    info = self.info(path, key=key)
                    quality = 40 if name in LOSSY else None
                    self.assertEqual(info, info | {"codec": name, "quality": quality, "encrypted": bool(key),
                                                   "names": True, "bytes": path.stat().st_size})
                    loop, tone = info["sounds"]
                    points = ((0, "start"), (7000, ""), (19999, "größer"))
                    self.assertEqual(loop, loop | {
                        "name": "loop", "codec": name, "quality": quality, "samples": 20000, "rate": 48000,
                        "channels": 2, "sampleFormat": "pcm16", "loop": {"start": 1000, "end": 19000},
                        "syncPoints": [{"sample": sample, "name": point} for sample, point in points]})
                    self.assertAlmostEqual(tone["peak"], 12000 / 32768, 4)
                    self.assertEqual(tone["seconds"], 3)
                    self.assertEqual(tone["bitsPerSample"], round(tone["bytes"] * 8 / 144000, 3))
                    self.assertAlmostEqual(tone["ratio"], 288000 / tone["bytes"], 3)

                    text = self.assert_tnb("info", path, key=key)
                    self.assertRegex(text, r"(?m)^ +1 +tone .* 48000 Hz +1 +3\.000 s +0-144000 +0 "
                                           r"+-8\.7 dB +[\d,]+ +\d")
                    self.assertRegex(text, r"(?m)^ +0 +19999 +größer$")

                    self.assertEqual(self.assert_tnb("validate", path, path, key=key), f"{path}: intact\n" * 2)
                    self.assert_tnb("extract", path, "-o", "out", "--force", key=key)
                    for sound in ("loop.wav", "tone.wav"):
                        source, got = read_riff(self.folder_in / sound), read_riff(self.work / "out" / sound)
                        self.assertEqual(len(got["samples"]), len(source["samples"]))
                        self.assertEqual(got["cues"], source["cues"])
                        self.assertEqual(got["loop"], source["loop"] or (0, 143999))

    def test_takes_the_key_from_a_file_too(self):
        path = self.build("x.tnb", key="two words", source="a.wav")
        for key in ("two words\r\nnot this\n", "\ufefftwo words\n", "two words \t \n", "\ufefftwo words  \r\n"):
            (self.work / "key").write_bytes(key.encode())
            self.assert_tnb("info", path, "--key-file", "key")
        for key in (" two words\n", "two  words\n"):
            (self.work / "key").write_bytes(key.encode())
            self.assert_fails(UNREADABLE, "different key", "info", path, "--key-file", "key")
        self.assert_tnb("validate", path, path, "--key-file", "-", typed="two words\n")
        self.assertEqual(self.tnb("validate", path, path, "--key-file", "-", typed="\ntwo words\n")[:2], (UNREADABLE, ""))
        self.assert_tnb("info", self.build("y.tnb", source="a.wav"), "-k", "of no use here")

    def test_names_what_it_can_not_read_and_why(self):
        (self.work / "empty").write_bytes(b"")
        locked = self.build("locked.tnb", key="k", source="a.wav")
        other = bytearray(self.build("other.tnb", source="a.wav").read_bytes())
        for name, major in (("older.tnb", 1), ("newer.tnb", 3)):
            other[8] = major
            (self.work / name).write_bytes(other)
        (self.work / "link.tnb").symlink_to("nothing")
        (self.work / "wide").write_bytes("k".encode("utf-16"))
        for arguments, words in (
            (["gone.tnb"], "gone.tnb: no such file\n"),
            (["link.tnb"], "link.tnb: no such file\n"),
            (["Other.tnb"], "Other.tnb: no such file: other.tnb is there: upper and lower case must match\n"),
            (["a.wav"], "a.wav: not a sound bank"),
            (["empty"], "empty: can't be read: it is empty"),
            (["in/.."], r"in/\.\.: "),
            (["/dev/null"], "/dev/null: can.t be read: it is a device or pipe, not a file"),
            ([locked], "encrypted; give its key with --key"),
            ([locked, "--key", "K"], "encrypted with a different key"),
            ([locked, "--key-file", "empty"], "can't read the key from empty"),
            ([locked, "--key-file", "gone"], "can't read the key from gone"),
            ([locked, "--key-file", "wide"], "wide is in UTF-16"),
            ([locked, "--key-file", "/dev/zero"], "the first line of /dev/zero is too long for a key"),
            (["older.tnb"], "it has a version of the bank format that this program can't read"),
            (["newer.tnb"], "it has a version of the bank format that this program can't read"),
            (["a.wav", "--\x1b[2J"], r"\\x1b\[2J"),
        ):
            for command in ("info", "validate", "extract"):
                with self.subTest(command=command, arguments=arguments):
                    self.assert_fails(UNREADABLE, words, command, *arguments)

    def test_refuses_wrong_arguments(self):
        for arguments in ([], ["nonsense"], ["info"], ["info", "a", "b"], ["info", "a", "--nonsense"], ["validate"],
                          ["extract"], ["info", "a", "--key", "k", "--key-file", "f"]):
            with self.subTest(arguments=arguments):
                self.assert_fails(UNREADABLE, ".", *arguments)
        self.assertIn("validate", self.assert_tnb("--help"))
        self.assertIn("--force", self.assert_tnb("extract", "-h"))
        self.assertRegex(self.assert_tnb("--version"), r"^tnb \d+\.\d+\.\d+\n$")

    def test_reports_when_its_output_is_lost(self):
        path = self.build("x.tnb", source="a.wav")
        with open("/dev/full", "w") as full:
            self.assert_fails(UNREADABLE, "can't write", "info", path, stdout=full)


class ValidateTest(TnbCase):
    def assert_damage(self, data, words, key=None):
        (self.work / "damaged.tnb").write_bytes(data)
        self.assert_fails(DAMAGED, r"\Atnb: damaged\.tnb: .*" + words, "validate", "damaged.tnb", key=key)

    def test_distinguishes_damage_from_what_is_no_bank(self):
        for key in (None, "k"):
            with self.subTest(key=key):
                whole = self.build("whole.tnb", source="a.wav", key=key).read_bytes()
                for offsets, status in (((12, 16, 100, 151, 155, 159, len(whole) // 2, len(whole) - 1), DAMAGED),
                                       ((0, 7, 9), UNREADABLE)):
                    for offset in offsets:
                        damaged = bytearray(whole)
                        damaged[offset] ^= 1 << offset % 8
                        (self.work / "damaged.tnb").write_bytes(damaged)
                        self.assertEqual(self.tnb("validate", "damaged.tnb", key=key)[0], status, offset)
                self.assert_damage(whole[:-1], "cut or lengthened", key)
                self.assert_damage(whole + b"\0", "cut or lengthened", key)
                self.assert_damage(whole[:39], "ends within its header", key)

    def test_says_which_sound_is_damaged_and_goes_on(self):
        self.make_sounds()
        whole = self.build("whole.tnb", "-format", "vorbis").read_bytes()
        sounds = tnb_reader.Bank(whole).sounds
        damaged = bytearray(whole)
        damaged[sounds[0]["dataOffset"] + 99] ^= 1
        damaged[sounds[1]["chunksOffset"] + 9] ^= 1
        self.assert_damage(damaged, "sound 0: its data doesn't match(?s:.*)sound 1: its chunks don't match")
        status, output, _ = self.tnb("info", "damaged.tnb")
        self.assertEqual(status, DAMAGED, "a sound whose chunks are damaged can't be described")
        self.assertRegex(output, r"(?m)^ +1 +\(damaged: its chunks don't match the checksum\)$")
        self.build("locked.tnb", key="k", source="a.wav")
        for banks, status in ((["damaged.tnb", "whole.tnb"], DAMAGED), (["whole.tnb", "locked.tnb"], UNREADABLE)):
            self.assertEqual(self.tnb("validate", *banks)[:2], (status, "whole.tnb: intact\n"))

    def test_finds_what_no_checksum_reveals(self):
        self.make_sounds()
        for name, damage, words in (
            ("vorbis", self.mislead_seeking, "sound 1: its seek table leads astray"),
            ("opus", self.mislead_seeking, "sound 1: its seek table leads astray"),
            ("kadpcm", self.lengthen_block, "sound 1: its packets don't fit"),
            ("opus", self.lengthen_block, "sound 1: its packets don't fit"),
            ("pcm", self.swap_names, "index of names is out of order"),
            ("pcm", self.rename, "index of names doesn't match"),
        ):
            with self.subTest(format=name, words=words):
                data = bytearray(self.build("whole.tnb", "-format", name).read_bytes())
                damage(data, tnb_reader.Bank(bytes(data)))
                reseal(data)
                self.assert_damage(data, words)

    def test_accepts_a_seek_point_that_is_only_inexact(self):
        self.make_sounds()
        data = bytearray(self.build("weak.tnb", "-format", "opus").read_bytes())
        bank = tnb_reader.Bank(bytes(data))
        sound = bank.sounds[1]
        starts = packet_starts(bank, sound)
        position, offset = sound["seekPoints"][0]
        # Two packets later, where the encoder uses prediction again.
        struct.pack_into("<QQ", data, data.index(b"SEEK", sound["chunksOffset"]) + 8,
                         position + 2 * sound["rate"] // 50, starts[starts.index(offset) + 2])
        reseal(data)
        (self.work / "weak.tnb").write_bytes(data)
        status, output, errors = self.tnb("validate", "weak.tnb")
        self.assertEqual((status, output), (0, "weak.tnb: intact\n"))
        self.assertRegex(errors, r"\Atnb: weak\.tnb: remark: sound 1: 1 seek point is weak: at sample \d+ .* -\d+ dB\n\Z")

    def mislead_seeking(self, data, bank):
        sound = bank.sounds[1]
        self.assertGreater(len(sound["seekPoints"]), 1)
        at = data.index(b"SEEK", sound["chunksOffset"]) + 8
        starts = packet_starts(bank, sound)
        struct.pack_into("<Q", data, at + 8, starts[starts.index(sound["seekPoints"][0][1]) + 1])

    def lengthen_block(self, data, bank):
        data[bank.sounds[1]["dataOffset"]] ^= 1

    def swap_names(self, data, bank):
        at = bank.header["nameIndexOffset"]
        data[at:at + 32] = data[at + 16:at + 32] + data[at:at + 16]

    def rename(self, data, bank):
        data[bank.header["namesOffset"]] = ord("L")


class ExtractTest(TnbCase):
    def test_extracts_pcm_bit_for_bit(self):
        sources = {}
        for bits, is_float in ((8, False), (16, False), (24, False), (32, False), (32, True)):
            for channels in (1, 2, 6):
                name = f"{'float' if is_float else bits}-{channels}"
                count = 1001 * channels
                samples = noise(count * bits // 8)
                if is_float: # beyond full scale too
                    samples = struct.pack(f"<{count}f", *(v / 2e4 for v, in struct.iter_unpack("<h", noise(2 * count))))
                sources[name] = write_riff(self.folder_in / f"{name}.wav", samples, channels, 44100, bits, is_float,
                                           (10, 999), ((0, "even"), (7, ""), (7, "a"), (1000, "größer")))
        for key in (None, "key"):
            bank = self.build("x.tnb", key=key)
            output = self.assert_tnb("extract", bank, "-o", "new/out", "--force", key=key)
            self.assertEqual(len(output.splitlines()), len(sources))
            for name, source in sources.items():
                self.assertEqual(read_riff(self.work / "new" / "out" / f"{name}.wav"), read_riff(source), name)
            # The extracted files compile to the same bank.
            self.assertEqual(self.build("again.tnb", source="new/out", key=key).read_bytes(), bank.read_bytes())

    def test_extracts_hostile_names_to_separate_files_in_the_folder(self):
        names = [b"../../up", b"a/b/../c", b"", b".hidden.", "\x1b[2J\x9b\u202eevil".encode(), b"\xff\xfe\xfd....", b"same.wav", b"SAME.wav",
                 b"same.wav", b"same-8..", b"x" * 230, b"..", b"/etc/x", b"a\\b:c*d?", "größer".encode()]
        for i in range(len(names)):
            write_riff(self.folder_in / f"{i:03}{'n' * 240}.wav", noise(200, seed=i), rate=8000)
        data = bytearray(self.build("x.tnb").read_bytes())
        header = tnb_reader.Bank(bytes(data)).header
        for i, name in enumerate(names):
            row = header["rowsOffset"] + i * header["rowBytes"]
            at = header["namesOffset"] + struct.unpack_from("<I", data, row + 72)[0]
            data[at:at + len(name)] = name
            struct.pack_into("<I", data, row + 76, len(name))
        reseal(data)
        (self.work / "x.tnb").write_bytes(data)

        before = set(self.files(".."))
        output = self.assert_tnb("extract", "x.tnb", "-o", "deep/er/out")
        made = self.files("deep/er/out")
        self.assertEqual(len(output.splitlines()), len(names))
        self.assertEqual(len(made), len(names), made)
        self.assertFalse({p for p in set(self.files("..")) - before if not p.startswith("work/deep")})
        self.assertTrue({"same.wav", "SAME-7.wav", "same-8.wav", "same-8-9.wav", "_._.._up.wav", "sound-2.wav",
                         "größer.wav"} <= set(made), made)
        self.assertFalse([name for name in made if name.startswith(".") or not name.isprintable()])
        self.assertEqual({read_riff(self.work / "deep/er/out" / name)["samples"] for name in made},
                         {noise(200, seed=i) for i in range(len(names))})
        self.assertNotIn("\x1b", self.assert_tnb("info", "x.tnb") + output)
        text = self.assert_tnb("info", "--json", "x.tnb")
        self.assertTrue(all(line.isprintable() for line in text.splitlines()), text)
        self.assertEqual(json.loads(text)["sounds"][4]["name"], "\x1b[2J\u009b\u202eevil")
        self.assertEqual(text, json.dumps(json.loads(text), indent=2, ensure_ascii=False)
                         .replace("\x9b", "\\u009b").replace("\u202e", "\\u202e") + "\n")

        # One of several sounds with the same name gets the same file name when it is extracted alone.
        self.assertEqual(self.assert_tnb("extract", "x.tnb", "8", "-o", "alone"), "alone/same-8.wav\n")

    def test_extracts_the_requested_sounds(self):
        for name in ("kick", "snare", "1"):
            write_wav(self.folder_in / f"{name}.wav")
        bank = self.build("x.tnb")
        order = [sound["name"] for sound in self.info(bank)["sounds"]]
        for wanted, got in ((["snare"], ["snare"]), (["2", "kick", "kick"], {order[2], "kick"}), (["1"], [order[1]]),
                            (["--name", "1"], ["1"])):
            with self.subTest(wanted=wanted):
                self.assert_tnb("extract", bank, *wanted, "-o", "_".join(wanted))
                self.assertEqual(self.files("_".join(wanted)), sorted(f"{name}.wav" for name in got))
        for unknown in ("Kick", "3", "99999999999999999999", "-1"):
            with self.subTest(unknown=unknown):
                self.assertEqual(self.tnb("extract", bank, "kick", unknown, "-o", "none")[0], UNREADABLE)
                self.assertFalse((self.work / "none").exists())

    def test_replaces_nothing_unless_requested(self):
        bank = self.build("x.tnb", source="a.wav")
        out = self.work / "out"
        out.mkdir()
        (self.work / "precious").write_text("outside")
        for occupy in (lambda: (out / "a.wav").write_text("mine"),
                       lambda: (out / "a.wav").symlink_to(self.work / "precious"),
                       lambda: (out / "a.wav").symlink_to(self.work / "nowhere")):
            occupy()
            self.assert_fails(UNREADABLE, "out/a.wav exists already", "extract", bank, "-o", "out")
            self.assert_tnb("extract", bank, "-o", "out", "--force")
            self.assertFalse((out / "a.wav").is_symlink())
            (out / "a.wav").unlink()
        self.assertEqual((self.work / "precious").read_text(), "outside")
        self.assertFalse((self.work / "nowhere").exists())
        (out / "a.wav").mkdir()
        self.assertEqual(self.tnb("extract", bank, "-o", "out", "--force")[0], UNREADABLE)
        for folder in ("a.wav", "long" * 100):
            self.assert_fails(UNREADABLE, "x.tnb: can't create the folder " + folder, "extract", bank, "-o", folder)
        self.assertEqual(self.files("out"), ["a.wav"])

    def test_leaves_no_partial_files(self):
        write_wav(self.folder_in / "long.wav", seconds=20)
        write_wav(self.folder_in / "short.wav")
        bank = self.build("x.tnb", "-format", "vorbis")

        stopped, status = self.work / "stopped", 0
        stopped.mkdir()
        while status != -signal.SIGTERM:
            with self.start("extract", bank, "long", "-o", "stopped", "--force", program="tnb") as process:
                while process.poll() is None and not any(name.startswith(".") for name in os.listdir(stopped)):
                    pass
                process.terminate()
            status = process.returncode
            self.assertIn(status, (0, -signal.SIGTERM), "0 if it was too quick to be stopped")
            self.assertEqual([name for name in os.listdir(stopped) if name.startswith(".")], [])

        def limit_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

        self.assert_fails(UNREADABLE, "can't write out/long.wav", "extract", bank, "-o", "out",
                          output="out/short.wav\n", preexec_fn=limit_files)
        self.assertEqual(self.files("out"), ["short.wav"])

        data = bytearray(bank.read_bytes())
        data[tnb_reader.Bank(bytes(data)).sounds[0]["dataOffset"] + 5000] ^= 1
        bank.write_bytes(data)
        self.assert_fails(DAMAGED, r"sound 0 \(long\): damaged", "extract", bank, "-o", "out", "--force",
                          output="out/short.wav\n")
        self.assertEqual(self.files("out"), ["short.wav"])

    def test_the_example_plays_a_sound_through_its_loop_twice(self):
        ramp = range(-15000, 15000)
        write_riff(self.folder_in / "ramp.wav", struct.pack("<30000h", *ramp), loop=(1000, 4999))
        for key in ([], ["key"]):
            bank = self.build("x.tnb", key="".join(key))
            self.assertEqual(self.run_tool(bank, "ramp", "played.wav", *key, program=EXAMPLE)[0], 0)
            samples = read_riff(self.work / "played.wav")["samples"]
            values = [round(value * 32768) for value, in struct.iter_unpack("<f", samples)]
            self.assertEqual(values, [*ramp[:5000], *ramp[1000:]])
            self.assertNotEqual(self.run_tool(bank, "nobody", "x.wav", *key, program=EXAMPLE)[0], 0)
