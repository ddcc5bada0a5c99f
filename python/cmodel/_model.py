"""The model: registers, runs and their results."""

import ctypes
import os
import threading
import weakref
from collections.abc import Callable, Container, Iterable, Iterator, Mapping
from ctypes import byref, c_int32, c_void_p
from operator import index
from types import TracebackType
from typing import Any, NamedTuple, NoReturn, SupportsIndex

import numpy as np

from ._arrays import MOST_SIDE, Samples, check_array, check_row, check_written_array, to_plane
from ._library import BAD_ARGUMENT, CFrame, LogFunction, library
from ._picture import Picture, side_by_side
from ._tables import UnknownName, register, registers, stage, stages

_COLOURS = ("red", "green", "blue")
_INPUTS = ("y", "cb", "cr", "ynr", "mmap", "yfusion")
_DEEP_INPUTS = ("y", "yfusion")  # whose depth is not always 8


class Error(Exception):
    """What the library could not do; the text is the library's."""


class Record(NamedTuple):
    """A record of a run: a curve above its unit, the texture mode, ..."""

    level: int
    """0 trace, 1 debug, 2 info, 3 warning, 4 error, 5 fatal."""
    text: str


class Row(NamedTuple):
    """A row of the output, with what was kept of it."""

    y: int
    out: Samples
    """(width): uint8; uint16 if the block is off and luma has more than 8 bits."""
    stages: dict[str, Samples]


class Registers(Mapping[str, int]):
    """The registers of a model, by key, in slot order. Values can be set, none added or taken away.

    An unknown key is a KeyError, a value that does not fit the field a ValueError.
    """

    def __init__(self, model: "Model") -> None:
        self._model = model

    def __getitem__(self, key: str) -> int:
        return self._model[key]

    def __setitem__(self, key: str, value: SupportsIndex) -> None:
        self._model[key] = value

    def __iter__(self) -> Iterator[str]:
        return (row.key for row in registers())

    def __len__(self) -> int:
        return len(registers())

    def update(self, values: Mapping[str, SupportsIndex]) -> None:
        """Sets several registers, or none if one of the keys or values is wrong."""
        if not isinstance(values, Mapping):
            raise TypeError(f"values: a mapping of keys to values is needed, not {type(values).__name__}")
        checked = {key: _field_value(key, value) for key, value in values.items()}
        with self._model._lock:
            for key, number in checked.items():
                self[key] = number

    def reset(self) -> None:
        """Every register to its default."""
        with self._model._lock:
            library.cmodel_reset(self._model._handle())

    def __repr__(self) -> str:
        return repr(dict(self))


class Result:
    """What a run gave."""

    out: Samples
    """The output, (height, width) of the frame or of the rectangle: uint8; uint16 if the block is off and
    luma has more than 8 bits. With `out=` a view of the caller's array."""
    stages: dict[str, Samples]
    """The stages that were asked for, in the order of their making, of the same size."""
    records: tuple[Record, ...]

    def __init__(
        self,
        out: Samples,
        stages: dict[str, Samples],
        records: tuple[Record, ...],
        depth: int,
        before: Callable[[], Samples],
        explain: Callable[[int, int], str],
    ) -> None:
        self.out, self.stages, self.records = out, stages, records
        self._depth = depth
        self._before = before
        self._explain = explain

    def show(self, zoom: int = 1) -> Picture:
        """Before and after side by side, for a notebook; each sample is `zoom` x `zoom` pixels.

        Before is the luma that was sharpened, as the caller's array holds it now. ValueError for a zoom
        outside 1..64.
        """
        if not 1 <= _integer("zoom", zoom) <= 64:
            raise ValueError(f"zoom: {zoom} is outside 1..64")
        return side_by_side(self._before(), self.out >> (self._depth - 8), index(zoom))

    def explain(self, x: SupportsIndex, y: SupportsIndex) -> str:
        """What made pixel (x, y) of the frame, also where only a rectangle of it was made.

        The text that `eetool explain` prints: every stage with unit and meaning, below it what decided its
        value and the registers to turn; for the registers of the run and the planes as the caller's arrays
        hold them now. ValueError for a pixel outside the frame, Error if the block was off.
        """
        return self._explain(_integer("x", x), _integer("y", y))


class Model:
    """The model of one pipeline with registers of its own, all at their defaults at first.

        m = cmodel.Model("pre_ee")
        m.load_ini("tuned.ini", instance="0")
        m["reg_ee_total_gain"] = 64
        r = m.run(y=y, cb=cb, cr=cr, ynr=ynr, keep=["total_delta"])

    Models share nothing, so each may run in a thread of its own, and while a frame runs other threads go
    on. Calls of one model from several threads wait for each other. A model is freed with the last
    reference, by close() or at the end of a `with`; it can be neither copied nor pickled.
    """

    def __init__(self, pipeline: str) -> None:
        """A model of "pre_ee" or "classic"; KeyError for another name, Error without memory."""
        stages(pipeline)
        handle = c_void_p()
        if library.cmodel_new(pipeline.encode(), byref(handle)) < 0:
            raise Error("no memory for a model")
        self._free = weakref.finalize(self, library.cmodel_free, handle)
        self._free.atexit = False  # a thread may still run it then
        self._pipeline = pipeline
        self._lock = threading.RLock()
        self._records: list[Record] = []
        take = self._records.append
        self._log = LogFunction(lambda user, level, text: take(Record(level, _text(text))))
        library.cmodel_set_log(handle, self._log, None)
        self._model = handle

    def close(self) -> None:
        """Frees the model; every later call but this one is an Error."""
        with self._lock:
            self._free()

    def __enter__(self) -> "Model":
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __reduce__(self) -> NoReturn:
        raise TypeError("a model can be neither copied nor pickled; make one and update its registers")

    def __repr__(self) -> str:
        return f"<cmodel.Model {self._pipeline}{'' if self._free.alive else ', closed'}>"

    @property
    def pipeline(self) -> str:
        return self._pipeline

    # ---- Registers

    def __getitem__(self, key: str) -> int:
        """The value of a register; KeyError for an unknown key."""
        name = register(key).key.encode()
        value = c_int32()
        with self._lock:
            library.cmodel_get(self._handle(), name, byref(value))
        return value.value

    def __setitem__(self, key: str, value: SupportsIndex) -> None:
        """Sets a register; KeyError for an unknown key, ValueError for a value outside the field."""
        number = _field_value(key, value)
        with self._lock:
            library.cmodel_set(self._handle(), key.encode(), number)

    # Without it `in` and `for` would try the keys 0, 1, ...
    __iter__ = None
    __contains__ = None

    @property
    def registers(self) -> Registers:
        """All registers as a mapping."""
        return Registers(self)

    @property
    def stages(self) -> tuple[str, ...]:
        """The names of the stages that a run makes as the registers are now, in the order of their making."""
        mode = self["reg_ee_texture_mode"]
        return tuple(row.name for row in stages(self._pipeline) if row.making[mode] is not None)

    def load_ini(self, path: str | os.PathLike[str], instance: str | None = None) -> list[str]:
        """Takes the registers of section [eeINSTANCE] from an INI file; without instance of section [ee].

        Registers that the section does not set stay as they are. Returns what there is to say about the
        file, as "LINE: text": lines that are ignored, unknown keys, values that do not fit and what
        becomes of them, a missing section. Error for a file that cannot be read; it changes no register.
        """
        name = _c_text("path", path)
        section = _instance(instance)
        with self._lock:
            return self._findings(library.cmodel_load_ini(self._handle(), name, section))

    def load_ini_text(self, text: str, instance: str | None = None) -> list[str]:
        """The same from a text."""
        if not isinstance(text, str):
            raise TypeError(f"text: a str is needed, not {type(text).__name__}")
        data = text.encode("utf-8", "surrogatepass")
        section = _instance(instance)
        with self._lock:
            return self._findings(library.cmodel_load_ini_text(self._handle(), data, len(data), section))

    def dump_ini(self, instance: str | None = None) -> str:
        """All registers as the text of an INI section [eeINSTANCE]."""
        section = _instance(instance)
        with self._lock:
            length = library.cmodel_dump_ini(self._handle(), section, None, 0)
            text = ctypes.create_string_buffer(length + 1)
            library.cmodel_dump_ini(self._handle(), section, text, length + 1)
        return _text(text.value)

    # ---- Runs

    def run(
        self,
        *,
        y: Samples | None = None,
        cb: Samples | None = None,
        cr: Samples | None = None,
        ynr: Samples | None = None,
        mmap: Samples | None = None,
        yfusion: Samples | None = None,
        rgb: Samples | None = None,
        depth: Mapping[str, SupportsIndex] | None = None,
        rect: tuple[SupportsIndex, SupportsIndex, SupportsIndex, SupportsIndex] | None = None,
        keep: Iterable[str] = (),
        out: Samples | None = None,
        stages: Mapping[str, Samples] | None = None,
    ) -> Result:
        """Runs a frame with the registers as they are now.

        Planes are arrays of uint8, int8, uint16, int16, uint32 or int32 with any strides, which are
        looked at where they are and only during the call:

        y         luma that the picture is measured on, (height, width), 8 to 12 bits
        cb, cr    chroma, (height, width / 2) rounded either way, 8 bits
        rgb       in place of the three, (height, width, 3), 8 bits: converted, every second column's
                  chroma taken
        ynr       noise-reduced luma, which is sharpened, of y's shape, 8 bits; without it luma itself, if
                  it has 8 bits
        mmap      motion map of y's shape, 8 bits; without it nothing moves
        yfusion   fused luma of y's shape, 8 to 20 bits; texture mode 1 needs it, else it is not read

        depth     bits of the samples, by plane: {"y": 10}. Left out it is 8, but for y and yfusion of
                  16- and 32-bit samples it must be said. Samples beyond it count as they are.
        rect      (x, y, width, height) in pixels: only this part of the frame is made, the same bits
        keep      names of stages to be returned
        out       array of y's shape for the output in place of a new one; of the rectangle's samples only
        stages    arrays of y's shape for stages, by name; their types must hold all that a stage can be

        Raises TypeError and ValueError for arguments that cannot be and KeyError for unknown names, each
        naming the argument; Error when the run fails: a plane is missing, sizes differ, arrays overlap,
        the registers do not make a stage. A call that fails writes nothing, but for a value that only
        samples beyond an input's depth can make and that its type does not hold: the Error that tells of
        it comes after everything was written.
        """
        planes = dict(zip(_INPUTS, (y, cb, cr, ynr, mmap, yfusion)))
        given = {name: check_array(name, array) for name, array in planes.items() if array is not None}
        depths = _check_depths(depth, given)
        for name, samples in given.items():
            _require_depth(name, samples, depths)
        if rgb is not None:
            colours = check_array("rgb", rgb, 3)
            given.update((name, colours[..., i]) for i, name in enumerate(_COLOURS))
        luma = given.get("y", given.get("red"))
        size = None if luma is None else (luma.shape[0], luma.shape[1])
        part = _check_rect(rect, size)
        wanted = self._check_stages(keep, stages, size)
        written = None if out is None else check_written_array("out", out, size)

        with self._lock:
            model = self._handle()
            was = Model(self._pipeline)  # the registers of this run, whatever becomes of this model
            library.cmodel_copy_registers(was._model, model)
            try:
                self._bind_inputs(given, depths)
                if size is None:
                    self._check("y", library.cmodel_run(model))  # fails, and says what is missing
                    raise Error("input y is not bound")
                out_depth = self._out_depth(depths)
                if written is None:
                    written = np.empty(size, np.uint8 if out_depth == 8 else np.uint16)
                plane = to_plane(written)
                self._check("out", library.cmodel_bind_output(model, byref(plane)))
                made: dict[str, Samples] = {}
                for name, array in wanted.items():
                    if array is None:
                        array = np.empty(size, stage(self._pipeline, name).dtype)
                    made[name] = array
                    plane = to_plane(array)
                    self._check("stages", library.cmodel_bind_stage(model, name.encode(), byref(plane)))
                self._records.clear()
                if part is None:
                    status = library.cmodel_run(model)
                else:
                    status = library.cmodel_run_rect(model, *part)
                if status < 0:
                    raise Error(_text(library.cmodel_error(model)))
                records = tuple(self._records)
            finally:
                library.cmodel_unbind(model)

        def cut(samples: Samples) -> Samples:
            if part is None:
                return samples
            x, top, width, height = part
            return samples[top : top + height, x : x + width]

        def before() -> Samples:
            if ynr is None and rgb is not None:
                with Model("classic") as off:
                    off["reg_ee_enable"] = 0
                    return off.run(rgb=rgb, rect=part).out
            return cut(given["y" if ynr is None else "ynr"])

        def explain(x: int, y: int) -> str:
            return was._explain(given, depths, x, y)

        kept = {name: cut(array) for name, array in made.items()}
        return Result(cut(written), kept, records, out_depth, before, explain)

    def rows(
        self,
        *,
        y: Iterable[Samples] | None = None,
        cb: Iterable[Samples] | None = None,
        cr: Iterable[Samples] | None = None,
        ynr: Iterable[Samples] | None = None,
        mmap: Iterable[Samples] | None = None,
        yfusion: Iterable[Samples] | None = None,
        rgb: Iterable[Samples] | None = None,
        size: tuple[SupportsIndex, SupportsIndex] | None = None,
        depth: Mapping[str, SupportsIndex] | None = None,
        keep: Iterable[str] = (),
    ) -> Iterator[Row]:
        """Runs a frame row by row: yields the rows of the output from the top, each as soon as it can be made.

        Planes are those of run(), as arrays or as anything that gives row after row: arrays of (width),
        chroma half as wide, rounded up, and (width, 3) for rgb. They are asked for one row each in turn, so
        that no more of a plane is taken than the rows below that the output needs. `size` is (width,
        height) of the frame, to be given unless luma or rgb is an array.

        The frame begins, with the registers as they are then, when its first row is asked for; it is given
        up when the iterator is closed or left behind. A model has one such frame at a time. Raises what run()
        does; ValueError for a plane that ends early.
        """
        planes = dict(zip((*_INPUTS, "rgb"), (y, cb, cr, ynr, mmap, yfusion, rgb)))
        given = {name: rows for name, rows in planes.items() if rows is not None}
        depths = _check_depths(depth, given)
        for name, rows in given.items():
            if isinstance(rows, np.ndarray):
                _require_depth(name, check_array(name, rows, 3 if name == "rgb" else 1), depths)
            elif not isinstance(rows, Iterable):
                raise TypeError(f"{name}: rows are needed, not {type(rows).__name__}")
        for name in ("y", "cb", "cr"):
            if (name in given) == (rgb is not None):
                raise ValueError(f"{name}: rows of y, cb and cr are needed, or of rgb in place of all three")
        luma = y if rgb is None else rgb
        if size is not None:
            width, height = _integers("size", ("width", "height"), size)
        elif isinstance(luma, np.ndarray):
            height, width = luma.shape[:2]
        else:
            raise ValueError("size: (width, height) is needed where luma is no array")
        if not 1 <= width <= MOST_SIDE or not 1 <= height <= MOST_SIDE:
            raise ValueError(f"size: there is no picture of {width}x{height}")
        for name, rows in given.items():
            if isinstance(rows, np.ndarray) and len(rows) != height:
                raise ValueError(f"{name}: {len(rows)} rows in a frame of {height}")
        wanted = list(self._check_stages(keep, None, None))
        fusion_depth = depths.get("yfusion", 8) if yfusion is not None else 0
        has = (plane is not None for plane in (ynr, mmap, rgb))
        frame = CFrame(width, height, depths.get("y", 8), fusion_depth, *has)
        return self._rows({name: iter(rows) for name, rows in given.items()}, frame, depths, wanted)

    # ---- Inside

    def _bind_inputs(self, given: Mapping[str, Samples], depths: Mapping[str, int]) -> None:
        for name, samples in given.items():
            plane = to_plane(samples, depths.get(name, 8))
            argument = "rgb" if name in _COLOURS else name
            self._check(argument, library.cmodel_bind_input(self._model, name.encode(), byref(plane)))

    def _explain(self, given: Mapping[str, Samples], depths: Mapping[str, int], x: int, y: int) -> str:
        height, width = given["y" if "y" in given else "red"].shape
        if not 0 <= x < width or not 0 <= y < height:
            raise ValueError(f"x, y: pixel ({x}, {y}) lies outside the frame of {width}x{height}")
        with self._lock:
            try:
                self._bind_inputs(given, depths)
                size = 1 << 14  # more than it takes, as a rule
                while True:
                    text = ctypes.create_string_buffer(size)
                    length: int = library.cmodel_explain(self._model, x, y, text, size)
                    self._check("x, y", length)
                    if length < size:
                        return _text(text.value)
                    size = length + 1
            finally:
                library.cmodel_unbind(self._model)

    def _rows(
        self, planes: dict[str, Iterator[Samples]], frame: CFrame, depths: dict[str, int], wanted: list[str]
    ) -> Iterator[Row]:
        with self._lock:
            model = self._handle()
            try:
                for name in wanted:
                    self._check("keep", library.cmodel_keep_rows(model, name.encode(), 1))
                number: int = library.cmodel_begin(model, byref(frame))
                self._check("rows", number)
            finally:
                for name in wanted:
                    library.cmodel_keep_rows(model, name.encode(), 0)
            types = {"output": np.dtype(np.uint8 if self._out_depth(depths) == 8 else np.uint16)}
        types |= {name: stage(self._pipeline, name).dtype for name in wanted}
        try:
            for y in range(frame.height):
                for name, rows in planes.items():
                    row = next(rows, None)
                    if row is None:
                        raise ValueError(f"{name}: it ends after {y} of {frame.height} rows")
                    self._push(name, row, depths)
                while (made := self._pull(number, frame.width, types)) is not None:
                    yield made
        finally:
            with self._lock:
                if self._free.alive:
                    library.cmodel_drop(model, number)  # unless all its rows are taken

    def _push(self, name: str, row: Samples, depths: dict[str, int]) -> None:
        if name == "rgb":
            pixels = check_row(name, row, 3)
            parts = {colour: pixels[..., i] for i, colour in enumerate(_COLOURS)}
        else:
            parts = {name: check_row(name, row)}
            _require_depth(name, parts[name], depths)
        for part, samples in parts.items():
            p = to_plane(samples)
            with self._lock:
                model = self._handle()
                status = library.cmodel_push(model, part.encode(), p.data, p.width, p.type, p.step)
                self._check(name, status)

    def _pull(self, number: int, width: int, types: dict[str, np.dtype[Any]]) -> Row | None:
        """The next row of the output and of the stages; None when it is not ready."""
        with self._lock:
            model = self._handle()
            if library.cmodel_ready(model, number, b"output") <= 0:
                return None
            y = 0
            made: dict[str, Samples] = {}
            for name, dtype in types.items():
                made[name] = np.empty(width, dtype)
                p = to_plane(made[name][np.newaxis])
                y = library.cmodel_pull(model, number, name.encode(), p.data, width, p.type, p.step)
                self._check(name, y)
        return Row(y, made.pop("output"), made)

    def _out_depth(self, depths: Mapping[str, int]) -> int:
        if self["reg_ee_enable"] == 0 and self._pipeline == "pre_ee":
            return depths.get("y", 8)  # luma goes out as it is
        return 8

    def _handle(self) -> c_void_p:
        if not self._free.alive:
            raise Error("the model is closed")
        return self._model

    def _check(self, argument: str, status: int) -> None:
        """Raises what a call's negative status stands for."""
        if status >= 0:
            return
        text = _text(library.cmodel_error(self._model))
        if status == BAD_ARGUMENT:
            raise ValueError(text if text.startswith(argument) else f"{argument}: {text}")
        raise Error(text)

    def _findings(self, count: int) -> list[str]:
        if count < 0:
            raise Error(_text(library.cmodel_error(self._model)))
        return [_text(library.cmodel_finding(self._model, i)) for i in range(count)]

    def _check_stages(
        self, keep: Iterable[str], given: Mapping[str, Samples] | None, size: tuple[int, int] | None
    ) -> dict[str, Samples | None]:
        """The wanted stages in the order of their making; None stands for an array yet to be made."""
        if isinstance(keep, str):
            raise TypeError(f"keep: a list of names is needed, [{keep!r}]")
        try:
            wanted: dict[str, Samples | None] = dict.fromkeys(keep)
        except TypeError as error:
            raise TypeError(f"keep: names of stages are needed; {error}") from None
        order = [row.name for row in stages(self._pipeline)]
        if given is not None and not isinstance(given, Mapping):
            raise TypeError(f"stages: a mapping of names to arrays is needed, not {type(given).__name__}")
        for argument, names in (("keep", wanted), ("stages", given or {})):
            for name in names:
                if name not in order:
                    raise UnknownName(f"{argument}: stage of {self._pipeline}", name, order)
        for name, array in (given or {}).items():
            if name in wanted:
                raise ValueError(f"stages: {name} is in keep, too")
            wanted[name] = check_written_array(f"stages[{name!r}]", array, size)
        return {name: wanted[name] for name in order if name in wanted}


def _text(text: bytes) -> str:
    return text.decode("utf-8", "backslashreplace")


def _c_text(argument: str, text: str | os.PathLike[str]) -> bytes:
    try:
        data = os.fsencode(text)
    except UnicodeEncodeError:
        raise ValueError(f"{argument}: {text!r} cannot be a name in files") from None
    except TypeError:
        raise TypeError(f"{argument}: a name is needed, not {type(text).__name__}") from None
    if b"\0" in data:
        raise ValueError(f"{argument}: {text!r} has a null character")
    return data


def _instance(instance: str | None) -> bytes | None:
    if instance is None:
        return None
    if not isinstance(instance, str):
        raise TypeError(f"instance: a str is needed, not {type(instance).__name__}")
    return _c_text("instance", instance)


def _integer(argument: str, value: SupportsIndex) -> int:
    try:
        return index(value)
    except TypeError:
        raise TypeError(f"{argument}: an integer is needed, not {type(value).__name__}") from None


def _field_value(key: str, value: SupportsIndex) -> int:
    row = register(key)
    number = _integer(key, value)
    if not row.least <= number <= row.greatest:
        raise ValueError(f"{key}: {number} does not fit {row.least}..{row.greatest}")
    return number


def _check_depths(depth: Mapping[str, SupportsIndex] | None, given: Container[str]) -> dict[str, int]:
    if depth is not None and not isinstance(depth, Mapping):
        raise TypeError(f"depth: a mapping of planes to bits is needed, not {type(depth).__name__}")
    depths: dict[str, int] = {}
    for name, bits in (depth or {}).items():
        if name not in _INPUTS:
            raise UnknownName("depth: plane", name, _INPUTS)
        if name not in given:
            raise ValueError(f"depth: plane {name} is not given")
        depths[name] = _integer(f"depth[{name!r}]", bits)
        if not 1 <= depths[name] <= 32:
            raise ValueError(f"depth: {name} cannot have {depths[name]} bits")
    return depths


def _require_depth(name: str, samples: Samples, depths: Mapping[str, int]) -> None:
    if name in _DEEP_INPUTS and name not in depths and samples.dtype.itemsize > 1:
        raise ValueError(f"depth: say how many bits {name} has; its dtype {samples.dtype} leaves it open")


def _integers(argument: str, names: tuple[str, ...], values: Any) -> tuple[int, ...]:
    text = f"{argument}: {len(names)} integers ({', '.join(names)}) are needed, not {values!r}"
    try:
        numbers = tuple(index(value) for value in values)
    except TypeError:
        raise TypeError(text) from None
    if len(numbers) != len(names):
        raise ValueError(text)
    return numbers


def _check_rect(rect: Any, size: tuple[int, int] | None) -> tuple[int, int, int, int] | None:
    if rect is None:
        return None
    x, y, width, height = _integers("rect", ("x", "y", "width", "height"), rect)
    if size is not None:
        inside = x >= 0 and y >= 0 and x + width <= size[1] and y + height <= size[0]
        if not inside or width < 1 or height < 1:
            raise ValueError(
                f"rect: {width}x{height} at ({x}, {y}) does not lie in a frame of {size[1]}x{size[0]}"
            )
    return x, y, width, height
