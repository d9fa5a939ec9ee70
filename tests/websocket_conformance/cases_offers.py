"""Offers of permessage-deflate (RFC 7692, 5 and 7.1): which are accepted, and that what was agreed on holds.

An answer of the server's has to fit the offer: see deflate.agreement().
"""

import deflate
import wire
from cases import Compressed, Group
from opening import ANY_ERROR, EXTENSIONS, Opening, offering
from wire import RSV1, TEXT, Message

HELLO, HELLO_BACK = wire.frame(TEXT, b"hello"), Message(TEXT, b"hello")
PMD = "permessage-deflate"
SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT = deflate.SERVER_NO_CONTEXT, deflate.CLIENT_NO_CONTEXT
SERVER_WINDOW, CLIENT_WINDOW = deflate.SERVER_WINDOW, deflate.CLIENT_WINDOW

# Refers to itself from near and, beyond the smaller windows, from far.
LONG = wire.letters(9000) + wire.letters(500, 1) * 2 + wire.letters(9000)
MESSAGES = (LONG, b"hello", LONG, LONG[:3000], b"hello")

# What has to work after an agreement: with the agreed contexts and windows, and in both directions.
EXCHANGE = tuple(step for message in MESSAGES for step in (Compressed(TEXT, message), Message(TEXT, message)))

group = Group("offers")


def offer(*parameters):
    return "; ".join([PMD, *parameters])


def accepts(id, section, title, *offers, accepted=True, **more):
    group.case(id, section, title, *EXCHANGE, opening=offering(*offers, accepted=accepted, **more))


def declines(id, section, title, *offers, **more):
    opening = offering(*offers, accepted=False, **more)
    group.case(id, section, title, HELLO, HELLO_BACK, opening=opening)
    group.refused(f"{id}.then-compressed", "5.2", "without an agreement, RSV1 has no meaning", 1002,
                  wire.frame(TEXT, deflate.compressed(b"hello"), rsv=RSV1), opening=opening)


# ---------------------------------------------------------------------------------------------------------------------
# One offer that has to be accepted.

accepts("plain", "7692 5.1", "an offer without parameters is accepted", PMD)
accepts("server-no-context", "7692 7.1.1.1", "the server keeps no context, and says so", offer(SERVER_NO_CONTEXT))
accepts("client-no-context", "7692 7.1.1.2", "the client tells that it keeps no context", offer(CLIENT_NO_CONTEXT))
accepts("no-contexts", "7692 7.1.1", "neither side keeps a context", offer(SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT))
accepts("client-window", "7692 7.1.2.2", "the server may limit the client's window, as that is offered",
        offer(CLIENT_WINDOW))
for bits in deflate.WINDOW_BITS:
    # Not every deflater has a window of 256 bytes.
    accepts(f"server-window.{bits}", "7692 7.1.2.1", "the server's window is not larger than the client asks for; 8 "
            "may be declined", offer(f"{SERVER_WINDOW}={bits}"), accepted=(0, None) if bits == "8" else True)
    accepts(f"client-window.{bits}", "7692 7.1.2.2", "the client limits its own window, and the server perhaps more",
            offer(f"{CLIENT_WINDOW}={bits}"))
    accepts(f"both-windows.{bits}", "7692 7.1.2", "both windows are limited; 8 may be declined for the server's",
            offer(f"{SERVER_WINDOW}={bits}", f"{CLIENT_WINDOW}={bits}"),
            accepted=(0, None) if bits == "8" else True)
for bits in ("9", "10", "12", "15"):
    accepts(f"server-window.{bits}.no-context", "7692 7.1.2.1", "a small window without a context",
            offer(SERVER_NO_CONTEXT, f"{SERVER_WINDOW}={bits}"))
    accepts(f"client-window.{bits}.no-context", "7692 7.1.2.2", "a small window without a context",
            offer(CLIENT_NO_CONTEXT, f"{CLIENT_WINDOW}={bits}"))
accepts("all-four", "7692 7.1", "all parameters stand in one offer",
        offer(SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT, f"{SERVER_WINDOW}=10", f"{CLIENT_WINDOW}=11"))
accepts("all-four.other-order", "7692 7.1", "parameters have no order",
        offer(f"{CLIENT_WINDOW}=11", f"{SERVER_WINDOW}=10", CLIENT_NO_CONTEXT, SERVER_NO_CONTEXT))
accepts("all-four.client-window-without-value", "7692 7.1", "all parameters stand in one offer",
        offer(SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT, f"{SERVER_WINDOW}=15", CLIENT_WINDOW))
accepts("quoted.server-window", "9.1", "a value may be quoted", offer(f'{SERVER_WINDOW}="10"'))
accepts("quoted.client-window", "9.1", "a value may be quoted", offer(f'{CLIENT_WINDOW}="10"'))
for number, text in enumerate([f"{PMD};{SERVER_NO_CONTEXT}", f"{PMD} ; {SERVER_NO_CONTEXT}",
                               f"{PMD};\t{SERVER_NO_CONTEXT}", f"  {PMD};   {SERVER_NO_CONTEXT}  ",
                               f"{PMD};{SERVER_NO_CONTEXT};{SERVER_WINDOW}=10"]):
    accepts(f"blanks.{number}", "9.1", "there may be blanks around semicolons, or none", text)

# ---------------------------------------------------------------------------------------------------------------------
# One offer that has to be declined.

for name, value in {"number": "=1", "word": "=true", "zero": "=0", "quoted": '="1"'}.items():
    for parameter, side in ((SERVER_NO_CONTEXT, "server"), (CLIENT_NO_CONTEXT, "client")):
        declines(f"declined.{side}-no-context.{name}", "7692 7.1.1", f"{parameter} has no value",
                 offer(parameter + value))
declines("declined.server-window.none", "7692 7.1.2.1", f"{SERVER_WINDOW} has a value", offer(SERVER_WINDOW))
for name, value in {"0": "0", "7": "7", "16": "16", "99": "99", "leading-zero": "08", "leading-zero-15": "015",
                    "sign": "+10", "negative": "-10", "fraction": "10.0", "word": "abc", "digit-and-letter": "1O",
                    "hexadecimal": "0xA", "10-modulo-256": "266", "10-modulo-2-to-the-32": "4294967306",
                    "10-modulo-2-to-the-64": "18446744073709551626", "quoted-7": '"7"'}.items():
    for parameter, side in ((SERVER_WINDOW, "server"), (CLIENT_WINDOW, "client")):
        declines(f"declined.{side}-window.{name}", "7692 7.1.2", f"{parameter} is a number from 8 to 15, and no other "
                 "text", offer(f"{parameter}={value}"))
for name, parameters in {
        "server-no-context": (SERVER_NO_CONTEXT,) * 2, "client-no-context": (CLIENT_NO_CONTEXT,) * 2,
        "server-window": (f"{SERVER_WINDOW}=10",) * 2, "client-window": (CLIENT_WINDOW,) * 2,
        "server-window.other-value": (f"{SERVER_WINDOW}=10", f"{SERVER_WINDOW}=12"),
        "client-window.other-value": (CLIENT_WINDOW, f"{CLIENT_WINDOW}=10"),
        "not-adjacent": (SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT, SERVER_NO_CONTEXT)}.items():
    declines(f"declined.twice.{name}", "7692 7.1", "no parameter stands twice", offer(*parameters))
for name, parameters in {"alone": ("foo",), "with-value": ("foo=10",), "first": ("foo", SERVER_NO_CONTEXT),
                         "last": (SERVER_NO_CONTEXT, "foo"), "longer-name": (SERVER_NO_CONTEXT + "s",),
                         "shorter-name": ("server_max_window=10",), "dashes": ("server-no-context-takeover",)}.items():
    declines(f"declined.unknown.{name}", "7692 7.1", "a parameter that nothing defines", offer(*parameters))
declines("declined.one-of-many", "7692 7.1", "one invalid parameter is enough",
         offer(SERVER_NO_CONTEXT, CLIENT_NO_CONTEXT, f"{SERVER_WINDOW}=10", f"{CLIENT_WINDOW}=16"))
for number, name in enumerate(["permessage-deflat", "permessage-deflates", "x-permessage-deflate", "permessage-bzip2",
                               "deflate", "permessage_deflate"]):
    declines(f"declined.name.{number}", "9.1", "another extension is not this one", name)

# ---------------------------------------------------------------------------------------------------------------------
# Several offers.

accepts("several.unknown-first", "7692 5", "an offer behind an unknown extension is accepted", "x-unknown", PMD,
        accepted=(1,))
accepts("several.unknown-last", "7692 5", "an offer before an unknown extension is accepted", PMD, "x-unknown; a=b")
accepts("several.fallback", "7692 5", "behind an offer that is declined the next one is accepted",
        offer("foo"), PMD, accepted=(1,))
accepts("several.fallback.window", "7692 5", "behind an offer that is declined the next one is accepted",
        offer(f"{SERVER_WINDOW}=7"), offer(f"{SERVER_WINDOW}=10"), accepted=(1,))
accepts("several.fallback.third", "7692 5", "behind offers that are declined the next one is accepted",
        offer(f"{CLIENT_WINDOW}=16"), offer(SERVER_NO_CONTEXT, SERVER_NO_CONTEXT), offer(SERVER_NO_CONTEXT),
        accepted=(2,))
accepts("several.fallback.client-window", "7692 7.1.2.2", "what only a declined offer has is not answered",
        offer("foo", CLIENT_WINDOW), PMD, accepted=(1,))
accepts("several.fallback.duplicate", "7692 7.1", "the parameters of two offers are not counted together",
        offer("foo", SERVER_NO_CONTEXT), offer(SERVER_NO_CONTEXT), accepted=(1,))
accepts("several.both-good", "7692 5", "one of two offers is accepted, whichever",
        offer(f"{SERVER_WINDOW}=10"), PMD, accepted=(0, 1))
accepts("several.same", "7692 5", "of the same offer twice one is accepted", PMD, PMD)
accepts("several.good-then-bad", "7692 5", "an invalid offer behind a good one does no harm", PMD, offer("foo"))
for name, offers, accepted in (("unknown-first", ("x-unknown", PMD), (1,)),
                               ("fallback", (offer("foo"), offer(SERVER_NO_CONTEXT)), (1,)),
                               ("both-good", (offer(SERVER_NO_CONTEXT), PMD), (0, 1))):
    accepts(f"repeated.{name}", "9.1", "a repeated Sec-WebSocket-Extensions is one list", *offers, accepted=accepted,
            fields={EXTENSIONS: offers})
declines("several.all-bad", "7692 5", "without a good offer all are declined", offer("foo"),
         offer(f"{SERVER_WINDOW}=16"), "x-unknown")

# ---------------------------------------------------------------------------------------------------------------------
# No list of extensions at all: the opening handshake fails (9.1).

for name, value in {"no-parameter": f"{PMD};", "two-semicolons": f"{PMD};; {SERVER_NO_CONTEXT}", "no-name": f"; {PMD}",
                    "no-parameter-name": f"{PMD}; =10", "no-value": f"{PMD}; {SERVER_WINDOW}=",
                    "no-end-of-quotes": f'{PMD}; {SERVER_WINDOW}="10', "blank-in-name": "permessage deflate",
                    "blank-in-value": f"{PMD}; {SERVER_WINDOW}=1 0", "separator": f"{PMD}; a=(b)"}.items():
    group.case(f"malformed.{name}", "9.1", "a list of extensions that breaks the grammar fails the opening handshake",
               opening=Opening({EXTENSIONS: (value,)}, refused=ANY_ERROR))
