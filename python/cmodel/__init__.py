"""The edge-enhancement model on NumPy arrays.

    m = cmodel.Model("pre_ee")
    m.load_ini("tuned.ini", instance="0")
    r = m.run(y=y, cb=cb, cr=cr, ynr=ynr, keep=["total_delta"])
    r.out, r.stages["total_delta"]

`Model` is the block with its registers; `registers()` and `stages(pipeline)` are tables of all that it has;
`read_stages` and `assert_same` compare stages with those of another implementation. The library is the
libcmodel.so.1 that the loader finds, or the file that CMODEL_LIBRARY names.
"""

from ._model import Error, Model, Record, Registers, Result, Row
from ._picture import Picture
from ._stage_files import assert_same, read_stages
from ._tables import (
    Making,
    Register,
    Stage,
    UnknownName,
    pipelines,
    register,
    registers,
    stage,
    stages,
    version,
)

__all__ = [
    "Error",
    "Making",
    "Model",
    "Picture",
    "Record",
    "Register",
    "Registers",
    "Result",
    "Row",
    "Stage",
    "UnknownName",
    "assert_same",
    "pipelines",
    "read_stages",
    "register",
    "registers",
    "stage",
    "stages",
    "version",
]
