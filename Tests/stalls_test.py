"""What of a stall is held against the program: Tests/Desktop/stalls.py."""

import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).parent / "Desktop"))

from stalls import Stall  # noqa: E402

IN_SERVER = (("poll (libc.so.6)", "libxcb.so.1+0xcd12", "xcb_wait_for_reply (libxcb.so.1)"),)
IN_BUS = (("pthread_cond_wait (libc.so.6)", "QDBusConnection::call (libQt6DBus.so.6)"),)
IN_LAUNCH = (("__clone (libc.so.6)",),)
IN_THREAD = (("syscall (libc.so.6)", "QSemaphore::acquire(int) (libQt6Core.so.6)"),)
ELSEWHERE = (("clock_nanosleep (libc.so.6)", "quenda::Something() (quenda)"),)
DEEP = (("read (libc.so.6)", "a", "b", "c", "d", "e", "xcb_wait_for_reply (libxcb.so.1)"),)


def stall(**parts: object) -> Stall:
    given = {"start_ns": 0, "length": 300.0, "computing": 0.0, "queued": 0.0, "pkill": 0.0}
    return Stall(**(given | parts))  # type: ignore[arg-type]


class StallTest(unittest.TestCase):
    def test_all_of_it_is_the_program_s_own_by_default(self) -> None:
        self.assertEqual(stall().own, 300)

    def test_its_own_wait_for_a_processor_and_that_for_pkill_are_not(self) -> None:
        self.assertEqual(stall(queued=100.0, pkill=50.0).own, 150)

    def test_whoever_it_was_seen_to_wait_for_may_have_had_no_processor(self) -> None:
        for where, who in ((IN_SERVER, "server"), (IN_BUS, "buses"), (IN_LAUNCH, "launch"),
                           (IN_THREAD, "threads"), (IN_SERVER, "threads"), (IN_BUS, "threads")):
            with self.subTest(who=who, where=where):
                self.assertEqual(stall(where=where, **{who: 200.0}).own, 100)

    def test_nobody_else_counts(self) -> None:
        everybody = {"server": 999.0, "buses": 999.0, "launch": 999.0, "threads": 999.0}
        self.assertEqual(stall(where=ELSEWHERE, **everybody).own, 300)
        self.assertEqual(stall(where=DEEP, **everybody).own, 300)
        self.assertEqual(stall(**everybody).own, 300)
        self.assertEqual(stall(where=IN_THREAD, server=999.0, buses=999.0, launch=999.0).own, 300)
        self.assertEqual(stall(where=IN_SERVER, buses=999.0, launch=999.0).own, 300)

    def test_computing_counts_always(self) -> None:
        self.assertEqual(stall(computing=120.0, where=IN_SERVER, server=999.0).own, 120)
        self.assertEqual(stall(computing=120.0, queued=100.0, pkill=250.0).own, 120)


if __name__ == "__main__":
    unittest.main()
