"""What the programs share that load the demo: their options, and how they ask it for its statistics."""

from __future__ import annotations

import argparse
import http.client
import json
import random
import ssl
from pathlib import Path

HOST = "127.0.0.1"
# Far more than anything takes, so that a busy machine is no error.
PATIENCE_SECONDS = 60


def parse_arguments(parser: argparse.ArgumentParser) -> argparse.Namespace:
    """With the options of all such programs, and a seed in any case."""
    parser.add_argument(
        "--seed", type=int, default=random.randrange(10**9),
        help="of all choices; default a random one, which is printed",
    )
    parser.add_argument("--demo", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--output", type=Path, required=True, help=argparse.SUPPRESS)
    return parser.parse_args()


def statistics(port: int, tls: ssl.SSLContext | None = None) -> dict:
    """What the demo counts, by a connection of its own."""
    connection = (
        http.client.HTTPSConnection(HOST, port, timeout=PATIENCE_SECONDS, context=tls)
        if tls
        else http.client.HTTPConnection(HOST, port, timeout=PATIENCE_SECONDS)
    )
    try:
        connection.request("GET", "/stats")
        return json.loads(connection.getresponse().read())
    finally:
        connection.close()
