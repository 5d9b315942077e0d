#!/usr/bin/python3
"""A client that finds no pages, and later finds them again.

    dry_pool_client.py SOCKET FAULT

The device has 16 pages, and its disk holds reads up while the file FAULT says so. Eight reads of
two pages each take the pool; requests that come behind them wait in its queue until their time-out
is over and must be answered ENOMEM, each of them, while the first eight are still under way. When
the disk goes on the eight must succeed, and the refused ones when they are asked again.
"""

import errno
import sys

import nbd

LENGTH = 16384  # two pages of data
STRIDE = 1 << 19  # one stripe, so that nobody waits for anybody's range
HOLDERS = range(0, 8)
LATE = range(8, 12)
PATTERN = b"\x21"


class Answers:
    """Requests under way, and the errno of each one that was answered."""

    def __init__(self, handle):
        self.handle = handle
        self.cookies = {}
        self.errors = {}
        self.buffers = {}

    def read(self, place):
        self.buffers[place] = nbd.Buffer(LENGTH)
        self.cookies[place] = self.handle.aio_pread(
            self.buffers[place], place * STRIDE, lambda error, place=place: self.note(place, error))

    def write(self, place, data):
        self.buffers[place] = nbd.Buffer.from_bytearray(bytearray(data))
        self.cookies[place] = self.handle.aio_pwrite(
            self.buffers[place], place * STRIDE, lambda error, place=place: self.note(place, error))

    def note(self, place, error):
        self.errors[place] = error.value
        return 1

    def wait(self, places):
        """Until all of the places were answered; the server answers each one sooner or later."""
        while not all(place in self.errors for place in places):
            self.handle.poll(1000)


def require(truth, text):
    if not truth:
        sys.exit(text)


def main(socket, fault):
    handle = nbd.NBD()
    handle.connect_unix(socket)
    answers = Answers(handle)

    with open(fault, "w", encoding="ascii") as file:
        file.write("hold reads")
    for place in HOLDERS:
        answers.read(place)
    while not holders_have_the_pool(fault):
        handle.poll(10)
    for place in LATE:
        answers.read(place)
    answers.write(12, PATTERN * LENGTH)
    refused = [*LATE, 12]
    answers.wait(refused)
    require(all(answers.errors[place] == errno.ENOMEM for place in refused),
            f"not ENOMEM: {answers.errors}")
    require(not any(place in answers.errors for place in HOLDERS),
            f"answered although the disk holds them: {answers.errors}")

    with open(fault, "w", encoding="ascii") as file:
        file.write("")
    answers.wait(HOLDERS)
    require(all(answers.errors[place] == 0 for place in HOLDERS),
            f"what had pages failed: {answers.errors}")
    require(all(answers.buffers[place].to_bytearray() == PATTERN * LENGTH for place in HOLDERS),
            "a read that was held up brought something else")
    for place in LATE:
        require(handle.pread(LENGTH, place * STRIDE) == PATTERN * LENGTH,
                f"place {place} reads as something else")
    handle.pwrite(PATTERN * LENGTH, 12 * STRIDE)
    handle.flush()
    require(handle.pread(LENGTH, 12 * STRIDE) == PATTERN * LENGTH, "the write was lost")


def holders_have_the_pool(fault):
    """The faulty disk notes every read that it holds up."""
    try:
        with open(fault + ".held", encoding="ascii") as file:
            return len(file.read()) >= len(HOLDERS)
    except FileNotFoundError:
        return False


if __name__ == "__main__":
    main(*sys.argv[1:])
