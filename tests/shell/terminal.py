"""A program on a terminal of its own, typed on and looked at."""

import fcntl
import os
import pty
import select
import signal
import struct
import termios
import time

PATIENCE = 60  # seconds for something that is sure to come


class Terminal:
    def __init__(self, arguments, environment, columns=200, rows=60):
        self.pid, self.file = pty.fork()
        if self.pid == 0:
            os.execvpe(arguments[0], arguments, environment)
        fcntl.ioctl(self.file, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.output = ""

    def type(self, text):
        os.write(self.file, text.encode())

    def read(self, seconds):
        """Takes what is shown within so many seconds; whether anything was, and the program lives."""
        if not select.select([self.file], [], [], seconds)[0]:
            return False
        try:
            data = os.read(self.file, 65536)
        except OSError:  # it has ended
            return False
        self.output += data.decode(errors="replace")
        return bool(data)

    def wait_for(self, text):
        """Answers all that was shown up to and with a text, and forgets it."""
        end = time.monotonic() + PATIENCE
        while text not in self.output:
            if time.monotonic() > end:
                raise TimeoutError(f"no {text!r} in {self.output!r}")
            self.read(0.5)
        at = self.output.index(text) + len(text)
        seen, self.output = self.output[:at], self.output[at:]
        return seen

    def close(self):
        try:
            os.kill(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        os.close(self.file)
        os.waitpid(self.pid, 0)
