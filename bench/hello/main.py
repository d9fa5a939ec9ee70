"""How large the least programs are, and how long each takes from its start to its first answer. The first is the engine's
alone, with which the others are compared; each is started once in every round."""

from __future__ import annotations

import argparse
import os
import socket
import statistics
import struct
import subprocess
import tempfile
import time
from pathlib import Path

from processes import BenchError, run_program

ADDRESS = ("127.0.0.1", 8181)
REQUEST = b"GET /hello/world HTTP/1.1\r\nHost: localhost\r\n\r\n"
SECONDS = 10


def stripped_kib(program: Path) -> float:
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run(["strip", "-o", copy.name, program], check=True)
        return os.stat(copy.name).st_size / 1024


def ask() -> bytes | None:
    """The beginning of the answer; nothing as long as nobody listens."""
    with socket.socket() as client:
        # The client resets, so that no end of a connection keeps the port from the next program.
        client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        client.settimeout(SECONDS)
        if client.connect_ex(ADDRESS) != 0:
            return None
        client.sendall(REQUEST)
        return client.recv(4096)


def start_ms(program: Path) -> float:
    if ask() is not None:
        raise BenchError(f"somebody else listens on port {ADDRESS[1]}")
    begin = time.monotonic()
    with subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        try:
            answer = None
            while answer is None and process.poll() is None and time.monotonic() < begin + SECONDS:
                answer = ask()
            elapsed = time.monotonic() - begin
            if answer is None or not answer.startswith(b"HTTP/1.1 200 "):
                raise BenchError(f"{program} does not answer: {answer!r}")
            return elapsed * 1000
        finally:
            process.kill()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rounds", type=int, default=101, help="how often each program is started (default: %(default)s)")
    parser.add_argument("programs", type=Path, nargs="+")
    arguments = parser.parse_args()
    starts: dict[Path, list[float]] = {program: [] for program in arguments.programs}
    for _ in range(arguments.rounds):
        for program in arguments.programs:
            starts[program].append(start_ms(program))
    engine = statistics.median(starts[arguments.programs[0]])
    print(f"{'':18} {'KiB':>7} {'start [ms]':>11} {'to the engine':>14}")
    for program in arguments.programs:
        start = statistics.median(starts[program])
        print(f"{program.name:18} {stripped_kib(program):7.0f} {start:11.2f} {start / engine:14.2f}")
    return 0


run_program(main)
