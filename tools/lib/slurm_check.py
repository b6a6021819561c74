"""What tools/slurm-check.sh does: a Slurm of its own, an evaluation in shards, faults on the way, and the comparison."""
import argparse
import json
import os
import re
import secrets
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SHARDS, TARGETS, FRAMES = 4, 8, 150
PROGRAMS = ["munged", "slurmctld", "slurmd", "sbatch", "scontrol", "squeue"]
LIMIT_S = 300.0  # of waiting for one thing, on a machine that is busy
EXAMPLES = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "examples", "shards")

# proctrack/linuxproc and task/none need no control groups, so that this runs in containers too. A requeued job may start
# as soon as its credential has run out: two minutes by default, five seconds here.
CONF = """
ClusterName=check
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmctldParameters=enable_configless
CommunicationParameters=DisableIPv6
AuthType=auth/munge
AuthInfo=socket={room}/munge.socket,cred_expire=5
CredType=cred/munge
SlurmUser=root
SlurmdUser=root
StateSaveLocation={room}/state
SlurmdSpoolDir={room}/spool-%n
SlurmctldPidFile={room}/slurmctld.pid
SlurmdPidFile={room}/slurmd-%n.pid
SlurmctldLogFile={room}/slurmctld.log
SlurmdLogFile={room}/slurmd-%n.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=sched_interval=2,batch_sched_delay=0,sched_min_interval=0
SlurmdParameters=config_overrides
MpiDefault=none
ReturnToService=2
KillWait=2
JobRequeue=1
NodeName=one NodeHostName={host} NodeAddr=127.0.0.1 Port={ports[1]} CPUs=1 State=UNKNOWN
NodeName=two NodeHostName={host} NodeAddr=127.0.0.1 Port={ports[2]} CPUs=1 State=UNKNOWN
PartitionName=all Nodes=one,two Default=YES MaxTime=30 State=UP
"""

def free_ports(count):
    probes = [socket.socket() for _ in range(count)]
    for probe in probes:
        probe.bind(("127.0.0.1", 0))
    ports = [probe.getsockname()[1] for probe in probes]
    for probe in probes:
        probe.close()
    return ports


def until(what, call):
    """What the call answers as soon as that is something."""
    end = time.monotonic() + LIMIT_S
    while time.monotonic() < end:
        answer = call()
        if answer:
            return answer
        time.sleep(0.1)
    raise RuntimeError(f"waited {LIMIT_S:.0f} s in vain for {what}")


def process_of_shard(room, number):
    """The program that works on a shard in that folder; 0: there is none."""
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{entry}/cwd") != room:
                continue
            with open(f"/proc/{entry}/cmdline") as file:
                words = file.read().split("\0")
        except OSError:
            continue
        if words[0].endswith("csrt-track") and f"{number}/{SHARDS}" in words:
            return int(entry)
    return 0


class Slurm:
    """munged, slurmctld and two slurmd with everything of theirs in one folder. All end with the object."""

    def __init__(self, room, programs):
        self.room, self.processes = room, []
        self.environment = dict(os.environ, SLURM_CONF=f"{room}/slurm.conf", PATH=f"{programs}:{os.environ['PATH']}")
        os.makedirs(f"{room}/state")
        with open(f"{room}/slurm.conf", "w") as file:
            file.write(CONF.format(room=room, host=socket.gethostname().split(".")[0], ports=free_ports(3)))
        with open(f"{room}/munge.key", "wb", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
            file.write(secrets.token_bytes(128))

    def __enter__(self):
        try:
            self.start("munged", "munged", "--foreground", "--force", f"--socket={self.room}/munge.socket",
                       f"--key-file={self.room}/munge.key", f"--pid-file={self.room}/munged.pid",
                       f"--log-file={self.room}/munged.log", f"--seed-file={self.room}/munge.seed", "--num-threads=2")
            until("munged", lambda: os.path.exists(f"{self.room}/munge.socket"))
            self.start("slurmctld", "slurmctld", "-D", "-i")
            for node in ("one", "two"):
                os.makedirs(f"{self.room}/spool-{node}")
                self.start(f"slurmd-{node}", "slurmd", "-D", "-N", node)
            until("both nodes", lambda: self.ask("sinfo", "-h", "-N", "-o", "%T").split() == ["idle", "idle"])
        except BaseException:
            self.__exit__()
            raise
        return self

    def start(self, name, *command):
        with open(f"{self.room}/{name}.out", "w") as said:
            self.processes.append(subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stdout=said,
                                                   stderr=said))

    def __exit__(self, *_):
        # What still runs is no child of slurmd's, and would go on without it.
        if len(self.processes) > 1 and self.processes[1].poll() is None:
            subprocess.run(["scancel", "-f", "-u", "root"], env=self.environment, capture_output=True, timeout=60,
                           check=False)
        for number in range(1, SHARDS + 1):
            pid = process_of_shard(self.room, number)
            if pid:
                os.kill(pid, signal.SIGKILL)
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(timeout=15)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()

    def ask(self, *command):
        for process in self.processes:
            if process.poll() is not None:
                raise RuntimeError(f"{process.args[0]} ended with status {process.returncode}; see {self.room}")
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=120)
        return done.stdout

    def order(self, *command):
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=120,
                              cwd=self.room)
        if done.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: {done.stderr.strip()}")
        return done.stdout.strip()

    def running(self):
        """Array task: node."""
        lines = self.ask("squeue", "-h", "-t", "R", "-n", "csrt-shard", "-o", "%K %N").splitlines()
        return dict(line.split() for line in lines if len(line.split()) == 2)


def material(track, room):
    """A clip and eight targets that begin at different times: two for each shard."""
    clip, truth = f"{room}/clip.avi", f"{room}/clip.csv"
    subprocess.run([track, "draw-scene", clip, "--frames", str(FRAMES)], check=True, stdout=subprocess.DEVNULL)
    with open(truth, "w") as file:
        file.write("frame,id,x,y,w,h\n")
        for target in range(TARGETS):
            for frame in range(1 + 4 * target, FRAMES + 1):
                file.write(f"{frame},{target},{116 + 2 * frame + 3 * target},165,32,60\n")


def without_times(path):
    """A result as it is the same on every machine: no timings, targets by name, not how it was divided."""
    def plain(value):
        if isinstance(value, dict):
            return {key: plain(inner) for key, inner in value.items() if "_ms" not in key}
        return [plain(inner) for inner in value] if isinstance(value, list) else value
    with open(path) as file:
        result = plain(json.load(file))
    result["run"].pop("shard", None)
    result["targets"].sort(key=lambda target: target["target"])
    return result


class Check:
    def __init__(self):
        self.failed = False

    def judge(self, name, holds, figures):
        self.failed = self.failed or not holds
        print(f"{name}: {'ok' if holds else 'NOT OK'}: {figures}", flush=True)

    def run(self, track, room):
        material(track, room)
        os.makedirs(f"{room}/out")
        shard, merge = f"{EXAMPLES}/slurm-shard.sh", f"{EXAMPLES}/slurm-merge.sh"
        with Slurm(room, os.path.dirname(track)) as slurm:
            # Not afterok: it counts the killed attempt as well. `merge` itself says which shard is missing.
            array = slurm.order("sbatch", "--parsable", shard)
            merging = slurm.order("sbatch", "--parsable", f"--dependency=afterany:{array}", merge)
            killed = self.kill_one(room, slurm)
            drained = self.drain_one(room, slurm, array)
            done = until("the merging job", lambda: re.search(r"JobState=(COMPLETED|FAILED|CANCELLED) .*", slurm.ask(
                "scontrol", "show", "job", merging)))
        with open(f"{room}/slurmctld.log") as file:
            starts = re.findall(r"Allocate JobId=\d+_(\d+)\(\d+\) NodeList=(\w+)", file.read())
        nodes = {str(number): [node for task, node in starts if task == str(number)] for number in range(1, SHARDS + 1)}
        self.judge("killed half-way", len(nodes[killed]) == 2, f"shard {killed} on {', then '.join(nodes[killed])}")
        self.judge("node drained", nodes[drained] == ["two", "one"], f"shard {drained} on {', then '.join(nodes[drained])}")
        others = [number for number in nodes if number not in (killed, drained)]
        self.judge("the others ran once", all(len(nodes[number]) == 1 for number in others), ", ".join(others))
        self.judge("merged by the dependent job", done.group(1) == "COMPLETED", done.group(0).strip())
        subprocess.run([track, "evaluate", "clip.avi", "--truth", "clip.csv", "--pace", "video", "--json", "one.json"],
                       check=True, stdout=subprocess.DEVNULL, cwd=room)
        one, merged = without_times(f"{room}/one.json"), without_times(f"{room}/all.json")
        self.judge("equal to one process", one == merged and len(one["targets"]) == TARGETS,
                   f"{len(merged['targets'])} targets, {merged['overall']['plugin']['updates']} updates")

    def running_shard(self, room, slurm, node):
        """A shard whose program runs on the node: its number and process. It is stopped, so that it stays half-way."""
        for task, where in slurm.running().items():
            pid = process_of_shard(room, task) if where == node else 0
            try:
                if not pid:
                    continue
                os.kill(pid, signal.SIGSTOP)
                if not os.path.exists(f"{room}/out/{task}.json"):
                    return task, pid
                os.kill(pid, signal.SIGCONT)
            except ProcessLookupError:
                pass
        return None

    def kill_one(self, room, slurm):
        """A shard's program is killed as the system does when memory runs out; the job puts itself back into the queue."""
        task, pid = until("a shard on node one", lambda: self.running_shard(room, slurm, "one"))
        os.kill(pid, signal.SIGKILL)
        return task

    def drain_one(self, room, slurm, array):
        """A node is taken out while it works; its job is put back into the queue."""
        task, pid = until("a shard on node two", lambda: self.running_shard(room, slurm, "two"))
        slurm.order("scontrol", "update", "NodeName=two", "State=DRAIN", "Reason=test")
        slurm.order("scontrol", "requeue", f"{array}_{task}")
        os.kill(pid, signal.SIGCONT)  # Slurm's SIGTERM is to reach it
        state = slurm.ask("sinfo", "-h", "-n", "two", "-o", "%T").strip()
        self.judge("node two", state in ("draining", "drained"), state)
        return task


def missing(build):
    lacking = [program for program in PROGRAMS if shutil.which(program) is None and
               not os.path.exists("/usr/sbin/" + program)]
    if lacking:
        return ["not installed: " + ", ".join(lacking)]
    if os.geteuid() != 0:
        return ["this is not root"]
    return [] if os.path.exists(os.path.join(build, "bin", "csrt-track")) else [f"there is no csrt-track in {build}"]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--keep")
    options = parser.parse_args()
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    if missing(options.build):
        print("skipped: " + "; ".join(missing(options.build)))
        sys.exit(77)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that Slurm ends with us
    check, track = Check(), os.path.abspath(os.path.join(options.build, "bin", "csrt-track"))
    if options.keep:
        shutil.rmtree(options.keep, ignore_errors=True)
        os.makedirs(options.keep, 0o755)
        check.run(track, os.path.realpath(options.keep))
    else:
        with tempfile.TemporaryDirectory() as room:
            os.chmod(room, 0o755)
            check.run(track, os.path.realpath(room))
    sys.exit(1 if check.failed else 0)


main()
