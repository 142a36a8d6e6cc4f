"""Completion in real shells, each typed on through a terminal: completion_test.py PROGRAM FOLDER."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from terminal import Terminal

PROGRAM, FOLDER = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
READY = "READY>"


class Shell:
    """A shell that is ready to be typed on."""

    def __init__(self, folder):
        self.folder = folder
        self.home = tempfile.TemporaryDirectory()
        self.terminal = Terminal(self.command(), {
            "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}", "HOME": self.home.name,
            "TERM": "xterm", "LC_ALL": "C.UTF-8", "XDG_CONFIG_HOME": f"{self.home.name}/config",
            "LD_LIBRARY_PATH": os.environ.get("LD_LIBRARY_PATH", "")})
        for line in self.setup():
            self.terminal.type(line + "\r")

    def close(self):
        self.terminal.close()
        self.home.cleanup()


class Bash(Shell):
    name = "bash"
    library = "/usr/share/bash-completion/bash_completion"

    def command(self):
        return ["bash", "--norc", "--noprofile", "-i"]

    def setup(self):
        return [f"source {self.library}; source '{FOLDER}/kestrel.bash'",
                f"cd '{self.folder}'; bind 'set show-all-if-ambiguous on'; "
                "bind 'set page-completions off'; bind 'set completion-query-items 0'; "
                "bind 'set enable-bracketed-paste off'; PS1='RE''ADY>'"]


class Zsh(Shell):
    name = "zsh"

    def command(self):
        return ["zsh", "-f", "-i"]

    def setup(self):
        return [f"fpath=('{FOLDER}' $fpath); autoload -Uz compinit; compinit -u -D; cd '{self.folder}'",
                "zstyle ':completion:*' list-prompt ''; setopt NO_ALWAYS_LAST_PROMPT NO_BEEP; "
                "LISTMAX=1000; setopt AUTO_LIST NO_LIST_AMBIGUOUS; unset zle_bracketed_paste; "
                "PS1='RE''ADY>'; PS2=''; RPS1=''"]


def offered_by_fish(folder, line):
    """fish tells by itself what it would offer."""
    result = subprocess.run(
        ["fish", "--no-config", "-c",
         f"source '{FOLDER}/kestrel.fish'; complete --do-complete $argv[1]", line],
        capture_output=True, text=True, timeout=120, cwd=folder,
        env={**os.environ, "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}", "HOME": str(folder)})
    return {offer.split("\t")[0] for offer in result.stdout.splitlines()}, result.stderr


def offered_by_shell(shell, line):
    """What a shell shows behind a line when Tab is typed: a list, or the one choice in its place."""
    terminal = shell.terminal
    terminal.wait_for(READY)
    terminal.type(line + "\t")
    # Whatever is there is thrown away, and what comes behind it tells that the list is whole.
    terminal.type("\x15")
    terminal.type("echo D''ONE\r")
    text = terminal.wait_for("DONE\r\n")
    text = re.sub(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[=>]", "", text)
    return text


EXPECTED = [
    # What is typed, what has to be offered, what must not be.
    ("kestrel co", {"convert", "compare", "compose"}, {"join", "complete"}),
    ("kestrel help t", {"thumb"}, {"convert"}),
    ("kestrel thumb --s", {"--size", "--sheet", "--sprites"}, {"--video-codec"}),
    ("kestrel convert --zoom f", {"fit", "fill-width"}, {"stretch", "film.mkv"}),
    ("kestrel convert --zoom ", {"stretch", "16:9", "4:3"}, {"film.mkv"}),
    ("kestrel convert --effect C", {"Classical"}, {"film.mkv"}),
    ("kestrel convert --preset web-", {"web-1080p", "web-720p"}, {"phone"}),
    ("kestrel encoders libx26", {"libx264"}, {"aac"}),
    ("kestrel convert --audio-codec a", {"aac", "auto"}, {"libx264"}),
    ("kestrel convert --video-codec libx264 --encoder-preset ultra", {"ultrafast"}, {"slow"}),
    ("kestrel convert film.mkv out.mp4 --audio-tracks ", {"deu", "fra", "all"}, set()),
    ("kestrel presets ph", {"phone"}, {"web-720p"}),
    ("kestrel info fi", {"film.mkv"}, set()),
    ("kestrel compare --metric ss", {"ssimulacra2", "ssim"}, {"psnr"}),
]


class Completion(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.kept = tempfile.TemporaryDirectory()
        cls.folder = pathlib.Path(cls.kept.name)
        subprocess.run(
            ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=64x48:d=0.2", "-f", "lavfi",
             "-i", "sine=d=0.2", "-map", "0", "-map", "1", "-map", "1",
             "-metadata:s:a:0", "language=deu", "-metadata:s:a:1", "language=fra",
             "-c:v", "mpeg4", "-c:a", "flac", str(cls.folder / "film.mkv")], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.kept.cleanup()

    def look(self, shell, expected):
        for line, offered, others in expected:
            text = offered_by_shell(shell, line)
            shown = re.split(r"[\s:]+|READY>", text.split("echo D''ONE")[0])
            with self.subTest(line=line, text=text):
                for word in offered:
                    last = word.split(":")[-1]
                    self.assertTrue(word in shown or last in shown, word)
                for word in others:
                    self.assertNotIn(word, shown)

    def complete_in(self, kind):
        shell = kind(self.folder)
        try:
            self.look(shell, EXPECTED)
        finally:
            shell.close()

    def test_bash(self):
        self.complete_in(Bash)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is missing")
    def test_zsh(self):
        self.complete_in(Zsh)

    @unittest.skipUnless(shutil.which("fish"), "fish is missing")
    def test_fish(self):
        for line, offered, others in EXPECTED:
            with self.subTest(line=line):
                words, errors = offered_by_fish(self.folder, line)
                self.assertEqual(errors, "")
                self.assertLessEqual(offered, words)
                self.assertFalse(others & words)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
