"""Sends HEAD for an answer of unknown length again and again, with another client beside it whose answers have to be
its own. usage: head_beside_others.py PORT"""

import http.client
import sys
import threading

SECONDS = 60
ROUNDS = 200


def exchange(connection, method, path):
    """Status and body of one exchange, on a connection that is kept if the server keeps it."""
    connection.request(method, path)
    answer = connection.getresponse()
    return answer.status, answer.read()


def ask_heads(port, finished):
    try:
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
        for number in range(ROUNDS):
            found = exchange(connection, "HEAD", "/events")
            assert found == (200, b""), f"HEAD {number}: {found}"
    finally:
        finished.set()


def ask_beside(port, finished):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
    number = 0
    while not finished.is_set() or number < ROUNDS:
        found = exchange(connection, "GET", "/")
        assert found == (404, b"listen to /events\n"), f"GET {number}: {found}"
        number += 1


failures = []


def run(client, *arguments):
    try:
        client(*arguments)
    except Exception as error:  # told by the main thread
        failures.append(repr(error))


finished = threading.Event()
clients = [threading.Thread(target=run, args=(client, int(sys.argv[1]), finished)) for client in (ask_heads, ask_beside)]
for client in clients:
    client.start()
for client in clients:
    client.join()
if failures:
    sys.exit("\n".join(failures))
print(f"ok: {ROUNDS} times HEAD of unknown length disturb nobody")
