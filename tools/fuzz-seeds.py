"""Turns a fuzzer's nameless seeds into a text file, one on each line with what is not printable escaped, and back.

usage: fuzz-seeds.py pack DIRECTORY FILE | unpack FILE DIRECTORY
"""

import hashlib
import sys
from pathlib import Path


def pack(directory: Path, file: Path) -> None:
    seeds = sorted(seed.read_bytes() for seed in directory.iterdir())
    file.write_bytes(b"".join(seed.decode("latin-1").encode("unicode_escape") + b"\n" for seed in seeds))


def unpack(file: Path, directory: Path) -> None:
    directory.mkdir(parents=True, exist_ok=True)
    for line in file.read_text("ascii").splitlines():
        seed = line.encode("ascii").decode("unicode_escape").encode("latin-1")
        # As libFuzzer names an input.
        (directory / hashlib.sha1(seed).hexdigest()).write_bytes(seed)


command, source, target = sys.argv[1:]
{"pack": pack, "unpack": unpack}[command](Path(source), Path(target))
