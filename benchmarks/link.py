# SPDX-License-Identifier: LGPL-2.1-or-later
"""What a virtual machine reads from a redirected stick over a network. Called by tools/bench --link.

A Linux guest reads for ever, a command at a time, while the link between client and server is changed. An emulated machine
and an emulated stick take time themselves, so a figure's bound stands beside it twice: as the protocol sets it, and with the
time that a command takes without any delay, measured just before and just after.
"""

import argparse
import os
import queue
import re
import socket
import subprocess
import sys
import threading
import time

ROUND_TRIPS = (0, 1, 5, 20, 50)  # milliseconds
RATES = (("unlimited", 0), ("1 Gbit/s", 1e9), ("50 Mbit/s", 50e6))  # bits per second
# What is read: a name, the stick's options, and how many sectors the guest is told to take at a time (0: its own choice).
STICKS = {
    "high speed": ("", 0),
    "high speed, max_sectors=2048 in the guest": ("", 2048),
    "SuperSpeed": (",superspeed", 0),
}
TRIPS_OF_A_COMMAND = 3  # command, data, status
GOAL = 0.9  # of the bound with the machine's own time, from
GOAL_FROM = 5  # milliseconds on
RUNS = 4  # of four commands each, for a figure
SECTOR = 512
MIB = 1024 * 1024


class Link:
    """Carries bytes between a TCP port of the loopback and a UNIX socket, each way late and at a limited rate."""

    def __init__(self, target):
        self.target = target
        self.lock = threading.Lock()
        self.free = [0.0, 0.0]  # when all that was given to it is on its way; there, and back
        self.set(0, 0)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def set(self, milliseconds, bits_per_second):
        with self.lock:
            self.delay = milliseconds / 2000
            self.seconds_per_byte = 8 / bits_per_second if bits_per_second else 0

    def accept(self):
        while True:
            client, _ = self.listener.accept()
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            server = socket.socket(socket.AF_UNIX)
            server.connect(self.target)
            for way, (source, sink) in enumerate(((client, server), (server, client))):
                under_way = queue.SimpleQueue()
                threading.Thread(target=self.take, args=(way, source, under_way), daemon=True).start()
                threading.Thread(target=self.give, args=(under_way, sink), daemon=True).start()

    def take(self, way, source, under_way):
        data = b"x"
        while data:
            try:
                data = source.recv(16384)
            except OSError:
                data = b""
            with self.lock:
                self.free[way] = max(self.free[way], time.monotonic()) + len(data) * self.seconds_per_byte
                under_way.put((self.free[way] + self.delay, data))

    def give(self, under_way, sink):
        try:
            while True:
                due, data = under_way.get()
                time.sleep(max(0, due - time.monotonic()))
                if not data:
                    break
                sink.sendall(data)
            sink.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # the other end is gone, and the sender will notice


class Machine:
    """A guest that reads a stick through the library, which gets to it by a link."""

    def __init__(self, options, stick, sectors):
        self.directory = options.directory
        for left in ("spice.sock", "serial.txt"):  # of the machine before
            if os.path.exists(os.path.join(self.directory, left)):
                os.remove(os.path.join(self.directory, left))
        usbworld = os.path.join(options.build, "tests/usbworld/usbworld")
        host = os.path.join(options.build, "reference/bin/devredir-host")
        self.children = [subprocess.Popen(["tests/vm/qemu-guest.sh", self.directory, self.directory],
                                          env=dict(os.environ, GUEST_SECTORS=str(sectors)))]
        spice = os.path.join(self.directory, "spice.sock")
        self.await_that(lambda: os.path.exists(spice), "machine")
        self.link = Link(spice)
        image = os.path.join(self.directory, "stick.img")
        with open(os.path.join(self.directory, "client.txt"), "wb") as output:
            self.children.append(subprocess.Popen(
                ["umockdev-wrapper", usbworld, "--stick", f"1-1={image},serial=B{stick}", "--", host, "--uri",
                 f"spice://127.0.0.1:{self.link.port}", "--share", "1-1:B"], stdout=output, stderr=output))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for child in reversed(self.children):
            child.terminate()
            child.wait()

    def await_that(self, condition, what, seconds=180):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end or any(child.poll() is not None for child in self.children):
                raise SystemExit(f"bench: no {what}\n{self.read('qemu.log')}{self.read('client.txt')}")
            time.sleep(0.02)

    def read(self, name):
        try:
            with open(os.path.join(self.directory, name), encoding="utf-8", errors="replace") as file:
                return file.read()
        except OSError:
            return ""

    def counters(self):
        """After each run, since the guest has known the disk: [(commands, sectors, milliseconds), ...]"""
        found = re.findall(r"GUEST HAS READ +(\d+) +\d+ +(\d+) +(\d+) .*\n", self.read("serial.txt"))
        return [tuple(int(number) for number in numbers) for numbers in found]

    def measure(self, milliseconds, rate):
        """Bytes of a command, and the seconds that one takes."""
        self.link.set(milliseconds, rate)
        first = len(self.counters())  # ends the run that began under the link that was
        self.await_that(lambda: len(self.counters()) > first + RUNS, "read")
        before, after = (self.counters()[run] for run in (first, first + RUNS))
        commands, sectors, taken = (late - early for early, late in zip(before, after))
        return sectors * SECTOR / commands, taken / 1000 / commands


def least_seconds(size, milliseconds, rate):
    """What the protocol sets: a command cannot take less than its round trips and its bytes."""
    return TRIPS_OF_A_COMMAND * milliseconds / 1000 + (size * 8 / rate if rate else 0)


class Figure:
    def __init__(self, machine, milliseconds, rate):
        _, before = machine.measure(0, 0)
        size, self.seconds = machine.measure(milliseconds, rate)
        _, after = machine.measure(0, 0)
        self.mibs = size / MIB / self.seconds
        self.least = least_seconds(size, milliseconds, rate)
        self.share = self.least / self.seconds
        self.own_share = (self.least + (before + after) / 2) / self.seconds

    def __str__(self):
        if not self.least:
            return f"{self.mibs:.3g}"
        return f"{self.mibs:.3g}, {self.share:.2f} ({self.own_share:.2f})"


def measure_stick(options, name):
    stick, sectors = STICKS[name]
    figures = []
    with Machine(options, stick, sectors) as machine:
        machine.await_that(machine.counters, "stick in the guest")
        size = machine.measure(0, 0)[0]
        print(f"{name}, {size / 1024:.0f} KiB a command: MiB/s, share of the bound (with the machine's own time)\n")
        print("| round trip | " + " | ".join(rate for rate, _ in RATES) + " |\n" + "|---" * (1 + len(RATES)) + "|")
        for milliseconds in ROUND_TRIPS:
            row = [Figure(machine, milliseconds, rate) for _, rate in RATES]
            print(f"| {milliseconds} ms | " + " | ".join(str(figure) for figure in row) + " |", flush=True)
            if milliseconds >= GOAL_FROM:
                figures += row
    print()
    return figures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("directory", help="has stick.img and what mkguest.sh made, and gets what the machine writes")
    parser.add_argument("--filter", default="")
    options = parser.parse_args()
    figures = [figure for name in STICKS if re.search(options.filter, name) for figure in measure_stick(options, name)]
    bare = sum(round(figure.share, 2) >= GOAL for figure in figures)
    met = sum(round(figure.own_share, 2) >= GOAL for figure in figures)
    print(f"from {GOAL_FROM} ms on, {bare} of {len(figures)} figures reach {GOAL} of their bound,")
    print(f"{met} of {len(figures)} with the machine's own time")
    return 0 if met == len(figures) else 1


if __name__ == "__main__":
    sys.exit(main())
