"""Compares the names that libcmodel.so exports, those that the public headers declare, and those on the API page.

    exports_test.py NM LIBRARY API_PAGE HEADER...
"""
import re
import subprocess
import sys


def read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def declared_names(header):
    """Functions and variables, with CM_API or without: who forgets it has declared what is not exported."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", header, flags=re.S)
    text = re.sub(r"^#(?:.*\\\n)*.*$", "", text, flags=re.M).replace('extern "C" {', "")
    names = set()
    for statement in (part.strip() for part in text.split(";")):
        if statement.startswith("typedef"):
            continue
        function = re.match(r"[\w\s*]*?(\w+)\s*\(", statement)
        variable = re.match(r"(?:CM_API )?extern [\w\s*]*?(\w+)\s*(?:\[.*\])?$", statement)
        if function or variable:
            names.add((function or variable).group(1))
    return names


def main(nm, library, page, *headers):
    symbols = subprocess.run([nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True)
    versioned = [line.split()[-1] for line in symbols.stdout.splitlines() if " A " not in line]
    exported = {name.split("@")[0] for name in versioned}
    declared = set().union(*(declared_names(read(header)) for header in headers))
    listed = set(re.findall(r"^\| `(\w+)", read(page), flags=re.M))
    findings = {
        "declared but not exported (by a node of cmake/exports.map, with CM_API or CMODEL_API)": declared - exported,
        "exported but not declared": exported - declared,
        "exported without a version": {name for name in versioned if "@@CMODEL_" not in name},
        "not on the API page": declared - listed,
        "on the API page but not declared": listed - declared,
    }
    for finding, names in findings.items():
        for name in sorted(names):
            print(f"{name}: {finding}")
    print(f"{len(declared)} declared, {len(exported)} exported, {len(listed)} on the page")
    return 1 if any(findings.values()) or not declared else 0


sys.exit(main(*sys.argv[1:]))
