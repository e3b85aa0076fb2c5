#!/usr/bin/python3
"""A whole dictation on a virtual desktop, for scripts/demo: hold the key, speak, let go, read the
words. Exit status 0 only if the editor's document holds the transcript that the engine answered."""

import argparse
import json
import subprocess
import sys
import time
from pathlib import Path
from typing import Optional

from cloud_service import cloud_settings
from dictation import Dictation, measure
from isolation import isolate
from virtual_desktop import QUENDA_BINARY, RECOGNISER, VirtualDesktop
from waiting import Timeout

SENTENCE = "the quick brown fox jumps over the lazy dog"
PILL_SECONDS = 0.2  # for the result to be drawn before it is photographed


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__)
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--text", default=SENTENCE, help="what to say (default: %(default)s)")
    what.add_argument("--wav", type=Path, metavar="FILE", help="play FILE instead of speaking")
    parser.add_argument("--engine", type=Path, metavar="PATH", help="the whisper-server to use")
    parser.add_argument("--model", type=Path, metavar="FILE", help="its model file")
    parser.add_argument("--provider", choices=("local", "custom"), default="local",
                        help="who transcribes: the program's own engine, or the same recogniser "
                        "as a cloud service that wants a key (default: %(default)s)")
    parser.add_argument("--shots", type=Path, metavar="DIR", help="write screenshots there")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the result there")
    options = parser.parse_args()
    if (options.engine is None) != (options.model is None):
        parser.error("--engine and --model go together")
    if options.provider != "local" and options.engine:
        parser.error("--engine is for --provider local")
    for file in (options.wav, options.engine, options.model):
        if file is not None and not file.is_file():
            parser.error(f"there is no file {file}")
    if not options.text.strip():
        parser.error("there is nothing to say")
    return options


def run(options: argparse.Namespace) -> Dictation:
    shots: Optional[Path] = options.shots
    if shots:
        shots.mkdir(parents=True, exist_ok=True)

    with VirtualDesktop(panel=True) as desktop:
        def shoot(name: str, after: float = 0.0) -> None:
            if shots:
                time.sleep(after)
                desktop.screenshot(shots / name)

        editor = desktop.open_editor()
        if options.provider == "custom":
            service = desktop.start_cloud_service()
            quenda = desktop.start_quenda(engine=desktop.folder / "no-engine", trace=True,
                                          settings=cloud_settings(), answers=service.answers_file)
        else:
            quenda = desktop.start_quenda(
                engine=(options.engine or RECOGNISER).resolve(),
                model=options.model.resolve() if options.model else None, relay=True, trace=True)
        if options.wav:
            wav = desktop.folder / "played.wav"
            subprocess.run(["sox", str(options.wav.resolve()), "-r", "48000", "-c", "2", str(wav)],
                           check=True, stdin=subprocess.DEVNULL)
        else:
            wav = desktop.speech(options.text)
        quenda.wait_for_log(
            "engine: Ready" if options.provider == "local" else "app: launched Quenda",
            seconds=180)
        editor.focus()
        shoot("ready.png")
        result = measure(desktop, quenda, editor, wav,
                         while_speaking=lambda: shoot("recording.png"),
                         when_pasted=lambda: shoot("pasted.png", PILL_SECONDS))
        quenda.terminate()
        quenda.wait_until_engine_gone()
        return result


def show(said: str, result: Dictation) -> None:
    first = result.key_to_first_sample_ms
    print(f"said      {said}\n"
          f"heard     {result.transcript}\n"
          f"document  {result.document.strip()}\n\n"
          f"key press to first sample  {'not known' if first is None else f'{first:8.1f} ms'}\n"
          f"release to text            {result.release_to_text_ms:8.1f} ms\n"
          f"  of it the engine         {result.engine_ms:8.1f} ms\n"
          f"  of it everything else    {result.overhead_ms:8.1f} ms")


def main() -> int:
    options = parse()
    for program in (QUENDA_BINARY, RECOGNISER):
        if not program.is_file():
            sys.exit(f"demo: {program} is not built")
    isolate()
    said = str(options.wav) if options.wav else options.text
    try:
        result = run(options)
    except Timeout as failure:
        print(f"demo: {failure}", file=sys.stderr)
        return 1
    show(said, result)
    if options.json:
        options.json.write_text(json.dumps({
            "said": said, "transcript": result.transcript, "document": result.document,
            "key_to_first_sample_ms": result.key_to_first_sample_ms,
            "release_to_text_ms": result.release_to_text_ms, "engine_ms": result.engine_ms,
            "overhead_ms": result.overhead_ms}, indent=2, ensure_ascii=False) + "\n",
            encoding="utf-8")
    if not result.arrived:
        print("demo: the document does not hold what the engine answered", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
