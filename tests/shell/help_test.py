"""Help on terminals and in pipes: help_test.py PROGRAM FOLDER."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

from terminal import Terminal

PROGRAM = sys.argv[1]
ESCAPE = "\x1b"


def environment(**changes):
    kept = {name: value for name, value in os.environ.items() if name not in ("COLUMNS", "TERM")}
    return {**kept, "LC_ALL": "C.UTF-8", **changes}


def shown(arguments, columns, **changes):
    """What the program shows on a terminal."""
    terminal = Terminal(["sh", "-c", 'stty -onlcr; "$@"; echo END', "sh", PROGRAM, *arguments],
                        environment(**changes), columns)
    try:
        return terminal.wait_for("END\n").removesuffix("END\n")
    finally:
        terminal.close()


def piped(arguments, **changes):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=60,
                          env=environment(**changes)).stdout


def widest(text):
    """But for examples, which stay as they are typed, and the forms of arguments."""
    return max(len(line) for line in text.split("Example:")[0].split("\n"))


class Help(unittest.TestCase):
    def test_it_fits_the_terminal(self):
        for columns in (64, 80, 97):
            for verb in ("convert", "thumb", "play"):
                text = shown([verb, "--help"], columns, TERM="xterm")
                self.assertLessEqual(widest(text), columns, f"{verb} in {columns}")
                self.assertGreater(widest(text), columns - 16, f"{verb} in {columns}")

    def test_narrow_terminals_get_the_texts_below(self):
        self.assertLessEqual(widest(shown(["convert", "--help"], 50, TERM="xterm")), 50)
        self.assertIn("  --keyframes TIME\n      the time", piped(["convert", "--help"], COLUMNS="50"))

    def test_the_environment_says_how_wide(self):
        self.assertEqual(shown(["convert", "--help"], 70, TERM="xterm", COLUMNS="90"),
                         piped(["convert", "--help"], COLUMNS="90"))
        self.assertEqual(piped(["convert", "--help"]), piped(["convert", "--help"], COLUMNS="80"))
        for nonsense in ("", "0", "-3", "wide"):
            self.assertEqual(piped(["--help"], COLUMNS=nonsense), piped(["--help"]))

    def test_there_are_no_escapes_in_help_whatever_the_terminal(self):
        for changes in ({"TERM": "xterm"}, {"TERM": "dumb"}, {"NO_COLOR": "1", "TERM": "xterm"}, {}):
            for arguments in (["--help"], ["info", "--help"], ["effects"]):
                self.assertNotIn(ESCAPE, shown(arguments, 80, **changes))

    def test_a_dumb_terminal_gets_no_bar(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=64x48:d=0.5",
                            "-c:v", "mpeg4", f"{folder}/film.mkv"], check=True, timeout=60)
            for term, has_bar in (("xterm", True), ("dumb", False)):
                terminal = Terminal([PROGRAM, "convert", f"{folder}/film.mkv",
                                     f"{folder}/{term}.mp4"], environment(TERM=term), 80)
                try:
                    while terminal.read(60):
                        pass
                    self.assertEqual(ESCAPE in terminal.output, has_bar, terminal.output)
                    self.assertTrue(os.path.exists(f"{folder}/{term}.mp4"))
                finally:
                    terminal.close()

    def test_a_reader_that_has_seen_enough_is_no_trouble(self):
        result = subprocess.run(["bash", "-c", '"$0" convert --help | head -n 1; echo ${PIPESTATUS[1]}',
                                 PROGRAM], capture_output=True, text=True, timeout=60)
        self.assertEqual(result.stdout, "Convert a movie or sound file into another\n0\n")
        self.assertEqual(result.stderr, "")

    def test_options_stand_below_headings(self):
        text = piped(["convert", "--help"])
        for heading in ("Arguments", "Options", "Picture", "Look", "Sound", "Other streams",
                        "Span and file", "Many files"):
            self.assertRegex(text, rf"\n\n{heading}:\n  ")
        self.assertNotRegex(text, "\n\n\n")
        for option, default in (("--quality", "60"), ("--volume", "1"), ("--angle", "1"),
                                ("--jobs", "1"), ("--deinterlace", "auto")):
            entry = re.search(rf"^  {option} .*\n(?: {{10,}}.*\n)*", text, re.MULTILINE).group()
            self.assertIn(f"(default: {default})", " ".join(entry.split()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
