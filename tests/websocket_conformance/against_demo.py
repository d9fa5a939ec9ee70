"""Starts the demo, and runs the cases against it, with further arguments of run.py.

usage: against_demo.py PROGRAM [--tls] [ARGUMENT...]
"""

import re
import subprocess
import sys

import run

# Of a connection that was upgraded over TLS the engine passes on a few bytes at a time.
MAX_MESSAGE, MAX_MESSAGE_OVER_TLS = 1 << 20, run.LEAST_LIMIT

# For the demo to end.
PATIENCE_SECONDS = 60


def main(program, *arguments):
    is_tls = "--tls" in arguments
    max_message = str(MAX_MESSAGE_OVER_TLS if is_tls else MAX_MESSAGE)
    command = [program, "--port", "0", "--max-message", max_message] + ["--tls-throw-away"] * is_tls
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as demo:
        try:
            line = demo.stdout.readline()
            found = re.search(r"http(s?)://([^/ ]+)/", line)
            if not found:
                raise AssertionError(f"the demo said {line!r}")
            more = [argument for argument in arguments if argument != "--tls"]
            url = f"ws{found[1]}://{found[2]}/ws"
            status = run.main(["--url", url, "--insecure", "--max-message", max_message, *more])
            demo.terminate()
            demo.communicate(timeout=PATIENCE_SECONDS)
        finally:
            demo.kill()
    return status or demo.returncode


sys.exit(main(*sys.argv[1:]))
