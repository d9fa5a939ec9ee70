"""TLS: the bare engine, Vireo and nginx with the same certificate, protocol, cipher and group and without resumption, and
certificates that are exchanged under load. ./dev bench --tls runs this."""

from __future__ import annotations

import shutil
import socket
import ssl
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from processes import BenchError, Server, ask_plain, run_json
from subjects import Setup, tls_files
from work import (
    CPU_PER_REQUEST, INLINE_BASELINES, MB_PER_S, P50, P99, PATIENCE_SECONDS, RATE, STREAM_BYTES, Context, Item, Measure,
    Metric, Target, load_command, measure_load,
)

PACKAGES = ("libmicrohttpd12", "libgnutls30", "libnettle8", "nginx", "libssl3", "wrk", "curl", "g++-12")

HOST = "localhost"
VERSION = "TLSv1.3"
CIPHER = "TLS_AES_128_GCM_SHA256"
CLOSE = "Connection: close"

PAIRS = 2
RELOAD_PERIOD_SECONDS = 0.05
RELOAD_PATIENCE_SECONDS = 10


# ---- Certificates ----


def _pair(directory: Path, number: int) -> tuple[Path, Path]:
    """A certificate for the host and its key, made when they are asked for first."""
    chain, key = directory / f"chain-{number}.pem", directory / f"key-{number}.pem"
    if not (chain.exists() and key.exists()):
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "30",
             "-subj", f"/CN=Benchmark {number}", "-addext", f"subjectAltName=DNS:{HOST}", "-keyout", str(key),
             "-out", str(chain)],
            check=True, capture_output=True,
        )
    return chain, key


def install_certificate(directory: Path, number: int) -> None:
    """Puts it where the programs read theirs. @param number: one of PAIRS."""
    for source, target in zip(_pair(directory, number), tls_files(directory)):
        shutil.copyfile(source, target)


def _certificate_bytes(directory: Path, number: int) -> bytes:
    return ssl.PEM_cert_to_DER_cert(_pair(directory, number)[0].read_text())


# ---- Probes ----


def _trusting(directory: Path) -> ssl.SSLContext:
    context = ssl.create_default_context()
    for number in range(PAIRS):
        context.load_verify_locations(_pair(directory, number)[0])
    return context


def _connect(trust: ssl.SSLContext, port: int, session: ssl.SSLSession | None = None) -> ssl.SSLSocket:
    connection = socket.create_connection(("127.0.0.1", port), timeout=5)
    return trust.wrap_socket(connection, server_hostname=HOST, session=session)


def _probe(directory: Path, port: int, header: str) -> int:
    """Verifies the plain answer, and that TLS is what all are to speak. Returns the answer's bytes, head included."""
    trust = _trusting(directory)
    session = None
    for _ in range(2):
        with _connect(trust, port, session) as connection:
            size = ask_plain(connection, header)
            if (connection.version(), connection.cipher()[0]) != (VERSION, CIPHER):
                raise BenchError(f"another TLS: {connection.version()}, {connection.cipher()}")
            if connection.session_reused:
                raise BenchError("a session is taken up again")
            session = connection.session
    return size


def _probe_stream(directory: Path, port: int) -> int:
    """Verifies the stream. Returns the answer's bytes, head included."""
    received, head = directory / "received", directory / "received-head"
    command = ["curl", "--silent", "--show-error", "--max-time", "60", "--insecure", "--output", str(received),
               "--dump-header", str(head), f"https://127.0.0.1:{port}/known"]
    subprocess.run(command, check=True)
    try:
        if received.read_bytes() != (directory / "stream").read_bytes():
            raise BenchError("a download of other bytes")
        return received.stat().st_size + head.stat().st_size
    finally:
        received.unlink()


# ---- Load ----


def _load(connections: int, options: tuple[str, ...] = (), header: str = "") -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        answer_bytes = _probe(context.scratch, server.port, header)
        seconds = context.load_seconds(connections)
        command = load_command(connections, seconds, f"https://127.0.0.1:{server.port}/", *options)
        return measure_load(server, command, connections, seconds, answer_bytes)

    return measure


def _download(connections: int) -> Measure:
    def measure(context: Context, server: Server) -> dict[str, float]:
        answer_bytes = _probe_stream(context.scratch, server.port)
        seconds = 4 * context.load_seconds(connections)
        command = load_command(connections, seconds, f"https://127.0.0.1:{server.port}/known")
        values = measure_load(server, command, connections, seconds, answer_bytes)
        values["mb_per_s"] = values["bytes"] / values["seconds"] / 1e6
        values["cpu_us"] = values["cpu_s"] * 1e6 / (values["bytes"] / 1e6)
        return values

    return measure


def _reloads(connections: int) -> Measure:
    """Exchanges the certificate again and again while some come anew for each request and others stay."""

    def measure(context: Context, server: Server) -> dict[str, float]:
        _probe(context.scratch, server.port, "")
        trust = _trusting(context.scratch)
        seconds = 2 if context.quick else 10
        url = f"https://127.0.0.1:{server.port}/"
        commands = [load_command(connections, seconds, url, "-H", CLOSE), load_command(connections, seconds, url)]
        reloads = 0
        with ThreadPoolExecutor(len(commands)) as clients:
            running = [clients.submit(run_json, command, seconds + PATIENCE_SECONDS) for command in commands]
            while not all(client.done() for client in running):
                reloads += 1
                install_certificate(context.scratch, reloads % PAIRS)
                server.reload()
                _wait_for(trust, server.port, _certificate_bytes(context.scratch, reloads % PAIRS))
                time.sleep(RELOAD_PERIOD_SECONDS)
            new, kept = (client.result() for client in running)
        server.check()
        return {
            "failed": new["errors"] + kept["errors"],
            "requests": new["requests"] + kept["requests"],
            "reloads": reloads,
            "rate": new["requests"] / new["seconds"],
        }

    return measure


def _wait_for(trust: ssl.SSLContext, port: int, certificate: bytes) -> None:
    """Until those who connect get the certificate."""
    deadline = time.monotonic() + RELOAD_PATIENCE_SECONDS
    while time.monotonic() < deadline:
        with _connect(trust, port) as connection:
            if connection.getpeercert(binary_form=True) == certificate:
                return
    raise BenchError("the former certificate is served on")


# ---- Items ----

SUBJECTS_INLINE = ("engine-inline", "vireo-inline", "nginx")
NEW_CONNECTIONS = Metric("rate", "new connections/s", "/s", True)
DOWNLOAD_BASELINES = {"vireo-workers": "engine-inline", "before-workers": "engine-inline"}
WANTED_OF_NGINX = 0.8


def all_items() -> list[Item]:
    return [
        Item(
            "tls-get-64",
            "tls",
            "GET 12 bytes on kept connections, 64 connections",
            SUBJECTS_INLINE,
            (RATE, CPU_PER_REQUEST, P50, P99),
            _load(64),
            Setup(connections=64, tls=True),
            (Target("vireo-inline", WANTED_OF_NGINX, "nginx"),),
            INLINE_BASELINES,
        ),
        Item(
            "tls-handshake-64",
            "tls",
            "GET 12 bytes on a new connection each, 64 at once",
            SUBJECTS_INLINE,
            (NEW_CONNECTIONS, CPU_PER_REQUEST, P50, P99),
            _load(64, ("-H", CLOSE), f"{CLOSE}\r\n"),
            Setup(connections=64, tls=True),
            (Target("vireo-inline", WANTED_OF_NGINX, "nginx"),),
            INLINE_BASELINES,
        ),
        *(
            Item(
                f"tls-download-{at_once}",
                "tls",
                f"download of {STREAM_BYTES // 1_000_000} MB, {at_once} at once",
                ("engine-inline", "vireo-workers", "nginx"),
                (MB_PER_S, Metric("cpu_us", "server CPU a MB", "µs", False)),
                _download(at_once),
                Setup(connections=at_once, workers=at_once + 2, tls=True),
                (Target("vireo-workers", WANTED_OF_NGINX, "nginx"),),
                DOWNLOAD_BASELINES,
            )
            for at_once in (1, 8)
        ),
        Item(
            "tls-reload",
            "tls",
            "certificate exchanged under load: 32 connections that are kept, 32 new ones at a time",
            ("vireo-inline",),
            (
                Metric("failed", "failed", "requests", False),
                Metric("requests", "answered", "requests", True),
                Metric("reloads", "exchanged", "times", True),
                NEW_CONNECTIONS,
            ),
            _reloads(32),
            Setup(connections=64, tls=True),
            (Target("vireo-inline", 0, kind="value"),),
            plotted=("rate",),
            most_rounds=1,
        ),
    ]
