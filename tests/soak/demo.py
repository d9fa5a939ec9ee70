"""What the programs share that load the demo: their options, and how they ask it for its statistics."""

from __future__ import annotations

import argparse
import http.client
import json
import random
import socket
import ssl
from pathlib import Path

HOST = "127.0.0.1"
# Far more than anything takes, so that a busy machine is no error.
PATIENCE_SECONDS = 60


def trusting() -> ssl.SSLContext:
    """For a certificate that the demo makes for itself."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


def dial(port: int, tls: ssl.SSLContext | None) -> socket.socket:
    connection = socket.create_connection((HOST, port), timeout=PATIENCE_SECONDS)
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return tls.wrap_socket(connection, server_hostname=HOST) if tls else connection


def http_connection(port: int, tls: ssl.SSLContext | None) -> http.client.HTTPConnection:
    if tls:
        return http.client.HTTPSConnection(HOST, port, timeout=PATIENCE_SECONDS, context=tls)
    return http.client.HTTPConnection(HOST, port, timeout=PATIENCE_SECONDS)


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
    connection = http_connection(port, tls)
    try:
        connection.request("GET", "/stats")
        return json.loads(connection.getresponse().read())
    finally:
        connection.close()
