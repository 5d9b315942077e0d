#!/usr/bin/python3
"""A client that knows what a device owes it after the server's sudden death.

    crash_client.py write SOCKET STATE PID SEED   writes and flushes, then kills PID with SIGKILL;
                                                  with PID 0 it ends with a flush instead
    crash_client.py check SOCKET STATE            looks at every sector

A sector holds its own number and a version, repeated to its end. `write` keeps many writes of
random places and sizes under way, trims now and then, and flushes; at a moment drawn from SEED it
kills the server. STATE then says for each sector which version was flushed and which was the last
one under way. `check` accepts for each sector one version between the two, whole: an older one
is a broken flush, a mixture is a torn sector, an error is an unreadable one.

Versions of one sector are written one after the other, never two at once, so "between" has a
meaning. A trimmed sector has the version of its trim, and reads as zeros.
"""

import json
import os
import random
import signal
import struct
import sys

import nbd

SECTOR = 512
SECTORS = 16384  # 8 MiB
RECORD = struct.Struct("<QQ")


def content(sector, version):
    return RECORD.pack(sector, version) * (SECTOR // RECORD.size)


class Client:
    def __init__(self, socket, seed):
        self.handle = nbd.NBD()
        self.handle.connect_unix(socket)
        self.random = random.Random(seed)
        self.flushed = [0] * SECTORS  # what a flush has promised
        self.answered = [0] * SECTORS  # what the next flush will promise
        self.issued = [0] * SECTORS  # what may be there
        self.trims = {}  # sector: versions that are trims
        self.busy = set()  # sectors under way
        self.version = 0
        self.under_way = {}  # cookie: (first, count, version)

    def pick(self):
        """A stretch of sectors that nobody works on; None when the draw hits one."""
        count = self.random.choice((1, 1, 2, 3, 8, 16, 17, 64, 200, 1000))
        first = self.random.randrange(SECTORS - count + 1)
        stretch = range(first, first + count)
        return None if self.busy.intersection(stretch) else stretch

    def issue(self):
        stretch = self.pick()
        if stretch is None:
            return
        self.version += 1
        first, count, version = stretch.start, len(stretch), self.version
        for sector in stretch:
            self.issued[sector] = version
        self.busy.update(stretch)
        if self.random.random() < 0.1:
            for sector in stretch:
                self.trims.setdefault(sector, []).append(version)
            cookie = self.handle.aio_zero(count * SECTOR, first * SECTOR)
        else:
            data = b"".join(content(sector, version) for sector in stretch)
            cookie = self.handle.aio_pwrite(nbd.Buffer.from_bytearray(bytearray(data)),
                                            first * SECTOR)
        self.under_way[cookie] = (first, count, version)

    def reap(self, wait):
        self.handle.poll(10 if wait else 0)
        for cookie in list(self.under_way):
            if self.handle.aio_command_completed(cookie):
                first, count, version = self.under_way.pop(cookie)
                for sector in range(first, first + count):
                    self.answered[sector] = version
                    self.busy.discard(sector)

    def flush(self):
        promised = list(self.answered)
        self.handle.flush()
        self.flushed = promised

    def save(self, path):
        with open(path, "w", encoding="ascii") as file:
            json.dump({"flushed": self.flushed, "issued": self.issued,
                       "trims": self.trims}, file)


def write(socket, path, pid, seed):
    client = Client(socket, seed)
    steps = client.random.randrange(50, 600)
    for step in range(steps):
        client.issue()
        client.reap(len(client.under_way) >= 24)
        if client.random.random() < 0.02:
            client.flush()
    if pid == 0:
        while client.under_way:
            client.reap(True)
        client.flush()
    else:
        os.kill(pid, signal.SIGKILL)
    client.save(path)
    print(f"{steps} steps, {client.version} writes, {len(client.under_way)} under way")


def version_of(data, sector):
    """The version that a sector holds whole; None when it is torn or another's."""
    if data == bytes(SECTOR):
        return 0
    number, version = RECORD.unpack_from(data)
    return version if number == sector and data == content(sector, version) else None


def wrong(sector, data, state):
    low, high = state["flushed"][sector], state["issued"][sector]
    version = version_of(data, sector)
    if version is None:
        return f"sector {sector} is torn or misplaced: {data[:32].hex()}"
    if version == 0:
        zero = low == 0 or any(
            low <= trim <= high for trim in state["trims"].get(str(sector), []))
        return None if zero else f"sector {sector} is empty, version {low} was flushed"
    if version < low or version > high:
        return f"sector {sector} has version {version}, not one of {low} to {high}"
    return None


def check(socket, path):
    handle = nbd.NBD()
    handle.connect_unix(socket)
    with open(path, encoding="ascii") as file:
        state = json.load(file)
    faults = []
    for first in range(0, SECTORS, 128):
        try:
            data = handle.pread(128 * SECTOR, first * SECTOR)
        except nbd.Error as error:
            faults.append(f"sectors from {first} cannot be read: {error}")
            continue
        for i in range(128):
            fault = wrong(first + i, bytes(data[i * SECTOR:(i + 1) * SECTOR]), state)
            if fault:
                faults.append(fault)
    print("\n".join(faults[:20]) if faults else f"{SECTORS} sectors are as they must be")
    return 1 if faults else 0


def main(arguments):
    if arguments[0] == "write":
        write(arguments[1], arguments[2], int(arguments[3]), int(arguments[4]))
        return 0
    return check(arguments[1], arguments[2])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
