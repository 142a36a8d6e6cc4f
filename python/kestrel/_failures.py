"""What the engine raises when a call cannot do what it was asked for."""


class Error(Exception):
    """The base of the others; its text is one sentence without a full stop.

    `subject` is what it is about: a file's path, or the name of a setting.
    """

    def __init__(self, message="", subject=""):
        super().__init__(message)
        self.message = message
        self.subject = subject

    def __str__(self):
        return self.message

    def __reduce__(self):
        return type(self), (self.message, self.subject)


class SettingsError(Error, ValueError):
    """The settings contradict each other, or do not fit the input."""


class InputError(Error, OSError):
    """An input cannot be opened or read, or has nothing of what is asked for."""


class OutputError(Error, OSError):
    """The target cannot be written, or cannot hold what was meant for it."""


class ExistsError(OutputError, FileExistsError):
    """There is a file at the target already, and it may not be replaced."""


class Interrupted(Error):
    """The work was ended before it was done."""
