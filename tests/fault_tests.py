#!/usr/bin/env python3
"""Runs the program among real processes and under faults of its surroundings; says what held.

    fault_tests.py BUILD_DIR [--only TEXT] [--long] [--list]

Every output is compared with that of an undisturbed run. A case prints `ok`, `FAIL` and why, or `skipped`
where the system lacks what the fault needs. --long takes every step of the sweeps. Status 1: a case failed.
"""
import argparse, contextlib, fcntl, functools, os, random, re, resource, select, shutil, signal, subprocess, sys, tempfile, time

args = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
args.add_argument("build")
args.add_argument("--only", default="", metavar="TEXT", help="the cases whose name contains it")
args.add_argument("--long", action="store_true")
args.add_argument("--list", action="store_true")
args = args.parse_args()

LIMIT = 60  # seconds that anything may take; what waits longer hangs
BASE = tempfile.mkdtemp(prefix="cmodel-faults.")
cases = []
children = []  # of the case that runs
processes = 0


def case(name):
    return lambda function: cases.append((name, function))


class Skip(Exception):
    pass


def program(name):
    return os.path.join(os.path.abspath(args.build), name)


def need(condition, text):
    if not condition:
        raise AssertionError(text)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)
    return path


def remove(path):
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)


class Job:
    """A frame, a register setting, and the paths of one run of the program."""
    INPUTS = ("y", "cb", "cr", "ynr", "mmap", "fusion")

    def __init__(self, width=64, height=48, gain=96, debug=0, like=None):
        self.dir = tempfile.mkdtemp(dir=BASE)
        self.paths = {name: f"{self.dir}/{name}" for name in (*self.INPUTS, "ini", "log", "out", "dbg")}
        self.debug = debug
        os.mkdir(self.paths["dbg"])
        write(self.paths["ini"], b"[ee0]\nreg_ee_total_gain = %d\nreg_ee_bright_luma_thr = 120\n"
              b"reg_ee_bright_edge_thr = 60\nreg_ee_bright_edge_strength = 1400\n" % gain)
        noise = random.Random(width)
        for name in self.INPUTS:
            w = width // 2 if name in ("cb", "cr") else width
            most, size = (2047, 2) if name == "fusion" else (255, 1)
            samples = bytes(b & (7 if size == 2 and i % 2 == 0 else 255)
                            for i, b in enumerate(noise.randbytes(w * height * size)))
            write(self.paths[name], b"P5\n%d %d\n%d\n" % (w, height, most) + samples)
        if like:
            self.paths.update({name: like.paths[name] for name in self.INPUTS})
        self.whole = None
        self.whole = self.undisturbed()

    def undisturbed(self, **other):
        with tempfile.TemporaryDirectory(dir=BASE) as place:
            out = f"{place}/out"
            result = run(self.command(out=out, log=f"{place}/log", dbg=place, **other))
            need(result.returncode == 0, f"an undisturbed run ends with {result.returncode}")
            return read(out)

    def command(self, **other):
        p = {**self.paths, **other}
        return [program("pre_ee_main"), p["ini"], p["log"], "1", "0", "1", p["dbg"], str(self.debug), p["y"], p["cb"],
                p["cr"], p["ynr"], p["mmap"], p["out"], p["fusion"]]

    def start(self, **other):
        return spawn(self.command(**other))

    def state(self, path=None):
        """What became of the output: none, empty, short, whole or WRONG."""
        path = path or self.paths["out"]
        if not os.path.isfile(path):
            return "none"
        data = read(path)
        if data == self.whole:
            return "whole"
        return "empty" if not data else "short" if len(data) < len(self.whole) else "WRONG"

    def expect(self, status, stderr, state, result, out=None):
        need(result.returncode == status, f"status {result.returncode}, not {status}: {result.stderr!r}")
        need(re.fullmatch(stderr, result.stderr.decode()), f"standard error says {result.stderr!r}")
        need(self.state(out) in state.split(), f"the output is {self.state(out)}")


def spawn(command, **more):
    global processes
    processes += 1
    # no buffer: select() sees all that is there
    more = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **more}
    children.append(subprocess.Popen(command, bufsize=0, **more))
    return children[-1]


def run(command, **more):
    global processes
    processes += 1
    return subprocess.run(command, capture_output=True, timeout=LIMIT, **more)


def finish(process):
    """The result of a process that was started."""
    out, err = process.communicate(timeout=LIMIT)
    return subprocess.CompletedProcess(process.args, process.returncode, out, err)


def wait_for(stream, text):
    """Reads a process's output up to the line that begins so."""
    end = time.monotonic() + LIMIT
    while select.select([stream], [], [], max(0, end - time.monotonic()))[0]:
        line = stream.readline().decode()
        if line.startswith(text):
            return
        if not line:
            break
    raise AssertionError(f"never said: {text}")


@contextlib.contextmanager
def locked(path, flags=os.O_RDWR):
    fd = os.open(path, flags, 0o666)
    fcntl.flock(fd, fcntl.LOCK_EX)
    try:
        yield fd
    finally:
        os.close(fd)


@functools.cache
def may_trace():
    return shutil.which("strace") and not run(["strace", "-o", "/dev/null", "true"]).returncode


def tracing(*options):
    """The start of a command whose system calls are tampered with."""
    if not may_trace():
        raise Skip("no strace, or it may not trace")
    return ["strace", "-f", "-o", "/dev/null", *options]


def bound_by_permissions(path):
    """The start of a command that a file's mode can forbid something, which for root it does not."""
    mode = os.stat(path).st_mode
    os.chmod(path, 0)
    try:
        for prefix in ([], ["setpriv", "--bounding-set=-dac_override,-dac_read_search"]):
            if run([*prefix, "sh", "-c", 'test -r "$0" || echo bound', path]).stdout:
                return prefix
    finally:
        os.chmod(path, mode)
    raise Skip("may not give up the rights of root")


@contextlib.contextmanager
def small_disk(kib):
    place = tempfile.mkdtemp(dir=BASE)
    if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={kib}k", "tmpfs", place], capture_output=True).returncode:
        raise Skip("may not mount a tmpfs")
    try:
        yield place
    finally:
        subprocess.run(["umount", place])


# ---- Hand-over between processes --------------------------------------------------------------------------


@case("hand-over: each input comes late")
def _():
    for name in Job.INPUTS:
        job = Job()
        late = job.paths[name] + ".late"
        os.rename(job.paths[name], late)
        process = job.start()
        wait_for(process.stdout, f"wait pre frame ready {job.paths[name]}")
        os.rename(late, job.paths[name])
        wait_for(process.stdout, f"{job.paths[name]} ready")
        job.expect(0, "", "whole", finish(process))


@case("hand-over: the producer holds the lock and writes slowly")
def _():
    job = Job()
    data = read(job.paths["mmap"])
    with locked(job.paths["mmap"], os.O_RDWR | os.O_TRUNC) as fd:
        process = job.start()
        for i in range(8):
            os.write(fd, data[i * len(data) // 8:(i + 1) * len(data) // 8])
            time.sleep(0.05)
        need(process.poll() is None, "did not wait for the lock")
    job.expect(0, "", "whole", finish(process))


@case("hand-over: the producer is killed half-way")
def _():
    job = Job()
    half = read(job.paths["y"])[:64 * 24 + 13]
    code = f"import fcntl, time; f = open({job.paths['y']!r}, 'wb', 0); fcntl.flock(f, 2); f.write({half!r}); " \
           "print(flush=True); time.sleep(600)"
    producer = spawn([sys.executable, "-c", code])
    producer.stdout.readline()
    process = job.start()
    time.sleep(0.1)
    need(process.poll() is None, "did not wait for the lock")
    producer.kill()
    result = finish(process)
    need(result.returncode == 0, f"status {result.returncode}")
    record = rb"ERROR .*y ends early: 1536 of 3072 samples are missing"
    need(re.search(record, read(job.paths["log"])), "not in the log")


@case("hand-over: a chain of ten models, started last one first")
def _():
    jobs = [Job(gain=16 + 8 * i) for i in range(10)]
    for job, before in zip(jobs[1:], jobs):
        job.paths["y"] = before.paths["out"]
    first = jobs[0].paths["y"]
    os.rename(first, first + ".late")
    processes = [job.start() for job in reversed(jobs)]
    time.sleep(0.2)
    need(all(p.poll() is None for p in processes), "one did not wait")
    os.rename(first + ".late", first)
    for job, process in zip(reversed(jobs), processes):
        need(finish(process).returncode == 0, "a model failed")
    for job in jobs:
        need(read(job.paths["out"]) == job.undisturbed(), "a model read something else than the one before it wrote")


@case("hand-over: two models that read what the other writes")
def _():
    a, b = Job(gain=40), Job(gain=90)
    a.paths["out"], b.paths["out"] = b.paths["y"], a.paths["y"]
    for _ in range(200 if args.long else 20):
        for process in [a.start(), b.start()]:
            need(finish(process).returncode == 0, "a model failed")
    for path in (a.paths["y"], b.paths["y"]):
        need(len(read(path)) == len(a.whole), "a file is torn")


@case("hand-over: the output goes onto each of the inputs")
def _():
    for name in Job.INPUTS:
        job = Job()
        job.paths["out"] = job.paths[name]
        job.expect(0, "", "whole", run(job.command()))


@case("hand-over: 100 runs side by side on the same inputs")
def _():
    job = Job()
    outputs = [f"{job.dir}/out{i}" for i in range(100)]
    for process, out in [(job.start(out=out, log=out + ".log"), out) for out in outputs]:
        job.expect(0, "", "whole", finish(process), out)


@case("hand-over: many writers of one output, read all the while")
def _():
    jobs = [Job()]
    jobs += [Job(gain=gain, like=jobs[0]) for gain in range(8, 128, 12)]
    known = {job.whole for job in jobs}
    out = jobs[0].paths["out"]
    seen = 0
    for _ in range(100 if args.long else 8):
        remove(out)
        processes = [job.start(out=out) for job in jobs]
        while any(p.poll() is None for p in processes):
            if os.path.exists(out):
                with locked(out) as fd:
                    need(os.read(fd, 1 << 20) in known, "a reader saw something that nobody wrote")
                    seen += 1
        need(all(finish(p).returncode == 0 for p in processes) and read(out) in known, "a writer failed")
    need(seen, "nothing was read meanwhile")


@case("hand-over: the holder of the lock deletes or renames what another waits for")
def _():
    for name, links, take in (("out", 1, os.unlink), ("out", 2, os.unlink), ("out", 1, lambda p: os.rename(p, p + ".done")),
                              ("y", 1, lambda p: os.rename(p, p + ".done"))):
        job = Job()
        path = job.paths[name]
        frame = read(path) if name == "y" else None
        write(path, b"the frame before")
        if links == 2:
            os.link(path, path + ".done")
        with locked(path):
            process = job.start()
            time.sleep(0.3)
            take(path)
        if frame:
            wait_for(process.stdout, f"wait pre frame ready {path}")
            write(path + ".new", frame)
            os.rename(path + ".new", path)
        job.expect(0, "", "whole", finish(process))
        need(not os.path.exists(path + ".done") or read(path + ".done") == b"the frame before", "written after its time")


# ---- Files that cannot be used ----------------------------------------------------------------------------


@case("files: a directory in place of each")
def _():
    for name, status, stderr, state, log in (
            *((name, 1, ".*: Is a directory\n", "none", "") for name in Job.INPUTS),
            ("ini", 0, "", "whole", "DEBUG .*Can't handle ee_reg"),
            ("log", 1, "Unable to open log file '.*log'\n", "none", None)):
        job = Job()
        remove(job.paths[name])
        os.mkdir(job.paths[name])
        if name == "ini":
            job.whole = job.undisturbed(ini="/nowhere")
        job.expect(status, stderr, state, run(job.command()))
        need(log is None or re.search(log, read(job.paths["log"]).decode()), f"{name}: the log does not tell")


@case("files: a directory or nothing where a file is written, until it can be")
def _():
    for name, path in (("out", "out"), ("dbg", "dbg/dbg_delta_total_8b.ppm")):
        job = Job(debug=1)
        path = f"{job.dir}/{path}"
        os.mkdir(path)
        process = job.start()
        wait_for(process.stdout, f"wait pre frame ready {path}")
        os.rmdir(path)
        job.expect(0, "", "whole", finish(process))
        shutil.rmtree(job.paths["dbg"])
        process = job.start(out=f"{job.dir}/new/out")
        wait_for(process.stdout, "wait pre frame ready")
        os.mkdir(job.paths["dbg"])
        os.mkdir(f"{job.dir}/new")
        job.expect(0, "", "whole", finish(process), f"{job.dir}/new/out")


@case("files: no permission")
def _():
    job = Job()
    prefix = bound_by_permissions(job.paths["y"])
    for name in ("y", "fusion", "out"):
        write(job.paths["out"], b"old")
        os.chmod(job.paths["out"], 0o666)
        os.chmod(job.paths[name], 0)
        process = spawn([*prefix, *job.command()])
        wait_for(process.stdout, f"wait pre frame ready {job.paths[name]}")
        os.chmod(job.paths[name], 0o666)
        job.expect(0, "", "whole", finish(process))
    os.chmod(job.paths["log"], 0)
    os.unlink(job.paths["out"])
    job.expect(1, "Unable to open log file '.*'\n", "none", run([*prefix, *job.command()]))


@case("files: image files that no header fits")
def _():
    job = Job()
    for message, *files in ((".*: No data available", b""),
                            ("Invalid image format .*", b"P", b"P6\n1 1\n255\nabc"),
                            ("Invalid image size .*", b"P5\n64 0\n255\n", b"P5\n-64 48\n255\n", b"P5\nx",
                             b"P5\n4294967360 48\n255\n", b"P5\n2147483647 2147483647\n255\n"),
                            ("Invalid max_rgb .*", b"P5\n64 48\n0\n", b"P5\n64 48\n4294967296\n", b"P5\n64 48\n255")):
        for data in files:
            write(job.paths["mmap"], data)
            job.expect(1, message + "\n", "none", run(job.command()))


@case("files: the program is started without standard streams, and tells of an output that it waits for")
def _():
    job = Job()
    job.paths["out"] = f"{job.dir}/new/out"
    process = spawn(job.command(), preexec_fn=lambda: os.closerange(0, 3))
    time.sleep(0.2)
    os.mkdir(f"{job.dir}/new")
    job.expect(0, "", "whole", finish(process))


@case("files: pipes whose reader leaves")
def _():
    job = Job(640, 480)
    for name, status, message in (("out", 1, "Unable to write file '.*/pipe': Broken pipe\n"),
                                  ("log", 1, "Unable to write log file '.*/pipe'\n"), ("stdout", 0, "")):
        pipe = f"{job.dir}/pipe"
        os.mkfifo(pipe)
        # the standard output's reader has left before it starts
        read_end = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
        stdout = os.open(pipe, os.O_WRONLY) if name == "stdout" else subprocess.PIPE
        process = spawn(job.command(**{name: pipe}), stdout=stdout)
        if name != "stdout":
            select.select([read_end], [], [], LIMIT)
        else:
            os.close(stdout)
        os.close(read_end)
        os.unlink(pipe)
        job.expect(status, message, "none" if status else "whole", finish(process))


@case("files: as few descriptors as there may be")
def _():
    job = Job()
    results = []
    for most in range(4, 8):
        remove(job.paths["out"])
        results.append(run(job.command(), preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))))
        if results[-1].returncode == 0:
            break
        job.expect(1, "Unable to (read|write) file '.*': Too many open files\n", "none", results[-1])
    need(len(results) > 1 and job.state() == "whole", "never failed, or always")


# ---- Full disks -------------------------------------------------------------------------------------------


@case("full disk: /dev/full as output and as log")
def _():
    job = Job()
    for name, message in (("out", "Unable to write file '/dev/full': No space left on device\n"),
                          ("log", "Unable to write log file '/dev/full'\n")):
        job.expect(1, message, "none", run(job.command(**{name: "/dev/full"})))


@case("full disk: output, debug images and log on a tmpfs that fills")
def _():
    for name in ("out", "dbg", "log"):
        done = 0
        job = Job(320, 240, debug=1) if name == "out" else Job(debug=1)
        step = 8 if args.long or name == "out" else 16
        for free in range(0, 512, step):
            with small_disk(512) as disk:
                write(f"{disk}/filler", bytes((512 - free) << 10))
                path = disk if name == "dbg" else f"{disk}/{name}"
                result = run(job.command(**{name: path}))
                if result.returncode == 0:
                    done += 1
                    job.expect(0, "", "whole", result, path if name == "out" else None)
                    remove(job.paths["out"])
                else:
                    what = "log file" if name == "log" else "file"
                    job.expect(1, f"Unable to write {what} '{disk}.*\n", "none empty", result,
                               path if name == "out" else None)
        need(0 < done <= free // step, f"{name}: {done} runs had room")


OLD_INI = b"; mine\n[other]\nkey = 1\n" + b"; line\n" * 3000 + b"[ee0]\nreg_ee_total_gain = 77\n"


def dump_ini(place, prefix=(), **more):
    """The status of an INI dump onto a file, which has the old text or, with status 0, the new one after it."""
    result = run([*prefix, program("eetool"), "ini", "--out", f"{place}/setting.ini", "--instance", "0", "--set",
                  "reg_ee_total_gain=78"], **more)
    left = read(f"{place}/setting.ini")
    new = left.startswith(OLD_INI[:OLD_INI.index(b"[ee0]")]) and left.endswith(b"[ee_sw0]\n") and b"gain = 78" in left
    need(new if result.returncode == 0 else left == OLD_INI or new and result.returncode < 0, "the text is lost")
    need(result.returncode <= 0 or result.stderr, "no message")
    others = set(os.listdir(place)) - {"setting.ini", "filler"}
    need(result.returncode < 0 or not any(name.startswith(("setting", ".")) for name in others), f"{others} is left over")
    return result.returncode


@case("INI: eight writers of one file, read all the while")
def _():
    place = tempfile.mkdtemp(dir=BASE)
    path = f"{place}/setting.ini"
    for _ in range(200 if args.long else 8):
        remove(path)
        writers = [spawn([program("eetool"), "ini", "--out", path, "--instance", f"{i}", "--set",
                          f"reg_ee_total_gain={i}"]) for i in range(8)]
        while any(p.poll() is None for p in writers):
            with contextlib.suppress(FileNotFoundError):
                text = read(path)
                need(text and text.count(b"\n") == 195 * text.count(b"[ee_sw"), "a reader saw a part of the file")
        need(all(finish(p).returncode == 0 for p in writers), "a writer failed")
        gains = re.findall(rb"\[ee(\d)\]\n(?:.*\n){1,99}?reg_ee_total_gain = (\d)\n", read(path))
        need(sorted(gains) == [(b"%d" % i, b"%d" % i) for i in range(8)], f"{len(gains)} sections are left")
        need(os.listdir(place) == ["setting.ini"], "something is left over")


@case("INI: no permission")
def _():
    place = tempfile.mkdtemp(dir=BASE)
    path = write(f"{place}/setting.ini", OLD_INI)
    prefix = bound_by_permissions(path)
    for mode, status in (0o200, 2), (0o400, 2), (0o600, 0):
        os.chmod(path, mode)
        result = run([*prefix, "sh", "-c", 'umask 0400; exec "$0" ini --out "$1"', program("eetool"), path])
        need(result.returncode == status and os.stat(path).st_mode & 0o777 == mode, f"{mode:o}: {result}")
        os.chmod(path, 0o600)
        need(read(path).startswith(OLD_INI) and (status == 0 or read(path) == OLD_INI), f"{mode:o}: the text is lost")


@case("full disk: INI dump on a tmpfs that fills")
def _():
    statuses = set()
    for free in range(0, 80, 4):
        with small_disk(128) as disk:
            write(f"{disk}/setting.ini", OLD_INI)
            room = os.statvfs(disk)
            write(f"{disk}/filler", bytes(max(0, room.f_bavail * room.f_frsize - (free << 10))))
            statuses.add(dump_ini(disk))
    need(len(statuses) == 2, f"only {statuses}")


def limit_files(size):
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


@case("full disk: no file may grow beyond N bytes (which takes no rights)")
def _():
    job = Job()
    for debug, log, file, state in ((0, "/dev/null", "file '.*/out'", "empty"), (0, "log", "log file '.*/log'", "none"),
                                    (1, "/dev/null", "file '.*/dbg/.*'", "none")):
        job.debug = debug
        log = log if log == "/dev/null" else job.paths["log"]
        for size in range(0, len(job.whole), 1 if args.long else 97):
            remove(job.paths["out"])
            result = run(job.command(log=log), preexec_fn=lambda: limit_files(size))
            job.expect(1, f"Unable to write {file}(: File too large)?\n", state, result)
    job.debug = 0
    job.expect(0, "", "whole", run(job.command(log="/dev/null"), preexec_fn=lambda: limit_files(len(job.whole))))
    statuses = set()
    for size in range(len(OLD_INI) - 99, len(OLD_INI) + 9000, 97):
        write(f"{job.dir}/setting.ini", OLD_INI)
        statuses.add(dump_ini(job.dir, preexec_fn=lambda: limit_files(size)))
    need(len(statuses) == 2, f"only {statuses}")


# ---- Memory -----------------------------------------------------------------------------------------------


@case("memory: `ulimit -v` in steps, until it runs")
def _():
    for job in (Job(), Job(640, 480, debug=1), Job(100000, 1)):  # the last one has long line buffers
        started = False
        for kib in range(0, 1 << 20, 16 if args.long else 256):
            remove(job.paths["log"])
            result = run(["sh", "-c", 'ulimit -v $0; exec "$@"', str(kib), *job.command()])
            if result.returncode == 0:
                break
            if not os.path.exists(job.paths["log"]):
                continue  # the system cannot even load it
            started = True
            job.expect(1, "Unable to allocate memory\n|\\(NewFRAME\\).*memory\n", "none empty short", result)
            need(job.state() != "short" or job.debug, "a part of the output is there")
        job.expect(0, "", "whole", result)
        need(started, "never failed")


@case("memory: headers of the largest width, without samples")
def _():
    job = Job()
    for name in Job.INPUTS:
        write(job.paths[name], b"P5\n2147483647 1\n1\n")
    for job.debug in (0, 1):
        result = run(["sh", "-c", 'ulimit -v 4000000; exec "$@"', "sh", *job.command()])
        job.expect(1, "Unable to allocate memory\n", "none", result)


def failing_allocations(command, prepare, step):
    """The results of a command of which one allocation after the other fails, or all from that one on."""
    library = program("tests/libfailing_malloc.so")
    mark = tempfile.mktemp(dir=BASE)
    for more in ("", "+"):
        for first in range(1, 100000, 1 if args.long else step):
            env = {**os.environ, "LD_PRELOAD": library, "ALLOCATION_FAILS": f"{first}{more}", "ALLOCATION_FAILED": mark}
            prepare()
            result = run(command, env=env)
            if not os.path.exists(mark):
                need(first > 1, "none failed")
                break
            os.unlink(mark)
            result.args = f"allocation {first}{more} of {os.path.basename(command[0])}: status {result.returncode}, " \
                          f"{result.stdout!r}, {result.stderr!r}"
            yield result


@case("memory: each allocation of a run fails in turn")
def _():
    for job in (Job(), Job(debug=1)):
        def left():  # all but the times of the records
            images = {name: read(f"{job.paths['dbg']}/{name}") for name in os.listdir(job.paths["dbg"])}
            return re.sub(rb"(?m)^\S+ \S+ ", b"", read(job.paths["log"])), read(job.paths["out"]), images

        command = job.command()
        command[0] = program("tests/pre_ee_main_shared")
        job.expect(0, "", "whole", run(command))
        whole, statuses = left(), set()
        for result in failing_allocations(command, lambda: [remove(job.paths[name]) for name in ("out", "log")], 2):
            statuses.add(result.returncode)
            if result.returncode == 0:
                need(left() == whole, result.args)
            else:
                need(result.returncode == 1 and job.state() in ("none", "empty"), f"{result.args}, {job.state()}")
                need(re.fullmatch(b"Unable to (allocate memory|open log file '.*')\n", result.stderr), result.args)
        need(statuses == {0, 1}, f"only {statuses}")


@case("memory: each allocation of a process that uses the library fails in turn")
def _():
    for kind in ("frame", "blocks", "files"):
        place = tempfile.mkdtemp(dir=BASE)
        command = [program("tests/library_calls"), kind, place]
        whole = run(command).stdout
        for result in failing_allocations(command, lambda: None, 3):
            fine = result.stdout == whole if result.returncode == 0 else result.returncode == 1 and result.stdout == b""
            need(fine and (result.returncode == 0 or b"Unable to allocate" in result.stderr), result.args)


@case("memory: each allocation of an INI dump fails in turn")
def _():
    place = tempfile.mkdtemp(dir=BASE)
    path = f"{place}/setting.ini"
    old = OLD_INI.replace(b"; line\n" * 3000, b"; line\n" * 30)
    for command in ([program("tests/library_calls"), "dump", place],
                    [program("eetool"), "ini", "--out", path, "--instance", "0", "--set", "reg_ee_total_gain=78"]):
        write(path, old)
        need(run(command).returncode == 0, "failed")
        new = read(path)
        first = new[:new.index(b"[ee_sw0]")]  # a library's dump is two, one after the other
        for result in failing_allocations(command, lambda: write(path, old), 5):
            done = result.returncode == 0 and result.stdout != b"0\n"
            need(read(path) in ([new] if done else [old, first]) and os.listdir(place) == ["setting.ini"], result.args)
            need(result.returncode in (0, 1, 2) and (result.returncode == 0 or result.stderr), result.args)


# ---- Killed -----------------------------------------------------------------------------------------------


@case("killed: SIGTERM and SIGKILL at any moment, then a clean run")
def _():
    job = Job(640, 480, debug=1)
    need(run(job.command()).returncode == 0, "failed")
    images = len(os.listdir(job.paths["dbg"]))
    moments = random.Random(1)
    half_way = 0
    for i in range(1000 if args.long else 40):
        for path in [job.paths["out"], *(f"{job.paths['dbg']}/{name}" for name in os.listdir(job.paths["dbg"]))]:
            remove(path)
        process = job.start()
        until = moments.randrange(images + 1)  # so many debug images are begun
        while process.poll() is None and len(os.listdir(job.paths["dbg"])) < until:
            pass
        time.sleep(moments.uniform(0, 0.002))
        half_way += process.poll() is None and until > 0
        process.send_signal(signal.SIGKILL if i % 2 else signal.SIGTERM)
        result = finish(process)
        need(result.returncode in (0, -signal.SIGKILL, -signal.SIGTERM), f"status {result.returncode}")
        need(job.state() != "WRONG" and (result.returncode or job.state() == "whole"), f"the output is {job.state()}")
        if i % 10 == 9:
            job.expect(0, "", "whole", run(job.command()))
    need(half_way, "none was killed half-way")


@case("system calls: each of an INI dump fails in turn, or is the last before SIGKILL")
def _():
    place = tempfile.mkdtemp(dir=BASE)
    for call in ("openat", "read", "write", "pread64", "pwrite64", "close", "ftruncate", "fsync", "rename"):
        for fault in ("error=EIO", "signal=KILL"):
            for when in range(1, 1000):
                for name in os.listdir(place):
                    os.unlink(f"{place}/{name}")
                write(f"{place}/setting.ini", OLD_INI)
                trace = f"{BASE}/trace"
                dump_ini(place, tracing("-o", trace, "-e", f"trace={call}", "-e", f"inject={call}:{fault}:when={when}"))
                if b"INJECTED" not in read(trace) and b"killed by" not in read(trace):
                    break  # it makes fewer such calls
            need(1 < when < 999, f"{call}: {when}")


# ---- Every system call ------------------------------------------------------------------------------------

CALLS = {"openat": "EMFILE EIO", "read": "EIO", "write": "EIO ENOSPC", "close": "EIO", "ftruncate": "EIO",
         "flock": "ENOLCK EINTR", "fstat,newfstatat": "EIO", "mmap": "ENOMEM", "lseek": "EIO", "linkat": "EIO"}


@case("system calls: each fails in turn, or is the last before SIGKILL")
def _():
    job = Job(debug=int(args.long))
    defaults = job.undisturbed(ini="/nowhere")
    write(job.paths["out"], b"the output of an earlier run, which is longer than the new one" * 200)
    shutil.copy(job.paths["out"], job.paths["out"] + ".old")
    for calls, faults in CALLS.items():
        for fault in [f"error={name}" for name in faults.split()] + ["signal=KILL"]:
            statuses, unlocked = set(), False
            for when in [*range(1, 30), *range(30, 1000, 1 if args.long else 10)]:
                shutil.copy(job.paths["out"] + ".old", job.paths["out"])
                write(job.paths["log"], b"")
                result = run([*tracing("-o", f"{job.dir}/trace", "-e", f"trace={calls}", "-e",
                                       f"inject={calls}:{fault}:when={when}"), *job.command()])
                trace = read(f"{job.dir}/trace")
                if b"INJECTED" not in trace and b"killed by" not in trace:
                    break  # it makes fewer such calls
                statuses.add(result.returncode)
                unlocked |= b"cannot be locked" in read(job.paths["log"])
                old = read(job.paths["out"]) == read(job.paths["out"] + ".old")
                said = f"{calls} {fault} number {when}: status {result.returncode}, {result.stderr!r}, " \
                       f"the output is {'old' if old else job.state()}"
                if result.returncode == 0 and b"Can't handle ee_reg" in read(job.paths["log"]):
                    need(read(job.paths["out"]) == defaults, said)  # the setting could not be opened: so it says
                elif result.returncode == 0:
                    need(job.state() == "whole" and not old, said)
                elif result.returncode == 1:
                    fine = ("none", "empty", "whole") if calls == "close" else ("none", "empty")
                    need(result.stderr and (old or job.state() in fine), said)
                else:
                    # before the log is there, it is the system that cannot start it
                    need(fault == "signal=KILL" or not read(job.paths["log"]), said)
                    need(old or job.state() != "WRONG", said)
            need(1 in statuses or fault == "signal=KILL" or calls in ("flock", "lseek", "linkat", "mmap"),
                 f"{calls} {fault}: never told")
            need(unlocked == (fault == "error=ENOLCK"), f"{calls} {fault}: a missing lock is{'' if unlocked else ' not'} told")


failed = skipped = 0
try:
    for name, function in cases:
        if args.only not in name:
            continue
        if args.list:
            print(name)
            continue
        start, processes = time.monotonic(), 0
        try:
            function()
            verdict = "ok"
        except Skip as reason:
            verdict, skipped = f"skipped ({reason})", skipped + 1
        except (AssertionError, OSError, subprocess.SubprocessError) as error:
            verdict, failed = f"FAIL: {error}", failed + 1
        for child in children:
            child.kill()
            child.communicate()
        children.clear()
        print(f"{time.monotonic() - start:6.1f} s  {name}: {verdict}, {processes} processes", flush=True)
finally:
    shutil.rmtree(BASE, ignore_errors=True)
if not args.list:
    print(f"{failed} failed, {skipped} skipped")
sys.exit(failed > 0)
