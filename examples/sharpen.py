#!/usr/bin/env python3
"""Sharpens a frame made here with both pipelines of the installed library, and checks what changed.

    sharpen.py [LIBRARY]        LIBRARY: path of libcmodel.so, if the loader does not find it

Exit status 1 when a result is not what the pipelines promise.
"""
import ctypes
import sys
from ctypes import POINTER, byref, c_char_p, c_int, c_int32, c_ssize_t, c_void_p

ABI = 1  # of cmodel.h, as it is written down here
U8, S16 = 1, 4  # CMODEL_U8, CMODEL_S16
TYPES = {ctypes.c_uint8: U8, ctypes.c_int16: S16}
WIDTH, HEIGHT, EDGE = 161, 40, 80


class Plane(ctypes.Structure):
    _fields_ = [("data", c_void_p), ("type", c_int), ("width", c_int), ("height", c_int),
                ("row_stride", c_ssize_t), ("step", c_ssize_t), ("depth", c_int)]


class RegisterInfo(ctypes.Structure):
    _fields_ = [("key", c_char_p), ("bits", c_int), ("is_signed", c_int), ("default_value", c_int32),
                ("least", c_int32), ("greatest", c_int32), ("group", c_char_p), ("place", c_int),
                ("meaning", c_char_p), ("followers", c_char_p)]


library = ctypes.CDLL(sys.argv[1] if len(sys.argv) > 1 else "libcmodel.so.1")
for name, result, arguments in (
        ("cmodel_abi", c_int, []),
        ("cmodel_version", c_char_p, []),
        ("cmodel_new", c_int, [c_char_p, POINTER(c_void_p)]),
        ("cmodel_free", None, [c_void_p]),
        ("cmodel_error", c_char_p, [c_void_p]),
        ("cmodel_set", c_int, [c_void_p, c_char_p, c_int32]),
        ("cmodel_bind_input", c_int, [c_void_p, c_char_p, POINTER(Plane)]),
        ("cmodel_bind_output", c_int, [c_void_p, POINTER(Plane)]),
        ("cmodel_bind_stage", c_int, [c_void_p, c_char_p, POINTER(Plane)]),
        ("cmodel_run", c_int, [c_void_p]),
        ("cmodel_run_rect", c_int, [c_void_p] + 4 * [c_int]),
        ("cmodel_register_count", c_int, []),
        ("cmodel_register", POINTER(RegisterInfo), [c_int])):
    getattr(library, name).restype = result
    getattr(library, name).argtypes = arguments


class Model:
    """A model; its calls raise where the library's fail."""

    def __init__(self, pipeline):
        self.handle = c_void_p()
        self.bound = {}  # the model does not keep them alive
        if library.cmodel_new(pipeline.encode(), byref(self.handle)) < 0:
            raise ValueError(f"no model of {pipeline}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        library.cmodel_free(self.handle)

    def call(self, function, *arguments):
        if getattr(library, "cmodel_" + function)(self.handle, *arguments) < 0:
            raise ValueError(library.cmodel_error(self.handle).decode())

    def bind(self, kind, samples, name=None):
        """Samples are an array of ctypes with HEIGHT rows."""
        bytes_each = ctypes.sizeof(samples._type_)
        width = len(samples) // HEIGHT
        plane = Plane(ctypes.addressof(samples), TYPES[samples._type_], width, HEIGHT, width * bytes_each,
                      bytes_each, 8)
        self.call("bind_" + kind, *([name.encode()] if name else []), byref(plane))
        self.bound[kind, name] = samples


def new_plane(kind, row):
    return (kind * (len(row) * HEIGHT))(*(row * HEIGHT))


def sharpen(pipeline):
    # An upright edge without colour.
    luma = new_plane(ctypes.c_uint8, [70] * EDGE + [150] * (WIDTH - EDGE))
    grey = new_plane(ctypes.c_uint8, [128] * ((WIDTH + 1) // 2))
    out = new_plane(ctypes.c_uint8, [0] * WIDTH)
    delta = new_plane(ctypes.c_int16, [0] * WIDTH)
    with Model(pipeline) as model:
        model.call("set", b"reg_ee_texture_mode", 0)
        model.call("set", b"reg_ee_total_gain", 96)
        model.bind("input", luma, "y")
        model.bind("input", grey, "cb")
        model.bind("input", grey, "cr")
        model.bind("output", out)
        model.bind("stage", delta, "limited_delta")
        model.call("run")
        tiled = new_plane(ctypes.c_uint8, [0] * WIDTH)
        model.bind("output", tiled)
        for x, width in ((0, 77), (77, WIDTH - 77)):
            model.call("run_rect", x, 0, width, HEIGHT)
        try:
            model.call("set", b"reg_ee_total_gain", 256)
            return False
        except ValueError as error:
            print(f"refused: {error}")
    change = [after - before for after, before in zip(out, luma)]
    columns = sorted({i % WIDTH for i, c in enumerate(change) if c})
    print(f"{pipeline}: columns {columns}, by {min(change)} to {max(change)}")
    # Darker on the dark side, brighter on the bright one, nothing farther than any block looks.
    return (change == list(delta) and list(tiled) == list(out) and bool(columns)
            and all(abs(x - EDGE + 0.5) < 4 for x in columns)
            and all((c > 0) == (i % WIDTH >= EDGE) for i, c in enumerate(change) if c))


def main():
    if library.cmodel_abi() != ABI:
        return f"the library has binary interface {library.cmodel_abi()}, not {ABI}"
    rows = [library.cmodel_register(i).contents for i in range(library.cmodel_register_count())]
    singles = [row.key.decode() for row in rows if row.group == b"single"]
    print(f"cmodel {library.cmodel_version().decode()}: {len(rows)} registers, {len(singles)} of them single")
    good = [sharpen(pipeline) for pipeline in ("pre_ee", "classic")]
    return 0 if all(good) else "not what the pipelines promise"


if __name__ == "__main__":
    sys.exit(main())
