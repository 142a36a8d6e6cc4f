#!/usr/bin/env bash
# `pip install .` puts module and library into an environment, where programs import them.
#   ROOT: the sources; PYTHON: the interpreter;
#   KESTREL_CMAKE_OPTIONS: what makes its compiler calls those of the build, so that they are cached.
set -euo pipefail

if ! "$PYTHON" -c 'from importlib.util import find_spec
assert all(map(find_spec, ("venv", "pip", "setuptools")))' 2>/dev/null; then
  echo "skipped: venv, pip and setuptools are not all there"
  exit 77
fi
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

# What pip copies is what git knows or would add; a build folder in it is not taken along.
mkdir "$place/sources"
git -C "$ROOT" ls-files -z --cached --others --exclude-standard |
  tar -C "$ROOT" --null --verbatim-files-from --ignore-failed-read -cf - -T - |
  tar -C "$place/sources" -xf -
"$PYTHON" -m venv --system-site-packages --without-pip "$place/environment"
cd "$place"
"$PYTHON" -m pip --python "$place/environment/bin/python" install \
  --quiet --no-build-isolation --no-deps --no-index "$place/sources" >"$place/log" 2>&1 || {
  tail -n 40 "$place/log" >&2
  exit 1
}
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x48:rate=10:duration=1 -c:v mpeg4 clip.mp4
env -u PYTHONPATH -u LD_LIBRARY_PATH "$place/environment/bin/python" - <<'PROGRAM'
import os
import sys

import kestrel

assert kestrel.__file__.startswith(sys.prefix), kestrel.__file__
with kestrel.Movie("clip.mp4") as movie:
    assert len(list(movie.pictures())) == 10
assert kestrel.convert("clip.mp4", "out.mkv").whole
libraries = {line.split()[-1] for line in open("/proc/self/maps") if "libkestrelcode" in line}
assert all(name.startswith(sys.prefix) for name in libraries) and libraries, libraries
assert os.path.exists(os.path.join(os.path.dirname(kestrel.__file__), "py.typed"))
PROGRAM
