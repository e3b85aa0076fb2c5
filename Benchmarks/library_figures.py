"""Figures of programs that need no desktop: Google Benchmark's, and the transfers."""

import json
import subprocess
import tempfile
from collections import defaultdict
from pathlib import Path

import transfers
from figures import Figure

LINEAR = 2.0  # a text ten or a hundred times as long costs at most twice as much a character


def _benchmark(program: Path, repetitions: int, key: str = "real_time",
               seconds: float = 0.2) -> dict[str, list[float]]:
    """The values of each benchmark's repetitions."""
    timing = [] if key != "real_time" else [f"--benchmark_min_time={seconds}"]
    out = subprocess.run([str(program), "--benchmark_format=json",
                          f"--benchmark_repetitions={repetitions}", *timing], check=True,
                         stdin=subprocess.DEVNULL, capture_output=True, text=True)
    values: dict[str, list[float]] = defaultdict(list)
    for run in json.loads(out.stdout)["benchmarks"]:
        if run["run_type"] == "iteration":
            if run.get("error_occurred"):
                raise RuntimeError(f"{run['name']}: {run['error_message']}")
            values[run["run_name"]].append(run[key])
    return values


def wav(programs: Path, quick: bool) -> list[Figure]:
    times = _benchmark(programs / "WavBenchmark", 3 if quick else 9)
    return [Figure("wavData, 5 minutes", "ms", times["wavData"], yardstick, times[name])
            for yardstick, name in (("a plain copy", "plainCopy"), ("libsndfile", "libsndfile"))]


def transcript(programs: Path, quick: bool) -> list[Figure]:
    times = _benchmark(programs / "TranscriptBenchmark", 1 if quick else 3,
                       seconds=0.01 if quick else 0.05)
    figures = []
    for name in ("cleanTranscript", "removeFillerWords"):
        texts = sorted({run.split("/")[1] for run in times if run.startswith(f"{name}/")})

        def runs(text: str, length: int) -> list[float]:
            return [time / 1000 for time in times[f"{name}/{text}/{length}"]]

        def growth(text: str) -> float:
            return min(runs(text, 1_000_000)) / min(runs(text, 10_000))

        figures.append(Figure(f"{name}, 10 kB of prose", "ms", runs("prose", 10_000)))
        worst = max(texts, key=growth)
        for text, lengths in (("prose", (100_000, 1_000_000)), (worst, (1_000_000,))):
            for length in lengths:
                shown = text if text == "prose" else f"“{text}”, worst of {len(texts)}"
                factor = length // 10_000
                figures.append(Figure(
                    f"{name}, {length // 1000} kB of {shown}", "ms", runs(text, length),
                    f"{factor} x 10 kB", [factor * time for time in runs(text, 10_000)],
                    most_ratio=LINEAR))
    return figures


def log(programs: Path, quick: bool) -> list[Figure]:
    times = _benchmark(programs / "LogBenchmark", 2 if quick else 5, "median_ns_per_line")

    def of(case: str, logger: str) -> list[float]:
        return next(values for run, values in times.items()
                    if run.startswith(f"{case.split('/')[0]}<{logger}>/{case.split('/')[1]}/"))
    return [Figure(f"Log.log, {title}", "ns", of(case, "QuendaLogger"), "spdlog, asynchronous",
                   of(case, "SpdlogLogger"))
            for case, title in (("oneCaller/1", "one line"), ("oneCaller/1000", "1000 lines"),
                                ("fourCallers/500", "4 callers at once"))]


def transfer(programs: Path, quick: bool) -> list[Figure]:
    rounds = 3 if quick else 5
    count = 200_000_000 if quick else 1_000_000_000
    with transfers.loopback_server() as (base, server), tempfile.TemporaryDirectory() as folder:
        posts, curl_posts = transfers.upload_samples(programs / "post-bench", base, server, rounds,
                                                     folder)
        ours, curl = transfers.download_samples(programs / "download-bench", base, count, rounds,
                                                folder)
    gigabytes = count / 1e9
    return [
        Figure(f"download of {gigabytes:g} GB", "MB/s", [1000 * gigabytes / s[0] for s in ours],
               "curl -o", [1000 * gigabytes / s[0] for s in curl], least_ratio=0.6),
        Figure("download, processor time", "s/GB", [s[1] / gigabytes for s in ours], "curl -o",
               [s[1] / gigabytes for s in curl], most_ratio=2.0),
        Figure("download, growth of memory", "MB", [s[2] / 1024 for s in ours], most=8),
        Figure("post of 5 minutes, to the last byte", "ms", posts, "curl, with its start",
               curl_posts),
    ]
