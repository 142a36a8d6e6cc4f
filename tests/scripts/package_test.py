"""What can be told of the packages without making them."""

import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEBIAN = ROOT / "packaging/debian"


def said_by(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True, timeout=60).stdout


class Package(unittest.TestCase):
    def test_one_place_has_the_version(self):
        version = said_by(ROOT / "packaging/version").strip()
        self.assertRegex(version, r"^\d+\.\d+\.\d+$")
        newest = re.search(r"^## (\S+) \(", (ROOT / "CHANGELOG.md").read_text(), re.MULTILINE)
        self.assertEqual(newest[1], version)

    def test_the_changes_are_debians_changelog(self):
        said = said_by(ROOT / "packaging/debian-changelog")
        version = said_by(ROOT / "packaging/version").strip()
        self.assertTrue(said.startswith(f"kestrelcode ({version}) bookworm; urgency=medium\n"))
        maintainer = re.search(r"^Maintainer: (.*)$", (DEBIAN / "control").read_text(), re.MULTILINE)
        self.assertIn(f"\n -- {maintainer[1]}  ", said)
        self.assertLessEqual(max(map(len, said.splitlines())), 100)

    def test_the_scripts_know_what_the_packages_are_built_with(self):
        control = (DEBIAN / "control").read_text()
        needs = re.search(r"^Build-Depends:\n((?: .*\n)*)", control, re.MULTILINE)[1]
        scripts = [(ROOT / "scripts" / name).read_text() for name in ("setup", "package")]
        for package in re.findall(r"^ ([a-z0-9.+-]+)", needs, re.MULTILINE):
            if package != "debhelper-compat":
                self.assertRegex("\n".join(scripts), rf"(?m)(?<![\w-]){re.escape(package)}(?![\w-])")

    def test_every_package_has_its_files(self):
        packages = re.findall(r"^Package: (\S+)$", (DEBIAN / "control").read_text(), re.MULTILINE)
        for package in packages:
            self.assertTrue(list(DEBIAN.glob(f"{package}.install")) or
                            list(DEBIAN.glob(f"{package}.docs")), package)


if __name__ == "__main__":
    unittest.main()
