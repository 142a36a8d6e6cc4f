"""Runs programs, counts what they took and prints it side by side."""

import os
import signal
import statistics
import subprocess
import sys
import time
from collections import namedtuple

# What one run took: seconds, seconds, bytes at the peak. As targets: the most that our figure may
# be of the peer's, None for no matter.
Usage = namedtuple("Usage", "wall cpu memory")

UNITS = Usage(("wall time", 1, "s"), ("CPU time", 1, "s"), ("peak memory", 1e-6, "MB"))


class Failure(Exception):
    """Something that makes a measurement impossible or void."""


def say(text):
    """Tells a terminal what goes on; "" wipes it away."""
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def describe_machine():
    load = os.getloadavg()[0]
    print(f"{os.cpu_count()} processors, load {load:.2f} before the first run")
    if load > 0.5:
        print("The machine has other work: these figures are not to be relied on.")


def ask(*command):
    """What a command prints."""
    words = [str(word) for word in command]
    result = subprocess.run(words, capture_output=True, text=True, check=False)
    if result.returncode != 0:
        raise Failure(f"{' '.join(words)} failed:\n{result.stderr}")
    return result.stdout


def measure(command, log):
    """Runs a command, its errors going to the file 'log'. The system itself counts what the process
    took, with all its threads."""
    words = [str(word) for word in command]
    files = [
        (os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
        (os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0),
        (os.POSIX_SPAWN_OPEN, 2, str(log), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o666),
    ]
    begin = time.perf_counter()
    process = os.posix_spawnp(words[0], words, os.environ, file_actions=files)
    try:
        _, status, resources = os.wait4(process, 0)
    except BaseException:
        os.kill(process, signal.SIGTERM)
        os.waitpid(process, 0)
        raise
    wall = time.perf_counter() - begin
    if os.waitstatus_to_exitcode(status) != 0:
        raise Failure(f"{' '.join(words)} failed:\n{log.read_text(errors='replace')}")
    return Usage(wall, resources.ru_utime + resources.ru_stime, resources.ru_maxrss * 1024)


def measure_pairs(ours, theirs, pairs, log, before=lambda: None):
    """Runs the two commands in turn, so that what else the machine does bears on both alike."""
    usages = []
    for number in range(pairs):
        pair = []
        for command in (ours, theirs):
            say(f"pair {number + 1} of {pairs}: {command[0]}")
            before()
            pair.append(measure(command, log))
        usages.append(pair)
    say("")
    return usages


def verdict(ratio, target):
    return "" if target is None else f"<= {target:.2f}  {'met' if ratio <= target else 'MISSED'}"


def quantity(value, unit):
    return f"{value:.4f} {unit}" if value < 1 else f"{value:.2f} {unit}"


def report(title, names, usages, targets):
    """Prints the median of each side, and the median of the pairs' ratios."""
    print(f"\n{title}")
    print(f"  {'':<11} {names[0]:>12} {names[1]:>12} {'ratio':>7}  target")
    for field, (label, factor, unit) in zip(Usage._fields, UNITS):
        sides = [[getattr(pair[side], field) for pair in usages] for side in (0, 1)]
        ours, theirs = (quantity(statistics.median(side) * factor, unit) for side in sides)
        ratio = statistics.median(a / max(b, 1e-9) for a, b in zip(*sides))
        text = verdict(ratio, getattr(targets, field))
        print(f"  {label:<11} {ours:>12} {theirs:>12} {ratio:>7.3f}  {text}".rstrip())
    sys.stdout.flush()
