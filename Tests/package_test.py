#!/usr/bin/python3
"""Looks at every file that an installation brings: package_test.py BUILD_FOLDER

Installs the build to a folder of its own, or takes the prefix that QUENDA_TREE names, such as the
`usr` of an unpacked package. Each format is judged by its own validator.
"""

import gzip
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as xml
from configparser import RawConfigParser
from pathlib import Path

import yaml

REPOSITORY = Path(__file__).resolve().parents[1]
BUILD = Path(sys.argv.pop(1)) if len(sys.argv) > 1 else REPOSITORY / "build" / "dev"
COMMANDS = {"start", "stop", "toggle", "cancel", "retry", "status", "history", "settings",
            "welcome", "about", "quit"}
ENTRY = "share/applications/org.quenda.Quenda.desktop"
METAINFO = "share/metainfo/org.quenda.Quenda.metainfo.xml"
AUTOSTART = "share/quenda/autostart/org.quenda.Quenda.desktop"
UNIT = "lib/systemd/user/quenda.service"
RULES = "share/quenda/udev/70-quenda-input.rules"
ICONS = ("share/icons/hicolor/scalable/apps/org.quenda.Quenda.svg",
         "share/icons/hicolor/symbolic/apps/org.quenda.Quenda-symbolic.svg")
BASH = "share/bash-completion/completions/quenda"
FISH = "share/fish/vendor_completions.d/quenda.fish"


def run(*command: "str | Path", **options: object) -> "subprocess.CompletedProcess[str]":
    return subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, text=True,
                          capture_output=True, timeout=60, check=False, **options)


def setting(name: str) -> str:
    """A variable of the build's cache."""
    found = re.search(rf"^{name}(?::\w+)?=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.M)
    return found.group(1) if found else ""


class Installed(unittest.TestCase):
    prefix: Path
    scratch: Path

    @classmethod
    def setUpClass(cls) -> None:
        cls.scratch = Path(tempfile.mkdtemp(prefix="quenda-package."))
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        given = os.environ.get("QUENDA_TREE")
        if given:
            cls.prefix = Path(given).resolve()
            return
        cls.prefix = cls.scratch / "prefix"
        done = run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        assert done.returncode == 0, done.stdout + done.stderr

    def text(self, file: str) -> str:
        return (self.prefix / file).read_text(encoding="utf-8")

    def manual(self) -> Path:
        """The manual page, unpacked."""
        page = self.prefix / "share/man/man1/quenda.1"
        packed = page.with_name("quenda.1.gz")
        if packed.exists():
            page = self.scratch / "quenda.1"
            page.write_bytes(gzip.decompress(packed.read_bytes()))
        return page

    def zsh(self) -> Path:
        return next((self.prefix / "share/zsh").glob("*/_quenda"))

    def broken(self, file: "str | Path", right: str, wrong: str) -> Path:
        """A copy of the file with a mistake in it."""
        source = self.prefix / file
        text = source.read_text(encoding="utf-8")
        self.assertIn(right, text)
        copy = self.scratch / "broken" / source.name
        copy.parent.mkdir(exist_ok=True)
        copy.write_text(text.replace(right, wrong, 1), encoding="utf-8")
        return copy

    def assert_accepts(self, *command: "str | Path") -> None:
        done = run(*command)
        self.assertEqual(done.returncode, 0, f"{command}\n{done.stdout}{done.stderr}")

    def assert_refuses(self, *command: "str | Path") -> None:
        self.assertNotEqual(run(*command).returncode, 0, f"{command} found nothing")

    # The program

    def test_program_is_there_and_needs_no_folder_of_the_build(self) -> None:
        program = self.prefix / "bin/quenda"
        self.assertTrue(os.access(program, os.X_OK))
        dynamic = run("readelf", "-d", program).stdout
        self.assertIn("(NEEDED)", dynamic)
        self.assertNotRegex(dynamic, r"R(UN)?PATH")

    def test_nothing_else_is_installed(self) -> None:
        known = {"bin/quenda", ENTRY, METAINFO, AUTOSTART, UNIT, RULES, *ICONS, BASH, FISH,
                 str(self.zsh().relative_to(self.prefix))}
        expected = re.compile(r"share/(man/man1/quenda\.1|doc/quenda/|lintian/overrides/quenda|"
                              r"dbus-1/interfaces/org\.quenda\.Quenda\.xml)|lib/quenda/bin/")
        found = {str(file.relative_to(self.prefix)) for file in self.prefix.rglob("*")
                 if not file.is_dir()}
        self.assertEqual(known - found, set())
        self.assertEqual([file for file in sorted(found - known) if not expected.match(file)], [])

    # Desktop

    def test_desktop_entry(self) -> None:
        self.assert_accepts("desktop-file-validate", self.prefix / ENTRY)
        entry = RawConfigParser(delimiters=("=",))
        entry.optionxform = str  # type: ignore[assignment,method-assign]
        entry.read_string(self.text(ENTRY))
        actions = [name for name in entry["Desktop Entry"]["Actions"].split(";") if name]
        for action in actions:
            program, command = entry[f"Desktop Action {action}"]["Exec"].split()
            self.assertEqual(program, "quenda")
            self.assertIn(command, COMMANDS)
        icon = entry["Desktop Entry"]["Icon"]
        for file in ICONS:
            self.assertTrue(Path(file).stem.startswith(icon))
        self.assert_refuses("desktop-file-validate",
                            self.broken(ENTRY, "Type=Application", "Type=Program"))

    def test_autostart_example(self) -> None:
        self.assert_accepts("desktop-file-validate", self.prefix / AUTOSTART)
        self.assertIn("\nExec=quenda\n", self.text(AUTOSTART))

    def test_metainfo(self) -> None:
        self.assert_accepts("appstreamcli", "validate", "--no-net", self.prefix / METAINFO)
        component = xml.fromstring(self.text(METAINFO))
        self.assertEqual(component.findtext("launchable"), Path(ENTRY).name)
        release = component.find("releases/release")
        assert release is not None
        self.assertEqual(release.get("version"), setting("CMAKE_PROJECT_VERSION"))
        self.assert_refuses("appstreamcli", "validate", "--no-net",
                            self.broken(METAINFO, "<id>org.quenda.Quenda</id>", ""))

    def test_icons(self) -> None:
        for file in ICONS:
            self.assert_accepts("xmllint", "--noout", self.prefix / file)
            picture = xml.fromstring(self.text(file))
            self.assertTrue(picture.tag.endswith("svg"))
            _, _, width, height = picture.attrib["viewBox"].split()
            self.assertEqual(width, height)
        # A symbolic icon is drawn in the desktop's own colour, so it has but one.
        colours = set(re.findall(r'(?:fill|stroke)="(?!none)([^"]+)"', self.text(ICONS[1])))
        self.assertEqual(len(colours), 1)

    def test_dbus_interface(self) -> None:
        for file in (self.prefix / "share/dbus-1").rglob("*.xml"):
            self.assert_accepts("xmllint", "--noout", "--nonet", file)
            names = [node.get("name") for node in xml.parse(file).getroot().iter("interface")]
            self.assertIn("org.quenda.Quenda", names)

    # System

    def unit(self, file: Path) -> Path:
        """A copy of the unit that names this tree's own program."""
        text = file.read_text(encoding="utf-8")
        named = re.search(r'^ExecStart="(.+)"$', text, re.M)
        assert named is not None
        copy = self.scratch / "unit" / "quenda.service"
        copy.parent.mkdir(exist_ok=True)
        copy.write_text(text.replace(named.group(1), str(self.prefix / "bin/quenda")),
                        encoding="utf-8")
        return copy

    def test_unit(self) -> None:
        named = "/usr" if "QUENDA_TREE" in os.environ else self.prefix
        self.assertIn(f'ExecStart="{named}/bin/quenda"\n', self.text(UNIT))
        verify = ("systemd-analyze", "--user", "--man=no", "--recursive-errors=no", "verify")
        runtime = os.environ | {"XDG_RUNTIME_DIR": str(self.scratch)}
        good = run(*verify, self.unit(self.prefix / UNIT), env=runtime)
        self.assertEqual((good.returncode, good.stderr), (0, ""))
        bad = run(*verify, self.unit(self.broken(UNIT, "Restart=on-failure", "Restart=perhaps")),
                  env=runtime)
        self.assertIn("Failed to parse", bad.stderr)

    def test_udev_rule_is_well_formed_and_not_in_force(self) -> None:
        part = r'(ENV\{\w+\}|ACTION|SUBSYSTEM|KERNEL|TAG|OPTIONS|GOTO|LABEL)(==|\+=|=)"[^"]+"'
        lines = [line for line in self.text(RULES).splitlines() if line and line[0] != "#"]
        for line in lines:
            self.assertRegex(line, rf"^{part}(, {part})*$")
        labels = re.findall(r'LABEL="(\w+)"', "\n".join(lines))
        self.assertEqual(re.findall(r'GOTO="(\w+)"', "\n".join(lines)), labels)
        self.assertLess(int(Path(RULES).name[:2]), 73)  # where the tag is acted upon
        self.assertEqual(list(self.prefix.rglob("rules.d")), [])

    # Manual and completions

    def test_manual(self) -> None:
        self.assert_accepts("mandoc", "-T", "lint", "-W", "warning", self.manual())
        page = run("man", "--warnings", "--local-file", self.manual(),
                   env=os.environ | {"LC_ALL": "C.UTF-8", "MANWIDTH": "80", "MANROFFSEQ": ""})
        self.assertEqual((page.returncode, page.stderr), (0, ""))
        described = set(re.findall(r"^\.It Cm (\w+)", self.manual().read_text(), re.M))
        self.assertEqual(described, COMMANDS)
        self.assertIn(setting("CMAKE_PROJECT_VERSION"), page.stdout)
        self.assert_refuses("mandoc", "-T", "lint", "-W", "warning",
                            self.broken(self.manual(), ".Sh FILES", ".Bogus FILES"))

    def bash_offers(self, *words: str) -> set[str]:
        script = ('. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _quenda; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        done = run("bash", "--norc", "-c", script, "bash", self.prefix / BASH, *words)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return set(done.stdout.split())

    def test_bash_completions(self) -> None:
        options = {"-h", "--help", "-v", "--version"}
        self.assertEqual(self.bash_offers("quenda", ""), COMMANDS | options)
        self.assertEqual(self.bash_offers("quenda", "st"), {"start", "stop", "status"})
        self.assertEqual(self.bash_offers("quenda", "status", ""), {"--json"})
        self.assertEqual(self.bash_offers("quenda", "history", "--copy", "1"), {"1", "10"})
        self.assertEqual(self.bash_offers("quenda", "quit", ""), set())
        self.assert_refuses("bash", "-n", self.broken(BASH, "esac", ""))

    def fish_offers(self, line: str) -> set[str]:
        done = run("fish", "--no-config", "--command",
                   'source $argv[1]; complete --do-complete $argv[2]', self.prefix / FISH, line,
                   env=os.environ | {"HOME": str(self.scratch), "LC_ALL": "C.UTF-8"})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return {offer.split("\t")[0] for offer in done.stdout.splitlines()}

    def test_fish_completions(self) -> None:
        self.assertEqual(self.fish_offers("quenda "), COMMANDS)
        self.assertLessEqual({"--help", "--version"}, self.fish_offers("quenda --"))
        self.assertEqual(self.fish_offers("quenda status --"), {"--json"})
        self.assertEqual(self.fish_offers("quenda history --copy 1"), {"1", "10"})

    def zsh_offers(self, line: str, last: str) -> str:
        """What an interactive shell shows when Tab is pressed after the line, up to `last`."""
        script = """
            zmodload zsh/zpty
            zpty shell zsh -f -i
            zpty -w shell "stty -echo; PS1=; fpath=(${(q)1:h} \\$fpath); autoload -Uz compinit"
            zpty -w shell "compinit -u -D; bindkey '^I' list-choices; print REA''DY"
            zpty -r -m shell seen '*READY*'
            zpty -w -n shell "$2"$'\t'
            zpty -r -m shell seen "*$3*"
            print -r -- "$seen"
        """
        done = run("zsh", "-f", "-c", script, "zsh", self.zsh(), line, last,
                   env=os.environ | {"HOME": str(self.scratch), "TERM": "dumb", "COLUMNS": "100",
                                     "LC_ALL": "C.UTF-8"})
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def test_zsh_completions(self) -> None:
        self.assert_accepts("zsh", "-n", self.zsh())
        self.assertEqual(set(re.findall(r"^    '(\w+):", self.zsh().read_text(), re.M)), COMMANDS)
        offered = self.zsh_offers("quenda st", "-- finish, recognise and paste")
        self.assertEqual(re.findall(r"(\w+) +-- ", offered), ["start", "status", "stop"])
        self.assertIn("10", self.zsh_offers("quenda history --copy 1", "10"))
        self.assert_refuses("zsh", "-n", self.broken(self.zsh(), "esac", ""))

    # What cannot be built here

    def test_flatpak_manifest(self) -> None:
        folder = REPOSITORY / "Packaging/Linux/flatpak"
        manifest = yaml.safe_load((folder / "org.quenda.Quenda.yml").read_text(encoding="utf-8"))
        self.assertEqual(manifest["id"], Path(ENTRY).stem)
        self.assertEqual(manifest["command"], "quenda")
        self.assertLessEqual({"--socket=x11", "--socket=pulseaudio", "--share=network",
                              "--own-name=org.quenda.Quenda"}, set(manifest["finish-args"]))
        self.assertEqual(manifest["modules"][-1]["name"], "quenda")
        for module in manifest["modules"]:
            for option in module["config-opts"]:
                self.assertRegex(option, r"^-D\w+=")
            for source in module["sources"]:
                if source["type"] == "archive":
                    self.assertRegex(source["sha256"], "^[0-9a-f]{64}$")
                elif source["type"] == "git":
                    self.assertIn("tag", source)
                else:
                    self.assertTrue((folder / source["path"] / "CMakeLists.txt").is_file())


if __name__ == "__main__":
    unittest.main(verbosity=2)
