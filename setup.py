"""Has `pip install .` build the Python module, with the engine inside the package."""

import os
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    """Builds with CMake what lies in python/, and installs it into the package's own folder."""

    def build_extension(self, extension):
        folder = ROOT / "build" / "pip"
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        configure = ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja"]
        configure += ["-DCMAKE_BUILD_TYPE=Release", "-DKESTREL_BUILD_TESTS=OFF"]
        configure += ["-DKESTREL_BUILD_TOOLS=OFF", f"-DKESTREL_PYTHON={sys.executable}"]
        # The library lies beside the module, which looks for it there.
        configure += ["-DKESTREL_INSTALL_PYTHONDIR=.", "-DCMAKE_INSTALL_LIBDIR=kestrel"]
        # One file: what a wheel keeps of links are copies.
        configure += ["-DCMAKE_PLATFORM_NO_VERSIONED_SONAME=ON"]
        configure += shlex.split(os.environ.get("KESTREL_CMAKE_OPTIONS", ""))
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", folder, "--target", "kestrel_python"], check=True)
        for part in ("library", "python"):
            install = ["cmake", "--install", folder, "--component", part]
            subprocess.run([*install, "--prefix", package.parent], check=True)


version = subprocess.run(
    [ROOT / "packaging" / "version"], check=True, stdout=subprocess.PIPE, text=True
).stdout.strip()
setup(
    version=version,
    packages=["kestrel"],
    package_dir={"": "python"},
    package_data={"kestrel": ["*.pyi", "py.typed"]},
    ext_modules=[Extension("kestrel._kestrel", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
