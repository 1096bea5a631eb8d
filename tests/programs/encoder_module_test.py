# SPDX-License-Identifier: MIT
"""Builds banks with an encoder module, in an application folder with and without modules."""

import shutil
import struct

import tnb_reader
from program_case import ALL_WRITTEN, BIN, BUILD_FAILED, FORMATS, SAMPLES, ProgramCase, write_riff

MODULES = BIN.parent / "tests"
FRAMES = 64


def ramp(frames, channels):
    return struct.pack(f"<{frames * channels}h", *((i * 37) % 60000 - 30000 for i in range(frames * channels)))


def decode(bank, sound):
    """Samples of the example's blocks, without the pre-skip."""
    channels = sound["channels"]
    blocks = [[mantissa / 128 / 2 ** exponent for mantissa in mantissas]
              for exponent, *mantissas in struct.iter_unpack(f"B{FRAMES}b", bank.sound_data(sound))]
    frames = [value for at in range(0, len(blocks), channels)
              for frame in zip(*blocks[at:at + channels]) for value in frame]
    return frames[sound["preSkip"] * channels:(sound["preSkip"] + sound["length"]) * channels]


class EncoderModuleTest(ProgramCase):
    def setUp(self):
        super().setUp()
        self.libraries = self.folder / "application" / "lib"
        self.libraries.mkdir(parents=True)
        for file in (BIN / "lib").iterdir():
            (self.libraries / file.name).symlink_to(file)
        shutil.copy(BIN / "tarnokexcl", self.libraries.parent)
        self.sources = {name: ramp(frames, channels)
                        for name, frames, channels in (("mono", 5000, 1), ("short", 3, 1), ("stereo", 2000, 2))}
        for name, samples in self.sources.items():
            write_riff(self.folder_in / f"{name}.wav", samples, 2 if name == "stereo" else 1, 48000)

    def run_build(self, expected, *arguments, **variables):
        status, output = self.run_tool("./in", "-o", "x.tnb", *arguments, env=self.environment() | variables,
                                       program=self.libraries.parent / "tarnokexcl")
        self.assertEqual(status, expected, output)
        return output

    def test_a_sound_goes_through_the_module_and_back(self):
        for module, name, codec in (("tarnok_xma.so", "xma", 1), ("tarnok_at9.so", "at9", 2)):
            with self.subTest(format=name):
                shutil.copy(MODULES / module, self.libraries)
                self.run_build(ALL_WRITTEN, "-format", name, "-quality", "70", "-no_seek")
                bank = tnb_reader.Bank((self.work / "x.tnb").read_bytes())
                self.assertEqual(len(bank.setups), 2, "one for mono, one for stereo")
                for sound in bank.sounds:
                    source = self.sources[sound["name"].decode()]
                    wanted = [value / 32768 for value in struct.unpack(f"<{len(source) // 2}h", source)]
                    decoded = decode(bank, sound)
                    self.assertEqual(len(decoded), len(wanted))
                    self.assertLess(max(abs(a - b) for a, b in zip(decoded, wanted)), 1 / 127)
                    self.assertEqual((sound["codec"], sound["quality"], sound["preSkip"]), (codec, 70, FRAMES))
                    self.assertEqual(bank.setups[sound["setup"]], b"EXAMPLE" + bytes([sound["channels"], 8]))
                    self.assertEqual(sound["loop"], (0, sound["length"]))
                    self.assertEqual(sound["seekPoints"], [])
                self.assertEqual(self.tnb("validate", "x.tnb")[0], 0)

    def test_flags_of_the_module_are_part_of_the_cache_key(self):
        shutil.copy(MODULES / "tarnok_xma.so", self.libraries)
        for arguments, said, points in (([], "[processing]", [4, 0, 2]), ([], "[cached]", [4, 0, 2]),
                                        (["-no_seek"], "[processing]", [0, 0, 0]), ([], "[cached]", [4, 0, 2])):
            log = self.run_build(ALL_WRITTEN, "-format", "xma", *arguments)
            self.assertEqual(log.count(said), 3, log)
            bank = tnb_reader.Bank((self.work / "x.tnb").read_bytes())
            self.assertEqual([len(sound["seekPoints"]) for sound in bank.sounds], points)

    def test_an_absent_or_broken_module_is_reported_for_each_sound(self):
        other = (MODULES / "tarnok_at9.so").read_bytes()
        cases = {"absent": (None, "not installed", "not found"),
                 "no library": (b"MZ not for this system", "can't be used", "could not be loaded"),
                 "cut short": (other[:len(other) // 3], "can't be used", "could not be loaded"),
                 "a library of another kind": ((BIN / "lib" / "libtarnokL.so.14").read_bytes(), "not an encoder module",
                                               "could not be loaded"),
                 "a module of the other format": (other, "another format", "could not be loaded")}
        for name, (content, report, verdict) in cases.items():
            with self.subTest(name):
                module = self.libraries / "tarnok_xma.so"
                module.unlink(missing_ok=True)
                if content is not None:
                    module.write_bytes(content)
                log = self.run_build(BUILD_FAILED, "-format", "xma")
                reports = [line for line in log.splitlines() if " failed: " in line and line.startswith("ERROR: Subs")]
                self.assertEqual(len(reports), 3, log)
                self.assertTrue(all(report in line for line in reports), log)
                self.assertIn(verdict, log)
                self.assertFalse((self.work / "x.tnb").exists())

    def test_a_module_that_misbehaves_affects_only_its_sounds(self):
        shutil.copy(MODULES / "misbehaving.so", self.libraries / "tarnok_xma.so")
        for misdeed in ("writes nothing", "never ends", "deaf to errors", "reads far away", "stores two setups",
                        "drops more than exists", "points past the data", "cancels by itself"):
            with self.subTest(misdeed):
                log = self.run_build(BUILD_FAILED, "-format", "xma", MISDEED=misdeed)
                self.assertEqual(sum("failed: " in line and ": the encoder" in line for line in log.split("\n")), 3, log)
                self.assertFalse((self.work / "x.tnb").exists())
        # None of them has left anything in the cache that another build would use as a sound.
        self.run_build(ALL_WRITTEN, "-format", "xma", MISDEED="")
        self.assertEqual(self.tnb("validate", "x.tnb")[0], 0)

    def test_takes_every_kind_of_sample_in_every_format_without_the_wide_decoder(self):
        (self.libraries / "kess_ffmpeg.so").unlink(missing_ok=True)
        sounds = [shutil.copy(p, self.folder_in) for p in SAMPLES.iterdir() if p.is_file()]
        self.assertGreaterEqual(len(sounds), 10)
        for name in FORMATS:
            log = self.run_build(ALL_WRITTEN, "-format", name)
            self.assertEqual(log.count("[processing]"), len(sounds) + len(self.sources), log)
            self.assertEqual(self.tnb("validate", "x.tnb")[0], 0)
