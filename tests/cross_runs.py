"""Runs of the program as built for another processor, in an emulator, beside runs of this machine's: every file that
they write, what they say and how they end must be the same. Settings and frames are drawn from a seed.

    cross_runs.py BUILD_DIR OTHER_BUILD_DIR EMULATOR [RUNS [SEED]]
"""
import pathlib
import random
import re
import subprocess
import sys
import tempfile

build, other, emulator = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve(), sys.argv[3]
runs = int(sys.argv[4]) if len(sys.argv) > 4 else 120
seed = int(sys.argv[5]) if len(sys.argv) > 5 else 1
PLANES = ("y", "cb", "cr", "ynr", "mmap", "yfusion")


def write_plane(path, draw, width, height, depth):
    """A ramp with steps and noise, or noise alone; big-endian samples."""
    top, noise = (1 << depth) - 1, draw.choice((0, 2, 1 << depth - 3, 1 << depth))
    sample_bytes = (depth + 7) // 8
    step, slope = draw.randrange(1, 12), draw.randrange(top // 4 + 1)
    with open(path, "wb") as file:
        file.write(b"P5\n%d %d\n%d\n" % (width, height, top))
        for row in range(height):
            for x in range(width):
                value = (x + row) // step * slope % (top + 1) + draw.randint(-noise, noise)
                file.write(min(max(value, 0), top).to_bytes(sample_bytes, "big"))


def outcome(program, directory, words):
    (directory / "dbg").mkdir()
    result = subprocess.run(program + words, cwd=directory, capture_output=True, text=True, timeout=600)
    files = {}
    for path in sorted(path for path in directory.rglob("*") if path.is_file()):
        data = path.read_bytes()
        if path.name == "run.log":
            data = re.sub(rb"(?m)^[-0-9]{10} [:0-9]{8} ", b"", data)
        files[str(path.relative_to(directory))] = data
    return {"status": result.returncode, "out": result.stdout, "err": result.stderr, **files}


different = 0
for run in range(seed, seed + runs):
    draw = random.Random(run)
    with tempfile.TemporaryDirectory() as scratch:
        shared = pathlib.Path(scratch)
        setting = subprocess.run([build / "eetool", "ini", "--random", "--seed", str(run)], check=True,
                                 capture_output=True).stdout
        (shared / "set.ini").write_bytes(setting)
        width, height = draw.randrange(1, 90), draw.randrange(1, 60)
        for plane in PLANES:
            depth = {"y": draw.choice((8, 10, 12)), "yfusion": draw.choice((8, 12, 16, 20))}.get(plane, 8)
            write_plane(shared / plane, draw, (width + 1) // 2 if plane in ("cb", "cr") else width, height, depth)
        words = [str(shared / "set.ini"), "run.log", "0", "NULL", "1", "dbg", "1"]
        words += [str(shared / plane) for plane in PLANES[:5]] + ["sharpened.pgm", str(shared / "yfusion")]
        expected, actual = shared / "expected", shared / "actual"
        expected.mkdir(), actual.mkdir()
        want = outcome([build / "pre_ee_main"], expected, words)
        got = outcome([emulator, other / "pre_ee_main"], actual, words)
        if want["status"] != 0 or "sharpened.pgm" not in want or want != got:
            different += 1
            names = [name for name in sorted(want.keys() | got.keys()) if want.get(name) != got.get(name)]
            print(f"run {run}: status {want['status']}, {got['status']}; different: {' '.join(names)}")
print(f"{emulator}: {runs} runs from seed {seed}, {len(want) - 3} files in the last, {different} runs different")
sys.exit(different != 0 or runs == 0)
