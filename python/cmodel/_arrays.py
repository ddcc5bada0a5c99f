"""NumPy arrays as planes of the library: in place, or not at all."""

from typing import Any

import numpy as np

from ._library import SAMPLE_TYPES, CPlane

Samples = np.ndarray[Any, np.dtype[Any]]
"""An array of unsigned or signed 8-, 16- or 32-bit samples in the machine's byte order, of any strides."""

MOST_SIDE = 1 << 30  # pixels; far below what the record's fields hold


def check_array(argument: str, array: object, channels: int = 1) -> Samples:
    """`array` itself, if the library can look at it where it is.

    Raises TypeError for what is no array or has another type of sample, ValueError for another shape.
    """
    if not isinstance(array, np.ndarray):
        raise TypeError(f"{argument}: a NumPy array is needed, not {type(array).__name__}")
    if isinstance(array, np.ma.MaskedArray):
        raise TypeError(f"{argument}: a masked array; its mask would be lost")
    if array.dtype.kind not in "ui" or array.dtype.itemsize > 4:
        raise TypeError(f"{argument}: samples of dtype {array.dtype}; it takes 8, 16 or 32 bits, signed or not")
    if not array.dtype.isnative:
        raise TypeError(f"{argument}: dtype {array.dtype.str} has the other byte order")
    if array.ndim != (2 if channels == 1 else 3) or (channels > 1 and array.shape[2] != channels):
        shape = "(height, width)" if channels == 1 else f"(height, width, {channels})"
        raise ValueError(f"{argument}: the shape is {array.shape}, not {shape}")
    if min(array.shape) < 1 or max(array.shape) > MOST_SIDE:
        raise ValueError(f"{argument}: there is no picture of {array.shape[1]}x{array.shape[0]}")
    return np.asarray(array)  # of a subclass, the plain array over the same samples


def check_written_array(argument: str, array: object, size: tuple[int, int] | None) -> Samples:
    """The same for an array of (height, width) `size` that is to be written."""
    samples = check_array(argument, array)
    if not samples.flags.writeable:
        raise ValueError(f"{argument}: the array is read-only")
    if size is not None and samples.shape != size:
        raise ValueError(f"{argument}: {samples.shape[1]}x{samples.shape[0]}; luma is {size[1]}x{size[0]}")
    return samples


def check_row(argument: str, row: object, channels: int = 1) -> Samples:
    """A row, (width) or (width, channels), as an array of one row."""
    if isinstance(row, np.ndarray) and row.ndim != (1 if channels == 1 else 2):
        raise ValueError(f"{argument}: an array of shape {row.shape} is no row")
    return check_array(argument, row[np.newaxis] if isinstance(row, np.ndarray) else row, channels)


def to_plane(samples: Samples, depth: int = 0) -> CPlane:
    """The record of a checked array; it holds no reference."""
    dtype = samples.dtype
    height, width = samples.shape
    kind = SAMPLE_TYPES[f"{dtype.kind}{dtype.itemsize}"]
    row_stride, step = samples.strides
    return CPlane(samples.ctypes.data, kind, width, height, row_stride, step, depth)
