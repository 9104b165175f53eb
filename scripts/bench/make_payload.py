#!/usr/bin/env python3
"""Writes the benchmark payloads: the same bytes on every run.

    make_payload.py small DIR   2,000 files of 1-64 KiB in 40 folders
    make_payload.py large DIR   20 files of about 10 MiB (200 MiB in all)
    make_payload.py one DIR     one 1 KiB file: what remains is each tool's fixed cost
"""
import os
import random
import sys


def write(path, size, rng):
    # Random bytes: nothing along the way can take a short cut on the content.
    with open(path, "wb") as f:
        left = size
        while left:
            chunk = min(left, 1 << 20)
            f.write(rng.randbytes(chunk))
            left -= chunk


def small(root):
    rng = random.Random(8)
    for folder in range(40):
        d = os.path.join(root, "d%02d" % folder)
        os.makedirs(d, exist_ok=True)
        for n in range(50):
            write(os.path.join(d, "f%02d_%02d.dat" % (folder, n)), rng.randint(1, 64) * 1024, rng)


def large(root):
    rng = random.Random(20)
    os.makedirs(root, exist_ok=True)
    for n in range(20):
        size = 10 * 1024 * 1024 + rng.randint(-512, 512) * 1024
        write(os.path.join(root, "big%02d.bin" % n), size, rng)


def one(root):
    os.makedirs(root, exist_ok=True)
    write(os.path.join(root, "one.dat"), 1024, random.Random(1))


if __name__ == "__main__":
    {"small": small, "large": large, "one": one}[sys.argv[1]](sys.argv[2])
