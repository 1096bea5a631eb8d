"""What the tests of banks share: WAV files with everything in them, banks made of them, and the inspector."""

import struct
import subprocess

from console_test import BIN, TIMEOUT, ConsoleCase

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
        chunks += chunk(b"smpl", struct.pack("<9I", 0, 0, 0, 60, 0, 0, 0, 1, 0) + struct.pack("<6I", 0, 0, *loop, 0, 0))
    if cues:
        points = b"".join(struct.pack("<II4sIII", i, frame, b"data", 0, 0, frame) for i, (frame, _) in enumerate(cues))
        labels = b"".join(chunk(b"labl", struct.pack("<I", i) + name.encode() + b"\0")
                          for i, (_, name) in enumerate(cues) if name)
        chunks += chunk(b"cue ", struct.pack("<I", len(cues)) + points) + chunk(b"LIST", b"adtl" + labels)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(b"RIFF" + struct.pack("<I", 4 + len(chunks)) + b"WAVE" + chunks)
    return path


def read_riff(path):
    """Format, samples, loop and cues of a WAV file, in the terms of write_riff."""
    data = path.read_bytes()
    assert data[:4] == b"RIFF" and data[8:12] == b"WAVE" and struct.unpack_from("<I", data, 4)[0] == len(data) - 8
    chunks, at = {}, 12
    while at < len(data):
        size = struct.unpack_from("<I", data, at + 4)[0]
        chunks[data[at:at + 4]] = data[at + 8:at + 8 + size]
        at += 8 + size + size % 2
    assert at == len(data)
    kind, channels, rate, _, _, bits = struct.unpack_from("<HHIIHH", chunks[b"fmt "])
    if kind == 0xFFFE:
        kind = struct.unpack_from("<H", chunks[b"fmt "], 24)[0]
    labels, at, adtl = {}, 4, chunks.get(b"LIST", b"")
    while at < len(adtl):
        size, number = struct.unpack_from("<II", adtl, at + 4)
        labels[number] = adtl[at + 12:at + 7 + size].decode()
        at += 8 + size + size % 2
    points = struct.iter_unpack("<II4sIII", chunks.get(b"cue ", b"")[4:])
    return {"samples": chunks[b"data"], "channels": channels, "rate": rate, "bits": bits, "is_float": kind == 3,
            "loop": struct.unpack_from("<II", chunks[b"smpl"], 44) if b"smpl" in chunks else None,
            "cues": tuple((frame, labels.get(number, "")) for number, frame, _, _, _, _ in points)}


class BankCase(ConsoleCase):
    def build(self, name, *arguments, source="in"):
        """A bank of the sounds in a folder."""
        self.assert_builds(self.work / source, "-o", name, *arguments)
        return self.work / name

    def tnb(self, *arguments, **options):
        """Exit status, standard output and standard error of one run."""
        run = subprocess.run([str(BIN / "tnb"), *map(str, arguments)], cwd=self.work, env=self.environment(),
                             capture_output=True, timeout=TIMEOUT, **options)
        return run.returncode, run.stdout.decode(), run.stderr.decode()

    def assert_tnb(self, *arguments, **options):
        status, output, errors = self.tnb(*arguments, **options)
        self.assertEqual((status, errors), (0, ""))
        return output
