#!/usr/bin/env python3
"""Sharpens a frame made here with both pipelines of the installed library, and says what changed.

    sharpen.py [LIBRARY]        LIBRARY: path of libcmodel.so, if the loader does not find it

The registers are set in ee_reg itself, by key. Exit status 1 when a result is not what the pipelines promise.
"""
import ctypes
import sys
from ctypes import POINTER, c_bool, c_char, c_char_p, c_int, c_int32, c_uint32

REGISTERS = 193  # EE_REG_COUNT
SINGLE = 2  # CM_FORMAT_SINGLE
WIDTH, HEIGHT = 160, 96


class Frame(ctypes.Structure):
    _fields_ = [(name, c_uint32) for name in ("file_type", "format", "reserved", "width", "height", "channels")] + [
        ("depth", c_int32), ("data", POINTER(c_int32))]


class Slot(ctypes.Structure):
    _fields_ = [("value", c_int32), ("key", c_char_p), ("is_set", c_uint32)]


class EeReg(ctypes.Structure):
    _fields_ = [("name", c_char * 32), ("slot", Slot * REGISTERS), ("sw_name", c_char * 32)]


FRAME = POINTER(Frame)
cmodel = ctypes.CDLL(sys.argv[1] if len(sys.argv) > 1 else "libcmodel.so.1")
for name, result, arguments in (
        ("log_set_quiet", None, [c_bool]),
        ("INIT_EE_REG", c_int, [c_char_p]),
        ("CM_NewFRAME", FRAME, [c_uint32] * 5 + [c_int]),
        ("CM_DelFRAME", None, [FRAME]),
        ("pre_ee_hw", FRAME, [FRAME] * 6),
        ("ee_hw", FRAME, [FRAME] * 5)):
    getattr(cmodel, name).restype = result
    getattr(cmodel, name).argtypes = arguments


def new_plane(width, samples):
    """A plane of the library's, which owns the samples; the caller gives it back to CM_DelFRAME."""
    frame = cmodel.CM_NewFRAME(2, SINGLE, width, HEIGHT, 1, 8)
    block = (c_int32 * len(samples))(*samples)
    ctypes.memmove(frame.contents.data, block, ctypes.sizeof(block))
    return frame


def take_samples(frame):
    """The samples as a list; the frame is freed."""
    samples = frame.contents.data[0:frame.contents.width * frame.contents.height]
    cmodel.CM_DelFRAME(frame)
    return samples


def set_registers(**values):
    """Defaults but for these."""
    cmodel.INIT_EE_REG(None)
    slots = {slot.key.decode(): slot for slot in EeReg.in_dll(cmodel, "ee_reg").slot}
    for key, value in values.items():
        slots[key].value = value


def main():
    cmodel.log_set_quiet(True)
    # A vertical edge in the middle. What is measured and what is sharpened differ in brightness.
    edge = [80 * (x >= WIDTH // 2) for x in range(WIDTH)]
    luma = new_plane(WIDTH, [70 + step for step in edge] * HEIGHT)
    reduced = [60 + step for step in edge] * HEIGHT
    image = new_plane(WIDTH, reduced)
    chroma = new_plane(WIDTH // 2, [128] * (WIDTH // 2 * HEIGHT))
    motion = new_plane(WIDTH, [0] * (WIDTH * HEIGHT))

    good = True
    for gain in (0, 64):
        set_registers(reg_ee_texture_mode=0, reg_ee_total_gain=gain)
        for pipeline, out in (
                ("pre_ee_hw", cmodel.pre_ee_hw(luma, chroma, chroma, image, motion, None)),
                ("ee_hw", cmodel.ee_hw(luma, chroma, chroma, image, motion))):
            change = [after - before for after, before in zip(take_samples(out), reduced)]
            columns = sorted({i % WIDTH for i, c in enumerate(change) if c})
            print(f"{pipeline:9} gain {gain:2}: columns {columns}, by {min(change)} to {max(change)}")
            if gain == 0:
                good &= not columns
            else:  # darker on the dark side, brighter on the bright one, nothing else
                good &= bool(columns) and all(abs(x - WIDTH // 2 + 0.5) < 4 for x in columns)
                good &= all((c > 0) == (i % WIDTH >= WIDTH // 2) for i, c in enumerate(change) if c)
    for frame in (luma, image, chroma, motion):
        cmodel.CM_DelFRAME(frame)
    return 0 if good else "not what the pipelines promise"


if __name__ == "__main__":
    sys.exit(main())
