#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the sounds of samples/, identical on every run.

Usage: make_samples.py [FOLDER]

This script writes WAV and AIFF files. The other files need flac, oggenc, opusenc and lame to be installed.
"""

import math
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

TAU = 2 * math.pi


def envelope(seconds, attack, decay):
    """A short rise and an exponential fall, as a function of time."""
    return min(1.0, seconds / attack) * math.exp(-seconds / decay)


def render(rate, seconds, sample):
    """One channel of the function sample(time)."""
    return [sample(i / rate) for i in range(round(rate * seconds))]


def faded(channel, count=200):
    """Fades out the end of a channel, so that it doesn't click."""
    for i in range(count):
        channel[-1 - i] *= i / count
    return channel


def plucked_string(rate, seconds, hertz, seed):
    """A plucked string (Karplus and Strong): noise in a delay line that averages neighbours."""
    noise = random.Random(seed)
    line = [noise.uniform(-0.6, 0.6) for _ in range(round(rate / hertz))]
    channel = []
    for i in range(round(rate * seconds)):
        index = i % len(line)
        channel.append(line[index])
        line[index] = 0.498 * (line[index] + line[(index + 1) % len(line)])
    return faded(channel)


def bell(rate, seconds, hertz):
    partials = [(1.0, 0.5, 0.9), (2.76, 0.25, 0.5), (5.4, 0.15, 0.25), (8.93, 0.08, 0.12)]
    return faded(render(rate, seconds, lambda t: sum(
        level * math.sin(TAU * hertz * ratio * t) * envelope(t, 0.002, decay) for ratio, level, decay in partials)))


def kick(rate, seconds):
    return faded(render(rate, seconds, lambda t: 0.9 * envelope(t, 0.003, 0.12)
                        * math.sin(TAU * (45 * t + 8 * (1 - math.exp(-t / 0.03))))), 100)


def filtered_noise(rate, seconds, seed, cutoff, level):
    """White noise through a one-pole low pass whose cutoff in hertz is a function of time."""
    noise = random.Random(seed)
    state = 0.0
    channel = []
    for i in range(round(rate * seconds)):
        state += (1 - math.exp(-TAU * cutoff(i / rate) / rate)) * (noise.uniform(-1, 1) - state)
        channel.append(level(i / rate) * state)
    return faded(channel)


def chord(rate, seconds, notes, detune):
    def sample(time):
        swell = math.sin(math.pi * time / seconds)
        return 0.16 * swell * sum(
            math.sin(TAU * note * detune * time) + 0.3 * math.sin(TAU * 2 * note * time) for note in notes)
    return render(rate, seconds, sample)


def organ_with_loop(rate):
    """A tone that swells, holds and fades. Each partial has whole periods in the second of the hold, so that the hold
    loops without a seam. Returns the channel, and the first and last sample of the loop."""
    attack, hold, release = 0.25, 1.0, 0.5
    partials = [(220, 0.30), (440, 0.18), (660, 0.10), (881, 0.06), (1321, 0.04)]

    def sample(time):
        level = min(1.0, time / attack) * max(0.0, min(1.0, (attack + hold + release - time) / release))
        return level * sum(loudness * math.sin(TAU * hertz * time) for hertz, loudness in partials)
    channel = render(rate, attack + hold + release, sample)
    return channel, round(attack * rate), round((attack + hold) * rate) - 1


def bird(rate, seconds):
    def sample(time):
        phrase = time % 0.22
        return 0.5 * envelope(phrase, 0.02, 0.06) * math.sin(TAU * (2600 * phrase + 120 * math.sin(TAU * 9 * phrase)))
    return faded(render(rate, seconds, sample))


def coin(rate, seconds):
    def sample(time):
        hertz = 988 if time < 0.08 else 1319
        return 0.4 * envelope(time if time < 0.08 else time - 0.08, 0.002, 0.25) * math.sin(TAU * hertz * time)
    return faded(render(rate, seconds, sample))


def woodblock(rate, seconds):
    return faded(render(rate, seconds, lambda t: 0.8 * envelope(t, 0.0005, 0.03)
                        * (math.sin(TAU * 1150 * t) + 0.4 * math.sin(TAU * 1820 * t)) / 1.4), 50)


def interleave(channels):
    return [sample for frame in zip(*channels) for sample in frame]


def pack(samples, kind, order="<"):
    """Packs samples of -1 to 1 as "u8", "s16", "s24" or "float"."""
    if kind == "float":
        return struct.pack(f"{order}{len(samples)}f", *samples)
    bits = {"u8": 8, "s16": 16, "s24": 24}[kind]
    full = 1 << (bits - 1)
    whole = [max(-full, min(full - 1, round(sample * (full - 1)))) for sample in samples]
    if kind == "u8":
        return bytes(number + 128 for number in whole)
    if kind == "s16":
        return struct.pack(f"{order}{len(whole)}h", *whole)
    return b"".join(struct.pack("<i", number)[:3] for number in whole)


def chunk(name, data, order="<"):
    return name + struct.pack(order + "I", len(data)) + data + b"\0" * (len(data) % 2)


def loop_chunk(first, last):
    return chunk(b"smpl", struct.pack("<9I", 0, 0, 22676, 57, 0, 0, 0, 1, 0)
                 + struct.pack("<6I", 0, 0, first, last, 0, 0))


def marker_chunks(markers):
    points = b"".join(struct.pack("<II4sIII", i + 1, sample, b"data", 0, 0, sample)
                      for i, (sample, _) in enumerate(markers))
    labels = b"".join(chunk(b"labl", struct.pack("<I", i + 1) + name.encode() + b"\0")
                      for i, (_, name) in enumerate(markers))
    return chunk(b"cue ", struct.pack("<I", len(markers)) + points) + chunk(b"LIST", b"adtl" + labels)


def write_wav(path, channels, rate, kind, more=b""):
    width = {"u8": 1, "s16": 2, "s24": 3, "float": 4}[kind]
    frame = width * len(channels)
    layout = struct.pack("<HHIIHH", 3 if kind == "float" else 1, len(channels), rate, rate * frame, frame, width * 8)
    if len(channels) > 2:
        # Front left, right, centre, low frequencies, back left, right.
        layout = struct.pack("<H", 0xfffe) + layout[2:] + struct.pack("<HHI", 22, width * 8, 0x3f)
        layout += struct.pack("<H", 1) + bytes.fromhex("000000001000800000aa00389b71")
    body = b"WAVE" + chunk(b"fmt ", layout)
    if kind == "float":
        body += chunk(b"fact", struct.pack("<I", len(channels[0])))
    body += chunk(b"data", pack(interleave(channels), kind)) + more
    path.write_bytes(chunk(b"RIFF", body))


def write_aiff(path, channel, rate):
    exponent = rate.bit_length() - 1
    extended = struct.pack(">HQ", 16383 + exponent, rate << (63 - exponent))
    common = struct.pack(">HIH", 1, len(channel), 16) + extended
    body = b"AIFF" + chunk(b"COMM", common, ">")
    body += chunk(b"SSND", struct.pack(">II", 0, 0) + pack(channel, "s16", ">"), ">")
    path.write_bytes(chunk(b"FORM", body, ">"))


def encode(path, channels, rate, kind, *command):
    """Writes a WAV file and passes it to an encoder; SOURCE and TARGET in the command are replaced."""
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "source.wav"
        write_wav(source, channels, rate, kind)
        names = {"SOURCE": str(source), "TARGET": str(path)}
        subprocess.run([names.get(word, word) for word in command], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent / "samples")
    folder.mkdir(parents=True, exist_ok=True)

    write_wav(folder / "plucked_string.wav", [plucked_string(44100, 1.4, 196, 1)], 44100, "s16")
    write_wav(folder / "bell.wav", [bell(44100, 1.2, 660)], 44100, "s24")
    write_wav(folder / "kick.wav", [kick(22050, 0.4)], 22050, "u8")
    write_wav(folder / "noise_sweep.wav",
              [filtered_noise(32000, 0.9, 2, lambda t: 200 * 2 ** (7 * t), lambda t: 0.8 * math.sin(math.pi * t / 0.9))],
              32000, "float")
    tone, first, last = organ_with_loop(44100)
    write_wav(folder / "organ_loop.wav", [tone, [0.7 * sample for sample in tone]], 44100, "s16",
              loop_chunk(first, last) + marker_chunks([(0, "attack"), (first, "hold"), (last + 1, "release")]))
    write_wav(folder / "ambience_six.wav",
              [filtered_noise(24000, 1.2, 10 + i, lambda t, i=i: 300 + 150 * i + 200 * math.sin(TAU * t / 1.2 + i),
                              lambda t: 0.7 * math.sin(math.pi * t / 1.2)) for i in range(6)], 24000, "s16")
    write_aiff(folder / "woodblock.aiff", woodblock(44100, 0.25), 44100)

    notes = [220, 277.18, 329.63, 415.3]
    encode(folder / "pad_chord.flac", [chord(44100, 2.0, notes, 1.0), chord(44100, 2.0, notes, 1.003)], 44100, "s16",
           "flac", "-s", "-f", "-8", "-o", "TARGET", "SOURCE")
    encode(folder / "hat.flac", [filtered_noise(48000, 0.2, 3, lambda t: 16000, lambda t: envelope(t, 0.001, 0.03))],
           48000, "s24", "flac", "-s", "-f", "-8", "-o", "TARGET", "SOURCE")
    encode(folder / "rain.ogg",
           [filtered_noise(44100, 2.0, 4 + i, lambda t: 5000, lambda t: 0.5 * math.sin(math.pi * t / 2)) for i in (0, 1)],
           44100, "s16", "oggenc", "-Q", "-q", "3", "-s", "1", "-o", "TARGET", "SOURCE")
    encode(folder / "bird.opus", [bird(48000, 1.1)], 48000, "s16",
           "opusenc", "--quiet", "--bitrate", "48", "--serial", "1", "SOURCE", "TARGET")
    encode(folder / "coin.mp3", [coin(44100, 0.8), coin(44100, 0.8)], 44100, "s16",
           "lame", "--quiet", "-V", "3", "SOURCE", "TARGET")


if __name__ == "__main__":
    main()
