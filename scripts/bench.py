#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The measurements of scripts/bench.sh; see there.

Each measurement covers a whole process from its start to its exit. The compared programs take turns within one run, so
that other load on the machine affects all of them. A ratio is the median of the ratios of all runs. Nothing is deleted
before the end: some file systems create files slowly where others have just been removed.
"""

import argparse
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import traceback
import wave

THREADS = 2
QUALITY = 50
FORMATS = ["pcm", "kadpcm", "vorbis", "opus"]
SAMPLES = pathlib.Path("/usr/share/sonic-pi/samples")
ROOT = pathlib.Path(__file__).resolve().parent.parent


class Cost:
    """Wall time and processor time in seconds, and peak memory in MB, of a process and its children."""

    def __init__(self, wall, usage):
        self.wall = wall
        self.cpu = usage.ru_utime + usage.ru_stime
        self.memory = usage.ru_maxrss / 1024


def run(command, cwd, feed=None, output=subprocess.DEVNULL):
    if feed is not None:
        stdin = tempfile.TemporaryFile()
        stdin.write(feed.encode())
        stdin.seek(0)
    else:
        stdin = subprocess.DEVNULL
    start = time.perf_counter()
    process = subprocess.Popen(command, cwd=cwd, stdin=stdin, stdout=output, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}")
    return Cost(wall, usage)


class Table:
    def __init__(self):
        self.missed = 0

    def line(self, what, value, target, note, form="{:.2f}"):
        verdict = "" if target is None else "ok" if value <= target else "MISSED"
        self.missed += verdict == "MISSED"
        shown = "" if target is None else form.format(target)
        print(f"{what:58} {form.format(value):>8} {shown:>8}  {verdict:6}  {note}", flush=True)

    def ratio(self, what, ours, theirs, target):
        """ours and theirs are lists of costs, one per run; theirs may be sums."""
        value = statistics.median(a.wall / b.wall for a, b in zip(ours, theirs))
        own, other = (statistics.median(c.wall for c in costs) for costs in (ours, theirs))
        processor = statistics.median(a.cpu / b.cpu for a, b in zip(ours, theirs))
        self.line(what, value, target, f"{own:.3f} s / {other:.3f} s; processor time {processor:.2f}")

    @staticmethod
    def head():
        print(f"{'what':58} {'ratio':>8} {'at most':>8}")


def plus(first, second):
    both = Cost.__new__(Cost)
    both.wall = first.wall + second.wall
    both.cpu = first.cpu + second.cpu
    return both


def scaled(cost, factor, seconds):
    result = Cost.__new__(Cost)
    result.wall = factor * cost.wall + seconds
    result.cpu = cost.cpu
    return result


class Bench:
    def __init__(self, build, folder, runs):
        self.build = build
        self.console = build / "bin" / "tarnokexcl"
        self.inspector = build / "bin" / "tnb"
        self.folder = folder
        self.runs = runs
        self.table = Table()
        self.count = 0

    def fresh(self, stem):
        """A path that hasn't been used before."""
        self.count += 1
        return self.folder / f"{stem}{self.count}"

    def fresh_folder(self, stem):
        path = self.fresh(stem)
        path.mkdir()
        return path

    def compile(self, sounds, form, cache, bank, threads=THREADS, *more):
        """Passes relative paths: after the source, an absolute path would be read as a switch."""
        return run([self.console, f"./{sounds.relative_to(self.folder)}", "-format", form, "-quality", str(QUALITY),
                    "-thread_count", str(threads), "-cache_dir", cache.relative_to(self.folder),
                    "-o", f"{bank.relative_to(self.folder)}.tnb", *more], self.folder)

    def compile_anew(self, sounds, form, threads=THREADS):
        cache = self.fresh_folder("cache")
        bank = self.fresh("bank")
        return self.compile(sounds, form, cache, bank, threads), cache, bank.with_name(bank.name + ".tnb")

    def copy(self, files):
        copied = self.fresh("copy")
        return run(["sh", "-c", f'cat "$@" > {copied}', "sh", *files], self.folder)

    def wavs(self, source):
        """Converts the sounds to WAV files, through a bank."""
        cache = self.fresh_folder("cache")
        linked = self.fresh_folder("source")
        files = sorted(path for path in source.rglob("*") if path.suffix.lower() in (".flac", ".wav"))
        if not files:
            sys.exit(f"{source}: no FLAC or WAV files")
        for number, path in enumerate(files):
            (linked / f"{number:04}_{path.name}").symlink_to(path.resolve())
        bank = self.fresh("bank")
        self.compile(linked, "pcm", cache, bank, THREADS, "-no_loop")
        wavs = self.fresh("wav")
        run([self.inspector, "extract", f"{bank}.tnb", "-o", wavs], self.folder)
        for path in wavs.iterdir():
            os.utime(path, (1e9, 1e9))
        time.sleep(2.5)  # until the clock of the file system has advanced, so that files count as unchanged
        return wavs

    # -- peers: each returns a function that runs the peer once, or None if it isn't installed

    def each(self, program, arguments, files, words):
        """Runs a program once per file, two at a time; words(file, folder) is the end of its command line."""
        if not shutil.which(program):
            return None

        def once():
            out = self.fresh_folder(program)
            jobs = [words(path, out) for path in files]
            feed = "".join(f"{word}\n" for job in jobs for word in job)
            return run(["xargs", "-P2", f"-n{len(jobs[0])}", "-d", "\\n", program, *arguments], self.folder, feed)
        return once

    def oggenc(self, files):
        return self.each("oggenc", ["-Q", "-q", "5", "-o"], files, lambda path, out: (out / f"{path.stem}.ogg", path))

    def opusenc(self, files):
        return self.each("opusenc", ["--quiet", "--bitrate"], files,
                         lambda path, out: (48 * channels_of(path), path, out / f"{path.stem}.opus"))

    def ffmpeg(self, files):
        return self.each("ffmpeg", ["-nostdin", "-v", "error", "-i"], files,
                         lambda path, out: (path, "-c:a", "adpcm_ima_wav", out / path.name))

    def oggenc_batches(self, files):
        """Starts fewer processes, each for several files."""
        def once():
            out = self.fresh_folder("ogg")
            for path in files:
                (out / path.name).symlink_to(path)
            jobs = "".join(f"{out / path.name}\n" for path in files)
            return run(["xargs", "-P2", "-n9", "-d", "\\n", "oggenc", "-Q", "-q", "5"], self.folder, jobs)
        return once

    # -- speed

    def measure_format(self, form, wavs, files, peers):
        """Runs in turn: the peers, an empty cache, everything cached, copies. peers are (name, target, function)."""
        costs = {name: [] for name in ["empty", "cached", "cat", "cat bank", *(name for name, _, _ in peers)]}
        for _ in range(self.runs):
            for name, _, once in peers:
                costs[name].append(once())
            if form == "pcm":
                costs["cat"].append(self.copy(files))
            cost, cache, bank = self.compile_anew(wavs, form)
            costs["empty"].append(cost)
            costs["cached"].append(self.compile(wavs, form, cache, self.fresh("bank")))
            costs["cat bank"].append(self.copy([bank]))
        for name, target, _ in peers:
            self.table.ratio(f"{form}, empty cache / {name}", costs["empty"], costs[name], target)
        if form == "pcm":
            self.table.ratio("pcm, empty cache / cat of the same data", costs["empty"], costs["cat"], 3)
        if form in ("vorbis", "opus"):
            self.table.ratio(f"{form}, everything cached / empty cache", costs["cached"], costs["empty"], 0.15)
        self.table.ratio(f"{form}, everything cached / (3 cat of the bank + 80 ms)", costs["cached"],
                         [scaled(cost, 3, 0.08) for cost in costs["cat bank"]], 1)
        return costs["empty"]

    def measure_change(self, files):
        changed_set = self.fresh_folder("changing")
        for path in files:
            shutil.copy2(path, changed_set / path.name)
        middle = sorted(changed_set.iterdir(), key=lambda path: path.stat().st_size)[len(files) // 2]
        time.sleep(2.5)
        _, cache, _ = self.compile_anew(changed_set, "vorbis")
        ours, limits = [], []
        for number in range(self.runs):
            with open(middle, "r+b") as file:
                file.seek(200)
                file.write(bytes([number, 0]))
            alone = self.fresh_folder("alone")
            shutil.copy(middle, alone)
            own, _, _ = self.compile_anew(alone, "vorbis")
            ours.append(self.compile(changed_set, "vorbis", cache, self.fresh("bank")))
            cached = self.compile(changed_set, "vorbis", cache, self.fresh("bank"))
            limits.append(plus(own, cached))
        self.table.ratio(f"vorbis, 1 of {len(files)} changed / (it alone + everything cached)", ours, limits, 1)

    def measure_threads(self, wavs):
        cores = os.cpu_count()
        costs = {cores: [], 2 * cores: []}
        for _ in range(self.runs):
            for threads, list_ in costs.items():
                list_.append(self.compile_anew(wavs, "vorbis", threads)[0])
        self.table.ratio(f"vorbis, {2 * cores} threads on {cores} cores / {cores} threads", costs[2 * cores],
                         costs[cores], 1.05)

    def measure_kadpcm(self, files, kadpcm, vorbis):
        ratio = statistics.median(c.cpu for c in kadpcm) / statistics.median(c.cpu for c in vorbis)
        self.table.line("kadpcm / vorbis, processor time of a build", ratio, 0.5, "")
        out = subprocess.run([self.build / "benchmarks" / "kadpcm_quality", *files], capture_output=True, text=True)
        found = re.search(r"decoding ([0-9.]+)", out.stdout)
        if found:
            share = float(found[1]) * 1e-9 * 44_100
            self.table.line("kadpcm, 300 voices of 44.1 kHz / one core", 300 * share, 0.5,
                            f"{found[1]} ns per sample, {1 / share:.0f} voices per core")

    def speed(self, source):
        wavs = self.wavs(source)
        files = sorted(wavs.iterdir())
        size = sum(path.stat().st_size for path in files)
        print(f"{len(files)} sounds, {size / 1e6:.1f} MB as WAV; quality {QUALITY}, {THREADS} threads, "
              f"medians of {self.runs} runs")
        self.table.head()
        peers = {"pcm": [], "kadpcm": [("xargs -P2 ffmpeg adpcm_ima_wav", 0.25, self.ffmpeg(files))],
                 "vorbis": [("xargs -P2 oggenc -q 5", 0.9, self.oggenc(files)),
                            ("the same in batches of 9 files", None, self.oggenc_batches(files))],
                 "opus": [("xargs -P2 opusenc, same bit rate", 0.9, self.opusenc(files))]}
        empty = {}
        for form in FORMATS:
            missing = [name for name, _, once in peers[form] if once is None]
            for name in missing:
                print(f"({form} / {name}: the program isn't installed)")
            here = [] if missing else peers[form]
            empty[form] = self.measure_format(form, wavs, files, here)
        self.measure_change(files)
        self.measure_threads(wavs)
        self.measure_kadpcm(files, empty["kadpcm"], empty["vorbis"])

    # -- scale

    def memory(self, what, cost, limit):
        self.table.line(what, cost.memory, limit, f"MB; {cost.wall:.0f} s", "{:.0f}")

    def scale(self, source):
        wavs = self.wavs(source)
        files = sorted(wavs.iterdir())
        print(f"{THREADS} threads; peak memory in MB")
        self.table.head()
        limit = 60 + 20 * THREADS
        long = self.fresh_folder("long")
        apart(write_hour, long / "hour.wav", files)
        for form in FORMATS:
            self.memory(f"{form}, one hour of stereo", self.compile_anew(long, form)[0], limit)
        many = self.fresh_folder("many")
        apart(write_short, many, 20_000)
        for form in FORMATS:
            self.memory(f"{form}, 20,000 short sounds", self.compile_anew(many, form)[0], limit + 20)
        self.measure_balance(long, wavs)
        self.measure_large(long)

    def measure_balance(self, long, wavs):
        """A long sound among short ones takes as little time as possible: its own, or half of all work."""
        mixed = self.fresh_folder("mixed")
        for path in wavs.iterdir():
            os.link(path, mixed / path.name)
        apart(cut, long / "hour.wav", mixed / "zz_long.wav", 120)
        alone = self.fresh_folder("alone")
        os.link(mixed / "zz_long.wav", alone / "long.wav")
        ratios = []
        for _ in range(3):
            own = self.compile_anew(alone, "vorbis")[0]
            all_ = self.compile_anew(mixed, "vorbis")[0]
            ratios.append(all_.wall / max(own.wall, all_.cpu / THREADS))
        self.table.line("vorbis, one long and many short / the least possible", statistics.median(ratios), 1.15, "")

    def measure_large(self, long):
        """A bank above 4 GiB is whole, and its last sound is unchanged."""
        large = self.fresh_folder("large")
        for number in range(7):
            os.link(long / "hour.wav", large / f"hour{number}.wav")
        last = large / "last.wav"
        apart(cut, long / "hour.wav", last, 2)
        cost, _, bank = self.compile_anew(large, "pcm")
        self.memory(f"pcm, a bank of {bank.stat().st_size / 2**30:.2f} GiB", cost, 60 + 20 * THREADS)
        checked = run([self.inspector, "validate", bank], self.folder)
        out = self.fresh_folder("out")
        run([self.inspector, "extract", bank, "last", "-o", out], self.folder)
        with wave.open(str(last)) as source, wave.open(str(out / "last.wav")) as sound:
            same = source.readframes(source.getnframes()) == sound.readframes(sound.getnframes())
        self.table.line("samples of its last sound that differ", 0 if same else 1, 0,
                        f"validated in {checked.wall:.0f} s", "{:.0f}")


def apart(work, *arguments):
    """Does work that needs much memory in another process: a program's peak includes the memory of its parent."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            work(*arguments)
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(status)
    if os.waitpid(child, 0)[1] != 0:
        sys.exit("making sounds failed")


def channels_of(path):
    """The channels of a WAV file that tnb wrote: its format comes first. The module wave can't read float files."""
    with open(path, "rb") as file:
        return int.from_bytes(file.read(24)[22:24], "little")


def stereo_frames(path):
    """The frames of a 16-bit mono or stereo sound as stereo; empty for any other sound."""
    try:
        with wave.open(str(path)) as file:
            if file.getsampwidth() != 2 or file.getnchannels() > 2:
                return b""
            frames = file.readframes(file.getnframes())
            if file.getnchannels() == 2:
                return frames
    except wave.Error:
        return b""
    return b"".join(frames[i:i + 2] * 2 for i in range(0, len(frames), 2))


def write_hour(path, files):
    """Writes one hour of 48 kHz stereo by repeating the sounds one after the other."""
    piece = b"".join(stereo_frames(file) for file in files)
    if not piece:
        sys.exit("no 16-bit sounds of one or two channels")
    left = 3600 * 48_000 * 4
    with wave.open(str(path), "wb") as out:
        out.setparams((2, 2, 48_000, 0, "NONE", ""))
        out.setnframes(left // 4)
        while left > 0:
            part = piece[:left]
            out.writeframesraw(part)
            left -= len(part)


def cut(source, target, seconds):
    """Copies the last seconds of a long sound."""
    with wave.open(str(source)) as file, wave.open(str(target), "wb") as out:
        count = seconds * file.getframerate()
        out.setparams(file.getparams())
        file.setpos(file.getnframes() - count)
        out.writeframes(file.readframes(count))


def write_short(folder, count):
    """Writes sounds of 50 ms, all different."""
    shape = [i % 100 for i in range(2205)]
    for number in range(count):
        with wave.open(str(folder / f"sound{number:05}.wav"), "wb") as out:
            out.setparams((1, 2, 44_100, 0, "NONE", ""))
            out.writeframes(b"".join((value * (number % 320 + 1)).to_bytes(2, "little") for value in shape)
                            + number.to_bytes(2, "little"))


def processor():
    try:
        for line in open("/proc/cpuinfo"):
            if line.startswith("model name"):
                return line.split(":")[1].strip()
    except OSError:
        pass
    return platform.machine()


def main():
    parser = argparse.ArgumentParser(prog="bench.sh", description="Measures the builder.")
    parser.add_argument("--build", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--scale", action="store_true", help="measure memory, and a bank above 4 GiB, instead of speed")
    parser.add_argument("--runs", type=int, default=7, help="number of runs of each comparison (default 7)")
    parser.add_argument("folder", nargs="?", type=pathlib.Path, help="folder of FLAC or WAV files")
    arguments = parser.parse_args()

    source = arguments.folder
    if not source:
        source = SAMPLES
        if not source.is_dir():
            source = ROOT / "samples"
            print("The targets apply to many real sounds: install the package sonic-pi-samples, or name a folder. "
                  "Continuing with the few sounds of samples/.")
    if not source.is_dir():
        sys.exit(f"{source}: no such folder")
    print(f"{processor()}, {os.cpu_count()} cores, Linux {platform.release()}, load {os.getloadavg()[0]:.1f}")
    with tempfile.TemporaryDirectory(prefix="tarnok-bench-") as folder:
        bench = Bench(arguments.build.resolve(), pathlib.Path(folder).resolve(), arguments.runs)
        if arguments.scale:
            bench.scale(source)
        else:
            bench.speed(source)
    sys.exit(1 if bench.table.missed else 0)


if __name__ == "__main__":
    main()
