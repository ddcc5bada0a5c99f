"""The change logs begin with the version of the project.

    versions_test.py VERSION SOURCE_DIR
"""
import pathlib
import re
import sys

version, source = sys.argv[1], pathlib.Path(sys.argv[2])
for log, heading in (("CHANGELOG.md", r"^## (\S+)"), ("packaging/debian/changelog", r"^cmodel \(([^-]+)-")):
    first = re.search(heading, source.joinpath(log).read_text(encoding="ascii"), flags=re.M).group(1)
    if first != version:
        sys.exit(f"{log} begins with {first}; CMakeLists.txt says {version}")
