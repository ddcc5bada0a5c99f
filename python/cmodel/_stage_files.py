"""Stages as files, and the comparison of stages."""

import os
import re
from collections.abc import Iterable, Mapping
from pathlib import Path

import numpy as np

from ._arrays import Samples, check_array
from ._tables import pipelines, stages

_FILE = re.compile(r"(?:\d+_)?(\w+)\.npy")

Stages = Mapping[str, Samples]


def read_stages(directory: str | os.PathLike[str]) -> dict[str, Samples]:
    """The stages that are in a directory as NN_NAME.npy or NAME.npy: arrays of (height, width), by name.

    Raises OSError for what cannot be read, ValueError for a directory without stages, a file that is no
    array of 8-, 16- or 32-bit integers, and stages of different sizes.
    """
    paths = sorted(Path(directory).iterdir())
    found = [(match[1], path) for path in paths if (match := _FILE.fullmatch(path.name))]
    if not found:
        raise ValueError(f"{os.fspath(directory)}: there is no stage file (NN_NAME.npy)")
    read: dict[str, Samples] = {}
    for name, path in found:
        if name in read:
            raise ValueError(f"{path}: stage {name} is there twice")
        try:
            with open(path, "rb") as file:
                read[name] = check_array(name, np.load(file, allow_pickle=False))
                if file.read(1):
                    raise ValueError("it goes on after its last sample")
        except (EOFError, MemoryError, OverflowError, TypeError, ValueError) as error:
            raise ValueError(f"{path}: {error}") from None
        first = next(iter(read.values()))
        if read[name].shape != first.shape:
            raise ValueError(f"{path}: {read[name].shape} samples; the stages before it have {first.shape}")
    return {name: read[name] for name in _in_order(read)}


def assert_same(
    expected: Samples | Stages | str | os.PathLike[str], actual: Samples | Stages | str | os.PathLike[str]
) -> None:
    """Nothing if two arrays, or all stages that both sides have, are equal sample by sample.

    A side is an array, stages by name, or a directory of stage files; types of samples may differ. Raises
    AssertionError otherwise, whose text begins with the first difference in the order of the pipeline and
    goes on with the others and what is equal. ValueError where there is nothing to compare: no stage in common,
    other sizes.
    """
    e, a = _to_stages("expected", expected), _to_stages("actual", actual)
    common = [name for name in _in_order(e) if name in a]
    if not common:
        raise ValueError(f"no stage is in both: expected has {', '.join(e)}; actual has {', '.join(a)}")
    lines: list[str] = []
    equal: list[str] = []
    for name in common:
        if e[name].shape != a[name].shape:
            raise ValueError(f"stage {name}: expected {e[name].shape} samples, actual {a[name].shape}")
        rows, columns = np.nonzero(e[name] != a[name])
        if len(rows) == 0:
            equal.append(name)
            continue
        y, x = rows[0], columns[0]
        apart = np.abs(e[name][rows, columns].astype(np.int64) - a[name][rows, columns])
        lines.append(
            f"{'also different' if lines else 'first difference'}: stage {name}, x {x}, y {y}: "
            f"expected {e[name][y, x]}, actual {a[name][y, x]}\n"
            f"  {len(rows)} of {e[name].size} samples differ, in x {columns.min()}..{columns.max()}, "
            f"y {rows[0]}..{rows[-1]}; largest difference {apart.max()}, mean {apart.mean():g}"
        )
    if lines:
        lines += [f"equal ({len(equal)}): {' '.join(equal)}"] if equal else []
        raise AssertionError("\n".join(lines))


def _to_stages(argument: str, side: object) -> Stages:
    if isinstance(side, (str, os.PathLike)):
        return read_stages(side)
    if isinstance(side, Mapping):
        return {name: check_array(f"{argument}[{name!r}]", array) for name, array in side.items()}
    return {"out": check_array(argument, side)}


def _in_order(names: Iterable[str]) -> list[str]:
    """In the order of a pipeline that has them all; as they come if none has."""
    for pipeline in pipelines():
        order = [row.name for row in stages(pipeline)]
        if set(names) <= set(order):
            return [name for name in order if name in names]
    return list(names)
