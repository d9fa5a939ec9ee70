"""Sends random mutations of the raw cases to the strict server and gives them to h11: what both accept has to mean the
same, in method, target, header fields, body, and where the next request begins.

usage: fuzz_against_h11.py PROGRAM [--event] [--count NUMBER] [--seed NUMBER]

What only one of the two accepts is counted. What the server serves and h11 refuses wants a reason, with engine 1.0.1.
"""

import argparse
import concurrent.futures
import dataclasses
import random
import re
import sys

import h11

import raw_cases
import server_under_test

# After so long without a byte the server is taken to wait for more; it is asked again with patience before that counts.
SILENCE_SECONDS = 0.2
PATIENT_SILENCE_SECONDS = 3

# What is put in place of a byte, or between two.
PIECES = [b"\r", b"\n", b"\r\n", b" ", b"\t", b"\0", b"\x0b", b"\x7f", b"\x80", b"\xff", b":", b";", b",", b"=", b"/",
          b"?", b"*", b"%", b"+", b"-", b'"', b"0", b"1", b"5", b"a", b"x", b"chunked", b"close", b"http://y"]
# Behind each: it ends the connection, so that there is nothing to wait for.
LAST = b"GET /last HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"
# Case group "Limits" is about size alone, which makes mutations slow and no wiser.
BASES = [case.sent for case in raw_cases.CASES if len(case.sent) < 3000]
LINES = sorted({line for sent in BASES for line in sent.partition(b"\r\n\r\n")[0].split(b"\r\n")[1:]})

# Differences that are known: why they are none of the library's making, and whether it is one of them.
KNOWN = {
    "Engine 0.9.75 joins a folded line to the name before it, and a NUL ends a text there, and nobody sees it.":
        lambda sent, version: version.startswith("0.9.") and re.search(rb"\n[ \t]|\0", sent),
    "h11 ends each connection of HTTP/1.0, also where the client asks to keep it.":
        lambda sent, version: b"HTTP/1.0" in sent and b"keep-alive" in sent.lower(),
}

# Why the server serves what h11 refuses, and what such bytes hold. Of engine 1.0.1 alone: 0.9.75 lets too much through.
BEYOND_H11 = {
    "An empty line before a request is to be ignored.": rb"(^|[^\n]|\n\r\n)\r\n[!-~]+ [^ ]+ HTTP/",
    "Trailers are the engine's, and dropped.": rb"\r\n0+\r\n[^\r]",
    "Engine 1.0.1 misreads chunk extensions.": rb"\r\n[0-9A-Fa-f]+[ \t]*;",
    "A chunk size may have any number of zeros before it.": rb"\r\n0{16}",
    "Browsers and others leave UTF-8 in a query as it is.": rb"\?[^ ]*[\x80-\xff]",
    "A list of a single length is one.": rb"(?i)content-length:[^\r]*,",
}


@dataclasses.dataclass
class Reading:
    """The requests that somebody reads from the bytes, and what comes behind the last one."""
    requests: list
    # "refused", "closed", "waits"
    end: str


def mutate(dice):
    sent = dice.choice(BASES)
    for _ in range(dice.choice((1, 1, 1, 2, 3))):
        at = dice.randrange(len(sent) + 1)
        piece = dice.choice(PIECES)
        lines = sent.split(b"\r\n")
        place = dice.randrange(len(lines))
        match dice.randrange(8):
            case 0:
                sent = sent[:at] + piece + sent[at:]
            case 1:
                sent = sent[:at] + piece + sent[at + 1:]
            case 2:
                sent = sent[:at] + sent[at + 1:]
            case 3:
                sent = sent[:at] + sent[at:at + 1].swapcase() + sent[at + 1:]
            case 4:
                sent = b"\r\n".join(lines[:place] + lines[place:place + 1] + lines[place:])
            case 5:
                sent = b"\r\n".join(lines[:place] + lines[place + 1:])
            case 6:
                sent = b"\r\n".join(lines[:1] + [dice.choice(LINES)] + lines[1:])
            case 7:
                sent += dice.choice(BASES)
    return sent


def plain(values):
    """Values of one name, however they are spread over lines and elements."""
    elements = (element.strip(" \t") for element in ",".join(values).split(","))
    return ",".join(element for element in elements if element)


def request(method, target, fields, body):
    """A request in the terms of both: in origin form, with the authority for Host, and the framing left to the body."""
    if match := re.fullmatch(r"[Hh][Tt][Tt][Pp][Ss]?://([^/?#]*)([^#]*)", target):
        fields = {**fields, "host": [match[1]]}
        target = match[2]
        if not target.startswith("/"):
            target = "*" if method == "OPTIONS" and not target else "/" + target
    headers = {name: plain(values) for name, values in fields.items()
               if name not in ("content-length", "transfer-encoding")}
    return {"method": method, "target": target, "headers": headers, "body": body}


def read_by_h11(sent):
    connection = h11.Connection(h11.SERVER, max_incomplete_event_size=1000000)
    connection.receive_data(sent)
    requests = []
    body = b""
    while True:
        try:
            event = connection.next_event()
        except h11.RemoteProtocolError:
            return Reading(requests, "refused")
        if event is h11.NEED_DATA:
            return Reading(requests, "waits")
        if isinstance(event, h11.Request):
            head = event
            body = b""
        elif isinstance(event, h11.Data):
            body += event.data
        else:  # the end of the request
            fields = {}
            for name, value in head.headers:
                fields.setdefault(name.decode(), []).append(value.decode("latin-1"))
            requests.append(
                request(head.method.decode(), head.target.decode("latin-1"), fields, body.decode("latin-1")))
            connection.send(h11.Response(status_code=404, headers=[("Content-Length", "0")]))
            connection.send(h11.EndOfMessage())
            if connection.our_state is not h11.DONE or connection.their_state is not h11.DONE:
                return Reading(requests, "closed")
            connection.start_next_cycle()


def read_by_server(port, sent, silence):
    exchange = server_under_test.Exchange(port, sent)
    came = exchange.wait(silence, lambda answers: False)
    answers = exchange.answers()
    exchange.close()
    requests = []
    for answer in answers:
        if answer.status != 200:
            return Reading(requests, "refused")
        seen = answer.seen()
        found = request(seen["method"], seen["target"], seen["headers"], seen["body"])
        # What the application is told to be broken, it does not have.
        requests.append(found if seen["parseError"] is None else {"method": found["method"], "body": found["body"]})
    return Reading(requests, "closed" if came else "waits")


def differences(ours, theirs):
    for number, (our, their) in enumerate(zip(ours.requests, theirs.requests)):
        for what, value in our.items():
            if value != their[what]:
                yield f"request {number}, {what}: {value!r}, but h11 has {their[what]!r}"
    if len(ours.requests) > len(theirs.requests) and theirs.end != "refused":
        yield f"request {len(theirs.requests)} is served, where h11 {theirs.end}"
    if len(ours.requests) < len(theirs.requests) and ours.end == "waits":
        yield f"request {len(ours.requests)} is waited for, where h11 has all of it"


def compare(port, sent):
    """The differences, and which of the two accepts more."""
    theirs = read_by_h11(sent)
    for silence in (SILENCE_SECONDS, PATIENT_SILENCE_SECONDS):
        ours = read_by_server(port, sent, silence)
        found = list(differences(ours, theirs))
        if not found:
            break
    return found, len(ours.requests) - len(theirs.requests)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--event", action="store_true")
    parser.add_argument("--count", type=int, default=2000)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    dice = random.Random(options.seed)
    inputs = [mutate(dice) + LAST for _ in range(options.count)]
    arguments = ["--strict", *(["--event"] if options.event else [])]
    with server_under_test.serving(options.program, *arguments) as (port, version):
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            results = list(pool.map(lambda sent: compare(port, sent), inputs))
    failures = []
    more = {"both": 0, "the server": 0, "h11": 0}
    known = dict.fromkeys(KNOWN, 0)
    for sent, (found, surplus) in zip(inputs, results):
        more["both" if surplus == 0 else "the server" if surplus > 0 else "h11"] += 1
        reason = next((reason for reason, is_it in KNOWN.items() if found and is_it(sent, version)), None)
        if reason is not None:
            known[reason] += 1
        elif found:
            failures.append(f"{sent!r}: {'; '.join(found)}")
        elif surplus > 0 and not version.startswith("0.9.") and not any(
                re.search(pattern, sent) for pattern in BEYOND_H11.values()):
            failures.append(f"{sent!r}: served, but refused by h11")
    if failures:
        sys.exit("\n".join(failures[:20]) + f"\n{len(failures)} differences")
    print(f"ok: {options.count} inputs; read equally far {more['both']}, further by the server {more['the server']}, "
          f"further by h11 {more['h11']}; known differences: {sum(known.values())}")


main()
