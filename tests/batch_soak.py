#!/usr/bin/env python3
"""A list is killed again and again, meets full disks, and is resumed each time: what its results merge to are those of
an undisturbed run, and no line is torn.

    batch_soak.py EETOOL [--jobs N] [--kills N] [--seed N]

Kills are SIGKILL at random moments. Twice the results' disk, a tmpfs, is full; where none may be mounted, files may
not grow instead.
"""
import argparse
import json
import os
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

FRAMES = 20


def run(*words, **more):
    return subprocess.run([str(w) for w in words], capture_output=True, text=True, **more)


def size_of(path):
    return path.stat().st_size if path.exists() else 0


def check_lines(path, least):
    """Whole lines of JSON but perhaps the last; the number of jobs."""
    text = path.read_bytes()
    lines = text.split(b"\n")[:-1]
    ids = {json.loads(line)["id"] for line in lines}
    if len(ids) < least:
        raise SystemExit(f"{path}: {len(ids)} jobs, and {least} before the kill")
    return len(ids)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("eetool", type=Path)
    parser.add_argument("--jobs", type=int, default=100000)
    parser.add_argument("--kills", type=int, default=50)
    parser.add_argument("--seed", type=int, default=1)
    o = parser.parse_args()
    eetool, draw = o.eetool.resolve(), random.Random(o.seed)
    scratch = Path(tempfile.mkdtemp(prefix="batch_soak_"))
    for n in range(FRAMES):
        planes = [w for plane in ("y", "cb", "cr") for w in (f"--{plane}", scratch / f"{n:02d}_{plane}.pgm")]
        run(eetool, "pattern", "noise", "--width", 64, "--height", 64, "--sigma", 30, "--seed", n + 1, *planes,
            check=True)
    per_frame = (o.jobs + FRAMES - 1) // FRAMES
    sweeps = ["reg_ee_total_gain=" + ",".join(str(v) for v in range(1, 1 + min(per_frame, 250))),
              "reg_ee_total_coring=" + ",".join(str(v) for v in range(max(1, per_frame // 250)))]
    words = [eetool, "jobs", "--frames", scratch / "%02d_{y,cb,cr}.pgm", "--set", "reg_ee_texture_mode=0",
             *[w for sweep in sweeps for w in ("--sweep", sweep)], "--out", scratch / "list.jsonl"]
    run(*words, check=True)
    jobs = (scratch / "list.jsonl").read_bytes().count(b"\n")

    run(eetool, "batch", scratch / "list.jsonl", "--results", scratch / "whole.jsonl", check=True)
    bytes_in_all = (scratch / "whole.jsonl").stat().st_size
    want = run(eetool, "batch", "--merge", scratch / "whole.jsonl", check=True).stdout

    disk = scratch / "disk"
    disk.mkdir()
    is_mounted = run("mount", "-t", "tmpfs", "-o", "size=256m", "none", disk).returncode == 0
    results = disk / "results.jsonl"
    batch = [str(w) for w in (eetool, "batch", scratch / "list.jsonl", "--results", results, "--resume")]
    done, torn, kills, full = 0, 0, 0, 0
    while kills < o.kills:
        if full < 2 and kills >= (full + 1) * o.kills // 3:
            # Room for some more lines, and not for all.
            room = draw.randrange(100, 20000)
            if is_mounted:
                with open(disk / "filler", "wb") as filler:
                    os.posix_fallocate(filler.fileno(), 0, shutil.disk_usage(disk).free - room // 4096 * 4096)
                stopped = run(*batch)
                (disk / "filler").unlink()
            else:
                most = results.stat().st_size + room
                stopped = run(*batch, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
            if stopped.returncode != 2 or "results.jsonl cannot be written: " not in stopped.stderr:
                raise SystemExit(f"without room: status {stopped.returncode}, {stopped.stderr}")
            if not results.read_bytes().endswith(b"\n"):
                raise SystemExit("without room a line was torn")
            full += 1
        process = subprocess.Popen(batch, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # At once, or when it has done about as many jobs as leave some for the other kills.
        target = size_of(results) + draw.choice([0, 1, 1, 1]) * draw.uniform(0, 1.8 * bytes_in_all / o.kills)
        while process.poll() is None and size_of(results) < target:
            time.sleep(0.001)
        time.sleep(draw.uniform(0, 0.01))
        process.send_signal(signal.SIGKILL)
        process.wait()
        kills += 1
        if results.exists():
            torn += size_of(results) > 0 and not results.read_bytes().endswith(b"\n")
            done = check_lines(results, done)
    print(f"{kills} kills, {torn} left a part of a line; {full} full disks; {done} of {jobs} jobs then done")
    last = run(*batch)
    if last.returncode != 0 or run(eetool, "batch", "--merge", results).stdout != want:
        raise SystemExit(f"the merged results differ from those of an undisturbed run; all is in {scratch}")
    lines = results.read_bytes().count(b"\n")
    print(f"{lines - jobs} of {jobs} jobs were run twice; merged, the results are those of an undisturbed run")
    if is_mounted:
        run("umount", disk, check=True)
    shutil.rmtree(scratch)


if __name__ == "__main__":
    main()
