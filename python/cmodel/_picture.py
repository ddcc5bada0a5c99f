"""Pictures for a notebook."""

import os
import struct
import zlib
from pathlib import Path

import numpy as np

from ._arrays import Samples

_GAP = 8  # white columns between two pictures


def _chunk(kind: bytes, data: bytes) -> bytes:
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


class Picture:
    """A gray picture as a PNG file; a notebook shows it."""

    def __init__(self, samples: Samples) -> None:
        height, width = samples.shape
        header = struct.pack(">IIBBBBB", width, height, 8, 0, 0, 0, 0)  # 8 bits, gray
        rows = np.pad(samples.astype(np.uint8), ((0, 0), (1, 0)))  # before each row its filter: none
        self.png = (
            b"\x89PNG\r\n\x1a\n"
            + _chunk(b"IHDR", header)
            + _chunk(b"IDAT", zlib.compress(rows.tobytes()))
            + _chunk(b"IEND", b"")
        )

    def _repr_png_(self) -> bytes:
        return self.png

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes the PNG file."""
        Path(path).write_bytes(self.png)


def side_by_side(before: Samples, after: Samples, zoom: int) -> Picture:
    """Two pictures of one size and 8 bits; each sample `zoom` x `zoom` pixels."""
    gap = np.full((before.shape[0], _GAP), 255)
    large = [np.clip(picture, 0, 255).repeat(zoom, 0) for picture in (before, gap, after)]
    return Picture(np.hstack([large[0].repeat(zoom, 1), large[1], large[2].repeat(zoom, 1)]))
