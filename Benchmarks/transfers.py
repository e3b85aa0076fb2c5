#!/usr/bin/env python3
"""Measures downloads and uploads on the loopback interface beside curl, in one run.

  transfers.py BUILD-FOLDER [--rounds N] [--bytes N] [--json FILE]

BUILD-FOLDER holds benchmarks/download-bench and benchmarks/post-bench. Prints a table of medians,
each beside its yardstick; with --json writes the same as an object.
"""

import argparse
import contextlib
import json
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
FIVE_MINUTES = 44 + 2 * 16000 * 300  # bytes of the WAV file


def children_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def curl_download(url, path):
    started, before = time.monotonic(), children_seconds()
    subprocess.run(["curl", "-s", "-f", "-o", path, url], check=True)
    return time.monotonic() - started, children_seconds() - before


def our_download(program, url, folder):
    out = subprocess.run([program, url, folder, "model"], check=True, capture_output=True, text=True)
    wall, processor, growth = out.stdout.split()
    return float(wall), float(processor), int(growth)


def download_samples(program, base, count, rounds, folder):
    """Ours and curl's, by turns: (seconds, processor seconds) and, of ours, growth in kB."""
    url = f"{base}/bytes/{count}"
    curl, ours = [], []
    for _ in range(rounds):
        path = os.path.join(folder, "curl")
        curl.append(curl_download(url, path))
        os.remove(path)
        ours.append(our_download(program, url, folder))
        os.remove(os.path.join(folder, "model"))
    return ours, curl


def measure_downloads(program, base, count, rounds, folder):
    ours, curl = download_samples(program, base, count, rounds, folder)
    gigabytes = count / 1e9

    def middle(samples, column):
        return statistics.median(sample[column] for sample in samples)

    return {
        "download_mb_s": count / 1e6 / middle(ours, 0),
        "curl_download_mb_s": count / 1e6 / middle(curl, 0),
        "download_cpu_s_per_gb": middle(ours, 1) / gigabytes,
        "curl_download_cpu_s_per_gb": middle(curl, 1) / gigabytes,
        "download_memory_growth_kb": max(sample[2] for sample in ours),
    }


def upload_samples(program, base, server, rounds, folder):
    """Ours and curl's milliseconds to the last byte of five minutes of sound."""
    out = subprocess.run(
        [program, f"{base}/v1", str(rounds)], check=True, capture_output=True, text=True
    )
    ours = []
    for started in map(int, out.stdout.split()):
        _, _, last = map(int, server.stdout.readline().split())
        ours.append((last - started) / 1e6)
    path = os.path.join(folder, "audio.wav")
    with open(path, "wb") as file:
        file.write(bytes(FIVE_MINUTES))
    curl = []
    for _ in range(rounds):
        started = time.monotonic_ns()
        subprocess.run(
            ["curl", "-s", "-f", "-o", "/dev/null", "-F", "model=whisper-1",
             "-F", "response_format=json", "-F", f"file=@{path};type=audio/wav",
             f"{base}/v1/audio/transcriptions"],
            check=True,
        )
        _, _, last = map(int, server.stdout.readline().split())
        curl.append((last - started) / 1e6)
    return ours, curl


def measure_uploads(program, base, server, rounds, folder):
    ours, curl = upload_samples(program, base, server, rounds, folder)
    return {
        "post_last_byte_ms": statistics.median(ours),
        "curl_post_last_byte_ms": statistics.median(curl),
    }


@contextlib.contextmanager
def loopback_server():
    """The server's address and process, as long as it is wanted."""
    server = subprocess.Popen(
        [sys.executable, HERE / "loopback_server.py"],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
    )
    try:
        yield f"http://127.0.0.1:{int(server.stdout.readline())}", server
    finally:
        server.stdin.close()
        server.wait()


def show(figures):
    rows = [
        ("download, MB/s", "download_mb_s", "curl_download_mb_s", "at least 0.6 of curl's"),
        ("download, processor s/GB", "download_cpu_s_per_gb", "curl_download_cpu_s_per_gb",
         "at most twice curl's"),
        ("5 minutes of sound, ms to the last byte", "post_last_byte_ms", "curl_post_last_byte_ms",
         "curl's counts its start"),
    ]
    print(f"{'':42}{'Quenda':>10}{'curl':>10}{'ratio':>8}  wanted")
    for title, ours, curl, wanted in rows:
        ratio = figures[ours] / figures[curl]
        print(f"{title:42}{figures[ours]:10.2f}{figures[curl]:10.2f}{ratio:8.2f}  {wanted}")
    growth = figures["download_memory_growth_kb"] / 1024
    print(f"{'download, memory growth, MB':42}{growth:10.2f}{'':18}  at most 8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--bytes", type=int, default=1_000_000_000)
    parser.add_argument("--json", type=pathlib.Path)
    options = parser.parse_args()
    programs = options.build / "benchmarks"
    with loopback_server() as (base, server), tempfile.TemporaryDirectory() as folder:
        figures = measure_uploads(programs / "post-bench", base, server, options.rounds, folder)
        figures |= measure_downloads(
            programs / "download-bench", base, options.bytes, options.rounds, folder
        )
    show(figures)
    if options.json:
        options.json.write_text(json.dumps(figures, indent=2) + "\n")


if __name__ == "__main__":
    main()
