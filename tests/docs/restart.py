"""The last program of the tutorial, restarted as its units do: an upload that has begun is kept, who connects meanwhile is
served, and the next run knows what was told before.

usage: restart.py ACTIVATE PROGRAM PAGE
"""

import http.client
import json
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile

PATIENCE = 60
ACTIVATE, PROGRAM, PAGE = sys.argv[1:]
FORM = {"Content-Type": "application/x-www-form-urlencoded"}
PICTURE = b"JPEG" * 50000


class Connection(http.client.HTTPConnection):
    """One of a Unix socket."""

    def __init__(self, path):
        super().__init__("localhost", timeout=PATIENCE)
        self.path = path

    def connect(self):
        """To the path."""
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(PATIENCE)
        self.sock.connect(self.path)


def ask(path, *request, **more):
    """A connection with a request on its way."""
    connection = Connection(path)
    connection.request(*request, **more)
    return connection


def answered(connection, status):
    """The answer, which has that status."""
    response = connection.getresponse()
    body = response.read()
    assert response.status == status, (response.status, body)
    connection.close()
    return response, body


def main():
    """One restart."""
    with tempfile.TemporaryDirectory() as work:
        work = pathlib.Path(work)
        (work / "secrets").mkdir()
        (work / "secrets/password").write_text("tulip\n")
        (work / "secrets/key").write_text("k" * 44 + "\n")
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        manager.bind(str(work / "notify"))
        manager.settimeout(PATIENCE)

        def expect_told(word):
            told = manager.recv(1000).decode()
            assert word in told, told

        path = str(work / "plants.sock")
        command = [sys.executable, ACTIVATE, path, "--", PROGRAM, PAGE, str(work / "data"), str(work / "secrets")]
        environment = {**os.environ, "NOTIFY_SOCKET": str(work / "notify")}
        service = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL, start_new_session=True)
        try:
            expect_told("READY=1")
            response, _ = answered(ask(path, "POST", "/login", "password=tulip", FORM), 303)
            cookie = {"Cookie": response.getheader("Set-Cookie").split(";")[0]}
            care = json.dumps({"days": 3})
            answered(ask(path, "PUT", "/plants/fern", care, {**cookie, "Content-Type": "application/json"}), 204)
            print("ok: it serves on the socket that it was given")

            head = '--leaf\r\nContent-Disposition: form-data; name="picture"; filename="a.jpg"\r\n\r\n'
            form = head.encode() + PICTURE + b"\r\n--leaf--\r\n"
            upload = Connection(path)
            upload.putrequest("POST", "/plants/fern/picture")
            for name, value in {
                **cookie,
                "Content-Type": "multipart/form-data; boundary=leaf",
                "Content-Length": str(len(form)),
                "Expect": "100-continue",
            }.items():
                upload.putheader(name, value)
            upload.endheaders()
            assert upload.sock.recv(1000).startswith(b"HTTP/1.1 100 ")
            upload.send(form[:1000])
            service.send_signal(signal.SIGHUP)
            expect_told("STOPPING=1")
            waiting = ask(path, "GET", "/plants", headers=cookie)
            upload.send(form[1000:])
            answered(upload, 303)
            print("ok: an upload that has begun is answered")
            answered(waiting, 200)
            print("ok: who connects meanwhile is served")
            expect_told("READY=1")
            _, plants = answered(ask(path, "GET", "/plants", headers=cookie), 200)
            assert json.loads(plants) == {"fern": {"days": 3, "watered": 0}}, plants
            print("ok: the next run knows what was told before, and who had logged in")
            _, picture = answered(ask(path, "GET", "/pictures/fern.jpg", headers=cookie), 200)
            assert picture == PICTURE
            service.send_signal(signal.SIGTERM)
            assert service.wait(PATIENCE) == 0
        finally:
            if service.poll() is None:
                os.killpg(service.pid, signal.SIGKILL)
                service.wait()


main()
