#!/usr/bin/python3
"""Readers and writers of the same few pages at once, on connections of their own.

    page_client.py SOCKET ROUNDS

Writers fill whole pages, and stretches of some pages, with one byte; readers read them meanwhile.
The device promises that a page is never seen half old and half new, whether a write puts a new page
in the place of the old one or changes it where it is.
"""

import random
import sys

import nbd

PAGE = 8192
PAGES = 2
UNDER_WAY = 3


def connect(socket):
    handle = nbd.NBD()
    handle.connect_unix(socket)
    return handle


class Stream:
    """Requests of one kind that are kept under way on a connection."""

    def __init__(self, handle, issue, check):
        self.handle = handle
        self.issue = issue
        self.check = check
        self.under_way = {}
        self.done = 0

    def fill(self):
        while len(self.under_way) < UNDER_WAY:
            cookie, what = self.issue(self.handle)
            self.under_way[cookie] = what

    def reap(self):
        self.handle.poll(0)
        for cookie in list(self.under_way):
            if self.handle.aio_command_completed(cookie):
                self.check(self.under_way.pop(cookie))
                self.done += 1


def stretch():
    first = random.randrange(PAGES)
    return first * PAGE, random.randint(1, PAGES - first) * PAGE


def write(handle):
    offset, length = stretch()
    data = nbd.Buffer.from_bytearray(bytearray([random.randint(1, 255)]) * length)
    return handle.aio_pwrite(data, offset), data


def read(handle):
    offset, length = stretch()
    buffer = nbd.Buffer(length)
    return handle.aio_pread(buffer, offset), buffer


def look(buffer):
    data = buffer.to_bytearray()
    for at in range(0, len(data), PAGE):
        page = data[at:at + PAGE]
        if page != page[:1] * PAGE:
            other = next(i for i in range(PAGE) if page[i] != page[0])
            sys.exit(f"a page begins with {page[0]:#x} and has {page[other]:#x} at byte {other}")


def main(socket, rounds):
    random.seed(1)
    streams = [Stream(connect(socket), write, lambda data: None),
               Stream(connect(socket), read, look)]
    while min(stream.done for stream in streams) < rounds:
        for stream in streams:
            stream.fill()
            stream.reap()
    for stream in streams:
        while stream.under_way:
            stream.reap()
        stream.handle.shutdown()


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
