#!/usr/bin/python3
"""Linux has its own words: every text of the program that names a key, a place or a command of
macOS has a finished translation in the Linux catalogue, and the catalogue names none itself.

    wording_test.py LUPDATE LRELEASE SOURCES CATALOGUE
"""

import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import Optional

LUPDATE, LRELEASE, SOURCES, CATALOGUE = sys.argv[1:5]

FOREIGN = re.compile(r"Mac|macOS|System Settings|Option|Command|Globe|[⌥⌘⌃🌐]|Library/Logs|brew")
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')

Texts = dict[tuple[str, str], Optional[str]]


def texts_of(catalogue: Path) -> Texts:
    """Context and source of every text, with its translation if that is finished."""
    texts: Texts = {}
    for context in ElementTree.parse(catalogue).getroot().iter("context"):
        name = context.findtext("name") or ""
        for message in context.iter("message"):
            translation = message.find("translation")
            done = translation is not None and translation.get("type") is None
            texts[name, message.findtext("source") or ""] = (
                translation.text if done and translation is not None else None)
    return texts


class Wording(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        extracted = cls.folder / "extracted.ts"
        subprocess.run([LUPDATE, "-silent", SOURCES, "-ts", str(extracted)], check=True,
                       stderr=subprocess.DEVNULL)
        cls.sources = texts_of(extracted)
        cls.catalogue = texts_of(Path(CATALOGUE))

    def test_the_texts_are_found_in_the_sources(self) -> None:
        self.assertGreater(len(self.sources), 100)
        self.assertIn(("HotkeyChoice", "Right Option (⌥)"), self.sources)

    def test_every_foreign_text_has_a_linux_one(self) -> None:
        missing = [key for key in self.sources
                   if FOREIGN.search(key[1]) and not self.catalogue.get(key)]
        self.assertEqual(missing, [])

    def test_no_linux_text_is_foreign(self) -> None:
        foreign = [text for text in self.catalogue.values() if FOREIGN.search(text or "")]
        self.assertEqual(foreign, [])

    def test_every_linux_text_has_a_source(self) -> None:
        self.assertEqual([key for key in self.catalogue if key not in self.sources], [])

    def test_no_foreign_text_escapes_translation(self) -> None:
        """Literals with white space are texts; they all have to be among the extracted ones."""
        known = " ".join(source for _, source in self.sources).replace("\n", " ")
        escaped = []
        for file in sorted([*Path(SOURCES, "Quenda").glob("*.cpp"),
                            *Path(SOURCES, "Quenda").glob("*.h"),
                            *Path(SOURCES, "Platform", "Linux").glob("*.cpp")]):
            for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
                if line.lstrip().startswith(("//", "#include")):
                    continue
                for literal in LITERAL.findall(line):
                    text = literal.replace("\\n", " ")
                    if FOREIGN.search(text) and " " in text.strip() and text not in known:
                        escaped.append(f"{file.name}:{number}: {literal}")
        self.assertEqual(escaped, [])

    def test_it_compiles(self) -> None:
        compiled = self.folder / "platform.qm"
        subprocess.run([LRELEASE, "-silent", CATALOGUE, "-qm", str(compiled)], check=True)
        self.assertGreater(compiled.stat().st_size, 100)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
