#!/usr/bin/python3
"""Measures Quenda and what it is compared with; prints one table. See scripts/bench."""

import argparse
import json
import os
import subprocess
import sys
import traceback
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "Tests" / "Desktop"))

import desktop_figures as desktop  # noqa: E402
import library_figures as library  # noqa: E402
from figures import table  # noqa: E402
from isolation import isolate  # noqa: E402
from virtual_desktop import BUILD  # noqa: E402

GROUPS = {
    "key": desktop.key_press,
    "dictation": desktop.dictation,
    "idle": desktop.idle,
    "pill": desktop.pill,
    "windows": desktop.windows,
    "wav": library.wav,
    "transcript": library.transcript,
    "log": library.log,
    "transfers": library.transfer,
}


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("--only", action="append", choices=GROUPS, metavar="NAME",
                        help=f"measure only this; may be given again: {', '.join(GROUPS)}")
    parser.add_argument("--quick", action="store_true", help="fewer and shorter runs")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write all samples there")
    return parser.parse_args()


def load() -> str:
    return " ".join(f"{value:.1f}" for value in os.getloadavg())


def main() -> int:
    options = parse()
    isolate()
    before = load()
    figures, missing = [], {}
    for name in options.only or GROUPS:
        print(f"measuring {name}", file=sys.stderr, flush=True)
        try:
            figures += GROUPS[name](BUILD / "benchmarks", options.quick)
        except (AssertionError, KeyError, OSError, RuntimeError, StopIteration, ValueError,
                subprocess.SubprocessError) as failure:
            traceback.print_exc()
            missing[name] = f"{type(failure).__name__}: {failure}"
    print(table(figures))
    for name, reason in missing.items():
        print(f"{name}: NOT MEASURED, {reason}")
    print(f"\nMedians. Noise: the middle half of the runs, or all if they are fewer than 8.\n"
          f"{os.cpu_count()} processors; load over 1, 5 and 15 minutes {before} at the start, "
          f"{load()} at the end.")
    if options.json:
        options.json.write_text(json.dumps({
            "figures": [figure.as_object() for figure in figures], "not_measured": missing,
            "processors": os.cpu_count(), "load_before": before, "load_after": load()},
            indent=2, ensure_ascii=False) + "\n", encoding="utf-8")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
