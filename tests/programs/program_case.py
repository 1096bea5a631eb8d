# SPDX-License-Identifier: MIT
"""Shared by the tests of the programs: a working folder, WAV files with tags, and runs of the programs."""

import array
import itertools
import json
import math
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import unittest

BIN = pathlib.Path(os.environ["TARNOK_BIN"])
SAMPLES = pathlib.Path(os.environ["TARNOK_SAMPLES"])

# The factor by which a sanitizer may exceed the times below.
TIMEOUT = 240

# Exit statuses of the console tool.
ALL_WRITTEN, STOPPED, BUILD_FAILED, SOUNDS_MISSING = 0, 1, 2, 3

FORMATS = ("pcm", "kadpcm", "vorbis", "opus")
LOSSY = ("vorbis", "opus")


def chunk(tag, payload):
    return tag + struct.pack("<I", len(payload)) + payload + b"\0" * (len(payload) % 2)


def write_riff(path, samples, channels=1, rate=44100, bits=16, is_float=False, loop=None, cues=()):
    """A WAV file of these bytes. loop: first and last frame. cues: frames and names."""
    block = channels * bits // 8
    chunks = chunk(b"fmt ", struct.pack("<HHIIHH", 3 if is_float else 1, channels, rate, rate * block, block, bits))
    chunks += chunk(b"data", samples)
    if loop:
        chunks += chunk(b"smpl", struct.pack("<15I", 0, 0, 0, 60, 0, 0, 0, 1, 0, 0, 0, *loop, 0, 0))
    if cues:
        points = b"".join(struct.pack("<II4sIII", i, frame, b"data", 0, 0, frame) for i, (frame, _) in enumerate(cues))
        labels = b"".join(chunk(b"labl", struct.pack("<I", i) + name.encode() + b"\0")
                          for i, (_, name) in enumerate(cues) if name)
        chunks += chunk(b"cue ", struct.pack("<I", len(cues)) + points) + chunk(b"LIST", b"adtl" + labels)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(b"RIFF" + struct.pack("<I", 4 + len(chunks)) + b"WAVE" + chunks)
    return path


def write_wav(path, seconds=0.1, channels=1, rate=44100, frequency=440.0):
    """A WAV file of a tone, the same in all channels."""
    tone = (int(12000 * math.sin(2 * math.pi * frequency * i / rate)) for i in range(int(seconds * rate)))
    samples = array.array("h", (value for value in tone for _ in range(channels)))
    return write_riff(path, samples.tobytes(), channels, rate)


def chunks_of(data, at):
    """Tags and payloads of the chunks from an offset on."""
    while at < len(data):
        tag, size = struct.unpack_from("<4sI", data, at)
        yield tag, data[at + 8:at + 8 + size]
        at += 8 + size + size % 2
    assert at == len(data)


def read_riff(path):
    """Format, samples, loop and cues of a WAV file, in the terms of write_riff."""
    data = path.read_bytes()
    assert data[:4] == b"RIFF" and data[8:12] == b"WAVE" and struct.unpack_from("<I", data, 4)[0] == len(data) - 8
    chunks = dict(chunks_of(data, 12))
    kind, channels, rate, _, _, bits = struct.unpack_from("<HHIIHH", chunks[b"fmt "])
    if kind == 0xFFFE:
        kind = struct.unpack_from("<H", chunks[b"fmt "], 24)[0]
    labels = {payload[:4]: payload[4:-1].decode() for _, payload in chunks_of(chunks.get(b"LIST", b"adtl"), 4)}
    points = struct.iter_unpack("<4sI4sIII", chunks.get(b"cue ", b"")[4:])
    return {"samples": chunks[b"data"], "channels": channels, "rate": rate, "bits": bits, "is_float": kind == 3,
            "loop": struct.unpack_from("<II", chunks[b"smpl"], 44) if b"smpl" in chunks else None,
            "cues": tuple((frame, labels.get(number, "")) for number, frame, _, _, _, _ in points)}


def packet_starts(bank, sound):
    """The offset of each packet of a sound in its data; the packet begins with its length."""
    sizes = (size + (1 if size < 128 else 2 if size < 16384 else 3) for size in map(len, bank.packets(sound)))
    return list(itertools.accumulate(sizes, initial=0))[:-1]


class ProgramCase(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tarnok-console-")).resolve()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.home = self.folder / "home"
        (self.home / "Documents").mkdir(parents=True)
        self.work = self.folder / "work"
        self.folder_in = self.work / "in"
        write_wav(self.work / "a.wav")

    def environment(self):
        kept = {k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")}
        return {**kept, "HOME": str(self.home), "PATH": f"{BIN}{os.pathsep}{os.environ['PATH']}"}

    def start(self, *arguments, program="tarnokexcl", **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "encoding": "utf-8",
                   "env": self.environment(), **options}
        return subprocess.Popen([BIN / program, *map(os.fsencode, map(str, arguments))], cwd=self.work, **options)

    def run_program(self, *arguments, typed=None, **options):
        """Exit status, standard output, and standard error if it isn't part of that."""
        with self.start(*arguments, stdin=subprocess.PIPE, **options) as process:
            output, errors = process.communicate(typed, timeout=TIMEOUT)
        return process.returncode, output, errors

    def run_tool(self, *arguments, **options):
        """Exit status and output of one run."""
        return self.run_program(*arguments, **options)[:2]

    def run_apart(self, *arguments, **options):
        """Exit status, output, and what the tool says on standard error, without its name and the folder of the test."""
        status, output, errors = self.run_program(*arguments, stderr=subprocess.PIPE, **options)
        return status, output, errors.replace("tarnokexcl: ", "").replace(f"{self.work}/", "")

    def assert_builds(self, *arguments):
        status, output = self.run_tool(*arguments)
        self.assertEqual(status, ALL_WRITTEN, output)
        return output

    def banks(self):
        return sorted(str(p.relative_to(self.work)) for p in self.work.rglob("*.tnb"))

    def build(self, name, *arguments, source="in", key=None):
        """A bank of the sounds in a folder."""
        self.assert_builds(self.work / source, "-o", name, *arguments, *(["-encryption_key", key] if key else []))
        return self.work / name

    def tnb(self, *arguments, key=None, **options):
        """The same for the inspector."""
        key_arguments = ["--key", key] if key else []
        return self.run_program(*arguments, *key_arguments, program="tnb", stderr=subprocess.PIPE, **options)

    def assert_tnb(self, *arguments, **options):
        status, output, errors = self.tnb(*arguments, **options)
        self.assertEqual((status, errors), (0, ""))
        return output

    def info(self, bank, **options):
        return json.loads(self.assert_tnb("info", "--json", bank, **options))
