"""Manual pages: manual_test.py PROGRAM FOLDER. `man` and mandoc render them without a warning, and what
they tell is what the help tells."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

PROGRAM, FOLDER = sys.argv[1], pathlib.Path(sys.argv[2])


def run(*arguments):
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80", "COLUMNS": "80",
                   "MAN_KEEP_FORMATTING": "", "MANPAGER": "cat"}
    return subprocess.run(arguments, capture_output=True, text=True, env=environment, timeout=60)


def verbs():
    help_text = run(PROGRAM, "--help").stdout
    return re.findall(r"^  (\w+) ", help_text.split("Verbs:")[1].split("\n\n")[0],
                      re.MULTILINE)


class Manual(unittest.TestCase):
    def pages(self):
        pages = sorted(FOLDER.glob("*.[13]"))
        self.assertEqual({page.name for page in pages},
                         {"kestrel.1", "libkestrelcode.3", *(f"kestrel-{v}.1" for v in verbs())})
        return pages

    @unittest.skipUnless(shutil.which("man"), "man is missing")
    def test_man_renders_every_page_without_a_warning(self):
        for page in self.pages():
            shown = run("man", "--warnings", "-E", "UTF-8", "-l", str(page))
            self.assertEqual((shown.returncode, shown.stderr), (0, ""), page.name)
            self.assertIn("NAME", shown.stdout)

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is missing")
    def test_mandoc_finds_nothing_to_warn_of(self):
        for page in self.pages():
            self.assertEqual(run("mandoc", "-T", "lint", "-W", "warning", str(page)).stdout, "")

    @unittest.skipUnless(shutil.which("man"), "man is missing")
    def test_a_verbs_page_tells_what_its_help_tells(self):
        for verb in verbs():
            page = run("man", "-E", "UTF-8", "-l", str(FOLDER / f"kestrel-{verb}.1")).stdout
            words = " ".join(re.sub(r"-\n\s*|‐\n\s*", "-", re.sub(".\b", "", page)).split())
            help_text = run(PROGRAM, verb, "--help").stdout
            names = re.findall(r"^ {2,6}(?:-\w,)?(--[\w-]+)", help_text, re.MULTILINE)
            self.assertTrue(names)
            for name in names:
                self.assertIn(name, words, f"kestrel {verb}")
            self.assertIn(help_text.split("\n")[0].rstrip("."), words)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
