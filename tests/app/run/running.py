"""Runs an App as a process: signals, the service manager's socket, its sockets, and files that are read anew.

usage: running.py RUN-SERVER [tls]
"""

import http.client
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest

PATIENCE = 60
SERVER = sys.argv[1]
HAS_TLS = "tls" in sys.argv[2:]
SUPPRESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "ending.supp")


class Process:
    """A server, and the end of the socket by which it tells how it is."""

    def __init__(self, directory, *arguments, inherited=None, **more):
        path = os.path.join(directory, "notify")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.bind(path)
        self.manager.settimeout(PATIENCE)
        self.log = open(os.path.join(directory, "log"), "wb+")
        self.output = os.path.join(directory, "output")
        command = [SERVER, "port=0", *arguments]
        passed = ()
        if inherited is not None:
            passed = (inherited.fileno(),)
            script = f'LISTEN_FDS=1 LISTEN_PID=$$ exec "$@" 3<&{inherited.fileno()}'
            command = ["bash", "-c", script, "server", *command]
        environment = {**os.environ, "NOTIFY_SOCKET": path, **more}
        with open(self.output, "wb") as output:
            self.process = subprocess.Popen(command, stdout=output, stderr=self.log, env=environment, pass_fds=passed)

    def told(self):
        """What the service manager is told next."""
        return self.manager.recv(1000).decode()

    def logged(self):
        """What the server has logged so far."""
        self.log.seek(0)
        return self.log.read().decode()

    def port(self):
        """Of the URL that it logs; the service manager has been told that it is ready."""
        return int(re.search(r"\[2 app\] https?://[a-z0-9.]+:(\d+)/ \(\d routes?, \d+ workers\)", self.logged())[1])

    def send(self, number):
        """Sends it a signal."""
        self.process.send_signal(number)

    def ended(self):
        """Its exit status, once it has ended."""
        return self.process.wait(PATIENCE)

    def close(self):
        """Ends it in any case."""
        self.process.kill()
        self.process.wait()
        self.manager.close()
        self.log.close()


def get(port, target):
    """Status and body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
    try:
        connection.request("GET", target)
        response = connection.getresponse()
        return response.status, response.read().decode()
    finally:
        connection.close()


def begin(port, text):
    """Sends a request up to there."""
    connection = socket.create_connection(("127.0.0.1", port), PATIENCE)
    connection.sendall(text)
    return connection


HALF = b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 10\r\nExpect: 100-continue\r\n\r\n"


def half_sent(port):
    """A request whose body is awaited: the server has said so."""
    connection = begin(port, HALF)
    assert connection.recv(1000).startswith(b"HTTP/1.1 100 ")
    connection.sendall(b"12345")
    return connection


def rest(connection):
    """All that comes until the server closes; none where it resets."""
    received = b""
    try:
        while piece := connection.recv(10000):
            received += piece
    except ConnectionError:
        pass
    connection.close()
    return received


def wait_until(is_true):
    """Waits for what nobody tells of."""
    deadline = time.monotonic() + PATIENCE
    while not is_true():
        if time.monotonic() > deadline:
            raise TimeoutError
        time.sleep(0.01)


def wait_for_line(path):
    """A line of a log comes when its exchange has ended, which is after the client has all of it."""
    wait_until(lambda: os.path.getsize(path) != 0)


def certificate(directory, name):
    """A certificate of its own, and its key."""
    pair = [os.path.join(directory, f"{name}.{kind}") for kind in ("pem", "key")]
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2"]
        + ["-subj", f"/CN={name}", "-out", pair[0], "-keyout", pair[1]],
        check=True,
        capture_output=True,
    )
    return pair


class Running(unittest.TestCase):
    """Each test has a directory and a process of its own."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def start(self, *arguments, **keywords):
        """A server that is ready."""
        server = Process(self.directory, *arguments, **keywords)
        self.addCleanup(server.close)
        self.assertEqual(server.told(), "READY=1")
        return server

    def reload(self, server):
        """SIGHUP, and what is told of it."""
        server.send(signal.SIGHUP)
        self.assertRegex(server.told(), r"^RELOADING=1\nMONOTONIC_USEC=\d+$")
        self.assertEqual(server.told(), "READY=1")

    def test_ready_once_it_serves_and_stopping_when_it_ends(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number), tempfile.TemporaryDirectory() as self.directory:
                server = self.start()
                self.assertEqual(get(server.port(), "/hello"), (200, "hello"))
                server.send(number)
                self.assertEqual(server.told(), "STOPPING=1")
                self.assertEqual(server.ended(), 0)

    def test_the_first_signal_lets_requests_finish(self):
        server = self.start()
        connection = half_sent(server.port())
        server.send(signal.SIGTERM)
        self.assertEqual(server.told(), "STOPPING=1")
        connection.sendall(b"67890")
        answer = rest(connection)
        self.assertTrue(answer.startswith(b"HTTP/1.1 200 ") and answer.endswith(b"1234567890"), answer)
        self.assertEqual(server.ended(), 0)

    def test_the_second_signal_cuts_them(self):
        for second in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(second), tempfile.TemporaryDirectory() as self.directory:
                server = self.start()
                connection = half_sent(server.port())
                server.send(signal.SIGTERM)
                self.assertEqual(server.told(), "STOPPING=1")
                server.send(second)
                self.assertEqual(server.ended(), 0)
                self.assertEqual(rest(connection), b"")

    def test_the_third_signal_ends_the_process(self):
        server = self.start()
        connection = begin(server.port(), b"GET /stuck HTTP/1.1\r\nHost: a\r\n\r\n")
        # It takes connections in the order in which they come: it has that request.
        self.assertEqual(get(server.port(), "/hello"), (200, "hello"))
        server.send(signal.SIGTERM)
        self.assertEqual(server.told(), "STOPPING=1")
        server.send(signal.SIGINT)
        server.send(signal.SIGTERM)
        self.assertIn(server.ended(), (-signal.SIGTERM, -signal.SIGINT))
        connection.close()

    def test_a_handler_ends_it_as_well(self):
        server = self.start()
        self.assertEqual(get(server.port(), "/stop"), (200, "stopping"))
        self.assertEqual(server.told(), "STOPPING=1")
        self.assertEqual(server.ended(), 0)

    def test_a_handler_may_destroy_its_app_right_before_the_process_ends(self):
        for how in ("worker", "quick", "main"):
            with self.subTest(how), tempfile.TemporaryDirectory() as self.directory:
                # That nobody has joined the threads of a process that ends in one of them is no news, nor is what the
                # cryptographic library had for them and frees under their feet.
                server = Process(
                    self.directory,
                    f"leave={how}",
                    ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0",
                    TSAN_OPTIONS=os.environ.get("TSAN_OPTIONS", "") + f" report_thread_leaks=0 suppressions={SUPPRESSIONS}",
                )
                self.addCleanup(server.close)
                wait_until(lambda: "http://" in server.logged())
                rest(begin(server.port(), b"GET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n"))
                self.assertEqual(server.ended(), 0)
                # Nobody has waited in vain.
                self.assertNotIn("does not return", server.logged())

    def test_a_reload_opens_the_access_log_anew(self):
        log = os.path.join(self.directory, "access")
        server = self.start(f"log={log}")
        self.assertEqual(get(server.port(), "/hello"), (200, "hello"))
        wait_for_line(log)
        os.rename(log, log + ".1")
        self.reload(server)
        self.assertEqual(get(server.port(), "/nothing")[0], 404)
        server.send(signal.SIGTERM)
        self.assertEqual(server.ended(), 0)
        with open(log + ".1", encoding="ascii") as old, open(log, encoding="ascii") as new:
            self.assertRegex(old.read(), r'^127\.0\.0\.1 - - \[.*\] "GET /hello HTTP/1\.1" 200 5 "-" "-"\n$')
            self.assertRegex(new.read(), r'^127\.0\.0\.1 - - \[.*\] "GET /nothing HTTP/1\.1" 404 \d+ "-" "-"\n$')

    def test_an_access_log_of_json_goes_to_standard_output(self):
        server = self.start("log=-", "format=json")
        self.assertEqual(get(server.port(), "/hello?a=1"), (200, "hello"))
        wait_for_line(server.output)
        with open(server.output, encoding="ascii") as output:
            line = json.loads(output.read())
        self.assertEqual([line[name] for name in ("client", "method", "target")], ["127.0.0.1", "GET", "/hello?a=1"])
        self.assertEqual(line["status"], 200)

    def test_sockets_of_the_service_manager(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            port = listener.getsockname()[1]
            # It waits until there is a server.
            early = begin(port, b"GET /hello HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
            server = self.start(inherited=listener)
            self.assertEqual(server.port(), port)
            self.assertTrue(rest(early).endswith(b"hello"))
            server.send(signal.SIGTERM)
            self.assertEqual(server.ended(), 0)

    def test_a_start_that_fails_is_never_ready(self):
        with socket.create_server(("127.0.0.1", 0)) as listener:
            server = Process(self.directory, f"port={listener.getsockname()[1]}")
            self.addCleanup(server.close)
            self.assertEqual(server.ended(), 1)
            self.assertIn(f"@127.0.0.1:{listener.getsockname()[1]}", server.logged())
            server.manager.setblocking(False)
            self.assertRaises(BlockingIOError, server.told)

    @unittest.skipUnless(HAS_TLS, "built without TLS")
    def test_a_reload_reads_the_certificate_anew(self):
        first, second = (certificate(self.directory, name) for name in ("first", "second"))
        chain, key = (os.path.join(self.directory, name) for name in ("chain", "key"))

        def install(pair):
            for source, target in zip(pair, (chain, key)):
                with open(source, "rb") as read, open(target, "wb") as written:
                    written.write(read.read())

        def is_served(pair, port):
            with open(pair[0], encoding="ascii") as expected:
                return ssl.get_server_certificate(("127.0.0.1", port)) == expected.read()

        install(first)
        server = self.start(f"certificate={chain}", f"key={key}")
        self.assertIn("https://127.0.0.1:", server.logged())
        self.assertTrue(is_served(first, server.port()))
        install(second)
        self.reload(server)
        self.assertTrue(is_served(second, server.port()))
        install((first[0], second[1]))
        self.reload(server)
        self.assertTrue(is_served(second, server.port()))
        self.assertIn("the certificates stay as they were : ", server.logged())

    @unittest.skipUnless(HAS_TLS, "built without TLS")
    def test_tls_tells_who_the_client_is(self):
        own, client = (certificate(self.directory, name) for name in ("own", "Ada"))
        server = self.start(f"chain={own[0]}", f"key={own[1]}", f"trusted={client[0]}")

        def connect(pair):
            context = ssl.create_default_context(cafile=own[0])
            context.check_hostname = False
            if pair is not None:
                context.load_cert_chain(*pair)
            connection = http.client.HTTPSConnection("127.0.0.1", server.port(), timeout=PATIENCE, context=context)
            self.addCleanup(connection.close)
            connection.request("GET", "/members/me")
            return connection.getresponse()

        response = connect(client)
        self.assertEqual(response.read().decode(), "https CN=Ada")
        self.assertRegex(response.headers["Set-Cookie"], r"; Secure\b")
        self.assertIn("max-age=", response.headers["Strict-Transport-Security"])
        self.assertRaises((OSError, http.client.HTTPException), connect, None)

    @unittest.skipUnless(HAS_TLS, "built without TLS")
    def test_tls_is_given_in_one_way_alone(self):
        pair = certificate(self.directory, "own")
        server = Process(
            self.directory, f"certificate={pair[0]}", f"chain={pair[0]}", f"key={pair[1]}", f"trusted={pair[0]}"
        )
        self.addCleanup(server.close)
        self.assertEqual(server.ended(), 1)
        self.assertIn("either tls or certificate and key", server.logged())

    def test_without_tls_nobody_is_told_to_come_over_it(self):
        server = self.start()
        connection = http.client.HTTPConnection("127.0.0.1", server.port(), timeout=PATIENCE)
        self.addCleanup(connection.close)
        connection.request("GET", "/members/me")
        response = connection.getresponse()
        self.assertEqual(response.read().decode(), "http nobody")
        self.assertNotIn("Secure", response.headers["Set-Cookie"])
        self.assertIsNone(response.headers["Strict-Transport-Security"])

    @unittest.skipUnless(HAS_TLS, "built without TLS")
    def test_a_broken_certificate_lets_nobody_in(self):
        pair = certificate(self.directory, "first")
        for broken in ([f"certificate={pair[0]}"], [f"certificate={pair[0]}", f"key={pair[0]}"]):
            with self.subTest(broken), tempfile.TemporaryDirectory() as directory:
                server = Process(directory, *broken)
                self.addCleanup(server.close)
                self.assertEqual(server.ended(), 1)
                self.assertNotIn("http", server.logged().replace("httpserver", ""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
