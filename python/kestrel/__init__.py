"""A media engine: opens, tells, shows, converts, cuts, joins and compares movies.

    import kestrel

    with kestrel.Movie("clip.mp4") as movie:
        for picture in movie.pictures(0, 10, step=0.5):
            print(picture.time, numpy.asarray(picture).shape)

    kestrel.convert("clip.mov", "clip.mp4", size="720p")

Times are seconds. What cannot be done is raised as a subclass of `kestrel.Error`.
"""

from ._failures import (
    Error,
    ExistsError,
    InputError,
    Interrupted,
    OutputError,
    SettingsError,
)
from ._kestrel import *
from ._kestrel import __version__
