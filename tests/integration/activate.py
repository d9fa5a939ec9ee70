"""Starts a server as a service manager does: with sockets that listen already.

usage: activate.py SOCKET... -- COMMAND...
SOCKET is a port of 127.0.0.1, 0 for a free one, or the path of a Unix socket. Prints the ports, runs the command once, and
again after its end, which it prints, until it was told to stop: the sockets stay, and who connects meanwhile waits.
"""

import os
import signal
import socket
import sys

FIRST = 3


def listening(where):
    """Listens at a port or a path."""
    if where.isdigit():
        listener = socket.socket(socket.AF_INET)
        listener.bind(("127.0.0.1", int(where)))
    else:
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(where)
    listener.listen(128)
    return listener


def run(listeners, command):
    """Gives the sockets as descriptors from 3 on to a command, and waits for its end."""
    pid = os.fork()
    if pid == 0:
        # Out of the way first: one of them may stand where another belongs.
        copies = [os.dup(listener.fileno()) for listener in listeners]
        high = [os.dup2(copy, 100 + i) for i, copy in enumerate(copies)]
        for i, copy in enumerate(high):
            os.dup2(copy, FIRST + i, inheritable=True)
        os.environ["LISTEN_PID"] = str(os.getpid())
        os.environ["LISTEN_FDS"] = str(len(listeners))
        os.execvp(command[0], command)
    return pid


def main():
    """Runs the command until SIGTERM."""
    split = sys.argv.index("--")
    listeners = [listening(where) for where in sys.argv[1:split]]
    command = sys.argv[split + 1 :]
    ports = [listener.getsockname()[1] for listener in listeners if listener.family == socket.AF_INET]
    print("ports", *ports, flush=True)
    state = {"pid": 0, "stops": False}

    def stop(*_):
        state["stops"] = True
        os.kill(state["pid"], signal.SIGTERM)

    def restart(*_):
        os.kill(state["pid"], signal.SIGTERM)

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGHUP, restart)
    while not state["stops"]:
        state["pid"] = run(listeners, command)
        _, status = os.waitpid(state["pid"], 0)
        if status != 0:
            sys.exit(f"the server ended with {status}")
        print("ended", flush=True)


if __name__ == "__main__":
    main()
