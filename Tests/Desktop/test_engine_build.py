#!/usr/bin/python3
"""The engine that comes with the program: built from a folder, from a checked archive or taken as it
is, installed, and found there by the installed program. Nothing of it needs the network."""

import hashlib
import os
import shutil
import subprocess
import tarfile
import tempfile
import unittest
from pathlib import Path

from desktop_test import DesktopTest, run
from engine_build import EngineProject, make_sources
from processes import running
from virtual_desktop import BUILD, RECOGNISER

SERVER = "lib/quenda/bin/whisper-server"
VAD_MODEL = "lib/quenda/bin/ggml-silero-v5.1.2.bin"
RECOGNISER_IS_ENGINE = f"-DENGINE_PROGRAM={RECOGNISER}"


class Building(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="quenda-engine."))
        self.addCleanup(shutil.rmtree, self.folder)
        self.project = EngineProject(self.folder / "project")

    def sources(self) -> Path:
        return make_sources(self.folder / "whisper.cpp-1.7.6")

    def archive(self) -> Path:
        file = self.folder / "v1.7.6.tar.gz"
        with tarfile.open(file, "w:gz") as archive:
            archive.add(self.sources(), "whisper.cpp-1.7.6")
        return file

    def assert_runs(self, server: Path) -> None:
        """The engine was built with the arguments that were passed on."""
        said = subprocess.run([str(server), "from the engine"], text=True, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=10, check=True)
        self.assertEqual(said.stdout, "from the engine\n")

    def test_from_a_folder_of_sources(self) -> None:
        model = self.folder / "silero.bin"
        model.write_bytes(b"a model")
        prefix = self.project.install(QUENDA_WHISPER_SOURCE=self.sources(),
                                      QUENDA_WHISPER_ARGUMENTS="-DENGINE_PROGRAM=/bin/echo",
                                      QUENDA_VAD_MODEL=model)
        self.assert_runs(prefix / SERVER)
        self.assertEqual((prefix / VAD_MODEL).read_bytes(), b"a model")
        self.assertFalse(os.access(prefix / VAD_MODEL, os.X_OK))
        self.assertIn("licence of the engine",
                      (prefix / "share/doc/quenda/copyright.whisper.cpp").read_text())
        # The program that was only built looks beside itself, too.
        self.assert_runs(self.project.build / SERVER)

    def test_from_an_archive_that_is_the_one_expected(self) -> None:
        archive = self.archive()
        prefix = self.project.install(
            QUENDA_BUILD_WHISPER="ON", QUENDA_WHISPER_URL=archive.as_uri(),
            QUENDA_WHISPER_SHA256=hashlib.sha256(archive.read_bytes()).hexdigest().upper(),
            QUENDA_WHISPER_ARGUMENTS="-DENGINE_PROGRAM=/bin/echo")
        self.assert_runs(prefix / SERVER)
        self.assertFalse((prefix / VAD_MODEL).exists())

    def test_archive_that_is_another_is_not_built(self) -> None:
        done = self.project.configure(
            QUENDA_BUILD_WHISPER="ON", QUENDA_WHISPER_URL=self.archive().as_uri(),
            QUENDA_WHISPER_SHA256="0" * 64)
        self.assertEqual(done.returncode, 0, done.stdout)
        done = self.project.make()
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("hash", done.stdout.lower())
        self.assertFalse((self.project.build / SERVER).exists())

    def test_archive_is_never_taken_unchecked(self) -> None:
        for digest in ("", "0" * 63, "g" * 64):
            done = self.project.configure(QUENDA_BUILD_WHISPER="ON",
                                          QUENDA_WHISPER_SHA256=digest)
            self.assertNotEqual(done.returncode, 0)
            self.assertIn("QUENDA_WHISPER_SHA256", done.stdout)

    def test_program_that_was_built_already(self) -> None:
        prefix = self.project.install(QUENDA_WHISPER_SERVER="/bin/echo")
        self.assert_runs(prefix / SERVER)

    def test_what_is_not_there_is_said_at_once(self) -> None:
        for option in ("QUENDA_WHISPER_SERVER", "QUENDA_WHISPER_SOURCE", "QUENDA_VAD_MODEL"):
            done = EngineProject(self.folder / option).configure(
                **{option: self.folder / "nothing"})
            self.assertNotEqual(done.returncode, 0, option)
            self.assertIn(str(self.folder / "nothing"), done.stdout)

    def test_nothing_is_asked_for(self) -> None:
        prefix = self.project.install()
        self.assertEqual([file for file in prefix.rglob("*") if not file.is_dir()], [])


class Installed(DesktopTest):
    def test_installed_program_finds_the_engine_beside_it(self) -> None:
        model = self.desktop.folder / "silero.bin"
        model.write_bytes(b"a model")
        project = EngineProject(self.desktop.folder / "project")
        prefix = project.install(
            QUENDA_WHISPER_SOURCE=make_sources(self.desktop.folder / "sources"),
            QUENDA_WHISPER_ARGUMENTS=RECOGNISER_IS_ENGINE, QUENDA_VAD_MODEL=model)
        subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(prefix)], check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        quenda = self.start_quenda(binary=prefix / "bin/quenda", engine="", relay=False)
        engine = str(prefix / SERVER)
        commands = [command for command in running(engine).values()
                    if command.startswith(engine)]
        self.assertEqual(len(commands), 1)
        self.assertTrue(commands[0].endswith(f" --vad --vad-model {prefix / VAD_MODEL}"))

        self.dictate()
        words = self.editor.wait_for_insertion(self._changes, 60).text
        self.assertIn("brown fox", words)
        quenda.wait_for_log(f"→ {len(words)} chars in ")
        self.assertEqual(quenda.terminate(), 0)
        self.assertEqual(running(engine), {})


if __name__ == "__main__":
    run()
