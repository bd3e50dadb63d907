"""Processes of a test, and waiting for what they do."""
import os
import subprocess
import sys
import time
import urllib.parse

HERE = os.path.dirname(os.path.abspath(__file__))
PATIENCE = 60  # seconds


def await_that(condition, what):
    """Waits until the condition gives something, and returns that."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        got = condition()
        if got: return got
        time.sleep(0.02)
    raise AssertionError(f"never came: {what}")


class Process:
    """Runs until the end of the block, or of kill(). Says something once it is ready."""

    def __init__(self, *words, **options):
        self.run = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, **options)

    def __enter__(self): return self

    def __exit__(self, *_): self.kill()

    def line(self): return self.run.stdout.readline().strip()

    def kill(self):
        """@return all that it said that was not read yet."""
        if self.run.poll() is None: self.run.kill()
        return self.run.communicate()[0] if not self.run.stdout.closed else ""


def fake_monitor(*options):
    process = Process(sys.executable, os.path.join(HERE, "fake_monitor.py"), *options)
    process.pid = int(process.line().split()[1])
    return process


class Web(Process):
    """vorn-web, with the address of its page taken apart."""

    def __init__(self, program, *options):
        super().__init__(program, *options)
        self.address = self.line()
        parts = urllib.parse.urlsplit(self.address)
        self.port = parts.port
        self.token = urllib.parse.parse_qs(parts.query)["token"][0]
        self.cookie = f"vorn-web-{self.port}={self.token}"


def raise_loopback():
    """In a new network namespace the loopback is down."""
    with open("/proc/net/fib_trie") as routes:
        if "127.0.0.1" in routes.read(): return
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
