#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures bit rate and signal-to-noise ratio over quality: builds banks of the sounds in a folder, every tenth value.

usage: scripts/measure_quality.py FOLDER

Writes docs/quality.csv and, with gnuplot, docs/images/quality.svg. Prints the rows of the table in docs/quality.md.
The release preset must have been built before.
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = ROOT / "build" / "bin"
QUALITIES = (1, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100)

PLOT = """
set terminal svg size 720,440 font "sans,13" background rgb "white"
set output "{image}"
set datafile separator ","
set key top left
set grid lc rgb "#dddddd"
set xlabel "quality"
set xrange [0:100]
set ylabel "kbit/s, all sounds together (lines)"
set yrange [0:*]
set y2label "signal-to-noise ratio, dB, mean (dots)"
set y2range [0:50]
set y2tics
plot "{data}" using 1:2 with lines lw 2 lc rgb "#2f83d6" title "Vorbis", \\
     "" using 1:3 axes x1y2 with points pt 7 lc rgb "#2f83d6" notitle, \\
     "" using 1:4 with lines lw 2 lc rgb "#b8741a" title "Opus", \\
     "" using 1:5 axes x1y2 with points pt 7 lc rgb "#b8741a" notitle, \\
     {kadpcm} with lines lw 1 dt 2 lc rgb "#777777" title "KADPCM"
"""


def measure(work, sounds, encoding, quality):
    """Bit rate of all sounds together in kbit/s, and the mean of their signal-to-noise ratios in dB."""
    bank = work / "bank.tnb"
    subprocess.run([BIN / "tarnokexcl", sounds, "-o", "bank.tnb", "-format", encoding, "-quality", str(quality),
                    "-cache_dir", "cache"], cwd=work, check=True, stdout=subprocess.DEVNULL)
    info = json.loads(subprocess.run([BIN / "tnb", "info", "--json", bank], check=True, capture_output=True).stdout)
    seconds = sum(sound["samples"] / sound["rate"] for sound in info["sounds"])
    compared = subprocess.run([ROOT / "build" / "benchmarks" / "bank_quality", bank, sounds], check=True,
                              capture_output=True, text=True).stdout
    return 8 * sum(sound["bytes"] for sound in info["sounds"]) / seconds / 1000, \
        float(re.search(r"mean (-?[\d.]+) dB", compared)[1])


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    folder = pathlib.Path(sys.argv[1]).resolve()
    files = sorted(path for path in folder.rglob("*") if path.suffix in (".flac", ".wav"))
    data, image = ROOT / "docs" / "quality.csv", ROOT / "docs" / "images" / "quality.svg"
    lines = ["# quality, Vorbis kbit/s, Vorbis SNR dB, Opus kbit/s, Opus SNR dB"]
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        (work / "cache").mkdir()
        sounds = work / "sounds.lst"
        sounds.write_text("".join(f"{file}\n" for file in files))
        for quality in QUALITIES:
            figures = [*measure(work, sounds, "vorbis", quality), *measure(work, sounds, "opus", quality)]
            lines.append(",".join([str(quality)] + [f"{figure:.1f}" for figure in figures]))
            print("| {} | {:.0f} | {:.1f} | {:.0f} | {:.1f} |".format(quality, *figures), flush=True)
        kadpcm = measure(work, sounds, "kadpcm", 50)
        print("KADPCM: {:.0f} kbit/s, {:.1f} dB".format(*kadpcm))
    data.write_text("\n".join(lines) + "\n")
    subprocess.run(["gnuplot"], input=PLOT.format(data=data, image=image, kadpcm=kadpcm[0]), text=True, check=True)


if __name__ == "__main__":
    main()
