#!/usr/bin/env python3
"""vorn-web over plain HTTP, against a process that is made up: who is turned away, and what comes.

    web_http_test.py VORN-WEB
"""
import gzip
import http.client
import json
import signal
import socket
import subprocess
import sys

from processes import Web, await_that, fake_monitor, raise_loopback

PROGRAM = sys.argv[1]
raise_loopback()


def ask(web, method, path, body=None, host=None, cookie=True, **headers):
    """@return the response, read."""
    connection = http.client.HTTPConnection("127.0.0.1", web.port, timeout=30)
    connection.putrequest(method, path, skip_host=True, skip_accept_encoding=True)
    if host != "": connection.putheader("Host", host or f"127.0.0.1:{web.port}")
    if cookie: connection.putheader("Cookie", web.cookie if cookie is True else cookie)
    if body is not None and "Transfer_Encoding" not in headers: connection.putheader("Content-Length", len(body))
    for name, value in headers.items(): connection.putheader(name.replace("_", "-"), value)
    try:
        connection.endheaders(body)
    except (BrokenPipeError, ConnectionResetError):
        pass  # refused before all of the body was taken
    response = connection.getresponse()
    response.text = response.read()
    return response


def expect(web, status, *request, **options):
    response = ask(web, *request, **options)
    assert response.status == status, f"{request} {options} gave {response.status}, not {status}: {response.text[:200]}"
    return response


def command(*words): return json.dumps({"words": words}).encode()


def test_turns_away(web, process):
    # Without the token.
    for path in ("/", "/page.js", "/news", "/history", "/plugins", "/nothing", "/?token=", f"/?token={web.token[:-1]}x", "/?token=" + 40 * "0"):
        expect(web, 401, "GET", path, cookie=False)
    for cookie in ("vorn-web=1", f"vorn-web-{web.port}=", web.cookie[:-1], web.cookie + "0", f"vorn-web-1={web.token}"):
        expect(web, 401, "GET", "/", cookie=cookie)
    expect(web, 401, "GET", f"/history?token={web.token}", cookie=False)  # where it would stay in an address
    expect(web, 401, "POST", "/request", command("timing", "on"), cookie=False)

    # By another name, whatever the token.
    for host in ("evil.example", f"evil.example:{web.port}", "127.0.0.1.evil.example", ""):
        expect(web, 403, "GET", f"/?token={web.token}", host=host)
    expect(web, 200, "GET", "/", host="localhost:9", Accept_Encoding="gzip")  # a tunnel's end

    # From another site.
    for origin in ("http://evil.example", "null", f"https://127.0.0.1:{web.port}", f"http://localhost:{web.port}"):
        expect(web, 403, "POST", "/request", command("timing", "on"), Origin=origin)

    # What is none of what it offers.
    for method, path in (("POST", "/"), ("POST", "/history"), ("PUT", "/request"), ("DELETE", "/"), ("OPTIONS", "/request")):
        expect(web, 405, method, path, b"")
    expect(web, 404, "GET", "/request")
    expect(web, 404, "GET", "/../../etc/passwd")
    expect(web, 406, "GET", "/page.js")
    expect(web, 413, "POST", "/request", b"x" * 100000)
    expect(web, 411, "POST", "/request", b"0\r\n\r\n", Transfer_Encoding="chunked")
    for body in (b"", b"no JSON", b"[]", b'{"words": []}', b'{"words": [1]}', command("graph"), command("watch", "10"), command("\n")):
        expect(web, 400, "POST", "/request", body)
    expect(web, 502, "POST", "/request", command("do", "a\ndo setparam RouteA vol gain 1"))  # two requests in one

    # From another machine: it is on one address.
    other = socket.socket()
    assert other.connect_ex(("127.0.0.2", web.port)) != 0, "it listens on more than 127.0.0.1"

    # None of that came through, and what is right does.
    expect(web, 200, "POST", "/request", command("edit", "{", "setparam", "RouteA", "gain_vol_0", "gain", "-12", "}"),
           Origin=f"http://127.0.0.1:{web.port}")
    refused = expect(web, 409, "POST", "/request", command("remove", "RouteA", "voice_aec_0"))
    assert "2 inputs" in json.loads(refused.text)["error"]
    assert process.line() == "edit { setparam RouteA gain_vol_0 gain -12 }"
    assert process.line() == "remove RouteA voice_aec_0"


def test_serves(web):
    entry = expect(web, 303, "GET", f"/?token={web.token}", cookie=False)
    assert entry.getheader("Location") == "/"
    cookie = entry.getheader("Set-Cookie")
    assert cookie.startswith(web.cookie + ";") and "HttpOnly" in cookie and "SameSite=Strict" in cookie, cookie
    page = expect(web, 200, "GET", "/", Accept_Encoding="gzip")
    policy = page.getheader("Content-Security-Policy")
    assert "default-src 'none'" in policy and "unsafe" not in policy and "*" not in policy, policy
    text = gzip.decompress(page.text).decode()
    assert "<title>Vorn" in text and "http" not in text, "something is fetched from elsewhere"
    assert expect(web, 200, "GET", "/page.js", Accept_Encoding="gzip").getheader("Content-Type").startswith("text/javascript")


class News:
    """The page's stream of events, as far as it was read."""

    def __init__(self, web):
        self.socket = http.client.HTTPConnection("127.0.0.1", web.port, timeout=60)
        self.socket.request("GET", "/news", headers={"Cookie": web.cookie})
        self.stream = self.socket.getresponse()
        assert self.stream.getheader("Content-Type") == "text/event-stream"

    def next(self, topic, condition=lambda data: True):
        name = None
        while True:
            line = self.stream.readline().decode()
            assert line, f"the stream ended before {topic}"
            if line.startswith("event: "): name = line[7:].strip()
            if line.startswith("data: ") and name == topic:
                data = json.loads(line[6:])
                if condition(data): return data


def points(web): return json.loads(expect(web, 200, "GET", "/history").text)


def test_outlives_the_process(web, process):
    news = News(web)
    assert news.next("graph")["process"]["name"] == "frontend"
    assert len(news.next("wide")["blocks"]) == 9
    await_that(lambda: len(points(web)["times"]) > 2, "a history")
    process.kill()
    gone = news.next("state", lambda state: state["pid"] == 0)
    assert f"frontend ({process.pid}) has ended" in gone["text"], gone
    expect(web, 503, "POST", "/request", command("timing", "on"))
    with fake_monitor("--name", "another"), fake_monitor() as successor:
        news.next("state", lambda state: state["pid"] == successor.pid)
        before = len(points(web)["times"])
        await_that(lambda: len(points(web)["times"]) > before, "more history")
        fill = next(one["values"] for one in points(web)["series"] if one["of"] == ["fill", "fifo_0"])
        assert None in fill and fill[0] is not None and fill[-1] is not None, fill

        # It ends at once, whatever pages are open.
        web.run.send_signal(signal.SIGTERM)
        assert web.run.wait(30) == 0


def test_says_why_it_does_not_begin():
    def fails(text, *options):
        run = subprocess.run([PROGRAM, *options], capture_output=True, text=True, timeout=60)
        assert run.returncode in (1, 2) and text in run.stderr + run.stdout, run
        return run.returncode

    assert fails("no process 1 ", "-p", "1") == 1
    assert fails("", "--port", "70000") == 2
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        assert fails("is taken", "--port", str(taken.getsockname()[1])) == 1
    with fake_monitor("--name", "same") as one, fake_monitor("--name", "same") as two:
        assert fails(f"same ({one.pid})", "-p", "same") == 1
        with Web(PROGRAM, "-p", str(two.pid)) as web:
            assert News(web).next("state")["pid"] == two.pid


with fake_monitor() as one, Web(PROGRAM) as web:
    test_turns_away(web, one)
    test_serves(web)
    test_outlives_the_process(web, one)
test_says_why_it_does_not_begin()
