"""How like two movies are, what pictures cost, and what they would cost at another likeness.

Likeness is the mean SSIM of all planes in decibels, -10 log10(1 - SSIM): even steps of it are even
steps to the eye, which SSIM itself, close to 1, is not."""

import math
import re
import subprocess
from collections import namedtuple

from measuring import Failure, ask

# What came of encoding a span: the likeness to it in dB, and bytes of pictures.
Point = namedtuple("Point", "likeness bytes")

IDENTICAL = 100  # dB: what stands for no difference at all


def decibels(ssim):
    return IDENTICAL if ssim >= 1 - 10 ** (-IDENTICAL / 10) else -10 * math.log10(1 - ssim)


def picture_bytes(path):
    """(pictures, bytes) of a movie's packets of pictures: containers and sound don't count."""
    text = ask("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries", "packet=size",
               "-of", "csv=p=0", path)  # fmt: skip
    sizes = [int(size) for size in re.findall(r"\d+", text)]
    return len(sizes), sum(sizes)


def likeness(path, reference):
    """Pictures are compared one by one in their order, whatever times they have."""
    graph = (
        "[0:v]settb=1/25,setpts=N,format=yuv420p[a];[1:v]settb=1/25,setpts=N,format=yuv420p[b];"
        "[a][b]ssim"
    )
    command = ["ffmpeg", "-nostdin", "-hide_banner", "-i", str(path), "-i", str(reference),
               "-lavfi", graph, "-f", "null", "-"]  # fmt: skip
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    found = re.search(r"SSIM .*All:([0-9.]+)", result.stderr)
    if result.returncode != 0 or not found:
        raise Failure(f"{path} can't be compared:\n{result.stderr}")
    return decibels(float(found[1]))


def point(path, reference):
    counts = picture_bytes(path)[0], picture_bytes(reference)[0]
    # Pictures that are never shown are packets of their own in VP8 and VP9.
    if counts[0] < counts[1]:
        raise Failure(f"{path} has {counts[0]} pictures of {counts[1]}")
    return Point(likeness(path, reference), picture_bytes(path)[1])


def bytes_at(wanted, points):
    """The bytes at a likeness on the curve through some points: the logarithm of the bytes goes
    straight from one to the next, and beyond the ends on as between the two that are nearest."""
    curve = sorted(set(points))
    if len(curve) < 2 or any(b.likeness <= a.likeness for a, b in zip(curve, curve[1:])):
        raise Failure(f"no curve goes through {curve}")
    above = next((i for i, at in enumerate(curve) if at.likeness >= wanted), len(curve) - 1)
    low, high = curve[max(above, 1) - 1], curve[max(above, 1)]
    part = (wanted - low.likeness) / (high.likeness - low.likeness)
    return math.exp(math.log(low.bytes) + part * math.log(high.bytes / low.bytes))
