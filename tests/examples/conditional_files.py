"""Conditional requests and ranges at random, beside a reference. usage: conditional_files.py PORT DIRECTORY

The directory is the one that the server serves. The reference follows RFC 9110, sections 13.2.2 and 14, as they stand there.
"""

import email.parser
import email.utils
import http.client
import os
import pathlib
import random
import re
import sys
import time

ROUNDS = 10000
SIZE = 1000
HOUR = 3600
SECONDS = 60


class Reference:
    """What a file is to be answered with."""

    def __init__(self, content, tag, modified):
        self.content = content
        self.tag = tag
        self.time = modified

    @property
    def modified(self):
        """A time that lies ahead is not told: it is now."""
        return min(self.time, int(time.time()))

    def is_weak(self):
        return self.tag.startswith("W/")

    def listed(self, value, is_strong):
        if value == "*":
            return True
        for mark, opaque in re.findall(r'(W/)?("[^"]*")', value):
            if opaque == self.tag.removeprefix("W/") and not (is_strong and (mark or self.is_weak())):
                return True
        return False

    def precondition(self, headers):
        """The status; 200 to go on."""

        def date(name):
            try:
                return email.utils.parsedate_to_datetime(headers[name]).timestamp() if name in headers else None
            except ValueError:
                return None

        if "If-Match" in headers:
            if not self.listed(headers["If-Match"], True):
                return 412
        elif date("If-Unmodified-Since") is not None and self.modified > date("If-Unmodified-Since"):
            return 412
        if "If-None-Match" in headers:
            return 304 if self.listed(headers["If-None-Match"], False) else 200
        if date("If-Modified-Since") is not None and self.modified <= date("If-Modified-Since"):
            return 304
        return 200

    def is_current(self, headers):
        if "If-Range" not in headers:
            return True
        value = headers["If-Range"]
        if '"' in value:
            return value == self.tag and not self.is_weak()
        return value == email.utils.formatdate(self.modified, usegmt=True) and not self.is_weak()

    def ranges(self, header):
        """The bytes that are asked for, each run where the first that is of it stood; none where the header means nothing."""
        if not header.lower().startswith("bytes="):
            return None
        wanted, begins = set(), []
        for element in filter(None, (part.strip() for part in header[6:].split(","))):
            match = re.fullmatch(r"(\d*)-(\d*)", element)
            if not match or element == "-":
                return None
            first, last = match.groups()
            if first and last and int(last) < int(first):
                return None
            if first:
                element = range(int(first), min(int(last) + 1 if last else SIZE, SIZE))
            else:
                element = range(SIZE - min(int(last), SIZE), SIZE)
            wanted.update(element)
            begins.extend(element[:1])
        runs = []
        for byte in sorted(wanted):
            if runs and runs[-1][1] == byte:
                runs[-1][1] = byte + 1
            else:
                runs.append([byte, byte + 1])
        return sorted(runs, key=lambda run: next(i for i, begin in enumerate(begins) if run[0] <= begin < run[1]))

    def answer(self, method, headers):
        """Status, and the parts of the body with their ranges."""
        status = self.precondition(headers)
        if status != 200:
            return status, []
        runs = None
        if method == "GET" and "Range" in headers and self.is_current(headers):
            runs = self.ranges(headers["Range"])
        if runs is None or len(runs) > 16:
            return 200, [(None, self.content)]
        if not runs:
            return 416, []
        return 206, [(f"bytes {first}-{end - 1}/{SIZE}", self.content[first:end]) for first, end in runs]


def pick_headers(reference):
    tag = reference.tag.removeprefix("W/")
    tags = [tag, "W/" + tag, '"x"', "*", f'"x", {tag}', f'W/"y" ,W/{tag}', "nonsense"]
    # What is now may be another second for the server.
    shifts = (-2 * HOUR, 2 * HOUR) if reference.is_weak() else (-1, 0, 1)
    dates = [email.utils.formatdate(reference.modified + shift, usegmt=True) for shift in shifts] + ["nonsense"]

    def element():
        first, last = random.randrange(1200), random.randrange(1200)
        return random.choice(
            [f"{first}-{last}", f"{first}-{first + last // 4}", f"{first}-", f"-{last}", "-0", " 0-0 ", "x"]
        )

    spec = ",".join(element() for _ in range(random.choice([1, 1, 1, 2, 3, 20])))
    choices = {
        "If-Match": tags,
        "If-None-Match": tags,
        "If-Modified-Since": dates,
        "If-Unmodified-Since": dates,
        "If-Range": tags[:3] + dates[:-1],
        "Range": [f"bytes={spec}", f"bytes={spec}", f"Bytes={spec}", f"lines={spec}"],
    }
    return {name: random.choice(values) for name, values in choices.items() if random.random() < 0.4}


def parts_of(response, body):
    kind = response.getheader("Content-Type") or ""
    if not kind.startswith("multipart/byteranges"):
        return [(response.getheader("Content-Range"), body)]
    message = email.parser.BytesParser().parsebytes(b"Content-Type: " + kind.encode() + b"\r\n\r\n" + body)
    return [(part["Content-Range"], part.get_payload(decode=True)) for part in message.get_payload()]


def main():
    port, directory = int(sys.argv[1]), pathlib.Path(sys.argv[2])
    seed = time.time_ns() % 1000000
    random.seed(seed)
    # Bytes that a parser of messages leaves alone.
    content = bytes(random.choice(b"abcdefghijklmnopqrstuvwxyz") for _ in range(SIZE))
    client = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
    references = []
    now = int(time.time())
    # The tag of a file of the future is a weak one.
    for name, modified in (("settled", now - HOUR), ("unsettled", now + HOUR)):
        (directory / name).write_bytes(content)
        os.utime(directory / name, (modified, modified))
        client.request("GET", "/" + name)
        response = client.getresponse()
        response.read()
        references.append((name, Reference(content, response.getheader("ETag"), modified)))
    assert [reference.is_weak() for _, reference in references] == [False, True]

    seen = {}
    for _ in range(ROUNDS):
        name, reference = random.choice(references)
        method = random.choice(["GET", "GET", "GET", "HEAD"])
        headers = pick_headers(reference)
        client.request(method, "/" + name, headers=headers)
        response = client.getresponse()
        body = response.read()
        status, parts = reference.answer(method, headers)
        what = f"seed {seed}: {method} {name} {headers}: {response.status}, not {status}"
        assert response.status == status, what
        if method == "HEAD" or status == 304:
            assert body == b"", what
        elif parts:
            assert parts_of(response, body) == parts, what
        if status == 416:
            assert response.getheader("Content-Range") == f"bytes */{SIZE}", what
        seen[status] = seen.get(status, 0) + 1
    assert set(seen) == {200, 206, 304, 412, 416}, seen
    print(f"ok: {ROUNDS} conditional requests: {seen}")


main()
