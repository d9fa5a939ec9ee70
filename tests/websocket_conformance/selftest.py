"""Shows that the suite notices broken servers: a server without a defect passes every case, and one with a defect
fails at least one of those that are about it.

usage: selftest.py [DEFECT...]
"""

import sys

import opening
import peer
import reference_server
import run

LIMIT = 1 << 20

# From defect of the reference server to the beginning of the ids of the cases of which one has to fail.
DEFECTS = {
    "wrong-accept": "opening.plain",
    "two-connection-fields": "opening.plain",
    "tokens-with-case": "opening.connection.token",
    "tokens-by-prefix": "opening.connection",
    "first-field-only": "opening.connection.repeated",
    "any-method": "opening.method",
    "any-key": "opening.key",
    "any-version": "opening.version",
    "version-without-help": "opening.version",
    "number-overflows": "opening.version.above",
    "any-origin": "opening.origin",
    "origin-by-prefix": "opening.origin",
    "first-protocol-only": "opening.protocol",
    "protocol-not-offered": "opening.protocol",
    "early-bytes-lost": "opening.behind",
    "unmasked": "framing.unmasked",
    "masks": "framing.length",
    "long-forms": "framing.length.not-minimal",
    "top-bit": "framing.length.top-bit",
    "boundary-of-125": "framing.length",
    "boundary-of-65535": "framing.length",
    "reserved-bits": "framing.reserved-bits",
    "opcodes": "framing.reserved-opcode",
    "opcode-sent": "framing.length",
    "bits-sent": "framing.length",
    "no-pong": "control.ping",
    "empty-pong": "control.ping",
    "pongs-answered": "control.pong",
    "long-pong": "control.ping",
    "pong-in-fragments": "control.ping",
    "long-pings": "control.too-long",
    "ping-fragments": "control.fragmented",
    "lone-continuations": "fragments.no-start",
    "message-inside": "fragments.inside",
    "echo-of-fragments": "fragments.shape",
    "fragments-with-opcode": "fragments.shape",
    "any-text": "utf8.invalid",
    "late-text": "utf8.invalid",
    "surrogates": "utf8.invalid.surrogate",
    "split-characters": "utf8.cut",
    "truncated-text": "utf8.truncated",
    "no-close": "close.code",
    "close-twice": "close.code",
    "always-1000": "close.code",
    "any-code": "close.bad-code",
    "one-byte-close": "close.one-byte",
    "any-reason": "close.bad-reason",
    "tcp-stays": "close.code.1000",
    "goes-on": "close.behind",
    "1005-sent": "close.empty",
    "bad-reasons": "close.code",
    "half-a-frame": "close.code",
    "no-limit": "limits",
    "limit-after-payload": "limits.text",
    "limit-per-frame": "limits",
    "limit-off-by-one": "limits",
    "no-inflated-limit": "limits.compressed",
    "malformed-offers": "offers.malformed",
    "first-offer-field-only": "offers.repeated",
    "no-fallback": "offers.several",
    "duplicates": "offers.declined.twice",
    "no-quotes": "offers.quoted",
    "flags-with-values": "offers.declined",
    "unknown-parameters": "offers.declined.unknown",
    "window-not-answered": "offers.server-window",
    "client-window-not-offered": "offers.plain",
    "any-window": "offers.declined",
    "leading-zeros": "offers.declined",
    "window-ignored": "offers.server-window",
    "context-kept": "deflate.context",
    "context-lost": "deflate.context",
    "tail-kept": "deflate.context",
    "final-is-the-end": "deflate.blocks",
    "garbage-is-empty": "deflate.invalid",
    "inflated-text": "deflate.text",
    "rsv1-anywhere": "deflate.bits",
    "fragments-with-bits": "deflate.size",
    "never-compresses": "deflate.used",
}

# What a server may do, and need not: none of it is a reason to fail a case.
HABITS = ("fragments", "own-pings", "reasons", "smaller-windows")

# For an answer that a defect keeps from coming. If one came later, a case too many would fail, and that is no harm.
PATIENCE_SECONDS = 0.5

JOBS = 8


def check_without_defects(habits, cases):
    with reference_server.serving(LIMIT, habits) as url:
        target = opening.Target.of(url)
        return [f"without a defect, {' '.join(habits) or 'and as is'}: {case.id}: {problem}"
                for case, problem in run.run(cases, lambda: peer.Peer(target), JOBS) if problem]


def check(defect, cases):
    """Runs the cases one by one until one fails."""
    with reference_server.serving(LIMIT, [defect]) as url:
        target = opening.Target.of(url)
        if any(run.problem_of(case, lambda: peer.Peer(target, patience=PATIENCE_SECONDS)) for case in cases):
            return []
    return [f"{defect}: none of {len(cases)} cases fails"]


def main(chosen):
    cases = run.all_cases(LIMIT)
    failures = [] if chosen else check_without_defects((), cases) + check_without_defects(HABITS, cases)
    for defect in chosen or DEFECTS:
        failures += check(defect, [case for case in cases if case.id.startswith(DEFECTS[defect])])
    if failures:
        sys.exit("\n".join(failures))
    print(f"ok: {len(cases)} cases, {len(chosen or DEFECTS)} defects")


main(sys.argv[1:])
