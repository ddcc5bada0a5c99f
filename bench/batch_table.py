#!/usr/bin/env python3
"""What batches cost, side by side in one run: the table of docs/sequences.md.

    batch_table.py BUILD [--frames N] [--part NAME]...      parts: program, threads, memory, small, pipe

Files lie in memory (/dev/shm). Each time is the least of three runs. `pipe` needs ffmpeg and two cores.
"""
import argparse
import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DISTINCT = 10


def run(*words, **more):
    return subprocess.run([str(w) for w in words], check=True, capture_output=True, **more)


def least(call, times=3):
    def once():
        begin = time.perf_counter()
        call()
        return time.perf_counter() - begin
    return min(once() for _ in range(times))


class Table:
    def __init__(self, build, frames, scratch):
        self.build, self.frames, self.scratch = build, frames, scratch
        self.eetool, self.ini = build / "eetool", ROOT / "settings/texture.ini"

    def make_list(self, name, width, height, distinct, *settings):
        for n in range(distinct):
            stem = self.scratch / f"{name}{n:03d}"
            run(self.eetool, "pattern", "star", "--width", width, "--height", height, "--sigma", 1 + n % 7, "--seed", n + 1,
                "--y", f"{stem}_y.pgm", "--cb", f"{stem}_cb.pgm", "--cr", f"{stem}_cr.pgm")
            for plane in ("ynr", "yfusion"):
                shutil.copy(f"{stem}_y.pgm", f"{stem}_{plane}.pgm")
            samples = bytes(width * height)
            Path(f"{stem}_mmap.pgm").write_bytes(b"P5\n%d %d\n255\n" % (width, height) + samples)
        path = self.scratch / f"{name}.jsonl"
        run(self.eetool, "jobs", "--frames", self.scratch / (name + "%03d_{y,cb,cr,ynr,mmap,yfusion}.pgm"), "--out", path,
            *settings)
        return path

    def full_hd(self):
        path = self.scratch / "hd.jsonl"
        gains = ",".join(str(16 + k) for k in range(self.frames // DISTINCT))
        return path if path.exists() else self.make_list("hd", 1920, 1080, DISTINCT, "--ini", self.ini, "--sweep",
                                                         f"reg_ee_total_gain={gains}")

    def batch(self, path, jobs):
        results = self.scratch / "results.jsonl"
        results.unlink(missing_ok=True)
        run(self.eetool, "batch", path, "--results", results, "--jobs", jobs)

    def program(self):
        path = self.full_hd()
        one = least(lambda: self.batch(path, 1), 2)

        def programs():
            for n in range(self.frames):
                stem = self.scratch / f"hd{n % DISTINCT:03d}"
                planes = [f"{stem}_{p}.pgm" for p in ("y", "cb", "cr", "ynr", "mmap")]
                run(self.build / "pre_ee_main", self.ini, "/dev/null", 5, "NULL", 1, ".", 0, *planes,
                    self.scratch / "out.pgm", f"{stem}_yfusion.pgm")
        other = least(programs, 2)
        print(f"{self.frames} frames of 1920x1080, texture mode 1: batch, 1 thread {one:.2f} s; as many runs of "
              f"pre_ee_main {other:.2f} s; ratio {one / other:.2f}")

    def threads(self):
        path = self.full_hd()
        one, two = least(lambda: self.batch(path, 1)), least(lambda: self.batch(path, 2))
        print(f"the same with 2 threads {two:.2f} s, 1 thread {one:.2f} s; ratio {two / one:.2f}")

    def memory(self):
        path, payload = self.full_hd(), 1920 * 1080 * 5
        for jobs in (1, 2, 4):
            text = run("/usr/bin/env", "python3", "-c",
                       "import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True, "
                       "stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL); "
                       "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)",
                       self.eetool, "batch", path, "--jobs", jobs).stdout
            peak, bound = int(text) / 1024, (jobs + 1) * (2 * payload / 2**20 + 16)
            print(f"peak memory with {jobs} threads {peak:.0f} MiB of {bound:.0f} MiB")

    def small(self):
        gains = ",".join(str(1 + k) for k in range(100))
        path = self.make_list("s", 64, 64, 100, "--set", "reg_ee_texture_mode=0", "--sweep", f"reg_ee_total_gain={gains}",
                              "--sweep", "reg_ee_total_coring=" + ",".join(str(k) for k in range(10)))
        whole = least(lambda: self.batch(path, 1), 2)
        print(f"100,000 jobs of 64x64, 1 thread, the model's own time among it: {whole / 100:.3f} ms a job")

    def pipe(self):
        clip, out = self.scratch / "in.y4m", self.scratch / "out.y4m"
        run("ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=25:duration=4", "-pix_fmt", "yuv420p",
            clip)
        setting = f"--ini {self.ini}"
        source = f"ffmpeg -v error -i {clip} -f yuv4mpegpipe -"
        copy = least(lambda: run("sh", "-c", f"{source} | cat >{out}"))
        model = least(lambda: run("sh", "-c", f"{self.eetool} batch --y4m {clip} {setting} --out /dev/null"))
        both = least(lambda: run("sh", "-c", f"{source} | {self.eetool} batch --y4m - {setting} --out - >{out}"))
        print(f"100 frames of 1920x1080 through a pipe {both:.2f} s; ffmpeg alone through it {copy:.2f} s, eetool alone "
              f"{model:.2f} s; ratio to their sum {both / (copy + model):.2f}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=Path)
    parser.add_argument("--frames", type=int, default=200)
    parser.add_argument("--part", action="append", choices=["program", "threads", "memory", "small", "pipe"])
    o = parser.parse_args()
    scratch = Path(tempfile.mkdtemp(prefix="batch_table_", dir="/dev/shm"))
    model = [line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")][0]
    print(f"{model}, {len(os.sched_getaffinity(0))} cores", flush=True)
    try:
        table = Table(o.build.resolve(), o.frames, scratch)
        for part in o.part or ["program", "threads", "memory", "small", "pipe"]:
            getattr(table, part)()
    finally:
        shutil.rmtree(scratch)


if __name__ == "__main__":
    main()
