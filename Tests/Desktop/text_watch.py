#!/usr/bin/python3
"""Prints a line for every text that a GTK program's document takes in or loses: the time in
nanoseconds of CLOCK_MONOTONIC, "insert" or "delete", and the text as JSON. The program tells it
over the accessibility bus from within the change itself, so no drawing or polling delays it.

Usage: text_watch.py APPLICATION
"""

import json
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402


def main() -> None:
    wanted = sys.argv[1].lower()

    def changed(event: Atspi.Event) -> None:
        seen = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        application = event.source.get_application()
        if application is None or wanted not in (application.get_name() or "").lower():
            return
        kind = "delete" if ":delete" in event.type else "insert"
        text = str(event.any_data)
        if text:  # emptying a document is told as an insertion of nothing, too
            print(seen, kind, json.dumps(text), flush=True)

    listener = Atspi.EventListener.new(changed)
    for kind in ("insert", "delete"):
        if not listener.register(f"object:text-changed:{kind}"):
            sys.exit("the accessibility bus takes no listener")
    print("ready", flush=True)
    Atspi.event_main()


if __name__ == "__main__":
    main()
