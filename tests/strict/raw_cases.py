"""Requests as bytes, and what RFC 9110 and RFC 9112 say of each.

Each case is sent on a connection of its own, followed by the request `GET /next`. A section is one of RFC 9112 unless
another document is named. The judgements:

- accept: has to be served, or any server serves it. The application sees what the case says.
- refuse: must not be served; with one of the statuses that the case says.
- either: the text leaves it open. If it is served, then as the case says.
"""

import dataclasses

NEXT = b"GET /next HTTP/1.1\r\nHost: x\r\n\r\n"


@dataclasses.dataclass(frozen=True)
class Case:
    id: str
    group: str
    section: str
    judgement: str
    sent: bytes
    # refuse: "400", ..., and "closed" where no answer fits as well.
    statuses: tuple = ()
    # What the application sees, of "method", "target", "path", "query", "body", "headers", "cookies" and "arguments";
    # the last three with the values of some names, or None for a name that must not be there.
    sees: dict = dataclasses.field(default_factory=dict)
    # Whether the next request is answered behind it. None: either.
    followed: bool | None = True
    # The answers before that of the next request: of requests that the case holds beside the first.
    then: tuple = ()


CASES = []
_group = ""


def group(name):
    global _group
    _group = name


def add(judgement, id, section, sent, **more):
    CASES.append(Case(id, _group, section, judgement, sent, **more))


def served(judgement, id, section, sent, followed, then, sees):
    """As a GET of "/" without a query and a body, but for what `sees` says: with None, nothing."""
    sees = {"method": "GET", "path": "/", "query": "", "body": "", **sees}
    add(judgement, id, section, sent, followed=followed, then=then,
        sees={what: value for what, value in sees.items() if value is not None})


def accept(id, section, sent, followed=True, then=(), **sees):
    served("accept", id, section, sent, followed, then, sees)


def either(id, section, sent, followed=True, then=(), **sees):
    served("either", id, section, sent, followed, then, sees)


def refuse(id, section, sent, *statuses):
    add("refuse", id, section, sent, statuses=tuple(map(str, statuses or (400,))))


def get(*fields, line=b"GET / HTTP/1.1", host=b"Host: x"):
    """A request without a body, with more fields behind Host."""
    return b"".join(part + b"\r\n" for part in (line, host, *fields, b""))


def target(text, method=b"GET", host=b"Host: x"):
    return get(line=method + b" " + text + b" HTTP/1.1", host=host)


def post(*fields, body=b"", line=b"POST / HTTP/1.1"):
    return get(*fields, line=line) + body


def chunked(body, *fields, coding=b"Transfer-Encoding: chunked"):
    return post(coding, *fields, body=body)


def text(characters):
    """As the application's bytes are told: one character for each."""
    return characters.encode().decode("latin-1")


HELLO = b"5\r\nhello\r\n0\r\n\r\n"
POSTED = {"method": "POST", "body": "hello"}

# ---------------------------------------------------------------------------------------------------------------------
group("Methods")

accept("get", "3.1", get())
accept("head", "9110 9.3.2", target(b"/", b"HEAD"), method="HEAD")
accept("post", "9110 9.3.3", post(b"Content-Length: 5", body=b"hello"), **POSTED)
accept("put", "9110 9.3.4", get(b"Content-Length: 0", line=b"PUT / HTTP/1.1"), method="PUT")
accept("delete", "9110 9.3.5", target(b"/", b"DELETE"), method="DELETE")
accept("options", "9110 9.3.7", target(b"/", b"OPTIONS"), method="OPTIONS")
accept("patch", "5789 2", get(b"Content-Length: 0", line=b"PATCH / HTTP/1.1"), method="PATCH")
either("trace", "9110 9.3.8", target(b"/", b"TRACE"), method="TRACE")
accept("method-of-the-applications-own", "9110 9.1", target(b"/", b"BREW"), method="BREW")
refuse("method-nobody-knows", "9110 9.1", target(b"/", b"FOO"), 501)
refuse("method-in-lower-case", "9110 9.1", target(b"/", b"get"), 501, 400)
refuse("method-in-mixed-case", "9110 9.1", target(b"/", b"Get"), 501, 400)
refuse("method-with-a-known-prefix", "9110 9.1", target(b"/", b"GETS"), 501)
refuse("method-of-all-token-characters", "9110 5.6.2", target(b"/", b"!#$%&'*+-.^_`|~09Az"), 501)
refuse("method-of-300-letters", "3", target(b"/", b"A" * 300), 501, 400)
refuse("method-of-100000-letters", "3", target(b"/", b"A" * 100000), 501, 400, 414, 431)
refuse("method-with-colon", "9110 9.1", target(b"/", b"GE:T"), 400, 501)
refuse("method-with-slash", "9110 9.1", target(b"/", b"GE/T"), 400, 501)
refuse("method-with-parenthesis", "9110 9.1", target(b"/", b"GE(T"), 400, 501)
refuse("method-with-comma", "9110 9.1", target(b"/", b"GET,POST"), 400, 501)
refuse("method-with-at-sign", "9110 9.1", target(b"/", b"GE@T"), 400, 501)
refuse("method-with-brackets", "9110 9.1", target(b"/", b"[GET]"), 400, 501)
refuse("method-with-braces", "9110 9.1", target(b"/", b"{GET}"), 400, 501)
refuse("method-in-quotes", "9110 9.1", target(b"/", b'"GET"'), 400, 501)
refuse("method-with-equals-sign", "9110 9.1", target(b"/", b"GET="), 400, 501)
refuse("method-with-eight-bits", "9110 9.1", target(b"/", b"G\xc3\x84T"), 400, 501)
refuse("method-with-nul", "9110 9.1", target(b"/", b"GE\0T"), 400, 501)
refuse("method-with-nul-at-the-end", "9110 9.1", target(b"/", b"GET\0"), 400, 501)
refuse("method-with-a-control-character", "9110 9.1", target(b"/", b"GE\x01T"), 400, 501)
refuse("method-with-delete-character", "9110 9.1", target(b"/", b"GET\x7f"), 400, 501)

# ---------------------------------------------------------------------------------------------------------------------
group("Request line")

refuse("method-missing", "3", get(line=b" / HTTP/1.1"))
refuse("method-alone", "3", get(line=b"GET"))
refuse("method-and-version", "3", get(line=b"GET HTTP/1.1"))
refuse("target-empty", "3.2", get(line=b"GET  HTTP/1.1"))
refuse("version-missing", "3", get(line=b"GET /"), 400, 505)
refuse("version-missing-behind-a-blank", "3", get(line=b"GET / "), 400, 505)
refuse("simple-request-without-fields", "3", b"GET /\r\n\r\n", 400, 505)
either("blank-before-the-method", "3", get(line=b" GET / HTTP/1.1"))
either("two-blanks-behind-the-method", "3", get(line=b"GET  / HTTP/1.1"))
either("two-blanks-before-the-version", "3", get(line=b"GET /  HTTP/1.1"))
either("tab-behind-the-method", "3", get(line=b"GET\t/ HTTP/1.1"))
either("tab-before-the-version", "3", get(line=b"GET /\tHTTP/1.1"))
either("vertical-tab-behind-the-method", "3", get(line=b"GET\x0b/ HTTP/1.1"))
either("form-feed-behind-the-method", "3", get(line=b"GET\x0c/ HTTP/1.1"))
either("blank-behind-the-version", "3", get(line=b"GET / HTTP/1.1 "))
either("tab-behind-the-version", "3", get(line=b"GET / HTTP/1.1\t"))
refuse("word-behind-the-version", "3", get(line=b"GET / HTTP/1.1 x"), 400, 505)
refuse("version-twice", "3", get(line=b"GET / HTTP/1.1 HTTP/1.1"), 400, 505)
refuse("blank-in-the-target", "3", get(line=b"GET /a b HTTP/1.1"))
refuse("tab-in-the-target", "3", get(line=b"GET /a\tb HTTP/1.1"))
refuse("carriage-return-in-the-target", "2.2", get(line=b"GET /a\rb HTTP/1.1"))
refuse("carriage-return-for-a-blank", "2.2", get(line=b"GET\r/\rHTTP/1.1"))
refuse("line-feed-in-the-request-line", "3", get(line=b"GET /\nHTTP/1.1"), 400, 505)
accept("empty-line-before-the-request", "2.2", b"\r\n" + get())
either("two-empty-lines-before-the-request", "2.2", b"\r\n\r\n" + get())
either("ten-empty-lines-before-the-request", "2.2", b"\r\n" * 10 + get())
either("bare-line-feed-before-the-request", "2.2", b"\n" + get())
refuse("bare-carriage-return-before-the-request", "2.2", b"\r" + get())
refuse("line-of-blanks-before-the-request", "3", b"  \r\n" + get())
refuse("nul-before-the-request", "3", b"\0" + get(), 400, 501, "closed")
refuse("byte-order-mark-before-the-request", "3", b"\xef\xbb\xbf" + get(), 400, 501, "closed")
refuse("status-line", "3", b"HTTP/1.1 200 OK\r\nHost: x\r\n\r\n", 400, 501, 505)
refuse("header-line-first", "3", b"Host: x\r\n\r\n", 400, 501, 505)
refuse("greeting-of-tls", "3", b"\x16\x03\x01\x00\x10\x01\x00\x00\x0c\x03\x03" + bytes(9) + b"\r\n\r\n",
       400, 501, 505, "closed")
refuse("preface-of-http2", "9113 3.4", b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 505, 400, 501)
refuse("noise", "3", bytes(range(128, 256)) + b"\r\n\r\n", 400, 501, 505, "closed")
refuse("markup", "3", b"<html></html>\r\n\r\n", 400, 501, 505, "closed")

# ---------------------------------------------------------------------------------------------------------------------
group("Targets in origin form")

accept("path", "3.2.1", target(b"/a/b"), path="/a/b")
accept("path-and-query", "3.2.1", target(b"/a?b=c"), path="/a", query="b=c")
accept("query-empty", "3.2.1", target(b"/a?"), path="/a")
accept("query-with-slashes-and-question-marks", "3986 3.4", target(b"/a?b/?c=d?"), path="/a", query="b/?c=d?")
accept("query-right-behind-the-slash", "3.2.1", target(b"/?a"), query="a")
accept("path-of-two-slashes", "3.2.1", target(b"//"), path="//")
accept("path-that-looks-like-an-authority", "3.2.1", target(b"//y/a"), path="//y/a")
accept("path-that-holds-an-absolute-form", "3.2.1", target(b"/http://y/"), path="/http://y/")
accept("path-of-all-plain-characters", "3986 3.3", target(b"/-._~!$&'()*+,;=:@09azAZ"),
       path="/-._~!$&'()*+,;=:@09azAZ")
accept("path-with-escapes", "3986 2.1", target(b"/%41%2f%3F"), path="/%41%2f%3F")
accept("path-with-escaped-utf8", "3986 2.1", target(b"/%C3%A4"), path="/%C3%A4")
either("path-with-escapes-that-are-not-utf8", "3986 2.1", target(b"/%ff"), path="/%ff")
either("path-with-an-escaped-nul", "3986 2.1", target(b"/a%00b"), path="/a%00b")
either("path-with-escaped-line-end", "3986 2.1", target(b"/a%0d%0ab"), path="/a%0d%0ab")
either("path-with-dots", "3986 3.3", target(b"/a/../b/./c"), path="/a/../b/./c")
either("path-above-the-root", "3986 3.3", target(b"/../a"), path="/../a")
refuse("path-with-percent-sign-alone", "3986 2.1", target(b"/100%"))
refuse("path-with-half-an-escape", "3986 2.1", target(b"/%4"))
refuse("path-with-an-escape-of-other-letters", "3986 2.1", target(b"/%zz"))
refuse("path-with-double-quote", "3986 3.3", target(b'/a"b'))
refuse("path-with-angle-brackets", "3986 3.3", target(b"/<a>"))
refuse("path-with-backslash", "3986 3.3", target(b"/a\\b"))
refuse("path-with-braces", "3986 3.3", target(b"/{a}"))
refuse("path-with-back-quote", "3986 3.3", target(b"/a`b"))
either("path-with-brackets-bar-and-caret", "3986 3.3", target(b"/[a]|^"), path="/[a]|^")
refuse("path-with-raw-utf8", "3986 3.3", target(b"/\xc3\xa4"))
refuse("path-with-raw-bytes-that-are-not-utf8", "3986 3.3", target(b"/\xff"))
refuse("path-with-fragment", "3.2", target(b"/a#b"))
refuse("query-with-fragment", "3.2", target(b"/a?b#c"))
refuse("nul-in-the-path", "3.2", target(b"/a\0b"))
refuse("nul-at-the-end-of-the-path", "3.2", target(b"/a\0"))
refuse("nul-in-the-query", "3.2", target(b"/a?b=c\0d"))
refuse("control-character-in-the-path", "3.2", target(b"/a\x01b"))
refuse("delete-character-in-the-path", "3.2", target(b"/a\x7fb"))
refuse("control-character-in-the-query", "3.2", target(b"/a?b\x1bc"))

# ---------------------------------------------------------------------------------------------------------------------
group("Targets in no form")

refuse("target-that-continues-a-port", "3.2", target(b"80/hello"))
refuse("target-that-is-a-word", "3.2", target(b"hello"))
refuse("target-that-is-a-relative-path", "3.2", target(b"./a"))
refuse("target-that-begins-with-dots", "3.2", target(b"../a"))
refuse("target-that-is-a-query", "3.2", target(b"?a=b"))
refuse("target-that-is-a-fragment", "3.2", target(b"#a"))
refuse("target-that-is-user-information", "3.2", target(b"@y/a"))
refuse("target-that-is-a-port", "3.2", target(b":80/a"))
refuse("target-that-is-an-escaped-slash", "3.2", target(b"%2Fa"))
refuse("target-that-begins-with-backslash", "3.2", target(b"\\a"))
refuse("target-that-is-a-scheme-and-a-word", "3.2", target(b"a:b"), 400, 421)
refuse("target-that-is-a-semicolon", "3.2", target(b";/a"))
refuse("target-that-is-an-address-in-brackets", "3.2", target(b"[::1]/a"))
refuse("target-in-angle-brackets", "3.2", target(b"</>"))
refuse("target-in-quotes", "3.2", target(b'"/"'))

# ---------------------------------------------------------------------------------------------------------------------
group("Targets in absolute form")

accept("absolute", "3.2.2", target(b"http://x/a?b=c"), path="/a", query="b=c", headers={"host": ["x"]})
accept("absolute-with-another-host", "3.2.2", target(b"http://y/a"), path="/a", headers={"host": ["y"]})
accept("absolute-with-a-port", "3.2.2", target(b"http://y:8080/a"), path="/a", headers={"host": ["y:8080"]})
accept("absolute-with-an-empty-port", "3986 3.2.3", target(b"http://y:/a"), path="/a")
accept("absolute-with-an-ipv6-address", "3.2.2", target(b"http://[::1]:80/"), headers={"host": ["[::1]:80"]})
accept("absolute-with-an-ipv4-address", "3.2.2", target(b"http://127.0.0.1/"), headers={"host": ["127.0.0.1"]})
accept("absolute-without-a-path", "9110 4.2.3", target(b"http://x"), headers={"host": ["x"]})
accept("absolute-with-a-query-alone", "3986 3", target(b"http://x?a=b"), query="a=b")
accept("absolute-with-scheme-in-upper-case", "9110 4.2.3", target(b"HTTP://x/a"), path="/a")
accept("absolute-in-an-old-version", "3.2.2", b"GET http://x/a HTTP/1.0\r\n\r\n", followed=False, path="/a")
accept("absolute-with-two-slashes-in-the-path", "3.2.2", target(b"http://x//a"), path="//a")
accept("absolute-of-a-post", "3.2.2", post(b"Content-Length: 5", body=b"hello", line=b"POST http://x/a HTTP/1.1"),
       path="/a", **POSTED)
refuse("absolute-without-host-field", "3.2", target(b"http://x/", host=b"X: y"))
refuse("absolute-with-two-host-fields", "3.2", get(b"Host: x", line=b"GET http://x/ HTTP/1.1"))
refuse("absolute-with-a-host-field-that-is-none", "3.2", target(b"http://x/", host=b"Host: a b"))
either("absolute-of-https-without-tls", "9110 7.4", target(b"https://x/a"), path="/a")
refuse("absolute-of-another-scheme", "9110 7.4", target(b"ftp://x/a"), 400, 421)
refuse("absolute-with-an-empty-host", "9110 4.2.1", target(b"http:///a"))
refuse("absolute-with-a-port-alone", "9110 4.2.1", target(b"http://:80/a"))
refuse("absolute-with-user-information", "9110 4.2.4", target(b"http://u:p@x/"))
refuse("absolute-with-empty-user-information", "9110 4.2.4", target(b"http://@x/"))
refuse("absolute-with-a-port-that-is-none", "3986 3.2.3", target(b"http://x:ab/"))
refuse("absolute-with-a-port-beyond-16-bits", "3986 3.2.3", target(b"http://x:99999/"))
refuse("absolute-with-one-slash", "9110 4.2.1", target(b"http:/x/"))
refuse("absolute-without-slashes", "9110 4.2.1", target(b"http:x"))
refuse("absolute-with-an-open-bracket", "3986 3.2.2", target(b"http://[::1/"))
refuse("absolute-with-a-bad-host", "3986 3.2.2", target(b"http://a<b/"))
refuse("absolute-with-backslashes", "9110 4.2.1", target(b"http:\\\\x\\"))
refuse("absolute-with-fragment", "3.2", target(b"http://x/#a"))
refuse("absolute-without-a-scheme", "3.2", target(b"://x/"))
refuse("absolute-with-nul-in-the-host", "3.2", target(b"http://x\0y/"))

# ---------------------------------------------------------------------------------------------------------------------
group("Targets in asterisk and authority form")

accept("asterisk-of-options", "3.2.4", target(b"*", b"OPTIONS"), method="OPTIONS", target="*")
accept("absolute-of-options-without-a-path", "3.2.4", target(b"http://x", b"OPTIONS"), method="OPTIONS", target="*")
accept("absolute-of-options-with-a-path", "3.2.4", target(b"http://x/", b"OPTIONS"), method="OPTIONS", target="/")
refuse("asterisk-of-get", "3.2.4", target(b"*"))
refuse("asterisk-of-post", "3.2.4", get(b"Content-Length: 0", line=b"POST * HTTP/1.1"))
refuse("asterisk-with-a-query", "3.2.4", target(b"*?a", b"OPTIONS"))
refuse("asterisk-with-a-path", "3.2.4", target(b"*/a", b"OPTIONS"))
refuse("two-asterisks", "3.2.4", target(b"**", b"OPTIONS"))
accept("path-of-an-asterisk", "3.2.1", target(b"/*", b"OPTIONS"), method="OPTIONS", path="/*")
refuse("connect", "9110 9.3.6", target(b"x:80", b"CONNECT"), 400, 405, 501)
refuse("connect-without-a-port", "9110 9.3.6", target(b"x", b"CONNECT"), 400, 405, 501)
refuse("connect-with-an-empty-port", "9110 9.3.6", target(b"x:", b"CONNECT"), 400, 405, 501)
refuse("connect-with-a-port-beyond-16-bits", "9110 9.3.6", target(b"x:99999", b"CONNECT"), 400, 405, 501)
refuse("connect-to-a-path", "3.2.3", target(b"/", b"CONNECT"), 400, 405, 501)
refuse("connect-to-an-absolute-form", "3.2.3", target(b"http://x/", b"CONNECT"), 400, 405, 501)
refuse("authority-of-get", "3.2.3", target(b"x:80"))
refuse("authority-of-options", "3.2.3", target(b"x:80", b"OPTIONS"))

# ---------------------------------------------------------------------------------------------------------------------
group("Versions")

accept("version-1.0", "2.3", b"GET / HTTP/1.0\r\n\r\n", followed=False)
accept("version-1.0-with-host", "2.3", get(line=b"GET / HTTP/1.0"), followed=False)
accept("version-1.2", "9110 2.5", get(line=b"GET / HTTP/1.2"))
accept("version-1.9", "9110 2.5", get(line=b"GET / HTTP/1.9"))
for version in (b"2.0", b"3.0", b"9.9", b"0.9", b"0.0"):
    refuse("version-" + version.decode(), "9110 15.6.6", get(line=b"GET / HTTP/" + version), 505, 400)
for name, version in {
        "version-with-two-digits": b"HTTP/1.10",
        "version-with-two-digits-before-the-dot": b"HTTP/11.1",
        "version-with-a-leading-zero": b"HTTP/01.1",
        "version-with-a-zero-behind-the-dot": b"HTTP/1.01",
        "version-without-a-dot": b"HTTP/1",
        "version-of-two-digits-without-a-dot": b"HTTP/11",
        "version-that-ends-with-a-dot": b"HTTP/1.",
        "version-that-begins-with-a-dot": b"HTTP/.1",
        "version-of-three-numbers": b"HTTP/1.1.1",
        "version-with-a-comma": b"HTTP/1,1",
        "version-with-a-letter": b"HTTP/x.1",
        "version-with-a-letter-behind-the-dot": b"HTTP/1.x",
        "version-with-a-letter-at-the-end": b"HTTP/1.1x",
        "version-with-plus-sign": b"HTTP/+1.1",
        "version-with-minus-sign": b"HTTP/-1.1",
        "version-in-hexadecimal": b"HTTP/0x1.1",
        "version-in-lower-case": b"http/1.1",
        "version-in-mixed-case": b"Http/1.1",
        "version-of-https": b"HTTPS/1.1",
        "version-of-another-protocol": b"ICY/1.1",
        "version-with-a-letter-missing": b"HTP/1.1",
        "version-with-backslash": b"HTTP\\1.1",
        "version-without-slash": b"HTTP1.1",
        "version-with-blank-behind-the-slash": b"HTTP/ 1.1",
        "version-with-blank-before-the-slash": b"HTTP /1.1",
        "version-with-nul-at-the-end": b"HTTP/1.1\0",
        "version-with-a-wide-digit": "HTTP/１.1".encode(),
}.items():
    refuse(name, "2.3", get(line=b"GET / " + version), 400, 505)

# ---------------------------------------------------------------------------------------------------------------------
group("Header fields")

accept("field", "5", get(b"A: b"), headers={"a": ["b"]})
accept("field-without-blanks", "5", get(b"A:b"), headers={"a": ["b"]})
accept("field-with-many-blanks", "5", get(b"A: \t  b \t "), headers={"a": ["b"]})
accept("field-with-empty-value", "5", get(b"A:"), headers={"a": [""]})
accept("field-with-a-value-of-blanks", "5", get(b"A:   "), headers={"a": [""]})
accept("field-with-blanks-and-a-tab-inside", "9110 5.5", get(b"A: b\tc  d"), headers={"a": ["b\tc  d"]})
accept("field-with-colons-in-the-value", "5", get(b"A: b:c: d"), headers={"a": ["b:c: d"]})
accept("field-with-a-value-that-begins-with-a-colon", "5", get(b"A::b"), headers={"a": [":b"]})
accept("field-with-a-list", "9110 5.6.1", get(b"A: b, c"), headers={"a": ["b", "c"]})
accept("field-on-two-lines", "9110 5.3", get(b"A: b", b"a: c"), headers={"a": ["b", "c"]})
accept("field-of-all-token-characters", "9110 5.6.2", get(b"!#$%&'*+-.^_`|~09Az: b"),
       headers={"!#$%&'*+-.^_`|~09az": ["b"]})
accept("field-with-all-visible-characters", "9110 5.5", get(b"A: " + bytes(c for c in range(0x21, 0x7f) if c != 0x2c)),
       headers={"a": ["".join(chr(c) for c in range(0x21, 0x7f) if c != 0x2c)]})
accept("field-with-utf8", "9110 5.5", get("A: bä€".encode()), headers={"a": [text("bä€")]})
accept("field-with-bytes-that-are-not-utf8", "9110 5.5", get(b"A: b\xe4\xff"), headers={"a": ["b\xe4\xff"]})
accept("field-with-quotes-and-comma", "9110 5.6.4", get(b'A: "b, c"'), headers={"a": ['"b, c"']})
accept("hundred-fields", "5", get(*(b"A%d: b" % i for i in range(100))), headers={"a0": ["b"], "a99": ["b"]})
for name, character in {
        "nul": b"\0", "bell": b"\x07", "backspace": b"\x08", "vertical-tab": b"\x0b", "form-feed": b"\x0c",
        "escape": b"\x1b", "delete-character": b"\x7f"}.items():
    refuse(f"value-with-{name}", "9110 5.5", get(b"A: b" + character + b"c"))
refuse("value-that-is-nul", "9110 5.5", get(b"A: \0"))
refuse("value-that-ends-with-nul", "9110 5.5", get(b"A: b\0"))
refuse("value-with-carriage-return", "2.2", get(b"A: b\rc"))
refuse("value-with-carriage-return-and-a-field", "2.2", get(b"A: b\rC: d"))
for name, delimiter in {
        "parenthesis": b"(", "comma": b",", "slash": b"/", "semicolon": b";", "less-than-sign": b"<",
        "equals-sign": b"=", "question-mark": b"?", "at-sign": b"@", "bracket": b"[", "backslash": b"\\",
        "brace": b"{", "double-quote": b'"', "nul": b"\0", "control-character": b"\x01", "delete-character": b"\x7f",
        "eight-bits": b"\xe4", "blank": b" ", "tab": b"\t", "carriage-return": b"\r"}.items():
    refuse(f"name-with-{name}", "9110 5.1", get(b"A" + delimiter + b"B: c"))
refuse("name-empty", "5", get(b": b"))
refuse("name-of-a-blank", "5", get(b"A: b", b" : c"))
refuse("line-of-a-colon", "5", get(b":"))
refuse("line-without-a-colon", "5", get(b"Abc"))
refuse("line-without-a-colon-with-blanks", "5", get(b"A b c"))
refuse("line-that-is-a-request", "5", get(b"GET / HTTP/1.1"))
refuse("blank-before-the-colon", "5.1", get(b"A : b"))
refuse("tab-before-the-colon", "5.1", get(b"A\t: b"))
refuse("blank-before-the-colon-of-host", "5.1", get(host=b"Host : x"))
refuse("blank-before-the-colon-of-a-length", "5.1", post(b"Content-Length : 5", body=b"hello"))
refuse("blank-before-the-colon-of-a-coding", "5.1", chunked(HELLO, coding=b"Transfer-Encoding : chunked"))
refuse("tab-before-the-colon-of-a-coding", "5.1", chunked(HELLO, coding=b"Transfer-Encoding\t: chunked"))
either("folded-field", "5.2", get(b"A: b", b" c"), headers={"a": ["b c"]})
either("field-folded-with-a-tab", "5.2", get(b"A: b", b"\tc"), headers={"a": ["b c"]})
either("field-folded-twice", "5.2", get(b"A: b", b" c", b"  d"), headers={"a": ["b c d"]})
either("field-folded-at-once", "5.2", get(b"A:", b" b"), headers={"a": ["b"]})
either("field-folded-with-nothing", "5.2", get(b"A: b", b" ", b"C: d"), headers={"a": ["b"], "c": ["d"]})
either("folded-host", "5.2", get(host=b"Host:\r\n x"), headers={"host": ["x"]})
either("folded-length", "5.2", post(b"Content-Length:\r\n 5", body=b"hello"), **POSTED)
either("folded-coding", "5.2", chunked(HELLO, coding=b"Transfer-Encoding:\r\n chunked"), **POSTED)
either("blank-before-the-first-field", "2.2", get(host=b" A: b\r\nHost: x"), headers={"a": None})
either("tab-before-the-first-field", "2.2", get(host=b"\tA: b\r\nHost: x"), headers={"a": None})
either("blank-before-a-host-that-is-first", "2.2", get(host=b" Host: x\r\nHost: y"), headers={"host": ["y"]})

# ---------------------------------------------------------------------------------------------------------------------
group("Line ends")

either("line-feeds-alone", "2.2", b"GET / HTTP/1.1\nHost: x\nA: b\n\n", headers={"a": ["b"]})
either("line-feed-behind-the-request-line", "2.2", b"GET / HTTP/1.1\nHost: x\r\n\r\n")
either("line-feed-behind-a-field", "2.2", get(b"A: b\nC: d"), headers={"a": ["b"], "c": ["d"]})
either("line-feed-for-the-empty-line", "2.2", b"GET / HTTP/1.1\r\nHost: x\r\n\n")
either("line-feed-behind-the-last-field", "2.2", b"GET / HTTP/1.1\r\nHost: x\n\r\n")
either("line-feed-and-a-folded-line", "5.2", get(b"A: b\n c"), headers={"a": ["b c"]})
refuse("carriage-returns-alone", "2.2", b"GET / HTTP/1.1\rHost: x\r\r" + get())
refuse("carriage-return-behind-the-request-line", "2.2", b"GET / HTTP/1.1\rHost: x\r\n\r\n", 400, 505)
refuse("carriage-return-behind-a-field", "2.2", b"GET / HTTP/1.1\r\nHost: x\rA: b\r\n\r\n")
either("two-carriage-returns-behind-the-request-line", "2.2", get(line=b"GET / HTTP/1.1\r"))
either("two-carriage-returns-behind-a-field", "2.2", get(b"A: b\r"), headers={"a": ["b"]})
refuse("two-carriage-returns-for-the-empty-line", "2.2", b"GET / HTTP/1.1\r\nHost: x\r\n\r\r\n")
refuse("line-feed-before-carriage-return", "2.2", b"GET / HTTP/1.1\r\nHost: x\n\rA: b\r\n\r\n")
refuse("nul-for-the-empty-line", "2.2", b"GET / HTTP/1.1\r\nHost: x\r\n\0\r\n\r\n")

# ---------------------------------------------------------------------------------------------------------------------
group("Host")

accept("host-with-a-port", "9110 7.2", get(host=b"Host: x:8080"), headers={"host": ["x:8080"]})
accept("host-with-an-empty-port", "3986 3.2.3", get(host=b"Host: x:"))
accept("host-in-other-letters", "9110 5.1", get(host=b"hOST: x"), headers={"host": ["x"]})
accept("host-with-blanks-around", "9110 5.5", get(host=b"Host: \t x \t"), headers={"host": ["x"]})
accept("host-without-blanks", "9110 5.5", get(host=b"Host:x"), headers={"host": ["x"]})
accept("host-behind-other-fields", "9110 7.2", get(b"Host: x", host=b"A: b"), headers={"host": ["x"]})
accept("host-that-is-an-ipv4-address", "3986 3.2.2", get(host=b"Host: 127.0.0.1:80"))
accept("host-that-is-an-ipv6-address", "3986 3.2.2", get(host=b"Host: [::1]"), headers={"host": ["[::1]"]})
accept("host-that-is-an-ipv6-address-with-a-port", "3986 3.2.2", get(host=b"Host: [2001:db8::1]:80"))
accept("host-with-dots-and-hyphens", "3986 3.2.2", get(host=b"Host: a-b.example.org."))
accept("host-with-an-underscore", "3986 3.2.2", get(host=b"Host: a_b.example"))
either("host-with-an-escape", "3986 3.2.2", get(host=b"Host: %41"))
either("host-with-other-plain-characters", "3986 3.2.2", get(host=b"Host: a!$&'()*+;=~b"))
either("host-of-a-later-ip-version", "3986 3.2.2", get(host=b"Host: [v1.a:b]"))
either("host-empty", "9110 7.2", get(host=b"Host:"))
either("host-of-blanks", "9110 7.2", get(host=b"Host:   "))
either("host-with-a-comma", "3986 3.2.2", get(host=b"Host: x,y"))
either("host-with-a-port-beyond-16-bits", "3986 3.2.3", get(host=b"Host: x:99999"))
either("host-of-300-letters", "3986 3.2.2", get(host=b"Host: " + b"a" * 300))
refuse("host-missing", "3.2", b"GET / HTTP/1.1\r\n\r\n")
refuse("host-missing-beside-other-fields", "3.2", get(host=b"A: b"))
refuse("host-missing-in-1.2", "3.2", b"GET / HTTP/1.2\r\n\r\n")
refuse("host-twice", "3.2", get(b"Host: y"))
refuse("host-twice-the-same", "3.2", get(b"Host: x"))
refuse("host-twice-of-which-one-is-empty", "3.2", get(b"Host:"))
refuse("host-twice-in-an-old-version", "3.2", get(b"Host: y", line=b"GET / HTTP/1.0"))
for name, value in {
        "a-list": b"x, y", "a-blank-inside": b"a b", "a-tab-inside": b"a\tb", "a-path": b"x/y", "a-slash": b"x/",
        "a-scheme": b"http://x", "user-information": b"u@x", "user-and-password": b"u:p@x", "a-query": b"x?y",
        "a-fragment": b"x#y", "a-port-of-letters": b"x:ab", "a-negative-port": b"x:-1", "two-ports": b"x:80:80",
        "a-port-in-hexadecimal": b"x:0x50", "an-open-bracket": b"[::1", "a-closing-bracket": b"::1]",
        "an-ipv6-address-without-brackets": b"::1", "brackets-around-a-name": b"[x]", "empty-brackets": b"[]",
        "letters-behind-the-bracket": b"[::1]x", "angle-brackets": b"<x>", "quotes": b'"x"', "backslash": b"x\\y",
        "a-bar": b"x|y", "a-caret": b"x^y", "a-brace": b"x{y", "a-back-quote": b"x`y", "raw-utf8": "ä".encode(),
        "a-bad-escape": b"%zz", "nul": b"x\0y", "a-control-character": b"x\x01y", "delete-character": b"x\x7f"}.items():
    refuse(f"host-with-{name}", "9110 7.2", get(host=b"Host: " + value))

# ---------------------------------------------------------------------------------------------------------------------
group("Content-Length")

accept("length-zero", "9110 8.6", post(b"Content-Length: 0"), method="POST")
accept("length-missing", "6.3", post(), method="POST")
accept("length-with-leading-zeros", "9110 8.6", post(b"Content-Length: 00005", body=b"hello"), **POSTED)
accept("length-with-blanks-around", "9110 5.5", post(b"Content-Length: \t5 \t", body=b"hello"), **POSTED)
accept("length-of-a-get", "9110 9.3.1", get(b"Content-Length: 5") + b"hello", body="hello")
accept("length-of-a-delete", "9110 9.3.5", get(b"Content-Length: 5", line=b"DELETE / HTTP/1.1") + b"hello",
       method="DELETE", body="hello")
accept("length-of-a-head", "9110 9.3.2", get(b"Content-Length: 5", line=b"HEAD / HTTP/1.1") + b"hello",
       method="HEAD", body="hello")
accept("length-before-bytes-of-any-kind", "6.2", post(b"Content-Length: 8", body=b"\0\r\n\r\n\xff\x01\n"),
       method="POST", body="\0\r\n\r\n\xff\x01\n")
accept("body-that-looks-like-a-request", "6.2", post(b"Content-Length: 32", body=NEXT[:32].ljust(32, b"x")),
       method="POST", body=NEXT[:32].ljust(32, b"x").decode())
accept("length-in-an-old-version", "6.2", post(b"Content-Length: 5", body=b"hello", line=b"POST / HTTP/1.0"),
       followed=False, **POSTED)
accept("name-like-a-length-with-an-underscore", "9110 5.1", post(b"Content_Length: 5"), method="POST",
       headers={"content_length": ["5"]})
either("length-twice-the-same", "6.3", post(b"Content-Length: 5", b"Content-Length: 5", body=b"hello"), **POSTED)
either("length-three-times-the-same", "6.3", post(*[b"Content-Length: 5"] * 3, body=b"hello"), **POSTED)
either("length-as-a-list-of-the-same", "9110 8.6", post(b"Content-Length: 5, 5", body=b"hello"), **POSTED)
either("length-as-a-list-of-the-same-without-blanks", "9110 8.6", post(b"Content-Length: 5,5", body=b"hello"),
       **POSTED)
either("length-with-a-comma-behind", "9110 5.6.1", post(b"Content-Length: 5,", body=b"hello"), **POSTED)
either("length-with-a-comma-before", "9110 5.6.1", post(b"Content-Length: ,5", body=b"hello"), **POSTED)
either("length-twice-written-differently", "6.3", post(b"Content-Length: 5", b"Content-Length: 05", body=b"hello"),
       **POSTED)
refuse("length-twice-of-which-the-first-is-less", "6.3",
       post(b"Content-Length: 0", b"Content-Length: 5", body=b"hello"))
refuse("length-twice-of-which-the-first-is-more", "6.3",
       post(b"Content-Length: 5", b"Content-Length: 0", body=b"hello"))
refuse("length-three-times-of-which-one-differs", "6.3",
       post(b"Content-Length: 5", b"Content-Length: 5", b"Content-Length: 6", body=b"hello!"))
refuse("length-as-a-list-that-differs", "6.3", post(b"Content-Length: 5, 6", body=b"hello!"))
refuse("length-twice-of-which-one-is-no-number", "6.3",
       post(b"Content-Length: 5", b"Content-Length: x", body=b"hello"))
refuse("length-twice-of-which-one-is-empty", "6.3", post(b"Content-Length: 5", b"Content-Length:", body=b"hello"))
for name, value in {
        "with-plus-sign": b"+5", "with-minus-sign": b"-5", "of-minus-zero": b"-0", "in-hexadecimal": b"0x5",
        "with-a-fraction": b"5.0", "with-an-exponent": b"5e0", "of-two-numbers": b"5 5",
        "with-blanks-in-between": b"0 5", "empty": b"", "of-a-word": b"five", "with-a-letter-behind": b"5x",
        "with-a-semicolon": b"5;a=b",
        "with-an-underscore": b"0_5", "in-quotes": b'"5"', "in-hexadecimal-letters": b"a",
        "with-a-vertical-tab-before": b"\x0b5", "with-a-vertical-tab-behind": b"5\x0b",
        "with-a-form-feed-before": b"\x0c5", "with-nul-behind": b"5\0", "with-nul-inside": b"5\0" b"5",
        "with-a-carriage-return-behind": b"5\r5", "with-wide-digits": "５".encode(), "with-eight-bits": b"5\xff",
        "of-a-dollar-sign": b"$5", "in-brackets": b"[5]"}.items():
    refuse(f"length-{name}", "6.3", post(b"Content-Length: " + value, body=b"hello"))
refuse("length-beyond-63-bits", "6.3", post(b"Content-Length: 18446744073709551615", body=b"hello"), 400, 413)
refuse("length-beyond-64-bits", "6.3", post(b"Content-Length: 18446744073709551616", body=b"hello"), 400, 413)
refuse("length-that-is-five-beyond-64-bits", "6.3", post(b"Content-Length: 18446744073709551621", body=b"hello"),
       400, 413)
refuse("length-of-40-digits", "6.3", post(b"Content-Length: " + b"9" * 40, body=b"hello"), 400, 413)
refuse("length-on-a-line-with-two-colons", "6.3", post(b"Content-Length:: 5", body=b"hello"))

# ---------------------------------------------------------------------------------------------------------------------
group("Transfer-Encoding")

accept("chunked", "7.1", chunked(HELLO), **POSTED)
accept("chunked-in-mixed-case", "9110 5.6.2", chunked(HELLO, coding=b"tRANSFER-eNCODING: ChunKED"), **POSTED)
accept("chunked-with-blanks-around", "9110 5.5", chunked(HELLO, coding=b"Transfer-Encoding: \t chunked \t"), **POSTED)
accept("chunked-of-a-get", "6.1", get(b"Transfer-Encoding: chunked") + HELLO, body="hello")
accept("chunked-of-a-get-without-bytes", "6.1", get(b"Transfer-Encoding: chunked") + b"0\r\n\r\n")
accept("name-like-a-coding-with-an-underscore", "9110 5.1", post(b"Transfer_Encoding: chunked"), method="POST")
accept("te-of-trailers", "7.4", get(b"TE: trailers", b"Connection: TE"), headers={"te": ["trailers"]})
either("chunked-with-a-comma-behind", "9110 5.6.1", chunked(HELLO, coding=b"Transfer-Encoding: chunked,"), **POSTED)
either("chunked-with-a-comma-before", "9110 5.6.1", chunked(HELLO, coding=b"Transfer-Encoding: , chunked"), **POSTED)
either("chunked-in-an-old-version", "6.1", b"POST / HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n" + HELLO,
       followed=False, **POSTED)
either("length-before-chunked", "6.1", post(b"Content-Length: 3", b"Transfer-Encoding: chunked", body=HELLO),
       followed=False, **POSTED)
either("length-behind-chunked", "6.1", post(b"Transfer-Encoding: chunked", b"Content-Length: 3", body=HELLO),
       followed=False, **POSTED)
either("length-of-the-whole-body-beside-chunked", "6.1",
       post(b"Content-Length: 15", b"Transfer-Encoding: chunked", body=HELLO), followed=False, **POSTED)
either("length-of-zero-beside-chunked", "6.1",
       post(b"Content-Length: 0", b"Transfer-Encoding: chunked", body=HELLO), followed=False, **POSTED)
refuse("length-that-is-no-number-beside-chunked", "6.3",
       post(b"Content-Length: 5x", b"Transfer-Encoding: chunked", body=HELLO))
refuse("length-with-plus-sign-beside-chunked", "6.3",
       post(b"Transfer-Encoding: chunked", b"Content-Length: +5", body=HELLO))
for name, value in {
        "gzip": b"gzip", "identity": b"identity", "empty": b"", "of-a-comma": b",", "unknown": b"xchunked",
        "with-a-letter-behind": b"chunkedx", "with-a-letter-missing": b"chunke", "in-quotes": b'"chunked"',
        "in-single-quotes": b"'chunked'", "with-a-parameter": b"chunked;q=1", "with-a-semicolon": b"chunked;",
        "with-a-vertical-tab-before": b"\x0bchunked", "with-a-vertical-tab-behind": b"chunked\x0b",
        "with-a-form-feed-before": b"\x0cchunked", "with-nul-behind": b"chunked\0", "with-nul-inside": b"chunked\0x",
        "with-eight-bits": b"chunked\xff", "with-a-colon": b": chunked", "of-two-words": b"chunked chunked",
        "with-a-delete-character": b"chunked\x7f", "with-a-carriage-return": b"chunked\rx"}.items():
    refuse(f"coding-{name}", "6.1", chunked(HELLO, coding=b"Transfer-Encoding: " + value), 400, 501)
for name, value in {
        "gzip-and-chunked": b"gzip, chunked", "chunked-and-gzip": b"chunked, gzip",
        "chunked-twice": b"chunked, chunked",
        "chunked-and-identity": b"chunked, identity", "identity-and-chunked": b"identity, chunked"}.items():
    refuse(f"codings-{name}", "6.3", chunked(HELLO, coding=b"Transfer-Encoding: " + value), 400, 501)
    refuse(f"codings-{name}-on-two-lines", "6.3",
           post(*(b"Transfer-Encoding: " + one for one in value.split(b", ")), body=HELLO), 400, 501)
refuse("coding-unknown-before-chunked-on-two-lines", "6.3",
       post(b"Transfer-Encoding: x", b"Transfer-Encoding: chunked", body=HELLO), 400, 501)
refuse("coding-unknown-beside-a-length", "6.3", post(b"Transfer-Encoding: x", b"Content-Length: 5", body=b"hello"),
       400, 501)
refuse("coding-identity-beside-a-length", "6.3",
       post(b"Transfer-Encoding: identity", b"Content-Length: 5", body=b"hello"), 400, 501)
refuse("coding-gzip-of-a-get", "6.3", get(b"Transfer-Encoding: gzip"), 400, 501)

# ---------------------------------------------------------------------------------------------------------------------
group("Chunks")

BROKEN = (400, "closed")
accept("chunks-of-several-sizes", "7.1", chunked(b"1\r\nh\r\n3\r\nell\r\n1\r\no\r\n0\r\n\r\n"), **POSTED)
accept("chunk-size-in-upper-case", "7.1", chunked(b"A\r\nhellohello\r\n0\r\n\r\n"), method="POST", body="hellohello")
accept("chunk-size-in-lower-case", "7.1", chunked(b"a\r\nhellohello\r\n0\r\n\r\n"), method="POST", body="hellohello")
accept("chunk-size-with-leading-zeros", "7.1", chunked(b"0005\r\nhello\r\n0\r\n\r\n"), **POSTED)
accept("last-chunk-of-several-zeros", "7.1", chunked(b"5\r\nhello\r\n000\r\n\r\n"), **POSTED)
accept("chunk-of-any-bytes", "7.1", chunked(b"6\r\n\r\n0\r\n\xff\r\n0\r\n\r\n"), method="POST", body="\r\n0\r\n\xff")
accept("no-chunk-but-the-last", "7.1", chunked(b"0\r\n\r\n"), method="POST")
either("chunk-size-with-many-leading-zeros", "7.1", chunked(b"0" * 40 + b"5\r\nhello\r\n0\r\n\r\n"), **POSTED)
for name, extension in {
        "name": b";a", "value": b";a=b", "quoted-value": b';a="b c"', "escaped-quote": b';a="b\\"c"',
        "blanks": b" ; a = b", "tab": b"\t;a", "two-of-them": b";a;b=c", "semicolon-in-quotes": b';a="b;c"'}.items():
    accept(f"chunk-extension-with-{name}", "7.1.1", chunked(b"5" + extension + b"\r\nhello\r\n0\r\n\r\n"), **POSTED)
accept("chunk-extension-of-the-last-chunk", "7.1.1", chunked(b"5\r\nhello\r\n0;a=b\r\n\r\n"), **POSTED)
refuse("chunk-extension-before-a-byte-too-few", "7.1", chunked(b"5;a\r\nello\r\n0\r\n\r\n"), *BROKEN)
either("chunk-extension-of-3000-letters", "7.1.1", chunked(b"5;" + b"a" * 3000 + b"\r\nhello\r\n0\r\n\r\n"), **POSTED)
either("chunk-extension-that-is-empty", "7.1.1", chunked(b"5;\r\nhello\r\n0\r\n\r\n"), **POSTED)
either("chunk-extension-with-an-open-quote", "7.1.1", chunked(b'5;a="b\r\nhello\r\n0\r\n\r\n'), **POSTED)
accept("trailer-field", "7.1.2", chunked(b"5\r\nhello\r\n0\r\nA: b\r\n\r\n"), headers={"host": ["x"]}, **POSTED)
accept("trailer-fields", "7.1.2", chunked(b"5\r\nhello\r\n0\r\nA: b\r\nC: d\r\n\r\n"), **POSTED)
accept("trailer-announced", "9110 6.6.2", chunked(b"5\r\nhello\r\n0\r\nA: b\r\n\r\n", b"Trailer: A"), **POSTED)
either("trailer-with-a-length", "9110 6.5.1", chunked(b"5\r\nhello\r\n0\r\nContent-Length: 9\r\n\r\n"),
       headers={"content-length": None}, **POSTED)
either("trailer-with-a-coding", "9110 6.5.1", chunked(b"5\r\nhello\r\n0\r\nTransfer-Encoding: x\r\n\r\n"),
       headers={"transfer-encoding": ["chunked"]}, **POSTED)
either("trailer-with-a-host", "9110 6.5.1", chunked(b"5\r\nhello\r\n0\r\nHost: y\r\n\r\n"), headers={"host": ["x"]},
       **POSTED)
either("trailer-with-a-cookie", "9110 6.5.1", chunked(b"5\r\nhello\r\n0\r\nCookie: a=b\r\n\r\n"), cookies={"a": None},
       **POSTED)
refuse("trailer-without-a-colon", "7.1.2", chunked(b"5\r\nhello\r\n0\r\nAbc\r\n\r\n"), *BROKEN)
refuse("trailer-with-a-blank-before-the-colon", "5.1", chunked(b"5\r\nhello\r\n0\r\nA : b\r\n\r\n"), *BROKEN)
refuse("trailer-with-a-bad-name", "9110 5.1", chunked(b"5\r\nhello\r\n0\r\nA(b: c\r\n\r\n"), *BROKEN)
refuse("trailer-with-nul", "9110 5.5", chunked(b"5\r\nhello\r\n0\r\nA: b\0c\r\n\r\n"), *BROKEN)
either("trailer-that-is-folded", "5.2", chunked(b"5\r\nhello\r\n0\r\nA: b\r\n c\r\n\r\n"), **POSTED)
for name, size in {
        "empty": b"", "of-a-letter": b"x", "with-0x": b"0x5", "with-plus-sign": b"+5", "with-minus-sign": b"-5",
        "with-a-blank-before": b" 5", "with-a-tab-before": b"\t5", "with-a-letter-behind": b"5g",
        "with-an-underscore": b"0_5", "with-a-comma": b"5,5", "with-a-dot": b"5.0", "of-two-numbers": b"5 5",
        "with-nul-behind": b"5\0", "with-eight-bits": b"5\xff", "with-a-carriage-return-behind": b"5\r",
        "with-a-vertical-tab-behind": b"5\x0b", "with-h-behind": b"5h", "of-16-digits-and-more": b"10000000000000005",
        "of-17-letters": b"f" * 17, "of-40-letters": b"f" * 40}.items():
    refuse(f"chunk-size-{name}", "7.1", chunked(size + b"\r\nhello\r\n0\r\n\r\n"), *BROKEN, 413)
either("chunk-size-with-a-blank-behind", "7.1", chunked(b"5 \r\nhello\r\n0\r\n\r\n"), **POSTED)
refuse("chunk-longer-than-its-size", "7.1", chunked(b"3\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-shorter-than-its-size", "7.1", chunked(b"7\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-without-a-line-end", "7.1", chunked(b"5\r\nhello0\r\n\r\n"), *BROKEN)
refuse("chunk-with-two-other-bytes-for-a-line-end", "7.1", chunked(b"5\r\nhelloXX0\r\n\r\n"), *BROKEN)
refuse("chunk-with-a-line-feed-behind-the-size", "7.1", chunked(b"5\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-with-a-line-feed-behind-the-data", "7.1", chunked(b"5\r\nhello\n0\r\n\r\n"), *BROKEN)
refuse("chunk-with-a-carriage-return-behind-the-data", "7.1", chunked(b"5\r\nhello\r0\r\n\r\n"), *BROKEN)
refuse("chunk-with-line-feeds-alone", "7.1", chunked(b"5\nhello\n0\n\n"), *BROKEN)
refuse("chunk-extension-with-a-line-feed", "7.1.1", chunked(b"5;a\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-extension-with-a-line-feed-inside", "7.1.1", chunked(b"5;a\nb\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-extension-with-a-carriage-return", "7.1.1", chunked(b"5;a\rb\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-extension-with-nul", "7.1.1", chunked(b"5;a\0b\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("chunk-extension-without-a-semicolon", "7.1.1", chunked(b"5 a=b\r\nhello\r\n0\r\n\r\n"), *BROKEN)
refuse("last-chunk-with-a-line-feed", "7.1", chunked(b"5\r\nhello\r\n0\n\r\n"), *BROKEN)
refuse("last-chunk-with-two-carriage-returns", "7.1", chunked(b"5\r\nhello\r\n0\r\r\n\r\n"), *BROKEN)
refuse("empty-line-between-chunks", "7.1", chunked(b"5\r\nhello\r\n\r\n0\r\n\r\n"), *BROKEN)

# ---------------------------------------------------------------------------------------------------------------------
group("Expect")

accept("expect-continue", "9110 10.1.1", post(b"Expect: 100-continue", b"Content-Length: 5", body=b"hello"), **POSTED)
accept("expect-continue-in-mixed-case", "9110 10.1.1",
       post(b"Expect: 100-Continue", b"Content-Length: 5", body=b"hello"), **POSTED)
accept("expect-continue-and-chunked", "9110 10.1.1", chunked(HELLO, b"Expect: 100-continue"), **POSTED)
accept("expect-continue-in-an-old-version", "9110 10.1.1",
       post(b"Expect: 100-continue", b"Content-Length: 5", body=b"hello", line=b"POST / HTTP/1.0"), followed=False,
       **POSTED)
either("expect-continue-twice", "9110 10.1.1",
       post(b"Expect: 100-continue", b"Expect: 100-continue", b"Content-Length: 5", body=b"hello"), **POSTED)
either("expect-empty", "9110 10.1.1", get(b"Expect:"))
refuse("expect-something-else", "9110 10.1.1", get(b"Expect: x"), 417)
refuse("expect-something-else-with-a-body", "9110 10.1.1", post(b"Expect: x", b"Content-Length: 5", body=b"hello"), 417)
refuse("expect-something-else-beside-continue", "9110 10.1.1",
       post(b"Expect: 100-continue, x", b"Content-Length: 5", body=b"hello"), 417)
refuse("expect-something-else-on-a-second-line", "9110 10.1.1",
       post(b"Expect: 100-continue", b"Expect: x", b"Content-Length: 5", body=b"hello"), 417)
refuse("expect-another-status", "9110 10.1.1", get(b"Expect: 200-ok"), 417)

# ---------------------------------------------------------------------------------------------------------------------
group("Connection")

accept("connection-close", "9.6", get(b"Connection: close"), followed=False)
accept("connection-close-in-mixed-case", "9.6", get(b"Connection: CloSE"), followed=False)
accept("connection-close-in-a-list", "9.6", get(b"Connection: a, close"), followed=False)
accept("connection-close-first-in-a-list", "9.6", get(b"Connection: close, a"), followed=False)
accept("connection-close-on-a-second-line", "9.6", get(b"Connection: a", b"Connection: close"), followed=False)
accept("connection-close-behind-an-empty-element", "9.6", get(b"Connection: ,, close"), followed=False)
accept("connection-close-of-a-post", "9.6", post(b"Connection: close", b"Content-Length: 5", body=b"hello"),
       followed=False, **POSTED)
accept("connection-close-beats-keep-alive", "9.3", get(b"Connection: keep-alive, close"), followed=False)
accept("connection-keep-alive", "9.3", get(b"Connection: keep-alive"))
accept("connection-keep-alive-in-an-old-version", "9.3", get(b"Connection: keep-alive", line=b"GET / HTTP/1.0"),
       followed=None)
accept("connection-of-another-option", "9110 7.6.1", get(b"Connection: a"))
accept("connection-of-a-word-that-begins-with-close", "9110 7.6.1", get(b"Connection: closed"))
accept("connection-empty", "9110 7.6.1", get(b"Connection:"))
accept("connection-that-names-host", "9110 7.6.1", get(b"Connection: host"), headers={"host": ["x"]})
accept("connection-of-a-proxy", "C.2.2", get(b"Proxy-Connection: close"))
accept("keep-alive-field", "C.2.2", get(b"Keep-Alive: timeout=5", b"Connection: keep-alive"))
accept("upgrade-to-something-unknown", "9110 7.8", get(b"Connection: Upgrade", b"Upgrade: x/1"))
accept("upgrade-to-http2", "9110 7.8",
       get(b"Connection: Upgrade, HTTP2-Settings", b"Upgrade: h2c", b"HTTP2-Settings: AA"))
accept("upgrade-without-the-connection-option", "9110 7.8", get(b"Upgrade: websocket"))
accept("upgrade-option-without-a-protocol", "9110 7.8", get(b"Connection: Upgrade"))
either("upgrade-to-a-websocket-without-a-key", "6455 4.2.2", get(b"Connection: Upgrade", b"Upgrade: websocket"),
       followed=None)

# ---------------------------------------------------------------------------------------------------------------------
group("Limits")

LONG = (414, 431, 400)
accept("target-of-2000-bytes", "3", target(b"/" + b"a" * 1999), path="/" + "a" * 1999)
accept("target-of-4000-bytes", "3", target(b"/" + b"a" * 3999), path="/" + "a" * 3999)
accept("target-of-7900-bytes", "3", target(b"/" + b"a" * 7899), path="/" + "a" * 7899)
accept("query-of-7900-bytes", "3", target(b"/?" + b"a" * 7898), query="a" * 7898)
accept("argument-of-5000-bytes", "3", target(b"/?a=" + b"b" * 5000), query="a=" + "b" * 5000,
       arguments={"a": ["b" * 5000]})
accept("five-hundred-arguments", "3", target(b"/?" + b"&".join(b"a%d=b" % i for i in range(500))),
       query="&".join(f"a{i}=b" for i in range(500)), arguments={"a0": ["b"], "a499": ["b"]})
accept("header-of-4000-bytes", "9110 5.4", get(b"A: " + b"b" * 4000), headers={"a": ["b" * 4000]})
accept("header-of-8000-bytes", "9110 5.4", get(b"A: " + b"b" * 8000), headers={"a": ["b" * 8000]})
either("header-of-20000-bytes", "9110 5.4", get(b"A: " + b"b" * 20000), headers={"a": ["b" * 20000]})
accept("cookie-of-4000-bytes", "6265 6.1", get(b"Cookie: a=" + b"b" * 4000), cookies={"a": ["b" * 4000]})
accept("fifty-cookies", "6265 6.1", get(b"Cookie: " + b"; ".join(b"a%d=b" % i for i in range(50))),
       cookies={"a0": ["b"], "a49": ["b"]})
either("thousand-fields", "9110 5.4", get(*(b"A%d: b" % i for i in range(1000))), headers={"a999": ["b"]})
either("name-of-10000-letters", "9110 5.4", get(b"A" * 10000 + b": b"))
refuse("target-of-100000-bytes", "3", target(b"/" + b"a" * 99999), *LONG)
refuse("target-of-300000-bytes", "3", target(b"/" + b"a" * 299999), *LONG)
refuse("query-of-300000-bytes", "3", target(b"/?" + b"a" * 299998), *LONG)
refuse("header-of-300000-bytes", "9110 5.4", get(b"A: " + b"b" * 300000), 431)
refuse("twenty-thousand-fields", "9110 5.4", get(*(b"A%d: b" % i for i in range(20000))), 431)
refuse("request-line-without-an-end", "3", b"GET /" + b"a" * 300000, *LONG)
refuse("chunk-extension-of-300000-letters", "7.1.1", chunked(b"5;" + b"a" * 300000 + b"\r\nhello\r\n0\r\n\r\n"),
       400, 413, 431, 500, "closed")
refuse("trailer-of-300000-letters", "7.1.2", chunked(b"5\r\nhello\r\n0\r\nA: " + b"a" * 300000 + b"\r\n\r\n"),
       400, 413, 431, 500, "closed")

# ---------------------------------------------------------------------------------------------------------------------
group("Pipelining and smuggling")

SMUGGLED = b"GET /smuggled HTTP/1.1\r\nHost: x\r\n\r\n"
SMUGGLED_CHUNK = b"%x\r\n%s\r\n0\r\n\r\n" % (len(SMUGGLED), SMUGGLED)
SMUGGLED_LENGTH = str(len(SMUGGLED)).encode()

accept("three-requests-at-once", "9.3.2", get() + target(b"/b") + target(b"/c"), then=(200, 200))
accept("get-behind-a-post", "9.3.2", post(b"Content-Length: 5", body=b"hello") + get(), then=(200,), **POSTED)
accept("post-behind-a-chunked-post", "9.3.2", chunked(HELLO) + post(b"Content-Length: 2", body=b"hi"), then=(200,),
       **POSTED)
accept("head-behind-a-get", "9.3.2", get() + target(b"/", b"HEAD"), then=(200,))
accept("empty-line-behind-a-post", "2.2", post(b"Content-Length: 5", body=b"hello") + b"\r\n", **POSTED)
accept("rubbish-behind-a-request", "9.3.2", get() + target(b"rubbish"), followed=False, then=(400,))
accept("bad-request-behind-a-request", "9.3.2", get() + get(b"A : b"), followed=False, then=(400,))
accept("more-bytes-than-the-length", "6.3", post(b"Content-Length: 3", body=b"hello"), followed=False, then=(501,),
       method="POST", body="hel")
either("length-covers-what-chunked-does-not", "6.1",
       post(b"Content-Length: 6", b"Transfer-Encoding: chunked", body=b"0\r\n\r\nG"), followed=False, method="POST")
either("chunked-covers-what-the-length-does-not", "6.1",
       post(b"Content-Length: 4", b"Transfer-Encoding: chunked", body=SMUGGLED_CHUNK), followed=False, method="POST",
       body=SMUGGLED.decode())
refuse("second-length-covers-a-request", "6.3",
       post(b"Content-Length: 0", b"Content-Length: " + SMUGGLED_LENGTH, body=SMUGGLED))
refuse("length-list-covers-a-request", "6.3", post(b"Content-Length: 0, " + SMUGGLED_LENGTH, body=SMUGGLED))
refuse("hidden-coding-behind-a-blank-in-the-name", "5.1",
       post(b"Content-Length: 5", b"Transfer-Encoding : chunked", body=b"0\r\n\r\n"))
refuse("hidden-coding-behind-a-carriage-return", "2.2",
       post(b"Content-Length: 5", b"A: b\rTransfer-Encoding: chunked", body=b"0\r\n\r\n"))
refuse("hidden-coding-behind-nul", "9110 5.5",
       post(b"Content-Length: 5", b"A: b\0Transfer-Encoding: chunked", body=b"0\r\n\r\n"))
either("hidden-coding-behind-a-line-feed", "2.2",
       post(b"Content-Length: 5", b"A: b\nTransfer-Encoding: chunked", body=b"0\r\n\r\n"), followed=False,
       method="POST", headers={"transfer-encoding": ["chunked"]})
either("hidden-coding-in-a-folded-line", "5.2",
       post(b"Content-Length: 5", b"A: b", b" Transfer-Encoding: chunked", body=b"hello"),
       headers={"transfer-encoding": None}, **POSTED)
either("hidden-length-in-a-folded-line", "5.2", post(b"A: b", b" Content-Length: 5"), method="POST",
       headers={"content-length": None})
refuse("hidden-coding-with-eight-bits-before", "9110 5.1",
       post(b"Content-Length: 5", b"\xa0Transfer-Encoding: chunked", body=b"0\r\n\r\n"))
refuse("hidden-coding-with-a-vertical-tab-before", "9110 5.1",
       post(b"Content-Length: 5", b"\x0bTransfer-Encoding: chunked", body=b"0\r\n\r\n"))
refuse("hidden-length-with-a-blank-in-the-name", "9110 5.1", post(b"Content Length: 5", body=b"hello"))
refuse("hidden-host-behind-a-blank", "5.1", get(b"Host : y"))
refuse("request-behind-a-bad-chunk", "7.1",
       chunked(b"0x" + SMUGGLED_CHUNK), *BROKEN)
refuse("request-in-a-chunk-extension", "7.1.1",
       chunked(b"2;\nxx\r\n4c\r\n0\r\n\r\n" + SMUGGLED), *BROKEN)
either("coding-in-an-old-version-beside-a-length", "6.1",
       b"POST / HTTP/1.0\r\nConnection: keep-alive\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n" + HELLO,
       followed=False, **POSTED)

# ---------------------------------------------------------------------------------------------------------------------
group("Queries as browsers send them")


def query(raw, **arguments):
    """The query is the application's to see in the target as it was sent, and parsed in its arguments."""
    sent = b"/?" + raw
    return {"sent": target(sent), "target": sent.decode("latin-1"), "query": None, "arguments": arguments}


BROWSER = "URL Standard 5.1"
accept("query-of-words", "9110 4.2.1", **query(b"a=b&c=d", a=["b"], c=["d"]))
accept("query-with-plus-signs", BROWSER, **query(b"a=b+c++d", a=["b c  d"]))
accept("query-with-escaped-plus-sign", BROWSER, **query(b"a=b%2Bc", a=["b+c"]))
accept("query-with-escaped-blank", BROWSER, **query(b"a=b%20c", a=["b c"]))
accept("query-with-escaped-ampersand-and-equals-sign", BROWSER, **query(b"a=b%26c%3Dd", a=["b&c=d"]))
accept("query-with-equals-signs-in-a-value", BROWSER, **query(b"a=b=c==", a=["b=c=="]))
accept("query-with-escaped-utf8", BROWSER, **query(b"a=%C3%A4%E2%82%AC", a=[text("ä€")]))
accept("query-with-an-escaped-emoji", BROWSER, **query(b"a=%F0%9F%98%80", a=[text("😀")]))
accept("query-with-escaped-utf8-in-a-name", BROWSER, **query(b"%C3%A4=b", **{text("ä"): ["b"]}))
accept("query-with-brackets-in-names", BROWSER, **query(b"a[]=1&a[]=2&b[c]=3", **{"a[]": ["1", "2"], "b[c]": ["3"]}))
accept("query-with-escaped-brackets", BROWSER, **query(b"a%5B%5D=1", **{"a[]": ["1"]}))
accept("query-with-a-bar", BROWSER, **query(b"a=b|c", a=["b|c"]))
accept("query-with-braces", BROWSER, **query(b"a={b}", a=["{b}"]))
accept("query-with-a-caret", BROWSER, **query(b"a=b^c", a=["b^c"]))
accept("query-with-a-back-quote", BROWSER, **query(b"a=b`c", a=["b`c"]))
accept("query-with-a-backslash", BROWSER, **query(b"a=b\\c", a=["b\\c"]))
accept("query-with-a-single-quote", "3986 3.4", **query(b"a='b'", a=["'b'"]))
either("query-with-double-quotes", "3986 3.4", **query(b'a="b"', a=['"b"']))
either("query-with-angle-brackets", "3986 3.4", **query(b"a=<b>", a=["<b>"]))
either("query-with-raw-utf8", "3986 3.4", **query("a=ä".encode(), a=[text("ä")]))
refuse("query-with-raw-bytes-that-are-not-utf8", "3986 3.4", target(b"/?a=\xff"))
accept("query-with-slashes-colons-and-at-signs", "3986 3.4", **query(b"a=b/c:d@e?f", a=["b/c:d@e?f"]))
accept("query-of-a-name-alone", BROWSER, **query(b"a", a=[""]))
accept("query-with-an-empty-value", BROWSER, **query(b"a=", a=[""]))
accept("query-with-an-empty-name", BROWSER, **query(b"=b&c=d", c=["d"]))
accept("query-with-empty-arguments", BROWSER, **query(b"&&a=b&", a=["b"]))
accept("query-with-a-name-twice", BROWSER, **query(b"a=1&b=2&a=3", a=["1", "3"], b=["2"]))
either("query-with-escapes-that-are-not-utf8", BROWSER, **query(b"a=%FF&b=c", b=["c"]))
either("query-with-an-overlong-escape", BROWSER, **query(b"a=%C0%AF&b=c", b=["c"]))
either("query-with-an-escaped-surrogate", BROWSER, **query(b"a=%ED%A0%80&b=c", b=["c"]))
either("query-with-an-escaped-nul", BROWSER, **query(b"a=b%00c&d=e", d=["e"]))
either("query-with-an-escaped-line-end", BROWSER, **query(b"a=b%0D%0Ac&d=e", d=["e"]))
either("query-with-percent-sign-alone", BROWSER, **query(b"a=100%&b=c", b=["c"]))
either("query-with-half-an-escape", BROWSER, **query(b"a=%4&b=c", b=["c"]))
either("query-with-an-escape-of-other-letters", BROWSER, **query(b"a=%zz&b=c", b=["c"]))

# ---------------------------------------------------------------------------------------------------------------------
group("Cookies as browsers send them")


def cookie(raw, **cookies):
    return {"sent": get(b"Cookie: " + raw), "cookies": cookies}


accept("cookie", "6265 4.2.1", **cookie(b"a=b", a=["b"]))
accept("cookies", "6265 4.2.1", **cookie(b"a=b; c=d", a=["b"], c=["d"]))
accept("cookie-with-an-empty-value", "6265 4.2.1", **cookie(b"a=; c=d", a=[""], c=["d"]))
accept("cookie-with-equals-signs-in-the-value", "6265 4.1.1", **cookie(b"a=b=c==", a=["b=c=="]))
accept("cookie-of-all-plain-characters", "6265 4.1.1",
       **cookie(b"a=!#$%&'()*+-./:<=>?@[]^_`{|}~", a=["!#$%&'()*+-./:<=>?@[]^_`{|}~"]))
accept("cookie-with-a-name-of-a-token", "6265 4.1.1", **cookie(b"!#$%&'*+-.^_`|~=b", **{"!#$%&'*+-.^_`|~": ["b"]}))
accept("cookie-in-quotes", "6265 4.1.1", **cookie(b'a="b"; c=d', c=["d"]))
accept("cookie-name-in-two-letters-cases", "6265 5.3", **cookie(b"a=b; A=c", a=["b"], A=["c"]))
accept("cookie-twice", "6265 5.4", **cookie(b"a=b; a=c", a=["b", "c"]))
accept("cookies-on-two-lines", "9113 8.2.3", get(b"Cookie: a=b", b"Cookie: c=d"), cookies={"a": ["b"], "c": ["d"]})
accept("cookie-with-utf8", "6265 5.4", **cookie("a=bä€; c=d".encode(), a=[text("bä€")], c=["d"]))
accept("cookie-with-an-emoji", "6265 5.4", **cookie("a=😀; c=d".encode(), a=[text("😀")], c=["d"]))
accept("cookie-with-utf8-in-the-name", "6265 5.4", **cookie("ä=b; c=d".encode(), c=["d"]))
accept("cookie-with-blanks-in-the-value", "6265 5.4", **cookie(b"a=b c  d; e=f", a=["b c  d"], e=["f"]))
accept("cookie-with-a-comma", "6265 5.4", **cookie(b"a=b,c; d=e", a=["b,c"], d=["e"]))
accept("cookie-with-json", "6265 5.4", **cookie(b'a={"b":[1,2]}; c=d', a=['{"b":[1,2]}'], c=["d"]))
accept("cookie-with-a-backslash", "6265 5.4", **cookie(b"a=b\\c; d=e", a=["b\\c"], d=["e"]))
accept("cookie-with-one-quote", "6265 5.4", **cookie(b'a="b; c=d', c=["d"]))
accept("cookie-with-quotes-inside", "6265 5.4", **cookie(b'a=b"c"d; e=f', e=["f"]))
accept("cookie-without-blank-behind-the-semicolon", "6265 5.4", **cookie(b"a=b;c=d", a=["b"], c=["d"]))
accept("cookie-with-blanks-around-the-semicolon", "6265 5.4", **cookie(b"a=b ;  c=d", a=["b"], c=["d"]))
accept("cookie-with-semicolon-at-the-end", "6265 5.4", **cookie(b"a=b;", a=["b"]))
accept("cookie-with-two-semicolons", "6265 5.4", **cookie(b"a=b;; c=d", a=["b"], c=["d"]))
accept("cookie-without-equals-sign", "6265 5.4", **cookie(b"a; c=d", c=["d"]))
accept("cookie-without-a-name", "6265 5.4", **cookie(b"=a; c=d", c=["d"]))
accept("cookie-with-brackets-in-the-name", "6265 5.4", **cookie(b"a[b]=c; d=e", d=["e"]))
accept("cookie-with-a-blank-in-the-name", "6265 5.4", **cookie(b"a b=c; d=e", d=["e"]))
accept("cookie-with-bytes-that-are-not-utf8", "6265 5.4", **cookie(b"a=\xff; c=d", c=["d"]))
accept("cookie-that-looks-like-a-version", "6265 4.2.2", **cookie(b"$Version=1; a=b", a=["b"]))
accept("cookie-field-that-is-empty", "6265 4.2", **cookie(b""))
refuse("cookie-with-a-control-character", "9110 5.5", get(b"Cookie: a=b\x01; c=d"))
refuse("cookie-with-nul", "9110 5.5", get(b"Cookie: a=b\0; c=d"))
