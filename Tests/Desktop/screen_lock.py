#!/usr/bin/python3
"""Locks the screen as far as the keyboard goes: every key is this program's alone until its input
ends. Prints "locked" when it is so."""

import sys
import time

from x_client import XClient


def main() -> None:
    client = XClient()
    deadline = time.monotonic() + 5
    while not client.grab_keyboard():
        if time.monotonic() > deadline:
            sys.exit("the keyboard is another's")
        time.sleep(0.01)
    print("locked", flush=True)
    sys.stdin.read()
    client.ungrab_keyboard()


if __name__ == "__main__":
    main()
