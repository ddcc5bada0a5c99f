#!/usr/bin/env python3
"""Prints the tables of docs/performance.md: whole processes, timed in turn, and what computes within one.

    table.py BUILD_DIR [--photo PHOTO.ppm] [--rounds N] [--dir DIR]

Every case runs once a round, after one round that does not count, on one processor; a ratio is the
median of the rounds' own ratios, so that a machine that speeds up or slows down does not matter.
Files lie in memory (/dev/shm) unless --dir says otherwise.
"""
import argparse, os, shutil, statistics, subprocess, sys, tempfile, time

args = argparse.ArgumentParser()
args.add_argument("build")
args.add_argument("--photo")
args.add_argument("--rounds", type=int, default=11)
args.add_argument("--dir")
args = args.parse_args()

with open("/proc/cpuinfo", encoding="ascii") as info:
    print(next((line.split(":", 1)[1].strip() for line in info if line.startswith("model name")), "unknown processor"))
base = args.dir or tempfile.mkdtemp(prefix="cmodel-bench.", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
tool = lambda name: os.path.join(args.build, name)
os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
os.environ.update(OMP_NUM_THREADS="1", VIPS_CONCURRENCY="1", MAGICK_THREAD_LIMIT="1")

# Every brightness class of texture detection is in use; the rest are defaults.
REGISTERS = {"dark_luma_thr": 50, "bright_luma_thr": 120, "dark_edge_thr": 60, "dark_edge_strength": 900,
             "bright_edge_thr": 60, "bright_edge_strength": 1400, "line_thr": 700, "line_strength": 1500,
             "total_gain": 96}
for mode in (0, 1):
    subprocess.run([tool("eetool"), "ini", "--out", f"{base}/mode{mode}.ini", "--instance", "0", "--set",
                    f"reg_ee_texture_mode={mode}"] +
                   [word for k, v in REGISTERS.items() for word in ("--set", f"reg_ee_{k}={v}")],
                   check=True, stdout=subprocess.DEVNULL)


def run(command):
    """Wall milliseconds and peak MiB of one process."""
    null = os.open(os.devnull, os.O_RDWR)
    start = time.perf_counter()
    pid = os.posix_spawnp(command[0], command, os.environ,
                          file_actions=[(os.POSIX_SPAWN_DUP2, null, fd) for fd in (0, 1, 2)])
    _, status, usage = os.wait4(pid, 0)
    os.close(null)
    if status:
        sys.exit(f"{' '.join(command)}: status {status}")
    return (time.perf_counter() - start) * 1e3, usage.ru_maxrss / 1024


def measure(title, cases):
    """Times the cases in turn; the first is what the others are held against."""
    times = {name: [] for name, _, _ in cases}
    peak = {}
    for turn in range(args.rounds + 1):
        for name, command, _ in cases:
            ms, mib = run(command)
            peak[name] = max(mib, peak.get(name, 0))
            if turn:
                times[name].append(ms)
    reference = times[cases[0][0]]
    print(f"\n{title}\n  {'':34}{'ms':>8}{'ratio':>8}{'bound':>8}{'MiB':>7}")
    for name, _, bound in cases:
        ratio = statistics.median(a / b for a, b in zip(times[name], reference))
        verdict = "" if bound is None else "  holds" if ratio <= bound else "  MISSED"
        shown = "" if bound is None else f"{bound:g}"
        print(f"  {name:34}{statistics.median(times[name]):8.2f}{ratio:8.2f}{shown:>8}{peak[name]:7.0f}{verdict}")
    return {name: statistics.median(t) for name, t in times.items()}


def planes(size):
    folder = f"{base}/{size}"
    os.makedirs(folder, exist_ok=True)
    subprocess.run([tool("bench/make_planes"), size, folder] + ([args.photo] if args.photo else []), check=True)
    return folder


def model(folder, mode, dump=0, program=None, rgb=False, fusion="yfus.pgm"):
    f = lambda name: f"{folder}/{name}"
    words = (program or [tool("pre_ee_main")]) + [f"{base}/mode{mode}.ini", f"{base}/log", "2", "0"]
    chroma = ["-", "-"] if rgb else [f("cb.pgm"), f("cr.pgm")]
    return words + ["0" if rgb else "1", f("debug"), str(dump), f("rgb.ppm" if rgb else "y.pgm")] + chroma + [
        f("rgb.ppm" if rgb else "ynr.pgm"), f("mmap.pgm"), f("out.pgm"), "-" if rgb else f(fusion)]


def peers(folder):
    y, out = f"{folder}/y.pgm", f"{folder}/peer.pgm"
    known = {
        "ffmpeg": ["ffmpeg", "-nostdin", "-v", "error", "-y", "-threads", "1", "-filter_threads", "1", "-i", y,
                   "-frames:v", "1", "-vf", "format=yuvj420p,unsharp=5:5:1:5:5:0", out],
        "vips": ["vips", "sharpen", y, out],
        "convert": ["convert", "-limit", "thread", "1", y, "-unsharp", "2x1+1+0", out],
        "gm": ["gm", "convert", y, "-unsharp", "2x1+1+0", out],
    }
    return [(f"{name}, one sharpening filter", command, None) for name, command in known.items() if shutil.which(name)]


floor = lambda folder, *names: [tool("bench/io_floor"), "planes", f"{folder}/floor.pgm"] + [f"{folder}/{n}" for n in names]
six = ("y.pgm", "cb.pgm", "cr.pgm", "ynr.pgm", "mmap.pgm", "yfus.pgm")
best = {}
for size in ("1920x1080", "3840x2160"):
    folder = planes(size)
    os.makedirs(f"{folder}/debug", exist_ok=True)
    on = lambda target: [tool("bench/pre_ee_main_on"), target]
    limit = 2 * sum(os.path.getsize(f"{folder}/{n}") for n in six) / 2**20 + 16
    best[size] = measure(f"{size}, peak memory bound {limit:.0f} MiB", [
        ("read six planes, write one", floor(folder, *six), None),
        ("texture mode 1", model(folder, 1), 3.0 if size == "1920x1080" else 3.4),
        ("texture mode 0", model(folder, 0), 1.9),
        ("mode 1, x86-64-v3", model(folder, 1, program=on("v3")), None),
        ("mode 1, plain x86-64", model(folder, 1, program=on("baseline")), 8),
        ("mode 0, plain x86-64", model(folder, 0, program=on("baseline")), 4)] + peers(folder))
    measure(f"{size}, fused luma of 12 bits", [("fused luma of 8 bits", model(folder, 1), None),
                                               ("fused luma of 12 bits", model(folder, 1, fusion="yfus12.pgm"), 1.25)])
    measure(f"{size}, RGB input", [("read its files, write one", floor(folder, "rgb.ppm", "rgb.ppm", "mmap.pgm"), None),
                                   ("mode 0 (RGB)", model(folder, 0, rgb=True), 4)])
    run(model(folder, 1, dump=1))
    images = sorted(f"{folder}/debug/{n}" for n in os.listdir(f"{folder}/debug"))
    os.makedirs(f"{folder}/same", exist_ok=True)
    measure(f"{size}, debug images on", [("write as many bytes", [tool("bench/io_floor"), "images", f"{folder}/same"] + images, None),
                                         ("texture mode 1", model(folder, 1, dump=1), 3)])
for case in ("texture mode 1", "texture mode 0"):
    ratio = best["3840x2160"][case] / best["1920x1080"][case] / 4
    print(f"\ntime per pixel, 3840x2160 over 1920x1080, {case}: {ratio:.2f} (bound 1.15)")
folder = planes("16x16")
measure("16x16: starting up", [("start and end", [tool("bench/io_floor"), "start"], None), ("texture mode 1", model(folder, 1), 6)])
for size in ("1920x1080", "3840x2160"):
    for mode in (1, 0):
        print(f"\n{size}, texture mode {mode}, compute alone, in one process", flush=True)
        subprocess.run([tool("bench/pipeline_bench"), f"{base}/mode{mode}.ini"] + [f"{base}/{size}/{n}" for n in six],
                       check=True)
if not args.dir:
    shutil.rmtree(base)
