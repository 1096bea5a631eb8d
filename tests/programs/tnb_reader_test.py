# SPDX-License-Identifier: MIT
"""Compares the programs with a reader that was written from docs/tnb-format.md alone."""

import hashlib
import random
import struct

import tnb_reader
from program_case import FORMATS, LOSSY, ProgramCase, packet_starts, read_riff, write_riff
from tnb_reader import KADPCM, OPUS, PCM, VORBIS

CODECS = {"pcm": PCM, "kadpcm": KADPCM, "vorbis": VORBIS, "opus": OPUS}


def noisy_tone(frames, channels, noise, seed=1):
    """16-bit samples with similar channels: predictable, constant and random sections, with coupling."""
    random.seed(seed)
    samples = []
    for i in range(frames):
        tone = 9000 * (1 if i // 100 % 2 else -1) * (frames - i) // frames if i < frames // 2 else 777
        for channel in range(channels):
            samples.append(tone // (channel + 1) + random.randint(-noise, noise))
    return struct.pack(f"<{len(samples)}h", *samples)


class ReaderTest(ProgramCase):
    def setUp(self):
        super().setUp()
        write_riff(self.folder_in / "click.wav", noisy_tone(1, 1, 0), rate=8000)
        write_riff(self.folder_in / "loop.wav", noisy_tone(30000, 2, 300), 2, 48000, loop=(1000, 28999),
                   cues=((5, "first"), (20000, ""), (20001, "größer")))
        write_riff(self.folder_in / "plain.wav", random.Random(2).randbytes(5000 * 2), rate=48000)
        write_riff(self.folder_in / "quad.wav", noisy_tone(4100, 4, 3), 4, 16000)
        write_riff(self.folder_in / "bytes.wav", bytes(range(256)) * 9, bits=8)
        write_riff(self.folder_in / "three.wav", random.Random(3).randbytes(6000), bits=24)

    def test_finds_what_the_programs_find(self):
        for name in FORMATS:
            with self.subTest(format=name):
                path = self.build(f"{name}.tnb", "-format", name, "-write_peak_volume")
                bank = tnb_reader.Bank(path.read_bytes())
                info = self.info(path)
                self.assertEqual(bank.header["format"], CODECS[name])
                self.assertEqual(bank.header["fileBytes"], info["bytes"])
                self.assertEqual(bank.header["guid"].hex(), info["guid"].replace("-", ""))
                self.assertEqual(bank.header["guid"][6] >> 4, 8)
                self.assertEqual(len(bank.sounds), len(info["sounds"]))
                for index, (sound, listed) in enumerate(zip(bank.sounds, info["sounds"])):
                    self.assert_same(sound, listed)
                    self.assertEqual(bank.find(sound["name"]), index)
                self.assertIsNone(bank.find(b"nobody"))
                if name in LOSSY:
                    self.assert_packets(bank)
                else:
                    self.assert_samples(bank, path)

    def assert_same(self, sound, listed):
        points = [{"sample": frame, "name": name.decode()} for frame, name in sound["syncPoints"]]
        self.assertEqual(listed, listed | {
            "name": sound["name"].decode(), "channels": sound["channels"], "rate": sound["rate"],
            "samples": sound["length"], "bytes": sound["dataBytes"], "quality": sound["quality"] or None,
            "loop": dict(zip(("start", "end"), sound["loop"])), "syncPoints": points})
        self.assertEqual(sound["codec"], CODECS[listed["codec"]])
        self.assertAlmostEqual(sound["peak"], listed["peak"], 5)

    def assert_samples(self, bank, path):
        folder = path.stem + " extracted"
        self.assert_tnb("extract", path, "-o", folder)
        for sound in bank.sounds:
            extracted = read_riff(self.work / folder / (sound["name"].decode() + ".wav"))["samples"]
            decoded = bank.decode(sound)
            if sound["sampleFormat"] == 1:
                decoded = bytes(byte ^ 0x80 for byte in decoded)
            self.assertEqual(decoded, extracted, sound["name"])

    def assert_packets(self, bank):
        self.assertLessEqual(len({sound["setup"] for sound in bank.sounds}), len(bank.setups))
        for sound in bank.sounds:
            self.assertTrue(all(bank.packets(sound)))
            self.assertLessEqual({offset for _, offset in sound["seekPoints"]}, set(packet_starts(bank, sound)))
        self.assertTrue(any(sound["corrections"] for sound in bank.sounds))

    def test_leaves_out_what_a_bank_leaves_out(self):
        bank = tnb_reader.Bank(self.build("x.tnb", "-no_guid", "-no_loop").read_bytes())
        self.assertEqual(bank.header["flags"], tnb_reader.HAS_NAMES)
        self.assertEqual(bank.header["guid"], bytes(16))
        for sound in bank.sounds:
            self.assertEqual((sound["loop"], sound["peak"]), (None, None))

    def test_reads_the_header_of_an_encrypted_bank(self):
        plain = self.build("plain.tnb").read_bytes()
        encrypted = self.build("encrypted.tnb", key="key").read_bytes()
        header = tnb_reader.Bank(encrypted).header
        self.assertEqual((header["passes"], header["memoryKiB"], header["pieceBytes"]), (2, 19456, 65536))
        self.assertEqual(header["plainBytes"], len(plain))
        tag = hashlib.blake2b(b"tnb content tag 1" + plain, digest_size=32).digest()
        self.assertEqual(header["contentTag"], tag, "the plain layout is the bank without a key")
