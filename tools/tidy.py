"""Runs clang-tidy on sources, but for those that it has found nothing in as they are. ./dev lint runs this.

It takes ten minutes for all of them, and a change touches a few. A source without findings is remembered by a hash of all
that clang-tidy sees of it: the checks, the command line, and what the preprocessor makes of it, with the comments, for some
of them are about findings. As ccache does, this leaves out where the project lies, so that another clone finds it as well.
"""

from __future__ import annotations

import argparse
import hashlib
import json
import os
import shlex
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

CLANG_TIDY = "clang-tidy"
KEPT_SECONDS = 60 * 24 * 3600  # since it was of use


@dataclass(frozen=True)
class Source:
    file: str
    directory: str
    command: list[str]

    def preprocessed(self) -> bytes:
        command = self.command.copy()
        del command[command.index("-o") : command.index("-o") + 2]
        command.remove("-c")
        return subprocess.run([*command, "-E", "-C"], cwd=self.directory, stdout=subprocess.PIPE, check=True).stdout


class Tidy:
    def __init__(self, root: Path, build: Path) -> None:
        self._root = os.fsencode(root)
        self._build = build
        self._cache = Path(os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache") / "vireo" / "tidy"
        self._cache.mkdir(parents=True, exist_ok=True)
        version = subprocess.run([CLANG_TIDY, "--version"], stdout=subprocess.PIPE, check=True).stdout
        self._checks = version + (root / ".clang-tidy").read_bytes()

    def findings(self, source: Source) -> str:
        """What clang-tidy says of it; empty for nothing."""
        clean = self._cache / self._key(source)
        if clean.exists():
            clean.touch()
            return ""
        command = [CLANG_TIDY, "-quiet", "-p", str(self._build), source.file]
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        if run.returncode == 0 and not run.stdout.strip():
            clean.touch()
            return ""
        return run.stdout + run.stderr

    def forget(self) -> None:
        """What has been of no use for long."""
        for clean in self._cache.iterdir():
            if clean.stat().st_mtime < time.time() - KEPT_SECONDS:
                clean.unlink(missing_ok=True)

    def _key(self, source: Source) -> str:
        seen = source.preprocessed() + "\0".join(source.command).encode()
        return hashlib.sha256(self._checks + seen.replace(self._root, b"")).hexdigest()


def sources_in(build: Path, folders: list[Path]) -> list[Source]:
    """Those of the folders that the build compiles, each once."""
    sources = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        if any(Path(entry["file"]).is_relative_to(folder) for folder in folders):
            sources[entry["file"]] = Source(entry["file"], entry["directory"], shlex.split(entry["command"]))
    return list(sources.values())


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", type=Path, required=True, help="the project")
    parser.add_argument("--build", type=Path, required=True, help="a build directory with compile commands")
    parser.add_argument("folders", nargs="+", help="of the project, whose sources are looked at")
    arguments = parser.parse_args()

    sources = sources_in(arguments.build, [arguments.root / folder for folder in arguments.folders])
    if not sources:
        print("tidy: there is nothing to look at", file=sys.stderr)
        return 1
    tidy = Tidy(arguments.root, arguments.build)
    with ThreadPoolExecutor(os.cpu_count()) as threads:
        findings = [found for found in threads.map(tidy.findings, sources) if found]
    tidy.forget()
    print("".join(findings), end="")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
