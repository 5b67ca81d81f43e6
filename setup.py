"""Builds the Python module by CMake: pip install --no-build-isolation . (see docs/python.md)."""

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).parent.resolve()
SOURCES = "bindings/python/kavo"


class BuildByCMake(build_ext):
    """One extension, with the libraries that it needs beside it."""

    def build_extension(self, ext: Extension) -> None:
        build = Path(self.build_temp).resolve()
        # build/lib..., or the folder of the sources for an editable installation.
        package = Path(self.get_ext_fullpath(ext.name)).resolve().parent
        options = [
            "-DCMAKE_BUILD_TYPE=Release",
            "-DKAVO_BUILD_PYTHON=ON",
            "-DKAVO_PYTHON_BUNDLE=ON",
            "-DKAVO_PYTHON_INSTALL_DIR=.",
            "-DKAVO_BUILD_APPS=OFF",
            "-DKAVO_BUILD_EXAMPLES=OFF",
            "-DKAVO_BUILD_TESTS=OFF",
            f"-DPython_EXECUTABLE={sys.executable}",
            *shlex.split(os.environ.get("CMAKE_ARGS", "")),
        ]
        jobs = ["--parallel", str(self.parallel)] if self.parallel else []
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", *options], check=True)
        subprocess.run(["cmake", "--build", str(build), "--target", "kavo_python", *jobs], check=True)
        subprocess.run(
            ["cmake", "--install", str(build), "--component", "python", "--prefix", str(package.parent)], check=True
        )
        # A wheel has no links: it would hold each library twice.
        for link in filter(Path.is_symlink, (package / "lib").glob("*")):
            link.resolve().replace(link)


def version() -> str:
    found = re.search(r"^  VERSION (\S+)$", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)
    if not found:
        raise RuntimeError("CMakeLists.txt states no version")
    return found[1]


setup(
    name="kavo",
    version=version(),
    description="Sampling-based motion planning for robot arms",
    license="BSD-3-Clause",
    python_requires=">=3.9",
    install_requires=["numpy"],
    packages=["kavo"],
    package_dir={"kavo": SOURCES},
    package_data={"kavo": ["*.pyi", "py.typed"]},
    ext_modules=[Extension("kavo._kavo", sources=[])],
    cmdclass={"build_ext": BuildByCMake},
)
