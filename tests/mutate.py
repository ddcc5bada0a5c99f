#!/usr/bin/env python3
"""Mutation check of the tests: changes one operator, bound or constant of the model at a time and tells
which changes no test notices.

Works on copies of the tree in a temporary directory. A mutant runs against the test programs most likely to
fail; one that passes these meets the whole suite. Mutants are drawn evenly from all files, fewer from headers,
which take long to build.

Mutants that are known to change nothing stand in tests/mutants_equivalent.txt and are left out:
    FILE: why it changes nothing
    - line as it is
    + line as changed
"""
import argparse
import contextlib
import fnmatch
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter, defaultdict, namedtuple
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
EQUIVALENT = ROOT / "tests/mutants_equivalent.txt"
SKIPPED_DIRS = {".git", "build", "demo-out"}
# Without datapath: declarations, memory pages, the choice of instruction set, ways to end.
SKIPPED_FILES = {"common.h", "ee_hw.h", "pre_ee_hw.h", "ee_reg.h", "log.h", "large_pages.h", "fatal.h",
                 "fatal.cpp", "row_targets.h", "row_targets.cpp", "ee_reg_name.h"}
HEADER_ROUNDS = 3  # a header gives a mutant in every third round over the files

# What is likely to notice a change, by file; the first pattern that fits. (program, cases)
SHORT, MEDIUM, POINTS = ("program_test", 60), ("program_test", 200), ("exhaustive_test", 0)
WORKED = ("worked_test", 0)
FIRST_TESTS = [
    ("cmodel/log/*", [("log_test", 0), SHORT]),
    ("*.inc", [("ee_reg_test", 0), SHORT]),
    ("*/reg_parse/*", [("ee_reg_test", 0), SHORT]),
    ("*/lut.cpp", [("lut_test", 0), SHORT]),
    ("*/ee_patterns.cpp", [("patterns_test", 0)]),
    ("*/chroma_resample.cpp", [("frame_test", 0)]),
    ("*/side_files.cpp", [("frame_test", 0)]),
    ("cmodel/common/*.cpp", [("frame_test", 0), SHORT]),
    ("*ee_*.cpp", [WORKED, SHORT, MEDIUM, POINTS]),  # pre_ee_ too
    ("*", [SHORT, MEDIUM, POINTS]),
]

Mutant = namedtuple("Mutant", "file line column old new text")  # text: the line before

TOKEN = re.compile(r'''(?P<skip>//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'
        |^[ ]*\#[ ]*(?!define)\w[^\n]*)
    |(?P<number>(?:0[xX][0-9a-fA-F']+|\d[\d']*(?:\.\d+)?)[uUlLfF]*)
    |(?P<word>\w+)
    |(?P<operator><<=|>>=|<=>|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*&|]=|[-+*&|<>])
    |(?P<other>.)''', re.VERBOSE | re.MULTILINE | re.DOTALL)

OPERATORS = {"+": "-", "-": "+", "*": "+", "<<": ">>", ">>": "<<", "<": "<=", "<=": "<", ">": ">=",
             ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "&": "|", "|": "&",
             "+=": "-=", "-=": "+=", "&=": "|=", "|=": "&=", "<<=": ">>=", ">>=": "<<="}
WORDS = {"true": "false", "false": "true", "min": "max", "max": "min", "min32": "max32", "max32": "min32"}


def change_number(text):
    digits = re.match(r"0[xX][0-9a-fA-F']+|[\d'.]+", text).group()
    suffix, plain = text[len(digits):], digits.replace("'", "")
    if "." in plain:  # the last digit
        at = len(plain.split(".")[1])
        return [f"{float(plain) + step * 10 ** -at:.{at}f}{suffix}" for step in (1, -1)]
    if re.fullmatch(r"0\d+", plain):  # part of a name
        return []
    form = hex if plain[:2] in ("0x", "0X") else str
    return [form(int(plain, 0) + step) + suffix for step in (1, -1) if int(plain, 0) + step >= 0]


def mutations_of(token, kind, before, after):
    """What may stand instead of a token; the format of the sources tells binary from other operators."""
    if kind == "number":
        return change_number(token)
    if kind == "word":
        is_call = token in ("true", "false") or after in "(<"
        return [WORDS[token]] if token in WORDS and is_call else []
    if kind == "operator" and before.isspace() and after.isspace():
        return [OPERATORS[token]] if token in OPERATORS else []
    if token == "-" and (before.isspace() or before in "({[") and not after.isspace():
        return [""]
    return []


def list_mutants(name):
    text = (ROOT / name).read_text()
    lines, found, in_assert = text.split("\n"), [], False
    for m in TOKEN.finditer(text):
        token = m.group()
        in_assert = token == "static_assert" or in_assert and token != ";"
        if in_assert:
            continue
        after = text[m.end():m.end() + 1] or "\n"
        for new in mutations_of(token, m.lastgroup, text[m.start() - 1:m.start()] or "\n", after):
            line = text.count("\n", 0, m.start())
            column = m.start() - (text.rfind("\n", 0, m.start()) + 1)
            found.append(Mutant(name, line + 1, column, token, new, lines[line]))
    return found


def changed_line(m):
    return m.text[:m.column] + m.new + m.text[m.column + len(m.old):]


def describe(m, line=True):
    return f"{m.file}{f':{m.line}' * line}: {m.text.strip()} -> {changed_line(m).strip()}"


def draw(mutants, count, seed):
    """Round after round one mutant of each file."""
    rng, by_file = random.Random(seed), defaultdict(list)
    for m in mutants:
        by_file[m.file].append(m)
    for group in by_file.values():
        rng.shuffle(group)
    order, drawn, rounds = sorted(by_file), [], 0
    rng.shuffle(order)
    while len(drawn) < count and any(by_file.values()):
        for name in order:
            if by_file[name] and (name.endswith(".cpp") or rounds % HEADER_ROUNDS == 0):
                drawn.append(by_file[name].pop())
        rounds += 1
    return sorted(drawn[:count])


def read_equivalent():
    known, name, old = set(), "", ""
    for line in EQUIVALENT.read_text().split("\n") if EQUIVALENT.exists() else []:
        if line.startswith("- "):
            old = line[2:].strip()
        elif line.startswith("+ "):
            known.add(f"{name}: {old} -> {line[2:].strip()}")
        elif ": " in line and not line.startswith("#"):
            name = line.split(": ")[0]
    return known


class Tree:
    """A private copy of the sources and its build."""

    def __init__(self, top, ninja_jobs, flags):
        self.flags = flags
        self.source, self.build, self.scratch = top / "source", top / "build", top / "tmp"
        self.ninja, self.log = ["ninja", "-C", str(self.build), f"-j{ninja_jobs}"], ""
        for folder, dirs, files in os.walk(ROOT):
            dirs[:] = [d for d in dirs if d not in SKIPPED_DIRS]
            target = self.source / Path(folder).relative_to(ROOT)
            target.mkdir(parents=True, exist_ok=True)
            for f in files:  # a kept build stays valid for files that have not changed
                a, b = Path(folder) / f, target / f
                if not b.exists() or a.read_bytes() != b.read_bytes():
                    shutil.copy(a, b)

    def run(self, command, limit, cases=0):
        """Exit status, or None when the time was over; whatever it started ends with it."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        self.scratch.mkdir(parents=True)
        env = dict(os.environ, TMPDIR=str(self.scratch), GTEST_FAIL_FAST="1")
        env.update({"CMODEL_TEST_CASES": str(cases)} if cases else {})

        def limit_resources():
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
            if "-fsanitize" not in self.flags:  # these reserve far more than they use
                resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))

        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(command, cwd=self.scratch, env=env, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output, start_new_session=True,
                                       preexec_fn=limit_resources)
            try:
                return process.wait(limit)
            except subprocess.TimeoutExpired:
                return None
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                output.seek(0)
                self.log = output.read()[-4000:].decode(errors="replace")

    def require(self, command, cases=0):
        if self.run(command, 3600, cases) != 0:
            sys.exit(f"{' '.join(command)} fails without any change:\n{self.log}")

    def prepare(self):
        self.require(["cmake", "-G", "Ninja", "-S", str(self.source), "-B", str(self.build),
                      "-DCMAKE_BUILD_TYPE=None", f"-DCMAKE_CXX_FLAGS=-w {self.flags}",
                      f"-DCMAKE_C_FLAGS=-w {self.flags}", "-DCMODEL_WERROR=OFF"])
        self.require(self.ninja)

    def measure(self):
        """Seconds that each step takes when nothing is wrong."""
        seconds = {}
        for step in [("ctest", 0)] + sorted({test for _, tests in FIRST_TESTS for test in tests}):
            start = time.monotonic()
            self.require(self.command(step[0]), step[1])
            seconds[step] = time.monotonic() - start
        return seconds

    def command(self, name):
        if name == "ctest":
            return ["ctest", "--test-dir", str(self.build), "--stop-on-failure", "--output-on-failure"]
        return [str(self.build / "tests" / name)]

    def judge(self, m, seconds):
        """killed, survived, not compiled or timed out; and by what."""
        path = self.source / m.file
        original = path.read_text()
        lines = original.split("\n")
        lines[m.line - 1] = changed_line(m)
        path.write_text("\n".join(lines))
        try:
            first = next(tests for pattern, tests in FIRST_TESTS if fnmatch.fnmatch(m.file, pattern))
            for step in first + [("ctest", 0)]:
                target = [] if step[0] == "ctest" else ["tests/" + step[0]]
                if self.run(self.ninja + target, 1800) != 0:
                    return "not compiled", ""
                status = self.run(self.command(step[0]), 30 + 10 * seconds[step], step[1])
                if status != 0:
                    failed = re.findall(r"#\d+: (\w+) \.+\**(?!.*Passed)", self.log)
                    return "timed out" if status is None else "killed", " ".join(failed) or step[0]
            return "survived", ""
        finally:
            path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="Exit status 1: new survivors. Example: "
                                            "tests/mutate.py --count 40 --files '*/ee_coring.cpp'")
    parser.add_argument("--count", type=int, default=300, help="mutants to try (default 300); 0 for all")
    parser.add_argument("--seed", type=int, default=1, help="of the draw (default 1)")
    parser.add_argument("--files", metavar="GLOB", default="*", help="only these files, as in '*/log.cpp'")
    parser.add_argument("--again", metavar="FILE", help="only the survivors that this earlier output names")
    parser.add_argument("--jobs", type=int, default=1, help="trees to work in at a time (default 1)")
    parser.add_argument("--work", metavar="DIR", help="build there and keep it for the next run")
    parser.add_argument("--flags", default="-O1", help="of the compiler; with --again, survivors can be tried "
                                                       "with sanitizers: --flags='-O1 -fsanitize=address'")
    parser.add_argument("--list", action="store_true", help="print the mutants drawn and stop")
    args = parser.parse_args()

    names = sorted(str(p.relative_to(ROOT)) for p in (ROOT / "cmodel").rglob("*")
                   if p.suffix in (".cpp", ".h", ".inc") and p.name not in SKIPPED_FILES)
    mutants = [m for n in names if fnmatch.fnmatch(n, args.files) for m in list_mutants(n)]
    if args.again:
        wanted = set(Path(args.again).read_text().split("\n"))
        mutants = [m for m in mutants if describe(m) in wanted]
    total, known = len(mutants), read_equivalent()
    mutants = [m for m in mutants if describe(m, line=False) not in known]
    mutants = draw(mutants, args.count or total, args.seed)
    if not mutants:
        sys.exit(f"nothing to try: {total} changes fit, all known to change nothing")
    print(f"{len(mutants)} of {total} mutants, seed {args.seed}", flush=True)
    if args.list:
        print("\n".join(map(describe, mutants)))
        return 0

    start, lock, results = time.monotonic(), threading.Lock(), {}
    # By file: the last one is compiled again, unchanged, when the next one's turn comes. Headers last.
    groups = iter([[m for m in mutants if m.file == name] for name in
                   sorted({m.file for m in mutants}, key=lambda n: (not n.endswith(".cpp"), n))])

    def work(tree):
        tree.prepare()  # a second time for the first tree: nothing to do
        while group := next(groups, None):
            for m in group:
                begin = time.monotonic()
                results[m], by = tree.judge(m, seconds)
                with lock:
                    print(f"[{len(results)}/{len(mutants)} {time.monotonic() - begin:.0f} s] {results[m]}"
                          f"{' by ' * bool(by)}{by}: {describe(m)}", file=sys.stderr, flush=True)

    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # the tests write many small files
    top = Path(args.work or tempfile.mkdtemp(prefix="mutate", dir=memory)).resolve()
    try:
        ninja_jobs = max(1, (os.cpu_count() or 1) // args.jobs)
        trees = [Tree(top / str(k), ninja_jobs, args.flags) for k in range(args.jobs)]
        trees[0].prepare()
        seconds = trees[0].measure()
        with ThreadPoolExecutor(args.jobs) as pool:
            list(pool.map(work, trees))
    finally:
        if not args.work:
            shutil.rmtree(top, ignore_errors=True)

    tally, survivors = Counter(results.values()), [m for m in mutants if results[m] == "survived"]
    killed = tally["killed"] + tally["timed out"]
    print("\n".join(map(describe, survivors)))
    print(f"killed {killed} ({tally['timed out']} timed out), survived {len(survivors)}, not compiled "
          f"{tally['not compiled']}; score {100 * killed / max(1, killed + len(survivors)):.1f} %, "
          f"{(time.monotonic() - start) / 60:.0f} min")
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
