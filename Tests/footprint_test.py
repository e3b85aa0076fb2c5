#!/usr/bin/python3
"""Whether the soak's arithmetic tells growth from chance."""

import math
import os
import random
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).with_name("Desktop")))
from footprint import Sample, anonymous_kb, children_of, descriptors, slope  # noqa: E402


def run(value, count: int = 400, group=lambda at: "one") -> list[Sample]:
    return [Sample(at, group(at), value(at)) for at in range(0, count * 5, 5)]


class Slopes(unittest.TestCase):
    def test_a_straight_line_has_its_own_slope_and_no_doubt(self) -> None:
        line = slope(run(lambda at: 7 + at / 4))
        self.assertAlmostEqual(line.rise, 250)
        self.assertAlmostEqual(line.margin, 0, places=6)

    def test_a_constant_does_not_rise(self) -> None:
        self.assertEqual(slope(run(lambda at: 28)).surely, 0)

    def test_chance_alone_is_within_the_margin(self) -> None:
        outside = 0
        for seed in range(200):
            chance = random.Random(seed)
            line = slope(run(lambda at: chance.gauss(7000, 100), 100))
            outside += abs(line.rise) > line.margin
        self.assertLessEqual(outside, 20)  # one in twenty is what the margin stands for

    def test_a_leak_shows_through_chance(self) -> None:
        chance = random.Random(1)
        line = slope(run(lambda at: chance.gauss(7000, 100) + at * 0.5))
        self.assertAlmostEqual(line.rise, 500, delta=line.margin)
        self.assertGreater(line.surely, 400)

    def test_a_wandering_figure_is_given_more_room(self) -> None:
        chance, at_rest = random.Random(2), 0.0
        values = {}
        for at in range(0, 2000, 5):
            at_rest = 0.95 * at_rest + chance.gauss(0, 10)
            values[at] = at_rest
        wandering = slope(run(values.__getitem__))
        shuffled = list(values.values())
        chance.shuffle(shuffled)
        mixed = slope(run(lambda at: shuffled[at // 5]))
        self.assertGreater(wandering.margin, 3 * mixed.margin)

    def test_another_level_in_another_group_is_no_growth(self) -> None:
        late = lambda at: "cloud" if at > 1000 else "local"  # noqa: E731
        line = slope(run(lambda at: 28 if late(at) == "local" else 40, group=late))
        self.assertAlmostEqual(line.rise, 0)

    def test_too_few_samples_tell_nothing(self) -> None:
        self.assertTrue(math.isnan(slope([Sample(1, "a", 1), Sample(2, "a", 2)]).rise))


class Figures(unittest.TestCase):
    def test_what_this_process_takes(self) -> None:
        before = anonymous_kb(os.getpid())
        block = bytearray(b"x") * (32 << 20)
        self.assertAlmostEqual(anonymous_kb(os.getpid()) - before, 32 << 10, delta=2048)
        del block
        files = len(descriptors(os.getpid()))
        with open(os.devnull, "rb"):
            self.assertEqual(len(descriptors(os.getpid())), files + 1)
        self.assertEqual(children_of(os.getpid()), 0)


if __name__ == "__main__":
    unittest.main()
