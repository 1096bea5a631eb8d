#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Lists the sounds of a bank with their loudest sample and their root mean square: list_bank.py BANK [KEY]"""

import math
import sys

import kess


def measure(sound):
    peak = squares = count = 0
    with sound.voice() as voice:
        for block in voice.blocks():
            peak = max(peak, max(block), -min(block))
            squares += sum(sample * sample for sample in block)
            count += len(block)
    return peak, math.sqrt(squares / count) if count else 0


def main(path, key=None):
    with kess.Engine() as engine, engine.open(path, key) as bank:
        for sound in bank.sounds():
            peak, level = measure(sound)
            print(f"{sound.name}: {sound.length / sound.rate:.3f} s, peak {peak:.3f}, level {level:.3f}")


if __name__ == "__main__":
    if not 2 <= len(sys.argv) <= 3:
        sys.exit("usage: list_bank.py BANK [KEY]")
    try:
        main(*sys.argv[1:])
    except kess.Error as error:
        sys.exit(f"list_bank.py: {error}")
