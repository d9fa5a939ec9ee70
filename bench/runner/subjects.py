"""The programs that are compared."""

from __future__ import annotations

import os
from dataclasses import dataclass, field, replace
from pathlib import Path

ENGINE = "engine"
VIREO = "vireo"
BEFORE = "before"
PEER = "peer"


@dataclass(frozen=True)
class Subject:
    """One program in one mode. Its name begins with what --against calls it."""

    name: str
    title: str
    family: str
    # Empty: there is no server.
    program: str
    arguments: tuple[str, ...] = ()
    thread_per_connection: bool = False
    environment: dict[str, str] = field(default_factory=dict)

    def matches(self, names: list[str]) -> bool:
        return any(self.name == name or self.name.startswith(name + "-") for name in names)


# With which the toolkit starts the servers of the core.
TOOLKIT_MEMORY = ("--connection-memory", "32768")
TOOLKIT_OPTIONS = ("--event", "--strict", "--lines", *TOOLKIT_MEMORY)

SUBJECTS = {
    subject.name: subject
    for subject in (
        Subject("engine-inline", "bare engine, inline", ENGINE, "bench-engine", ("--answer", "inline")),
        Subject("engine-maps", "bare engine, inline with maps", ENGINE, "bench-engine", ("--answer", "maps")),
        Subject("engine-handover", "bare engine, hand-over", ENGINE, "bench-engine", ("--answer", "handover")),
        Subject("vireo-inline", "Vireo, inline", VIREO, "bench-vireo", ("--answer", "inline")),
        Subject("vireo-workers", "Vireo, workers", VIREO, "bench-vireo", ("--answer", "workers")),
        Subject("vireo-sessions", "Vireo, sessions", VIREO, "bench-vireo", ("--sessions", "--event")),
        Subject("vireo-throughput", "Vireo for throughput, inline", VIREO, "bench-vireo", ("--answer", "inline", "--throughput")),
        Subject("vireo-throughput-workers", "Vireo for throughput, workers", VIREO, "bench-vireo",
                ("--answer", "workers", "--throughput")),
        Subject("vireo-inline-same", "core, inline, same options", VIREO, "bench-vireo", ("--answer", "inline", *TOOLKIT_OPTIONS)),
        Subject("vireo-workers-same", "core, workers, same options", VIREO, "bench-vireo", ("--answer", "workers", *TOOLKIT_OPTIONS)),
        Subject("vireo-events", "core, event streams", VIREO, "bench-events", ("--waiting", "event", *TOOLKIT_MEMORY)),
        Subject("toolkit-quick", "toolkit, quick", VIREO, "bench-app", ("--answer", "quick")),
        Subject("toolkit-workers", "toolkit, workers", VIREO, "bench-app", ("--answer", "workers")),
        Subject("toolkit-routes", "toolkit, quick, 1,000 routes", VIREO, "bench-app",
                ("--answer", "quick", "--routes", "1000")),
        # Compiles the first example, and serves nothing.
        Subject("hello", "examples/hello", VIREO, ""),
        Subject("beast", "Boost.Beast", PEER, "bench-beast"),
        Subject("civetweb", "CivetWeb", PEER, "bench-civetweb", thread_per_connection=True),
        Subject("httplib", "cpp-httplib", PEER, "bench-httplib", thread_per_connection=True),
        Subject("libwebsockets", "libwebsockets", PEER, "bench-libwebsockets"),
        Subject("nginx", "nginx", PEER, "nginx"),
        Subject("node", "Node's http", PEER, "node-http.mjs"),
        Subject("ws", "ws of npm", PEER, "ws/server.mjs"),
    )
}


def add_before(directory: Path) -> None:
    """Adds the kept build in `directory` as subjects beside the present ones."""
    for name, title, program, mode in (
        ("before-inline", "Vireo before, inline", "bench-vireo", "inline"),
        ("before-workers", "Vireo before, workers", "bench-vireo", "workers"),
        ("before-toolkit-quick", "toolkit before, quick", "bench-app", "quick"),
        ("before-toolkit-workers", "toolkit before, workers", "bench-app", "workers"),
    ):
        environment = {"LD_LIBRARY_PATH": str(directory)}
        SUBJECTS[name] = Subject(name, title, BEFORE, str(directory / program), ("--answer", mode), environment=environment)


# What is behind the names of subjects with a newer engine than the installed one.
NEWER = "-newer"


def add_newer_engine(directory: Path) -> None:
    """Adds the bare engine and the library with the engine's library in `directory`, which has the same interface."""
    environment = {"LD_LIBRARY_PATH": str(directory)}
    for name in ("engine-inline", "vireo-throughput"):
        known = SUBJECTS[name]
        newer = f"{name.removesuffix('-inline')}{NEWER}"
        SUBJECTS[newer] = replace(known, name=newer, title=f"{known.title}, engine 1.0", environment=environment)


def before_name(name: str) -> str:
    """What the kept build of a subject of Vireo's is called, if there is one."""
    return f"before-{name.removeprefix('vireo-')}"


@dataclass(frozen=True)
class Setup:
    """How a program serves one item."""

    connections: int = 1  # that are open at once
    workers: int = 2
    ports: int = 1
    web_socket: bool = False
    # With the options for many small requests: little memory for each connection, and the engine's turbo.
    tuned: bool = False
    # With TLS, and as much memory for each connection. Vireo waits by events.
    tls: bool = False
    # Has a directory with a file to serve.
    files: bool = False
    # What else all programs of the item are told.
    arguments: tuple[str, ...] = ()


def ports_of(subject: Subject, setup: Setup) -> int:
    """Only the engine needs several for many connections, unless the library waits by events and accepts them itself."""
    accepts_itself = not {"--event", "--throughput"}.isdisjoint(subject.arguments)
    needs_many = subject.family in (ENGINE, VIREO, BEFORE) and not accepts_itself
    return setup.ports if needs_many else 1


SERVING_THREADS = 2
SPARE_THREADS = 4  # for the probes beside the connections
TUNED_MEMORY_BYTES = 32 * 1024


def command(subject: Subject, setup: Setup, port: int, programs: Path, scratch: Path) -> list[str]:
    """The command line of a server."""
    if subject.program == "nginx":
        return ["nginx", "-p", str(scratch), "-c", str(_write_nginx_config(port, scratch, setup.tls))]
    threads = setup.connections + SPARE_THREADS if subject.thread_per_connection else SERVING_THREADS
    line = [str(programs / subject.program), "--port", str(port), "--threads", str(threads), *subject.arguments]
    line += setup.arguments
    if subject.family in (ENGINE, VIREO, BEFORE):
        line += ["--workers", str(setup.workers)]
        if ports_of(subject, setup) > 1:
            line += ["--servers", str(ports_of(subject, setup))]
        if setup.web_socket:
            line.append("--websocket")
        if setup.tuned:
            line += ["--connection-memory", str(TUNED_MEMORY_BYTES), "--turbo"]
        if setup.files:
            line += ["--files", str(files_of(scratch))]
        if setup.tls:
            line += ["--connection-memory", str(TUNED_MEMORY_BYTES)]
            line += ["--tls", *(str(file) for file in tls_files(scratch))]
            if subject.family != ENGINE:
                line.append("--event")
    return line


def files_of(scratch: Path) -> Path:
    """The directory that programs serve."""
    return scratch / "files"


def tls_files(scratch: Path) -> tuple[Path, Path]:
    """The certificate and the key that programs serve with."""
    return scratch / "chain.pem", scratch / "key.pem"


def _write_nginx_config(port: int, scratch: Path, tls: bool) -> Path:
    peers = Path(__file__).parent.parent / "peers"
    template = (peers / "nginx.conf.in").read_text()
    template = template.replace("@SSL@", " ssl" if tls else "")
    template = template.replace("@TLS@", (peers / "nginx-tls.conf.in").read_text() if tls else "")
    # Its workers must be able to read the files, wherever the build directory is.
    user = "user root;" if os.geteuid() == 0 else ""
    text = template.replace("@PORT@", str(port)).replace("@DIRECTORY@", str(scratch)).replace("@USER@", user)
    path = scratch / f"nginx-{port}.conf"
    path.write_text(text.replace("nginx.pid", f"nginx-{port}.pid"))
    return path
