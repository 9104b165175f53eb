#!/usr/bin/env python3
"""Builds the single file: the stub with a package folder appended as one
cabinet (made by Debian's gcab, MSZIP-compressed), then a trailer with the
cabinet's place, the unpacked size and a SHA-256 digest. The layout is
sfx/payload_format.h's; the stub reads it back.

    python3 sfx/make_sfx.py STUB PACKAGE-DIR OUTPUT
"""
import hashlib
import os
import struct
import subprocess
import sys
import tempfile

MAGIC = b"QMSFX01\0"
ALIGN = 8  # everything ends on a multiple of 8, so signing adds no padding
REQUIRED = "setup.exe"


def package_files(folder):
    """Every file below folder, relative, '/'-separated, sorted."""
    found = []
    for here, dirs, files in os.walk(folder):
        dirs.sort()
        for name in files:
            found.append(os.path.relpath(os.path.join(here, name), folder).replace(os.sep, "/"))
    return sorted(found)


def padding(length):
    return b"\0" * (-length % ALIGN)


def main():
    if len(sys.argv) != 4:
        sys.exit("usage: make_sfx.py STUB PACKAGE-DIR OUTPUT")
    stub, package, output = sys.argv[1:]
    files = package_files(package)
    if REQUIRED not in files:
        sys.exit(f"make_sfx: {package} holds no {REQUIRED}")
    with tempfile.TemporaryDirectory() as scratch:
        cab = os.path.join(scratch, "payload.cab")
        subprocess.run(["gcab", "--create", "--zip", cab, *files], cwd=package, check=True)
        with open(cab, "rb") as f:
            cabinet = f.read()
    with open(stub, "rb") as f:
        image = f.read()
    head = image + padding(len(image))
    unpacked = sum(os.path.getsize(os.path.join(package, name)) for name in files)
    fields = MAGIC + struct.pack("<QQQ", len(head), len(cabinet), unpacked)
    digest = hashlib.sha256(cabinet + fields).digest()
    partial = output + ".part"
    with open(partial, "wb") as f:
        f.write(head + cabinet + padding(len(cabinet)) + fields + digest)
    os.replace(partial, output)
    print(f"{output}: {len(files)} files, {unpacked} bytes packed into {len(cabinet)}")


if __name__ == "__main__":
    main()
