"""What the library makes of INI texts: a line of JSON for each of the texts on standard input, JSON strings of bytes
as Latin-1 characters."""

import ctypes
import json
import sys

library = ctypes.CDLL(sys.argv[1])
library.cmodel_finding.restype = ctypes.c_char_p
library.cmodel_finding.argtypes = [ctypes.c_void_p, ctypes.c_int]
model = ctypes.c_void_p()
assert library.cmodel_new(b"pre_ee", ctypes.byref(model)) == 0
dump = ctypes.create_string_buffer(1 << 16)
for line in sys.stdin:
    text = json.loads(line).encode("latin-1")
    library.cmodel_reset(model)
    count = library.cmodel_load_ini_text(model, text, ctypes.c_size_t(len(text)), b"0")
    findings = [library.cmodel_finding(model, i).decode("utf-8", "replace") for i in range(count)]
    library.cmodel_dump_ini(model, b"0", dump, ctypes.c_size_t(len(dump)))
    values = [int(row.split(b"=")[1]) for row in dump.value.split(b"\n")[1:-1]]
    print(json.dumps({"count": count, "findings": findings, "values": values}))
