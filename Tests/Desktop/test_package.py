#!/usr/bin/python3
"""The Debian package is made, judged, installed, used once and removed."""

import os
import re
from pathlib import Path

from desktop_test import DesktopTest, run
from package_install import SystemAlongside, make_package, output


class Package(DesktopTest):
    package: Path

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.package = make_package(cls.desktop.folder / "packed")

    def test_it_follows_the_policy(self) -> None:
        # What the flags of this build leave out (hardening) is a warning; scripts/package --check
        # looks at the build that is shipped and takes warnings for errors.
        output("lintian", "--fail-on", "error", self.package)

    def test_it_says_what_it_needs(self) -> None:
        needed = output("dpkg-deb", "--field", self.package, "Depends")
        for library in ("libc6", "libqt6widgets6", "libqt6svg6", "libpulse0", "libsoxr0",
                        "libxcb-xinput0", "procps"):
            self.assertRegex(needed, rf"(^|, ){re.escape(library)}\b")
        self.assertIn("pulseaudio | pipewire-pulse",
                      output("dpkg-deb", "--field", self.package, "Recommends"))

    def test_it_has_no_scripts_to_go_wrong(self) -> None:
        control = self.desktop.folder / "control"
        output("dpkg-deb", "--control", self.package, control)
        self.assertEqual({file.name for file in control.iterdir()}, {"control", "md5sums"})

    def test_installed_it_dictates_and_removed_it_leaves_nothing(self) -> None:
        system = SystemAlongside(self.desktop.folder / "system")
        self.assertEqual(system.files(), set())
        system.dpkg("--install", self.package)
        self.assertLessEqual({"usr/bin/quenda", "usr/share/man/man1/quenda.1.gz",
                              "usr/share/doc/quenda/copyright"}, system.files())
        self.assertEqual(system.dpkg("--verify", "quenda"), "")

        quenda = self.start_quenda(binary=system.launcher(self.desktop.folder / "installed"))
        self.assertEqual(os.readlink(f"/proc/{quenda.process.pid}/exe"), "/usr/bin/quenda")
        self.dictate()
        self.assertIn("brown fox", self.wait_for_transcript(quenda))
        self.assertEqual(quenda.terminate(), 0)

        system.dpkg("--remove", "quenda")
        self.assertEqual(system.files(), set())
        system.dpkg("--purge", "quenda")
        self.assertNotIn("Package: quenda\n", (system.root / "var/lib/dpkg/status").read_text())
        self.assertEqual(list((system.root / "var/lib/dpkg/info").glob("quenda*")), [])


if __name__ == "__main__":
    run()
