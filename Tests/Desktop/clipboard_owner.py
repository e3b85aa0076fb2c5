#!/usr/bin/python3
"""Owns the clipboard and misbehaves: clipboard_owner.py die|lie|flood. Prints "owns" when it does.

die    offers a picture of 10 MB and ends after its first piece
lie    offers formats that it does not give, and gives what it did not offer
flood  offers two pictures of 500 MB: one says so, the other says that it has one byte
"""

import os
import signal
import sys

from x_client import (ATOM, INTEGER, PROPERTY_DELETED, PROPERTY_NOTIFY, SELECTION_CLEAR,
                      SELECTION_REQUEST, SelectionRequest, XClient)

PIECE = bytes(range(256)) * 1024
FLOOD_BYTES = 500_000_000


class Owner:
    def __init__(self, mode: str) -> None:
        self._x = XClient()
        self._mode = mode
        self._clipboard = self._x.atom("CLIPBOARD")
        self._targets = self._x.atom("TARGETS")
        self._text = self._x.atom("UTF8_STRING")
        self._increments = self._x.atom("INCR")
        self._pictures = [self._x.atom("image/png"), self._x.atom("image/bmp")]
        self._left: dict[tuple[int, int], tuple[int, int]] = {}  # type and bytes of a transfer

    def run(self) -> None:
        """Until another program owns the clipboard and every transfer is over or forsaken."""
        self._x.own(self._clipboard)
        print("owns", flush=True)
        while True:
            event = self._x.next_event()
            if event.type == SELECTION_REQUEST:
                getattr(self, self._mode)(event.request)
            elif event.type == PROPERTY_NOTIFY and event.property.state == PROPERTY_DELETED:
                self._send_on(event.property.window, event.property.atom)
            elif event.type == SELECTION_CLEAR and not self._left:
                return

    def _offer(self, request: SelectionRequest, atoms: list[int]) -> None:
        self._x.put(request.requestor, request.property, ATOM, 32, atoms)
        self._x.answer(request)

    def _announce(self, request: SelectionRequest, told: int, size: int) -> None:
        """Begins a transfer in pieces."""
        self._x.watch_properties(request.requestor)
        self._left[request.requestor, request.property] = request.target, size
        self._x.put(request.requestor, request.property, self._increments, 32, [told])
        self._x.answer(request)

    def _send_on(self, window: int, name: int) -> None:
        kind, left = self._left.get((window, name), (0, -1))
        if left < 0:
            return
        piece = PIECE[:left]
        self._x.put(window, name, kind, 8, piece)
        self._x.flush()
        if self._mode == "die":
            os.kill(os.getpid(), signal.SIGKILL)
        if piece:
            self._left[window, name] = kind, left - len(piece)
        else:
            del self._left[window, name]

    # The ways to misbehave

    def die(self, request: SelectionRequest) -> None:
        if request.target == self._targets:
            self._offer(request, [self._targets, self._pictures[0]])
        else:
            self._announce(request, 10_000_000, 10_000_000)

    def flood(self, request: SelectionRequest) -> None:
        if request.target == self._targets:
            self._offer(request, [self._targets, *self._pictures])
        else:
            told = FLOOD_BYTES if request.target == self._pictures[0] else 1
            self._announce(request, told, FLOOD_BYTES)

    def lie(self, request: SelectionRequest) -> None:
        """Offers texts and pictures, names that are none, and a thing twice."""
        x = self._x
        html = x.atom("text/html")
        if request.target == self._targets:
            self._offer(request, [self._targets, self._text, self._text, 0, 0x7FFFFFFF, html,
                                  *self._pictures, x.atom("text/plain"), x.atom("x" * 5000)])
        elif request.target == self._text:  # numbers in place of a text
            x.put(request.requestor, request.property, INTEGER, 32, [1, 2, 3])
            x.answer(request)
        elif request.target == html:  # nothing was put there
            x.answer(request)
        elif request.target == self._pictures[0]:  # in pieces, but none ever comes
            x.put(request.requestor, request.property, self._increments, 8, b"x")
            x.answer(request)
        elif request.target == self._pictures[1]:  # another one than was asked for
            request.target = self._pictures[0]
            x.put(request.requestor, request.property, self._pictures[0], 16, PIECE)
            x.answer(request)
        elif request.target == x.atom("text/plain"):  # refused although offered
            x.answer(request, granted=False)
        # Everything else is never answered.


if __name__ == "__main__":
    Owner(sys.argv[1]).run()
