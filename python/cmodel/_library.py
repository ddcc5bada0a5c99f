"""The shared library: where it is, its records and its calls, each as `cmodel.h` has it."""

import ctypes
import os
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_int, c_int32, c_size_t, c_ssize_t, c_void_p

ABI = 1
"""CMODEL_ABI of the header that this file was written against."""

NO_ERROR = 0
BAD_ARGUMENT = -1

SAMPLE_TYPES = {"u1": 1, "i1": 2, "u2": 3, "i2": 4, "u4": 5, "i4": 6}
"""CMODEL_U8 .. CMODEL_S32 by kind and size of a dtype in the machine's byte order."""


class CPlane(ctypes.Structure):
    _fields_ = [
        ("data", c_void_p),
        ("type", c_int),
        ("width", c_int),
        ("height", c_int),
        ("row_stride", c_ssize_t),
        ("step", c_ssize_t),
        ("depth", c_int),
    ]


class CFrame(ctypes.Structure):
    _fields_ = [
        ("width", c_int),
        ("height", c_int),
        ("y_depth", c_int),
        ("yfusion_depth", c_int),
        ("has_ynr", c_int),
        ("has_mmap", c_int),
        ("has_colours", c_int),
    ]


class CRegister(ctypes.Structure):
    _fields_ = [
        ("key", c_char_p),
        ("bits", c_int),
        ("is_signed", c_int),
        ("default_value", c_int32),
        ("least", c_int32),
        ("greatest", c_int32),
        ("group", c_char_p),
        ("place", c_int),
        ("meaning", c_char_p),
        ("followers", c_char_p),
    ]


class CMaking(ctypes.Structure):
    _fields_ = [
        ("block", c_char_p),
        ("summary", c_char_p),
        ("made_of", c_char_p),
        ("registers", c_char_p),
        ("look_ahead", c_int),
    ]


class CStage(ctypes.Structure):
    _fields_ = [
        ("name", c_char_p),
        ("meaning", c_char_p),
        ("unit", c_char_p),
        ("depth", c_int),
        ("is_signed", c_int),
        ("least", c_int32),
        ("greatest", c_int32),
        ("view_mode", c_int),
        ("view_shift", c_int),
        ("making", CMaking * 2),
    ]


LogFunction = CFUNCTYPE(None, c_void_p, c_int, c_char_p)


def _load() -> ctypes.CDLL:
    # CDLL, not PyDLL: its calls leave the interpreter's lock to other threads.
    name = os.environ.get("CMODEL_LIBRARY") or "libcmodel.so.1"
    library = ctypes.CDLL(name)
    abi = library.cmodel_abi()
    if abi != ABI:
        raise ImportError(f"{name} has binary interface {abi}; this package needs {ABI}")
    model = c_void_p
    plane = POINTER(CPlane)
    for call, result, *arguments in (
        ("version", c_char_p),
        ("new", c_int, c_char_p, POINTER(model)),
        ("free", None, model),
        ("error", c_char_p, model),
        ("set_log", None, model, LogFunction, c_void_p),
        ("set", c_int, model, c_char_p, c_int32),
        ("get", c_int, model, c_char_p, POINTER(c_int32)),
        ("reset", c_int, model),
        ("copy_registers", c_int, model, model),
        ("load_ini", c_int, model, c_char_p, c_char_p),
        ("load_ini_text", c_int, model, c_char_p, c_size_t, c_char_p),
        ("finding", c_char_p, model, c_int),
        ("dump_ini", c_int, model, c_char_p, c_char_p, c_size_t),
        ("bind_input", c_int, model, c_char_p, plane),
        ("bind_output", c_int, model, plane),
        ("bind_stage", c_int, model, c_char_p, plane),
        ("unbind", c_int, model),
        ("run", c_int, model),
        ("run_rect", c_int, model, c_int, c_int, c_int, c_int),
        ("explain", c_int, model, c_int, c_int, c_char_p, c_size_t),
        ("keep_rows", c_int, model, c_char_p, c_int),
        ("begin", c_int, model, POINTER(CFrame)),
        ("push", c_int, model, c_char_p, c_void_p, c_int, c_int, c_ssize_t),
        ("ready", c_int, model, c_int, c_char_p),
        ("pull", c_int, model, c_int, c_char_p, c_void_p, c_int, c_int, c_ssize_t),
        ("drop", c_int, model, c_int),
        ("register_count", c_int),
        ("register", POINTER(CRegister), c_int),
        ("pipeline", c_char_p, c_int),
        ("stage_count", c_int, c_char_p),
        ("stage", POINTER(CStage), c_char_p, c_int),
    ):
        function = getattr(library, f"cmodel_{call}")
        function.restype = result
        function.argtypes = arguments
    return library


try:
    library = _load()
except (OSError, AttributeError) as error:
    raise ImportError(
        f"{error}; install libcmodel where the loader finds it, or put its path into CMODEL_LIBRARY"
    ) from None
