#!/usr/bin/env python3
"""The recipes of examples/cluster, each with a task killed in the middle and started again: what they put together
are the bytes of one undisturbed run.

    cluster_test.py EETOOL [RECIPE...]      parallel, ssh, slurm, make, snakemake

ssh and slurm get a server of their own on 127.0.0.1, with keys made for it, which is stopped at the end; slurm needs
root.
"""
import contextlib
import os
import pwd
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

RECIPES = Path(__file__).resolve().parent.parent / "examples/cluster"
SHARDS = 4
SECONDS = 120  # for anything


def run(*words, **more):
    done = subprocess.run([str(w) for w in words], capture_output=True, text=True, timeout=SECONDS, **more)
    if done.returncode != 0:
        raise SystemExit(f"{words} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def wait_for(what, condition):
    end = time.monotonic() + SECONDS
    while not condition():
        if time.monotonic() > end:
            raise SystemExit(f"{what}: not within {SECONDS} s")
        time.sleep(0.01)


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for s in sockets:
            s.bind(("127.0.0.1", 0))
        return [s.getsockname()[1] for s in sockets]


@contextlib.contextmanager
def server(words, ready, log, **more):
    with open(log, "w") as out:
        process = subprocess.Popen([str(w) for w in words], stdout=out, stderr=out, **more)
    try:
        def is_ready():
            if process.poll() is not None:
                raise SystemExit(f"{words[0]} ended:\n{Path(log).read_text()}")
            return ready()
        wait_for(words[0], is_ready)
        yield process
    finally:
        process.terminate()
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(10)
        process.kill()
        process.wait()


def listens(port):
    with socket.socket() as s:
        return s.connect_ex(("127.0.0.1", port)) == 0


def lines_in(path):
    return path.read_bytes().count(b"\n") if path.exists() else 0


def kill_shard(results):
    """Kills the process that writes these results, by its number, when it has written some and not all."""
    wait_for(results, lambda: lines_in(results) >= 3)
    for proc in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            words = (proc / "cmdline").read_bytes().split(b"\0")
            if str(results).encode() in words and words[0].endswith(b"eetool"):
                os.kill(int(proc.name), signal.SIGKILL)
                return True
    return False


class Recipes:
    def __init__(self, eetool, scratch):
        self.eetool, self.scratch, self.env = eetool, scratch, dict(os.environ, EETOOL=str(eetool))
        self.list = scratch / "list.jsonl"
        planes = [word for plane in ("y", "cb", "cr") for word in (f"--{plane}", scratch / f"1_{plane}.pgm")]
        run(eetool, "pattern", "star", "--width", 1280, "--height", 720, "--sigma", 3, *planes)
        run(eetool, "jobs", "--frames", scratch / "%d_{y,cb,cr,yfusion=y}.pgm", "--random", 480, "--seed", 1, "--out",
            self.list)
        run(eetool, "batch", self.list, "--results", scratch / "whole.jsonl")
        self.want = run(eetool, "batch", "--merge", scratch / "whole.jsonl")

    def twice(self, name, command, env=None):
        """The command with a kill, and again: (words, may_fail)."""
        folder = self.scratch / name
        folder.mkdir()
        words = [str(w) for w in command(folder)]
        env = dict(self.env, **(env or {}))
        with open(folder / "first.log", "w") as log:
            first = subprocess.Popen(words, env=env, stdout=log, stderr=log)
            killed = kill_shard(folder / "r1.jsonl")
            first.wait(SECONDS)
        self.check(name, folder, killed and first.returncode != 0, lambda: run(*words, env=env))

    def check(self, name, folder, killed, again):
        if not killed:
            raise SystemExit(f"{name}: the kill did not end the first run")
        before = lines_in(folder / "r1.jsonl")
        if not 3 <= before < 480 // SHARDS:
            raise SystemExit(f"{name}: {before} results after the kill")
        again()
        if (folder / "merged.jsonl").read_text() != self.want:
            raise SystemExit(f"{name}: merged.jsonl differs from one whole run; all is in {folder}")
        more = lines_in(folder / "r1.jsonl") - 480 // SHARDS
        print(f"{name}: killed after {before} of {480 // SHARDS} jobs of a shard, {more} run twice, merged alike",
              flush=True)

    def parallel(self):
        self.twice("parallel", lambda d: [RECIPES / "parallel.sh", self.list, d, SHARDS])

    def ssh(self):
        d = self.scratch / "sshd"
        d.mkdir()
        port, = free_ports(1)
        for key in ("host", "user"):
            run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", d / key)
        shutil.copy(d / "user.pub", d / "authorized_keys")
        (d / "config").write_text(f"Port {port}\nListenAddress 127.0.0.1\nHostKey {d}/host\nPidFile none\n"
                                  f"AuthorizedKeysFile {d}/authorized_keys\nUsePAM no\nStrictModes no\n"
                                  "PasswordAuthentication no\nPermitRootLogin prohibit-password\n")
        Path("/run/sshd").mkdir(exist_ok=True)
        ssh = f"ssh -i {d}/user -p {port} -o StrictHostKeyChecking=no -o UserKnownHostsFile={d}/known -o LogLevel=ERROR"
        with server(["/usr/sbin/sshd", "-D", "-e", "-f", d / "config"], lambda: listens(port), d / "log"):
            self.twice("ssh", lambda folder: [RECIPES / "parallel.sh", self.list, folder, SHARDS, "2/127.0.0.1"],
                       {"SSH": ssh})

    def make(self):
        self.twice("make", lambda d: ["make", "-s", "-f", RECIPES / "Makefile", "-j2", f"LIST={self.list}", f"DIR={d}",
                                      f"SHARDS={SHARDS}"])

    def snakemake(self):
        self.twice("snakemake", lambda d: [
            "snakemake", "-q", "all", "-s", RECIPES / "Snakefile", "-d", d, "--cores", 2, "--rerun-incomplete",
            "--config", f"list={self.list}", f"shards={SHARDS}", f"dir={d}", f"eetool={self.eetool}"])

    def slurm(self):
        d = self.scratch / "slurmd"
        munge = d / "munge"
        munge.mkdir(parents=True)
        (munge / "key").write_bytes(os.urandom(128))
        user = pwd.getpwnam("munge")
        for path in (self.scratch, d):
            path.chmod(0o755)
        for path, mode in ((munge / "key", 0o400), (munge, 0o755)):
            os.chown(path, user.pw_uid, user.pw_gid)
            path.chmod(mode)
        ctld, slurmd = free_ports(2)
        host = socket.gethostname().split(".")[0]
        (d / "slurm.conf").write_text(
            f"ClusterName=test\nSlurmctldHost={host}(127.0.0.1)\nSlurmctldPort={ctld}\nSlurmdPort={slurmd}\n"
            f"AuthInfo=socket={munge}/socket\nSlurmUser=root\nSlurmdUser=root\nStateSaveLocation={d}/state\n"
            f"SlurmdSpoolDir={d}/spool\nSlurmctldPidFile={d}/ctld.pid\nSlurmdPidFile={d}/slurmd.pid\n"
            "ProctrackType=proctrack/linuxproc\nTaskPlugin=task/none\nSelectType=select/cons_tres\n"
            "SelectTypeParameters=CR_CPU\nMpiDefault=none\nReturnToService=2\nJobRequeue=0\n"
            f"SchedulerParameters=sched_min_interval=100000\nNodeName={host} NodeAddr=127.0.0.1 CPUs=2\n"
            "PartitionName=all Nodes=ALL Default=YES State=UP\n")
        (d / "state").mkdir()
        env = {"SLURM_CONF": str(d / "slurm.conf")}
        self.env.update(env)
        os.environ.update(env)
        with contextlib.ExitStack() as stack:
            stack.enter_context(server(
                ["munged", "-F", f"--socket={munge}/socket", f"--key-file={munge}/key", f"--seed-file={munge}/seed",
                 f"--pid-file={munge}/pid", f"--log-file={munge}/log"], (munge / "socket").exists, d / "munge.log",
                user="munge", group="munge", extra_groups=[]))
            stack.enter_context(server(["slurmctld", "-D"], lambda: listens(ctld), d / "ctld.log"))
            stack.enter_context(server(["slurmd", "-D"], lambda: listens(slurmd), d / "slurmd.log"))
            wait_for("an idle node", lambda: "idle" in run("sinfo", "-h", "-o", "%t"))
            folder = self.scratch / "slurm"

            def submit():
                env = dict(self.env, MINUTES="0.02")
                merge = run(RECIPES / "slurm_submit.sh", self.list, folder, 10, env=env).strip()
                return lambda: run("squeue", "-h", "-j", merge, "-o", "%t").strip() == ""
            ended = submit()
            killed = kill_shard(folder / "r1.jsonl")
            wait_for("the first array", ended)
            shards = (folder / "shards").read_text().strip()
            if shards != str(SHARDS):
                raise SystemExit(f"slurm: {shards} shards")
            self.check("slurm", folder, killed, lambda: wait_for("the second array", submit()))


def main():
    names = sys.argv[2:] or ["parallel", "ssh", "make", "snakemake", "slurm"]
    scratch = Path(tempfile.mkdtemp(prefix="cluster_test_"))
    recipes = Recipes(Path(sys.argv[1]).resolve(), scratch)
    for name in names:
        getattr(recipes, name)()
    shutil.rmtree(scratch)


if __name__ == "__main__":
    main()
