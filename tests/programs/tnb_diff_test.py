# SPDX-License-Identifier: MIT
"""Compares banks with the inspector, and validates its JSON outputs against their published schemas."""

import json
import struct
import subprocess
import sys

from hand_bank import HandBank, chunk, sync_points
from json_schema import validated
from program_case import BIN, FORMATS, ProgramCase, write_riff, write_wav

SAME, DIFFERENT, TROUBLE = 0, 1, 2
XMA = 1
SANITIZED = any(mark in (BIN / "tnb").read_bytes() for mark in (b"__asan_init", b"__tsan_init"))


def pcm(*values, bits=16):
    return struct.pack(f"<{len(values)}{'h' if bits == 16 else 'i'}", *values)


LOOP = chunk(b"LOOP", struct.pack("<QQ", 1, 3))
POINTS = chunk(b"SYNC", sync_points([(1, b"hit")]))
TONE = {"data": pcm(100, 200, 300, 400), "length": 4}


class DiffTest(ProgramCase):
    def write(self, name, sounds, **flags):
        """A bank of these sounds: names, and what differs from a short tone."""
        bank = HandBank(**flags)
        for sound, changes in sounds:
            facts = TONE | changes
            chunks, data = bank.part(facts.pop("chunks", b"")), bank.part(facts.pop("data"))
            bank.sound(chunks, data, facts.pop("length"), name=sound.encode(), **facts)
        path = self.work / name
        path.write_bytes(bank.bytes())
        return path

    def diff(self, *arguments, **options):
        """Exit status and parsed output, which matches the schema; the text has the same status."""
        status, text, errors = self.tnb("diff", "--json", *arguments, **options)
        self.assertTrue(text, errors)
        found = json.loads(text)
        validated("tnb-diff", found)
        self.assertEqual(found["same"], {SAME: True, DIFFERENT: False, TROUBLE: None}[status])
        self.assertEqual(self.tnb("diff", *arguments, **options)[0], status)
        return status, found

    def test_reports_sounds_that_came_went_and_moved(self):
        tone, named = {}, lambda names: [(name, {}) for name in names.split()]
        for old, new, removed, added, moved, words in (
            ("a b c", "a b c", [], [], [], "no difference"),
            ("a b c", "x a b c", [], [0], [(0, 1), (1, 2), (2, 3)], "moved    0-2 -> 1-3: 3 sounds"),
            ("a b c d", "c a d", [1], [], [(2, 0), (0, 1), (3, 2)], "removed  1: b"),
            ("a a a", "a b a", [2], [1], [(1, 2)], "moved    1 -> 2: a"),
            ("", "a", [], [0], [], "added    0: a"),
            ("A", "a", [0], [0], [], "1 removed, 1 added, 0 moved, 0 changed"),
        ):
            with self.subTest(old=old, new=new):
                banks = self.write("old.tnb", named(old)), self.write("new.tnb", named(new))
                status, found = self.diff(*banks)
                self.assertEqual(status, SAME if old == new else DIFFERENT)
                for key, indices, names in (("removed", removed, old), ("added", added, new)):
                    self.assertEqual(found[key], [{"index": i, "name": names.split()[i]} for i in indices])
                self.assertEqual([(sound["oldIndex"], sound["newIndex"]) for sound in found["moved"]], moved)
                self.assertEqual(found["changed"], [])
                self.assertIn(words, self.tnb("diff", *banks)[1])
        # Without names, a sound is known by its index.
        banks = [self.write(name, [("", {}), ("", change)], flags=0)
                 for name, change in (("old.tnb", tone), ("new.tnb", {"rate": 44100}))]
        self.assertEqual([sound["oldIndex"] for sound in self.diff(*banks)[1]["changed"]], [1])

    def test_distinguishes_changes_of_audio_facts_and_encoding(self):
        louder, longer = pcm(100, 200, 300, 16784), pcm(100, 200, 300, 400, 500)
        wide = {"data": pcm(1 << 30, 5, 6, 7, bits=32), "sample_format": 4}
        for old, new, by, audio, words in (
            ({}, {"data": louder}, "audio", (3, 0.5), "audio from sample 3 on, by up to -6.0 dB\n"),
            ({}, {"data": longer, "length": 5}, "audio", (4, None), "audio from sample 4 on; samples 4 -> 5; bytes 8"),
            ({}, {"channels": 2, "length": 2}, "audio", (None, None), "can't be compared sample by sample; channels"),
            (wide, wide | {"data": pcm(1 << 30, 5, 7, 7, bits=32)}, "audio", (2, 2**-31), "-186.6 dB"),
            ({}, {"rate": 44100}, "facts", None, ": rate 48000 -> 44100\n"),
            ({}, {"data": pcm(*(value << 16 for value in (100, 200, 300, 400)), bits=32), "sample_format": 4},
             "facts", None, ": sampleFormat pcm16 -> pcm32; bytes 8 -> 16\n"),
            ({"chunks": LOOP}, {}, "facts", None, ": loop 1-3 -> none\n"),
            ({}, {"chunks": POINTS}, "facts", None, ": sync points 0 -> 1\n"),
            ({"codec": XMA}, {"codec": XMA, "data": pcm(1, 2, 3, 4)}, "audio", (None, None), "sample by sample\n"),
            ({"codec": XMA, "quality": 9}, {"codec": XMA, "quality": 10}, "encoding", None, ": quality 9 -> 10\n"),
        ):
            with self.subTest(old=old, new=new):
                banks = (self.write("old.tnb", [("same", {}), ("s", old)]),
                         self.write("new.tnb", [("s", new), ("same", {})]))
                status, found = self.diff(*banks)
                self.assertEqual((status, len(found["changed"]), len(found["moved"])), (DIFFERENT, 1, 2))
                changed, = found["changed"]
                self.assertEqual((changed["name"], changed["oldIndex"], changed["newIndex"], changed["by"]),
                                 ("s", 1, 0, by))
                self.assertEqual(bool(changed["facts"]), by == "facts" or "channels" in new or "length" in new)
                got = changed["audio"] and (changed["audio"]["firstSample"], changed["audio"]["largest"])
                self.assertEqual(got and got[0], audio and audio[0])
                self.assertAlmostEqual(got and got[1] or 0, audio and audio[1] or 0, 11)
                self.assertIn(words, self.tnb("diff", *banks)[1])

    def test_compares_what_the_builder_writes(self):
        write_riff(self.folder_in / "silence.wav", bytes(88200))
        write_wav(self.folder_in / "tone.wav")
        banks = {f"{name} {quality}": self.build(f"{name}{quality}.tnb", "-no_guid", "-format", name, "-quality", quality)
                 for name in FORMATS for quality in ("20", "80")}
        for name in FORMATS:
            status, found = self.diff(banks[f"{name} 20"], banks[f"{name} 80"])
            changes = {sound["name"]: sound["by"] for sound in found["changed"]}
            lossy = name in ("vorbis", "opus")
            self.assertEqual(changes, {"silence": "encoding", "tone": "audio"} if lossy else {}, name)
            self.assertEqual(status, DIFFERENT if lossy else SAME)
            validated("tnb-info", self.info(banks[f"{name} 20"]))
        self.assertEqual(self.diff(banks["pcm 20"], banks["opus 20"])[1]["bank"]["codec"], {"old": "pcm", "new": "opus"})

    def test_takes_the_keys_of_both_banks(self):
        plain, one, two = (self.build(f"{name}.tnb", source="a.wav", key=key)
                           for name, key in (("plain", None), ("one", "first"), ("two", "second")))
        (self.work / "keys").write_text("first\n")
        for arguments, typed, status in (
            ((one, one, "--key", "first"), None, SAME),
            ((one, one, "--key-file", "keys"), None, SAME),
            ((one, two, "-k", "first", "--new-key", "second"), None, SAME),
            ((one, two, "--key-file", "-", "--new-key-file", "-"), "first\nsecond\n", SAME),
            ((plain, two, "--new-key", "second"), None, DIFFERENT),
            ((one, plain, "--key", "first"), None, DIFFERENT),
        ):
            with self.subTest(arguments=arguments):
                status_found, text, errors = self.tnb("diff", "--json", *arguments, typed=typed)
                self.assertEqual(status_found, status, errors)
                self.assertEqual(json.loads(text)["changed"], [])
                self.assertEqual("encrypted" in json.loads(text)["bank"], status == DIFFERENT)
        for arguments, words in (
            ((one, two, "--key", "first"), "two.tnb: encrypted with a different key"),
            ((one, two), "(?s)one.tnb: encrypted; give its key.*two.tnb: encrypted; give its key"),
            ((one, two, "--key", "first", "--new-key-file", "gone"), "two.tnb: can't read the key from gone"),
            ((one, "gone.tnb", "--key", "first"), "gone.tnb: no such file"),
            ((one,), "NEW is required"),
        ):
            status, text, errors = self.tnb("diff", *arguments)
            self.assertEqual((status, text), (TROUBLE, ""))
            self.assertRegex(errors, words)

    def test_a_damaged_sound_is_trouble_and_the_others_are_compared(self):
        sounds = [("hurt", {"chunks": POINTS}), ("fine", {}), ("bent", {"data": pcm(7, 7, 7, 7)})]
        whole = self.write("whole.tnb", sounds)
        data = bytearray(whole.read_bytes())
        data[data.index(b"hit")] ^= 1
        data[data.index(pcm(7, 7, 7, 7))] ^= 1
        (self.work / "damaged.tnb").write_bytes(data)
        other = self.write("other.tnb", [("hurt", {}), ("fine", {"rate": 8000}), ("bent", {})])
        status, found = self.diff("damaged.tnb", other)
        self.assertEqual((status, [sound["name"] for sound in found["changed"]]), (TROUBLE, ["fine"]))
        self.assertEqual([(error["bank"], error["index"]) for error in found["errors"]], [("old", 0), ("old", 2)])
        self.assertIn("tnb: damaged.tnb: sound 2: damaged: its data doesn't match", self.tnb("diff", other,
                                                                                             "damaged.tnb")[2])
        listing = json.loads(self.tnb("info", "--json", "damaged.tnb")[1])
        validated("tnb-info", listing)
        self.assertIn("error", listing["sounds"][0])
        (self.work / "damaged.tnb").write_bytes(data[:-1])
        self.assertEqual(self.tnb("diff", "damaged.tnb", other)[0], TROUBLE)

    def test_needs_no_more_memory_for_longer_sounds(self):
        peaks = []
        for seconds in (10, 400):
            for name, seed in (("old", b"\1\2"), ("new", b"\1\3")):
                write_riff(self.folder_in / "s.wav", seed * 44100 * seconds)
                self.build(f"{name}.tnb", "-format", "kadpcm")
            # By a process of its own: a new process counts what its parent has taken.
            measure = "import resource, subprocess, sys; print(subprocess.run(sys.argv[1:], stdout=2).returncode, " \
                      "resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"
            output = subprocess.check_output([sys.executable, "-c", measure, BIN / "tnb", "diff", "old.tnb", "new.tnb"],
                                             cwd=self.work, stderr=subprocess.DEVNULL)
            status, peak = map(int, output.split())
            self.assertEqual(status, DIFFERENT)
            peaks.append(peak)
        if not SANITIZED:
            self.assertLess(peaks[1] - peaks[0], 2000, "kilobytes; the longer sounds have 69,000 of samples")
