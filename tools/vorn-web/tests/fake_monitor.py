#!/usr/bin/env python3
"""A process with a monitor and nothing behind it: for states that no real process gets into on demand, such as a route
that stands, and names that want to be markup.

    fake_monitor.py [--name NAME] [--hostile]

Answers every request of docs/monitor.md that the page makes, and prints the requests that change something, one a line.
Ends with its standard input.
"""
import argparse
import ctypes
import json
import math
import os
import selectors
import shlex
import socket
import sys
import time

options = argparse.ArgumentParser()
options.add_argument("--name", default="frontend")
options.add_argument("--hostile", action="store_true")
options = options.parse_args()

PR_SET_NAME = 15
ctypes.CDLL(None).prctl(PR_SET_NAME, options.name.encode())
EVIL = "<img src=x onerror=hacked=1>" if options.hostile else ""
START = time.time()
BLOCKS = [
    ("RouteA", "mic", "jacksource", ["system:capture_1"]), ("RouteA", "far", "filesource", ["call.wav"]),
    ("RouteA", "aec", "voice", ["aec=true", "ns=high"]), ("RouteA", "vol", "gain", ["-6"]),
    ("RouteA", "meter", "level", []), ("RouteA", "out" + EVIL, "fifosink", []),
    ("RouteB", "feed", "fifosource", []), ("RouteB", "low", "resample", ["16000"]),
    ("RouteB", "disk", "filesink", ["call.flac"]),
]
LINKS = [("RouteA", "mic", "aec", 0), ("RouteA", "far", "aec", 1), ("RouteA", "aec", "vol", 0), ("RouteA", "vol", "meter", 0),
         ("RouteA", "meter", "out" + EVIL, 0), ("RouteB", "feed", "low", 0), ("RouteB", "low", "disk", 0)]
names = {label: f"{plug_in}_{label}_0" for _, label, plug_in, _ in BLOCKS}
state = {"timing": False, "gain": -6.0, "voice.ns": "high", "voice.aec": "true", "edits": 0}


def graph():
    routes = []
    for route in ("RouteA", "RouteB"):
        routes.append({
            "name": route, "status": "running",
            "blocks": [{"name": names[label], "label": label, "plugIn": f"lib{plug_in}.so", "args": args,
                        "first": label in ("mic", "far", "feed"), "last": label.startswith(("out", "disk"))}
                       for r, label, plug_in, args in BLOCKS if r == route],
            "links": [{"name": f"link_{i}", "from": {"block": names[a], "port": 0}, "to": {"block": names[b], "port": port},
                       "rate": 16000 if a == "low" else 48000, "format": "S16_LE", "channels": 1,
                       "samplesPerFrame": 160 if a == "low" else 480}
                      for i, (r, a, b, port) in enumerate(LINKS) if r == route]})
    return {"version": 1, "request": "graph",
            "process": {"pid": os.getpid(), "name": options.name, "uid": os.getuid(), "console": True, "library": "0.1.0"},
            "routes": routes, "fifos": fifos()}


def fifos():
    return [{"name": "fifo_0", "count": int(2400 + 2000 * math.sin(time.time() / 5)), "capacity": 4800, "rate": 48000,
             "writer": {"route": "RouteA", "block": names["out" + EVIL]}, "reader": {"route": "RouteB", "block": names["feed"]},
             "writerSleeps": False, "readerSleeps": True, "writingEnded": False, "readingEnded": False}]


def stats():
    now = time.time()
    level = -26 + 8 * math.sin(now / 3) + 3 * math.sin(now * 2.7)
    reading = lambda block, name, unit, value: {"block": names[block], "name": name, "unit": unit, "value": str(value)}
    return {"version": 1, "request": "stats", "time": now, "process": {"pid": os.getpid(), "name": options.name}, "routes": [
        {"name": "RouteA", "status": "running", "why": "runs", "frames": int((now - START) * 100), "errorFrames": 0,
         "framesPerSecond": 100 + math.sin(now), "inBlock": names["mic"], "since": 0.004, "processorSeconds": 1.2,
         "processorShare": 0.034 + 0.01 * math.sin(now / 7), "policy": "fifo", "realTimePriority": 60, "xruns": 2, "readings": [
             reading("aec", "input-level", "dBFS", level), reading("aec", "output-level", "dBFS", level - 9),
             reading("aec", "echo-reduction", "dB", 22 + 4 * math.sin(now / 4)), reading("aec", "voice", "", int(now / 3) % 2),
             reading("meter", "recent-peak", "dBFS", level + state["gain"] + 9),
             reading("meter", "recent-rms", "dBFS", level + state["gain"])]},
        {"name": "RouteB", "status": "running", "why": "waits", "frames": 4711, "errorFrames": 0, "framesPerSecond": 0,
         "text": f"RouteB waits in {names['feed']}, for 12.3 s: no samples in fifo_0, which {names['out' + EVIL]} of RouteA writes",
         "inBlock": names["feed"], "since": 12.3, "processorSeconds": 0.2, "processorShare": 0.0, "policy": "other",
         "realTimePriority": 0, "xruns": 0, "readings": [reading("disk", "written", "samples", 753760)]}],
        "fifos": fifos()}


def params():
    def row(i, name, kind, unit, limits, value, access="live", help=""):
        return {"id": i, "name": name, "type": kind, "unit": unit, "range": limits, "value": str(value), "access": access,
                "help": help}
    tables = {
        "vol": [row(0, "gain", "number", "dB", "-inf..60", state["gain"], help="how much louder; -inf is silence")],
        "aec": [row(0, "aec", "flag", "", "", state["voice.aec"], help="takes the echo out"),
                row(1, "ns", "word", "", "off|low|moderate|high", state["voice.ns"], help="how much noise goes"),
                row(2, "delay", "integer", "ms", "0..500", 40, help="of the echo, where the device knows it"),
                row(3, "model", "text", "", "", "conference", "stopped", "which tuning to load"),
                row(4, "voice", "number", "", "", 1, "read", "1: somebody speaks")]}
    return {"version": 1, "request": "params", "routes": [
        {"name": route, "blocks": [{"name": names[label], **({"parameters": tables[label]} if label in tables else {})}
                                   for r, label, _, _ in BLOCKS if r == route]} for route in ("RouteA", "RouteB")]}


def timing(words):
    if words: state["timing"] = words[0] == "on"
    answer = {"version": 1, "request": "timing", "on": state["timing"]}
    if not state["timing"]: return answer
    answer["routes"] = [
        {"name": route, "frame": 10000, "last": 310, "mean": 300, "p99": 420, "worst": 910, "worstSinceLook": 400, "share": 0.03,
         "blocks": [{"name": names[label], "calls": 1000, "last": 30 * (i + 1), "mean": 28 * (i + 1), "p99": 60 * (i + 1),
                     "worst": 90 * (i + 1), "share": 0.003 * (i + 1)} for i, (r, label, _, _) in enumerate(BLOCKS) if r == route]}
        for route in ("RouteA", "RouteB")]
    return answer


def events():
    kinds = [("made", "", "the route was made"), ("started", "", "started"), ("xrun", names["mic"], "the device ran dry for 3 ms"),
             ("edited", names["vol"], f"inserted {names['vol']}" + EVIL)]
    return {"version": 1, "events": [{"number": i, "time": START + i, "kind": kind, "route": "RouteA", "block": block, "text": text}
                                     for i, (kind, block, text) in enumerate(kinds)]}


def change(words):
    print(" ".join(words), flush=True)
    done = {"version": 1, "request": words[0], "ok": True, "made": [], "deleted": [], "reply": ""}
    if words[:3] == ["edit", "{", "setparam"]:
        if words[5] == "gain": state["gain"] = float(words[6])
        else: state["voice." + words[5]] = words[6]
    elif words[0] == "insert":
        index = next(i for i in range(len(LINKS)) if f"link_{i}" == words[2])
        route, source, sink, port = LINKS[index]
        label = f"{words[3]}{state['edits']}"
        state["edits"] += 1
        BLOCKS.append((route, label, words[3], words[4:]))
        names[label] = f"{words[3]}_{state['edits']}"
        LINKS[index] = (route, source, label, 0)
        LINKS.append((route, label, sink, port))
        done["made"] = [names[label]]
    elif words[0] == "remove":
        return {"version": 1, "error": f"'{words[2]}' has 2 inputs, and which of them goes on is not known"}
    return done


def answer(line):
    words = shlex.split(line)
    simple = {"graph": graph, "stats": stats, "params": params, "events": events}
    if words[0] in simple: return simple[words[0]]()
    if words[0] == "timing": return timing(words[1:])
    if words[0] == "log":
        return {"version": 1, "request": "log", "available": True,
                "lines": ["I RouteA started", "W mic: the device ran dry" + EVIL, "I RouteB started"]}
    return change(words)


listener = socket.socket(socket.AF_UNIX)
listener.bind(f"\0vorn.{os.getpid()}")
listener.listen()
selector = selectors.DefaultSelector()
selector.register(listener, selectors.EVENT_READ)
selector.register(sys.stdin, selectors.EVENT_READ)
clients = {}
print("ready", os.getpid(), flush=True)
while True:
    due = min((next for _, _, next in clients.values() if next), default=None)
    for key, _ in selector.select(None if due is None else max(0, due - time.time())):
        if key.fileobj is sys.stdin:
            if not os.read(0, 1000): sys.exit()
        elif key.fileobj is listener:
            client, _ = listener.accept()
            clients[client] = ["", 0, 0]
            selector.register(client, selectors.EVENT_READ)
        else:
            client = key.fileobj
            try: data = client.recv(65536)
            except OSError: data = b""
            if not data:
                selector.unregister(client)
                del clients[client]
                continue
            *lines, clients[client][0] = (clients[client][0] + data.decode()).split("\n")
            for line in lines:
                if line.startswith("watch "):
                    clients[client][1] = int(line.split()[1]) / 1000
                    clients[client][2] = time.time() if clients[client][1] else 0
                else: client.sendall((json.dumps(answer(line)) + "\n").encode())
    for client, entry in clients.items():
        if entry[2] and entry[2] <= time.time():
            try: client.sendall((json.dumps(stats()) + "\n").encode())
            except OSError: pass
            entry[2] = time.time() + entry[1]
