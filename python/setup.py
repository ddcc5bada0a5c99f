"""The version of the package is that of the library it lies beside."""

import pathlib
import re

import setuptools

text = pathlib.Path(__file__).parents[1].joinpath("CMakeLists.txt").read_text(encoding="ascii")
setuptools.setup(version=re.findall(r"project\(cmodel VERSION ([0-9.]+)", text)[0])
