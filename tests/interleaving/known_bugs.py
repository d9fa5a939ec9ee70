"""Puts known bugs back into the sources, one at a time, and looks whether the interleavings find them.

Each is of the kind that a test finds now and then: a wake-up too early, a look without the lock, an exchange that is a
store. It is compiled beside the build, linked into the test program in the place of what is right, and the program must
fail. Run by ./dev interleavings.
"""

from __future__ import annotations

import argparse
import json
import os
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

TARGET = "tests/interleaving/interleaving_tests"
# As many random runs as the tests have: some bugs take several threads that are held up.
TIMES = 30
# More than the tests take; a bug that makes them hang is found by the scheduler, not by this.
TIMEOUT_SECONDS = 300


@dataclass(frozen=True)
class Bug:
    """What stands in a file of src/, and what stood there."""

    name: str
    file: str
    right: str
    wrong: str
    # Of the tests that are to find it.
    filter: str


BUGS = [
    Bug(
        "a resumption between the engine's suspension and its note is lost",
        "engine/Suspension.h",
        "if (!state_.compare_exchange_strong(seen, State::Suspended)) {",
        "if (state_.store(State::Suspended); false) {",
        "Exchange*",
    ),
    Bug(
        "a reader that has made room tells nobody where the piece is held after its look",
        "streams/FeedAccess.cpp",
        "    state.isHeld = buffered != 0 && (buffered >= state.windowBytes || added > state.windowBytes - buffered);\n"
        "    return !state.isHeld;",
        "    const bool isHeld = buffered != 0 && (buffered >= state.windowBytes || added > state.windowBytes - buffered);\n"
        "    device.mutex_.unlock();\n"
        "    device.mutex_.lock();\n"
        "    state.isHeld = isHeld;\n"
        "    return !isHeld;",
        "Exchange*",
    ),
    Bug(
        "the end of a body wakes nobody",
        "streams/HttpReceiveDevice.cpp",
        "    waitCondition_.wakeAll();\n    noMoreFeed_ = true;",
        "    noMoreFeed_ = true;",
        "Exchange*",
    ),
    Bug(
        "a writer looks for room without the lock and sleeps with it",
        "streams/HttpResponseDevice.cpp",
        "    if (getDataSize() > MaxQueuedBytes && !hasDeviceError() && !isEndSending()) {",
        "    if (mayWait) {",
        "Exchange*",
    ),
    Bug(
        "an answer that is released wakes nobody",
        "streams/HttpResponseDevice.cpp",
        "    if (state == ResponseState::Ready) {\n        impl::tellNews(request_);",
        "    if (state == ResponseState::Ready && false) {\n        impl::tellNews(request_);",
        "Exchange*",
    ),
    Bug(
        "news that come at the end of a turn are overwritten",
        "session/pool/TurnState.h",
        "        return word_.compare_exchange_strong(expected, 0, std::memory_order_acq_rel, std::memory_order_relaxed);",
        "        return word_.exchange(0, std::memory_order_acq_rel) == expected || expected != 0;",
        "Session*",
    ),
    Bug(
        "a wake-up of the session threads stays on its way for ever",
        "session/pool/TaskPoolState.cpp",
        "    if (result.woken) {\n        isWaking_ = false;",
        "    if (result.woken && result.alarm) {\n        isWaking_ = false;",
        "Session*",
    ),
    Bug(
        "what is sent beside a turn asks for none",
        "session/SessionOutput.cpp",
        "!isOwn(sender) && (isWaiting || isDrained)};",
        "!isOwn(sender) && !isWaiting && isDrained};",
        "Session*",
    ),
    Bug(
        "a sender that waits for room is forgotten at the end",
        "session/SessionOutput.cpp",
        "    encoder_ = MessageEncoder();\n    room_.wakeAll();",
        "    encoder_ = MessageEncoder();",
        "Session*",
    ),
    Bug(
        "a session that is cut in its turn is not told",
        "session/SessionCore.cpp",
        "        abandon();\n    } else {\n        schedule();\n    }",
        "        abandon();\n    }",
        "Session*",
    ),
    Bug(
        "what is written to a connection while others join the poll is noted as seen",
        "websocket/pool/PollLoop.cpp",
        "    if (pool_.pollWaker->takeNotedWrite()) {\n"
        "        for (std::size_t i = 0; i < known; ++i) {\n"
        "            polled_.setForWriting(i, memberOf(batch_[i]).isWritePending());\n"
        "        }\n"
        "    }\n"
        "    for (std::size_t i = known; i < batch_.size(); ++i) {\n"
        "        const PoolMember& member = memberOf(batch_[i]);\n"
        "        polled_.add(member.getSocket(), member.isWritePending());\n"
        "    }",
        "    for (std::size_t i = known; i < batch_.size(); ++i) {\n"
        "        const PoolMember& member = memberOf(batch_[i]);\n"
        "        polled_.add(member.getSocket(), member.isWritePending());\n"
        "    }\n"
        "    if (pool_.pollWaker->takeNotedWrite()) {\n"
        "        for (std::size_t i = 0; i < known; ++i) {\n"
        "            polled_.setForWriting(i, memberOf(batch_[i]).isWritePending());\n"
        "        }\n"
        "    }",
        "Pool*",
    ),
    Bug(
        "a worker goes to sleep behind a look without the lock",
        "app/kernel/WorkerPool.cpp",
        "    while (tasks_.empty() && !isStopping_) {\n        ++idle_;",
        "    while (tasks_.empty() && !isStopping_) {\n        mutex_.unlock();\n        mutex_.lock();\n        ++idle_;",
        "WorkerPool*",
    ),
    Bug(
        "a drain counts on nobody who has connected and sent nothing yet",
        "server/Drain.cpp",
        "    return client.isOpen() &&",
        "    return false && client.isOpen() &&",
        "Drain*",
    ),
]


def run(command: str | list[str], build: Path, **options) -> subprocess.CompletedProcess:
    return subprocess.run(command, cwd=build, shell=isinstance(command, str), capture_output=True, text=True, **options)


class Program:
    """The test program as it is built, and how."""

    def __init__(self, root: Path, build: Path) -> None:
        self._root = root
        self.build = build
        lines = run(["ninja", "-t", "commands", TARGET], build, check=True).stdout.splitlines()
        self._link = lines[-1]
        linked = set(re.findall(r"\S+\.o\b", self._link))
        self._compile = {
            entry["output"]: entry["command"]
            for entry in json.loads(run(["ninja", "-t", "compdb"], build, check=True).stdout)
            if entry["output"] in linked
        }
        self._needs: dict[str, set[str]] = {}
        current = ""
        for line in run(["ninja", "-t", "deps", *self._compile], build, check=True).stdout.splitlines():
            if line.startswith("    "):
                self._needs[current].add(str((build / line.strip()).resolve()))
            elif line:
                current = line.partition(":")[0]
                self._needs[current] = set()

    def find(self, bug: Bug, number: int) -> str:
        """@return what is wrong; empty when the bug was found."""
        original = (self._root / "src" / bug.file).resolve()
        text = original.read_text()
        if text.count(bug.right) != 1:
            return f"its place is not in {bug.file}"
        overlay = self.build / "tests" / "interleaving" / "known-bugs" / str(number)
        changed = overlay / bug.file
        changed.parent.mkdir(parents=True, exist_ok=True)
        changed.write_text(text.replace(bug.right, bug.wrong))
        link = self._link
        for output, needs in self._needs.items():
            if str(original) not in needs:
                continue
            command = self._compile[output].replace(str(original), str(changed))
            new_output = str(overlay / Path(output).name)
            command = command.replace(output, new_output).replace(" -c ", f" -I{overlay} -c ")
            command = re.sub(r"( -DVIREO_STATIC\S*)", rf"\1 -I{overlay}", command, count=1)
            done = run(command, self.build)
            if done.returncode != 0:
                return f"it does not compile:\n{done.stderr[-3000:]}"
            link = link.replace(f" {output} ", f" {new_output} ")
        program = overlay / "interleaving_tests"
        link = link.replace(f"-o {TARGET} ", f"-o {shlex.quote(str(program))} ")
        # What the build does behind the linking is for the program that it links.
        done = run(re.sub(r"(interleaving_tests .*?) &&.*$", r"\1", link, count=1) if program.name in link else link, self.build)
        if not program.is_file():
            return f"it does not link:\n{done.stderr[-3000:]}"
        try:
            done = run(
                [str(program), f"--gtest_filter={bug.filter}", "--gtest_fail_fast"], self.build, timeout=TIMEOUT_SECONDS,
                env=os.environ | {"VIREO_INTERLEAVINGS": str(TIMES)},
            )
        except subprocess.TimeoutExpired:
            return "the tests hang"
        finally:
            program.unlink()
        # What the scheduler says of a run that has failed.
        return "" if done.returncode != 0 and "threads in turns:" in done.stderr else "no run has failed"


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=Path, required=True)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--only", default="", help="of those whose names match")
    options = parser.parse_args()
    program = Program(options.root.resolve(), options.build.resolve())
    bugs = [(number, bug) for number, bug in enumerate(BUGS) if re.search(options.only, bug.name)]
    with ThreadPoolExecutor(options.jobs) as pool:
        failures = list(pool.map(lambda numbered: program.find(numbered[1], numbered[0]), bugs))
    for (_, bug), failure in zip(bugs, failures):
        print(f"{'missed' if failure else 'found '}: {bug.name}" + (f": {failure}" if failure else ""))
    return 1 if any(failures) else 0


if __name__ == "__main__":
    sys.exit(main())
