"""The constant tables of the library: registers, pipelines and their stages."""

import difflib
import functools
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

import numpy as np

from ._library import CMaking, library


class UnknownName(KeyError):
    """A name that is in no table; the text has the nearest ones."""

    def __init__(self, what: str, name: object, known: Iterable[str]) -> None:
        near = difflib.get_close_matches(str(name)[:100], known, 3)
        super().__init__(f"{what} {name!r:.100} is unknown" + (f"; {' or '.join(near)}?" if near else ""))

    def __str__(self) -> str:
        return str(self.args[0])


@dataclass(frozen=True)
class Register:
    """A row of the register table."""

    key: str
    bits: int
    signed: bool
    default: int
    least: int
    """The least value that the field holds."""
    greatest: int
    group: str
    """`single`; `curve`: 4 knot inputs, 4 outputs, 3 slopes in 16ths; `table`: 33 entries."""
    place: int
    """In its curve or table, from 0."""
    meaning: str
    followers: tuple[str, ...]
    """The blocks that follow it."""


@dataclass(frozen=True)
class Making:
    """How a stage is made in one texture mode."""

    block: str
    summary: str
    made_of: tuple[str, ...]
    """The planes that the block reads."""
    registers: tuple[str, ...]
    """The keys that the block follows."""
    look_ahead: int
    """Rows of luma below a row that the row is made of."""


@dataclass(frozen=True)
class Stage:
    """A row of the stage table of one pipeline."""

    name: str
    meaning: str
    unit: str
    depth: int
    """Nominal; samples can pass it: see `least` and `greatest`."""
    signed: bool
    least: int
    """The least sample over all settings and inputs within their depth."""
    greatest: int
    view_mode: int
    """The reg_ee_debug_mode that shows it, or 0."""
    view_shift: int
    """The reg_ee_debug_shift_bit that suits it."""
    making: tuple[Making | None, Making | None]
    """In texture modes 0 and 1; None where the mode does not make it. `classic` has both alike."""

    @property
    def dtype(self) -> np.dtype[Any]:
        """The smallest of uint8, int16 and int32 that holds all samples."""
        for name in ("uint8", "int16"):
            limits = np.iinfo(name)
            if limits.min <= self.least and self.greatest <= limits.max:
                return limits.dtype
        return np.dtype(np.int32)


def _words(text: bytes) -> tuple[str, ...]:
    return tuple(text.decode().split())


def _making(c: CMaking) -> Making | None:
    if c.block is None:
        return None
    return Making(c.block.decode(), c.summary.decode(), _words(c.made_of), _words(c.registers), c.look_ahead)


@functools.cache
def registers() -> tuple[Register, ...]:
    """All registers, in slot order."""
    rows = (library.cmodel_register(i).contents for i in range(library.cmodel_register_count()))
    return tuple(
        Register(
            c.key.decode(),
            c.bits,
            bool(c.is_signed),
            c.default_value,
            c.least,
            c.greatest,
            c.group.decode(),
            c.place,
            c.meaning.decode(),
            _words(c.followers),
        )
        for c in rows
    )


@functools.cache
def _register_rows() -> dict[str, Register]:
    return {row.key: row for row in registers()}


def register(key: str) -> Register:
    """The row of one register; KeyError for an unknown key."""
    if not isinstance(key, str) or key not in _register_rows():
        raise UnknownName("register", key, _register_rows())
    return _register_rows()[key]


@functools.cache
def pipelines() -> tuple[str, ...]:
    """The names of the pipelines."""
    names: list[str] = []
    while (name := library.cmodel_pipeline(len(names))) is not None:
        names.append(name.decode())
    return tuple(names)


@functools.cache
def _stages(pipeline: str) -> tuple[Stage, ...]:
    name = pipeline.encode()
    count = library.cmodel_stage_count(name)
    if count == 0:
        raise MemoryError(f"no memory for the stage table of {pipeline}")
    rows = (library.cmodel_stage(name, i).contents for i in range(count))
    return tuple(
        Stage(
            c.name.decode(),
            c.meaning.decode(),
            c.unit.decode(),
            c.depth,
            bool(c.is_signed),
            c.least,
            c.greatest,
            c.view_mode,
            c.view_shift,
            (_making(c.making[0]), _making(c.making[1])),
        )
        for c in rows
    )


def stages(pipeline: str) -> tuple[Stage, ...]:
    """The stages of a pipeline in the order of their making; KeyError for an unknown pipeline."""
    if not isinstance(pipeline, str) or pipeline not in pipelines():
        raise UnknownName("pipeline", pipeline, pipelines())
    return _stages(pipeline)


def stage(pipeline: str, name: str) -> Stage:
    """One stage of a pipeline; KeyError for an unknown name."""
    rows = stages(pipeline)
    for row in rows:
        if row.name == name:
            return row
    raise UnknownName(f"stage of {pipeline}", name, [row.name for row in rows])


def version() -> str:
    """Version and commit of the library."""
    return str(library.cmodel_version().decode())
