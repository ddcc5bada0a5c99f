#!/usr/bin/env python3
"""Runs the commands of a page and puts what they print and draw where the page shows it.

    docs_pictures.py EETOOL PAGE [--check]

Every block of `sh` runs at the top of the tree, in a copy of it that has settings/ alone; the block of `text` after it is
what it prints, and docs/pictures has what it draws. With --check nothing is written: what differs is told, the pictures
compared pixel by pixel.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

LARGEST = 60_000  # bytes of a picture

eetool, page = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
check = sys.argv[3:] == ["--check"]
pictures = page.parent / "pictures"
text = page.read_text(encoding="ascii")
faults = []

with tempfile.TemporaryDirectory() as directory:
    top = pathlib.Path(directory)
    (top / "settings").symlink_to(page.parent.parent / "settings")
    (top / "docs/pictures").mkdir(parents=True)
    (top / "eetool").symlink_to(eetool)

    def run(commands):
        return subprocess.run(["sh", "-ec", f"PATH={top}:$PATH\n{commands}"], cwd=top, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    def fill(match):
        printed = run(match[1])
        if not match[2]:
            return match[0]
        if check and match[3] != printed:
            faults.append(f"{page.name}: the table is not what these commands print:\n{match[1]}{printed}")
        return f"```sh\n{match[1]}```\n\n```text\n{printed}```\n"

    new = re.sub(r"```sh\n(.*?)```\n(\n```text\n(.*?)```\n)?", fill, text, flags=re.S)
    made = {path.name for path in (top / "docs/pictures").iterdir()}
    shown = {name for name in re.findall(r"\]\(pictures/([\w.]+)\)", text)}
    faults += [f"{name} is shown but not made, or made but not shown" for name in sorted(made ^ shown)]
    for name in sorted(made):
        path = top / "docs/pictures" / name
        if path.stat().st_size > LARGEST:
            faults.append(f"{name} has {path.stat().st_size} bytes; {LARGEST} are the most")
        if not check:
            shutil.copyfile(path, pictures / name)
            continue
        decoded = []
        for picture in (path, pictures / name):
            run(f"eetool run --photo '{picture}' --set reg_ee_enable=0 --out decoded.ppm 2>said || cat said")
            decoded.append((top / "decoded.ppm").read_bytes())
        if decoded[0] != decoded[1]:
            faults.append(f"docs/pictures/{name} is not what its command draws: make docs-pictures")
if not check:
    page.write_text(new, encoding="ascii")
sys.exit("\n".join(faults) or None)
