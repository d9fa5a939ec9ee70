"""Runs the conformance cases of RFC 6455 and RFC 7692 against a server that echoes texts and binary messages.

The server chooses the subprotocol `echo` if that is offered, accepts permessage-deflate, refuses foreign origins with
403, and takes messages of up to --max-message bytes. See --help for the arguments.
"""

import argparse
import concurrent.futures
import importlib
import ssl
import sys

import cases
import cases_limits
import opening
import peer
import wire

# Modules that register their cases, in the order in which these run.
for name in ("opening", "framing", "control", "fragments", "utf8", "close", "offers", "deflate"):
    importlib.import_module("cases_" + name)

# It has room for the messages of the cases that are not about the limit.
LEAST_LIMIT = 1 << 18


def all_cases(limit):
    """The cases for a server that takes messages of so many bytes."""
    if limit < LEAST_LIMIT:
        raise ValueError(f"the cases need a server that takes messages of {LEAST_LIMIT} bytes")
    cases_limits.register(limit)
    names = [case.id for case in cases.CASES]
    if len(set(names)) < len(names):
        raise ValueError(f"more than one case is called {sorted(name for name in names if names.count(name) > 1)}")
    return cases.CASES


def problem_of(case, connect):
    """What came otherwise than the case says; None if nothing did."""
    try:
        case.run(connect)
    except (wire.BrokenRule, cases.Mismatch, OSError) as problem:
        return str(problem) or type(problem).__name__
    return None


def run(selected, connect, jobs):
    """The cases with their problems, as they come, in the cases' order."""
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        yield from zip(selected, pool.map(lambda case: problem_of(case, connect), selected))


def tls_context(is_insecure):
    context = ssl.create_default_context()
    if is_insecure:
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
    return context


def main(texts):
    """Does what the arguments say, and returns the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--url", help="ws://HOST:PORT/PATH or wss://HOST:PORT/PATH of the server")
    parser.add_argument("--insecure", action="store_true", help="take any certificate of the server's")
    parser.add_argument("--only", action="append", metavar="PREFIX", help="cases whose ids begin so; may be repeated")
    parser.add_argument("--max-message", type=int, default=16 << 20, metavar="BYTES",
                        help="the server's limit, at least 256 KiB; that is also the quickest (default: 16 MiB)")
    parser.add_argument("--jobs", type=int, default=8, help="connections at a time (default: 8)")
    parser.add_argument("--list", action="store_true", help="print the cases instead")
    arguments = parser.parse_args(texts)
    selected = [case for case in all_cases(arguments.max_message)
                if not arguments.only or case.id.startswith(tuple(arguments.only))]
    if arguments.list:
        print(*selected, sep="\n")
        return 0
    if not arguments.url:
        parser.error("--url is missing")
    target = opening.Target.of(arguments.url)
    context = tls_context(arguments.insecure) if target.scheme == "wss" else None
    failed = 0
    for case, problem in run(selected, lambda: peer.Peer(target, context), arguments.jobs):
        if problem:
            failed += 1
            print(f"{case.id} [{case.section}] {case.title}: {problem}", flush=True)
    print(f"{len(selected) - failed} passed, {failed} failed")
    return 1 if failed or not selected else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
