# SPDX-License-Identifier: Apache-2.0
"""Builds the Python package with the project's CMake; all else about the package is in pyproject.toml."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
BUILD = ROOT / "build" / "pip"


class BuildByCMake(build_ext):
    """The compiled part. Its build stays in build/pip, so that the next one is short."""

    def build_extension(self, extension):
        folder = BUILD / sys.implementation.cache_tag
        options = ["-DCMAKE_BUILD_TYPE=Release", "-DREFLYZE_PYTHON=ON", f"-DPython_EXECUTABLE={sys.executable}"]
        options += [f"-DREFLYZE_{part}=OFF" for part in ("PROGRAM", "MODULE", "SHARED", "TESTS", "BENCH")]
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.run(["cmake", "-S", ROOT, "-B", folder, *options], check=True)
        subprocess.run(["cmake", "--build", folder, "--target", "reflyze_python", "-j", jobs], check=True)
        target = pathlib.Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(folder / "python" / "reflyze" / target.name, target)


def version():
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"set\(REFLYZE_LIBRARY_VERSION ([0-9.]+)\)", text).group(1)


BUILD.mkdir(parents=True, exist_ok=True)
setup(
    version=version(),
    packages=["reflyze"],
    package_dir={"": "python"},
    package_data={"reflyze": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("reflyze._core", sources=[])],
    cmdclass={"build_ext": BuildByCMake},
    options={"build": {"build_base": str(BUILD)}, "egg_info": {"egg_base": str(BUILD)}},
)
