"""Small movies that the tests read, made once by ffmpeg, and what ffmpeg decodes of them."""

import atexit
import functools
import shutil
import subprocess
import tempfile
from pathlib import Path

import numpy

FOLDER = Path(tempfile.mkdtemp(prefix="kestrel-python-"))
atexit.register(shutil.rmtree, FOLDER, ignore_errors=True)

PICTURES = "testsrc2=size=160x120:rate=25:duration=2"
SOUND = "aevalsrc=0.5*sin(880*t)|0.25*sin(440*t):s=48000:d=2"


def ffmpeg(*arguments):
    command = ["ffmpeg", "-nostdin", "-v", "error", "-y", *map(str, arguments)]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout


@functools.cache
def movie(name="movie.mp4", *options):
    """Two seconds of 50 pictures and stereo sound; `options` of ffmpeg's encoders."""
    path = FOLDER / name
    encoders = options or ("-c:v", "libx264", "-preset", "veryfast", "-g", "25", "-c:a", "aac")
    ffmpeg("-f", "lavfi", "-i", PICTURES, "-f", "lavfi", "-i", SOUND, *encoders, path)
    return path


@functools.cache
def wave():
    path = FOLDER / "sound.wav"
    ffmpeg("-f", "lavfi", "-i", SOUND, "-c:a", "pcm_f32le", path)
    return path


@functools.cache
def decoded(path, pixel_format):
    """All samples of all pictures, one row for each picture."""
    raw = ffmpeg("-i", path, "-pix_fmt", pixel_format, "-f", "rawvideo", "-")
    wide = pixel_format.endswith("le")
    samples = numpy.frombuffer(raw, numpy.uint16 if wide else numpy.uint8)
    return samples.reshape(50, -1)


@functools.cache
def heard(path):
    return numpy.frombuffer(ffmpeg("-i", path, "-f", "f32le", "-"), numpy.float32).reshape(-1, 2)
