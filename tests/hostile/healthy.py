"""Healthy clients, who measure how long their answers take: healthy.py PORT plain|tls PATH... One for each path, half of
its requests over a connection that it keeps and half over new ones. The protocol is that of attackers.py."""

from __future__ import annotations

import http.client
import json
import ssl
import sys
import threading
import time

HOST = "127.0.0.1"
PATIENCE_SECONDS = 90
PERIOD_SECONDS = 0.02


class Client(threading.Thread):
    def __init__(self, port: int, is_tls: bool, path: str) -> None:
        super().__init__(daemon=True)
        self._port = port
        self._tls = self._context() if is_tls else None
        self._path = path
        self._kept = self._new()
        self.times: list[float] = []
        self.failures: list[str] = []
        self.is_ending = False

    def _new(self) -> http.client.HTTPConnection:
        if not self._tls:
            return http.client.HTTPConnection(HOST, self._port, timeout=PATIENCE_SECONDS)
        return http.client.HTTPSConnection(HOST, self._port, timeout=PATIENCE_SECONDS, context=self._tls)

    @staticmethod
    def _context() -> ssl.SSLContext:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        return context

    def run(self) -> None:
        while not self.is_ending:
            connection = self._kept if len(self.times) % 2 else self._new()
            begin = time.monotonic()
            try:
                connection.request("GET", self._path)
                answer = connection.getresponse()
                answer.read()
                if answer.status != 200:
                    raise OSError(f"the status is {answer.status}")
            except (OSError, http.client.HTTPException) as error:
                self.failures.append(repr(error))
                self._kept.close()
            self.times.append(time.monotonic() - begin)
            if connection is not self._kept:
                connection.close()
            time.sleep(PERIOD_SECONDS)


def told_of(client: Client) -> dict[str, object]:
    times = sorted(client.times)
    return {
        "count": len(times),
        "p99": times[int(len(times) * 0.99)] if times else 0.0,
        "max": times[-1] if times else 0.0,
        "failures": client.failures[:3],
    }


def main(port: str, way: str, *paths: str) -> None:
    clients = {path: Client(int(port), way == "tls", path) for path in paths}
    for client in clients.values():
        client.start()
    print("ready", flush=True)
    # The first line ends the attack, and the second what waited for its end.
    sys.stdin.readline()
    for client in clients.values():
        client.is_ending = True
    print("{}", flush=True)
    sys.stdin.readline()
    for client in clients.values():
        client.join()
    print(json.dumps({path: told_of(client) for path, client in clients.items()}), flush=True)


main(*sys.argv[1:])
