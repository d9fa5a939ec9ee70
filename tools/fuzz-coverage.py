"""Tells how much of what reads input the fuzzers' seeds run. ./dev fuzz --coverage runs this.

usage: fuzz-coverage.py SOURCE-TREE BUILD CORPUS FUZZER...

The fuzzers are those of BUILD, compiled with clang's counters. Each is given its seeds and, if there is one, CORPUS/FUZZER,
once; the roads in each way of waiting and of strictness.
"""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

# In percent of the lines; below it the run fails.
GOAL = 90

# What goes byte by byte, or field by field, through what a client has sent, and decides by it. What is left out goes by
# what the application does, by the clock or by the system.
READERS = {
    "paths, dates, ranges": r"app/files/(Conditions|HttpDate|PathRules|Ranges)",
    "passwords, signed texts": r"app/middleware/(Base64Text|Credentials|SignedText)",
    "heads in the toolkit": r"app/request/(Accept|Authority|Cookies|ForwardedClient|HeadView|Query)",
    "routes": r"app/routing/(PathSegments|RouteTable)",
    "answers to the test client": r"app/testing/(EventSplitter|ResponseText)",
    "forms": r"engine/(FormDecoder|FormDecoding|FormFilter|PartGatherer)",
    "texts and URLs": r"frame/(Base64|HttpHeaders|HttpSyntax|HttpUrl|Utf8)",
    "heads in the core": r"request/(RequestIntake|StrictHead|StrictIntake)",
    "sessions": r"session/(ByteBuffer|DeflateOffer|FrameDecoder|Inflater|MessageEncoder|Opening|SessionReceiver)",
    "WebSockets": r"websocket/(BlockList|BlockQueue|FrameCodec|FrameHeader|Unmask|WebSocket)",
}

ROADS = ({}, {"VIREO_TEST_WAITING": "event"}, {"VIREO_TEST_WAITING": "event", "VIREO_FUZZ_STRICT": "1"})


def run_fuzzer(root: Path, build: Path, corpus: Path, name: str, profiles: Path) -> None:
    seeds = build / "seeds" / name
    subprocess.run(
        [sys.executable, root / "tools/fuzz-seeds.py", "unpack", root / f"fuzz/corpus/{name}.txt", seeds], check=True
    )
    inputs = [path for path in (root / "fuzz/corpus" / name, seeds, corpus / name) if path.is_dir()]
    for number, settings in enumerate(ROADS if name.endswith("-road") else ROADS[:1]):
        subprocess.run(
            [build / "fuzz" / name, "-runs=0", "-timeout=60", "-detect_leaks=0", *inputs], check=True, capture_output=True,
            env=os.environ | settings | {"LLVM_PROFILE_FILE": str(profiles / f"{name}-{number}.profraw")},
        )


def summaries(build: Path, profiles: Path, names: list[str]) -> list[dict]:
    merged = profiles / "all.profdata"
    subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", merged, *profiles.glob("*.profraw")], check=True)
    programs = [build / "fuzz" / name for name in names] + [build / "src/libvireo.so"]
    exported = subprocess.run(
        ["llvm-cov", "export", "--summary-only", f"--instr-profile={merged}", programs[0],
         *(f"--object={each}" for each in programs[1:])],
        check=True, capture_output=True, text=True,
    )
    return json.loads(exported.stdout)["data"][0]["files"]


def count(files: list[dict], source: Path) -> dict[str, Counter[str]]:
    rows: dict[str, Counter[str]] = {}
    for file in files:
        path = Path(file["filename"]).resolve()
        if not path.is_relative_to(source) or path.suffix != ".cpp":
            continue
        for row, pattern in READERS.items():
            if re.fullmatch(pattern, str(path.relative_to(source).with_suffix(""))):
                for each in (row, "all"):
                    for kind in ("lines", "branches"):
                        rows.setdefault(each, Counter())[kind] += file["summary"][kind]["count"]
                        rows[each][f"{kind} run"] += file["summary"][kind]["covered"]
    return rows


def main() -> int:
    root, build, corpus = (Path(argument) for argument in sys.argv[1:4])
    names = sys.argv[4:]
    profiles = build / "profiles"
    profiles.mkdir(exist_ok=True)
    for old in profiles.iterdir():
        old.unlink()
    for name in names:
        run_fuzzer(root, build, corpus, name, profiles)
    rows = count(summaries(build, profiles, names), root / "src")
    print(f"{'':28}{'lines':>8}{'run':>9}{'branches':>10}{'taken':>9}")
    for row in (*READERS, "all"):
        counted = rows[row]
        shares = [100 * counted[f"{kind} run"] / counted[kind] for kind in ("lines", "branches")]
        print(f"{row:28}{counted['lines']:8}{shares[0]:8.1f}%{counted['branches']:10}{shares[1]:8.1f}%")
    return 0 if 100 * rows["all"]["lines run"] >= GOAL * rows["all"]["lines"] else 1


if __name__ == "__main__":
    sys.exit(main())
