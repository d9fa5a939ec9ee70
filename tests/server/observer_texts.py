"""Reads what the observers write of random exchanges, and finds in it what went in.

usage: observer_texts.py PROGRAM
"""

import codecs
import json
import random
import re
import subprocess
import sys

from prometheus_client.openmetrics.parser import text_string_to_metric_families

METHODS = [b"GET", b"HEAD", b"POST", b"PUT", b"DELETE", b"CONNECT", b"OPTIONS", b"TRACE", b"PATCH", b"QUERY"]
PHASES = ["head", "body", "wait", "send"]
ENDING_COUNT = 13
# What is worth trying in a text beside random bytes.
PIECES = [b"/", b'"', b"\\", b"\\x22", b"\r\n", b"\t", b"\0", b"\x1b[2J", b"\x7f", b"\xff", b"\xc3", b"\xed\xa0\x80",
          "äöü".encode(), "\u2028\u202e\u0085".encode(), "😀".encode(), b"%22", b" ", b"{}", b"'"]
COMBINED = re.compile(r'- - - \[01/Jan/1970:00:00:00 \+0000\] "([^" ]*) ((?:[^"])*) -" (-|\d+) (\d+) "([^"]*)" "([^"]*)"')

codecs.register_error("each byte", lambda error: ("\ufffd", error.start + 1))


class Exchange:
    def __init__(self, dice: random.Random):
        self.method = dice.choice(METHODS + [b"BREW", b'x"\n'])
        self.status = dice.choice([0, 101, 200, 204, 304, 404, 503, 999])
        self.ending = dice.randrange(ENDING_COUNT)
        reached = dice.randrange(5)
        self.durations = [dice.randrange(10 ** dice.randrange(7)) if i < reached else -1 for i in range(4)]
        self.sent = dice.randrange(10 ** dice.randrange(12))
        self.text = b"".join(dice.choice(PIECES) if dice.random() < 0.5 else dice.randbytes(dice.randrange(4))
                             for _ in range(dice.randrange(8)))

    def line(self) -> str:
        numbers = " ".join(str(n) for n in [self.status, self.ending, *self.durations, self.sent])
        return f"{self.method.hex()} {numbers} {self.text.hex() or '-'}\n"


def written(program: str, what: str, exchanges: list) -> str:
    result = subprocess.run([program, what], input="".join(e.line() for e in exchanges).encode(), check=True,
                            stdout=subprocess.PIPE, timeout=60)
    text = result.stdout.decode("ascii")
    if re.search(r"[^ -~\n]", text):
        sys.exit(f"observer_texts: a control character in the {what} text")
    return text


def expect(found, expected, what):
    if found != expected:
        sys.exit(f"observer_texts: {what}: {found!r} instead of {expected!r}")


def check_json(program: str, exchanges: list):
    lines = written(program, "json", exchanges).split("\n")
    expect(len(lines), len(exchanges) + 1, "JSON lines")
    for exchange, line in zip(exchanges, lines):
        entry = json.loads(line)
        text = exchange.text.decode("utf-8", "each byte") or None
        for name in ["target", "referer", "userAgent"]:
            expect(entry[name], text, name)
        expect(entry["method"], exchange.method.decode("ascii"), "method")
        expect(entry["status"], exchange.status or None, "status")
        expect(entry["sentBodyBytes"], exchange.sent, "sentBodyBytes")
        for phase, duration in zip(PHASES, exchange.durations):
            expect(entry[phase + "Ms"], None if duration < 0 else duration, phase)


def unescaped(text: str) -> bytes:
    return re.sub(rb"\\x([0-9A-F]{2})", lambda match: bytes.fromhex(match[1].decode()), text.encode("ascii"))


def check_combined(program: str, exchanges: list):
    lines = written(program, "combined", exchanges).split("\n")
    expect(len(lines), len(exchanges) + 1, "combined lines")
    for exchange, line in zip(exchanges, lines):
        match = COMBINED.fullmatch(line)
        if not match:
            sys.exit(f"observer_texts: not a combined line: {line!r}")
        method, target, status, sent, referer, agent = match.groups()
        for text in [target, referer, agent]:
            expect(unescaped(text), exchange.text or b"-", "a text")
        expect(unescaped(method), exchange.method, "method")
        expect(status, str(exchange.status or "-"), "status")
        expect(int(sent), exchange.sent, "bytes")


def check_histogram(family, labels: dict, values: list):
    for sample in family.samples:
        own = {name: value for name, value in sample.labels.items() if name != "le"}
        if own != labels:
            continue
        if sample.name.endswith("_bucket"):
            expect(sample.value, sum(value <= float(sample.labels["le"]) for value in values), sample)
        elif sample.name.endswith("_count"):
            expect(sample.value, len(values), sample)
        else:
            expect(round(sample.value, 3), round(sum(values), 3), sample)


def check_metrics(program: str, exchanges: list):
    families = {family.name: family
                for family in text_string_to_metric_families(written(program, "metrics", exchanges))}
    expect(sorted(families),
           ["vireo_connections", "vireo_exchange_duration_seconds", "vireo_exchange_endings",
            "vireo_exchange_phase_seconds", "vireo_exchange_received_bytes", "vireo_exchange_responses",
            "vireo_exchange_sent_bytes", "vireo_exchanges"], "families")
    for family in families.values():
        kind = ("histogram" if family.name.endswith(("_seconds", "_bytes")) else
                "gauge" if family.name == "vireo_connections" else "counter")
        expect((family.type, family.unit), (kind, family.name.rsplit("_", 1)[1] if kind == "histogram" else ""),
               family.name)
    expect(families["vireo_connections"].documentation, 'Connections that are open, "now".\nAll of them. \\', "help")
    expect(families["vireo_connections"].samples[0].value, 5, "gauge")

    for sample in families["vireo_exchanges"].samples:
        method = sample.labels["method"].encode()
        expect(sample.value, sum((e.method if e.method in METHODS else b"other") == method for e in exchanges), sample)
    for name, key in [("vireo_exchange_responses", "code"), ("vireo_exchange_endings", "ending")]:
        expect(sum(sample.value for sample in families[name].samples), len(exchanges), name)
        expect(len({sample.labels[key] for sample in families[name].samples}), len(families[name].samples), name)
    for sample in families["vireo_exchange_responses"].samples:
        code = sample.labels["code"]
        expect(sample.value, sum((str(e.status) if e.status else "unknown") == code for e in exchanges), sample)

    check_histogram(families["vireo_exchange_duration_seconds"], {},
                    [sum(max(d, 0) for d in e.durations) / 1000 for e in exchanges])
    for i, phase in enumerate(PHASES):
        check_histogram(families["vireo_exchange_phase_seconds"], {"phase": phase},
                        [e.durations[i] / 1000 for e in exchanges if e.durations[i] >= 0])
    check_histogram(families["vireo_exchange_sent_bytes"], {}, [e.sent for e in exchanges])
    check_histogram(families["vireo_exchange_received_bytes"], {}, [0] * len(exchanges))


def main():
    program = sys.argv[1]
    dice = random.Random(12)
    exchanges = [Exchange(dice) for _ in range(5000)]
    check_json(program, exchanges)
    check_combined(program, exchanges)
    check_metrics(program, exchanges)
    check_metrics(program, [])


main()
