"""What tools/unit-check.sh does: judges the unit file and runs the program under its restrictions."""
import argparse
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from live_senders import free_port, own_sender

MOST_EXPOSED = 3.0
NAME = "front"
NAMESPACES = 0x7E020000  # CLONE_NEWNS, NEWCGROUP, NEWUTS, NEWIPC, NEWUSER, NEWPID, NEWNET
BOX = "40,160,48,64"


def settings_of(path):
    """Section.Key: all values, in order."""
    found, section = {}, ""
    with open(path) as file:
        for line in file:
            line = line.strip()
            if line.startswith("["):
                section = line.strip("[]")
            elif line and not line.startswith("#"):
                key, value = line.split("=", 1)
                found.setdefault(f"{section}.{key}", []).append(value.replace("%i", NAME))
    return found


class UnitCheck:
    def __init__(self, options):
        self.options, self.failed = options, False
        self.unit = os.path.join(options.root, "packaging", "systemd", "csrt-track@.service")
        self.settings = settings_of(self.unit)

    def judge(self, name, holds, figures):
        self.failed = self.failed or not holds
        print(f"{name}: {'ok' if holds else 'NOT OK'}: {figures}", flush=True)

    def one(self, key):
        return self.settings.get("Service." + key, [""])[-1]

    # ------------------------------------------------------------------------------------------------ the file

    def file(self):
        done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", self.unit],
                              capture_output=True, text=True)
        found = re.search(r"exposure level .*: ([0-9.]+)", done.stdout)
        level = float(found.group(1)) if found else float("nan")
        self.judge("exposure", level <= MOST_EXPOSED, f"{level}, at most {MOST_EXPOSED} {done.stderr.strip()}")
        with tempfile.TemporaryDirectory() as room:
            # The programs need not be installed here; verify looks for them.
            with open(self.unit) as file:
                text = file.read().replace("/usr/bin/csrt-track", "/bin/true").replace(
                    "/usr/lib/csrt-track/restart-pause", "/bin/true")
            copy = os.path.join(room, f"csrt-track@{NAME}.service")
            with open(copy, "w") as file:
                file.write(text)
            done = subprocess.run(["systemd-analyze", "verify", "--man=no", copy], capture_output=True, text=True)
        own = [line for line in done.stderr.splitlines() if "csrt-track" in line]
        self.judge("verify", done.returncode == 0 and not own, "; ".join(own) or "nothing to say")

    # --------------------------------------------------------------------------------------------- the program

    def allowed_calls(self):
        """The names of the system calls that SystemCallFilter= leaves."""
        groups = {}

        def names(group):
            if group not in groups:
                done = subprocess.run(["systemd-analyze", "syscall-filter", group], capture_output=True, text=True,
                                      check=True)
                groups[group] = set()
                for line in done.stdout.splitlines()[1:]:
                    word = line.strip()
                    if word.startswith("@"):
                        groups[group] |= names(word)
                    elif word and not word.startswith("#"):
                        groups[group].add(word)
            return groups[group]

        allowed = names("@default")
        for value in self.settings["Service.SystemCallFilter"]:
            chosen = set().union(*(names(word) for word in value.lstrip("~").split()))
            allowed = allowed - chosen if value.startswith("~") else allowed | chosen
        return allowed

    def filter_file(self, path):
        """The unit's filter as the kernel takes it."""
        import errno
        import seccomp
        rules = seccomp.SyscallFilter(defaction=seccomp.ERRNO(errno.EPERM))
        # RestrictNamespaces=yes: neither entered nor made; clone3 hides its flags, and without it clone is used.
        names = self.allowed_calls() - {"unshare", "setns", "clone", "clone3"}
        rules.add_rule(seccomp.ALLOW, "clone", seccomp.Arg(0, seccomp.MASKED_EQ, NAMESPACES, 0))
        rules.add_rule(seccomp.ERRNO(errno.ENOSYS), "clone3")
        families = [getattr(socket, word) for word in self.one("RestrictAddressFamilies").split()]
        for name in sorted(names | {"execve"}):
            try:
                if name == "socket":
                    for family in families:
                        rules.add_rule(seccomp.ALLOW, name, seccomp.Arg(0, seccomp.EQ, family))
                else:
                    rules.add_rule(seccomp.ALLOW, name)
            except (ValueError, RuntimeError):
                pass  # another processor's
        with open(path, "wb") as file:
            rules.export_bpf(file)

    def sandbox(self, room, bpf):
        """The command before the program, and the environment; what is bound is at the paths that systemd uses."""
        folders = {"RUNTIME": "/run", "STATE": "/var/lib", "CACHE": "/var/cache"}
        command = ["bwrap", "--unshare-user", "--unshare-ipc", "--uid", "64321", "--gid", "64321", "--cap-drop", "ALL",
                   "--die-with-parent", "--new-session", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                   "--tmpfs", "/home", "--tmpfs", "/root", "--tmpfs", "/run", "--tmpfs", "/tmp", "--tmpfs", "/var/tmp",
                   "--tmpfs", "/var/lib", "--tmpfs", "/var/cache"]
        environment = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "HOME": "/", "USER": f"csrt-track-{NAME}"}
        for name, base in folders.items():
            folder = os.path.join(room, name)
            os.mkdir(folder)
            inside = os.path.join(base, self.one(name.capitalize() + "Directory"))
            command += ["--bind", folder, inside]
            environment[name + "_DIRECTORY"] = inside
        # The build may lie below a folder that was just hidden.
        command += ["--ro-bind", self.options.root, self.options.root, "--ro-bind", self.options.build,
                    self.options.build, "--chdir", environment["STATE_DIRECTORY"], "--seccomp", str(bpf)]
        for value in self.settings.get("Service.Environment", []):
            key, text = value.split("=", 1)
            environment[key] = text.replace("%C", "/var/cache").replace("%S", "/var/lib")
        return command, environment

    def run_inside(self, room, command, **more):
        with open(os.path.join(room, "filter"), "rb") as bpf:
            before, environment = self.sandbox(tempfile.mkdtemp(dir=room), bpf.fileno())
            return subprocess.run([*before, *command], env=environment, pass_fds=[bpf.fileno()], capture_output=True,
                                  text=True, timeout=60, **more)

    def is_closed(self, room):
        """What must fail inside does fail, and what must work does."""
        test = """
import os, socket, ctypes
def said(what, call):
    try:
        call()
        print(what, "yes")
    except OSError as e:
        print(what, "no")
libc = ctypes.CDLL(None, use_errno=True)
def libc_call(name, *args):
    if getattr(libc, name)(*args) != 0:
        raise OSError(ctypes.get_errno(), name)
said("own-folder", lambda: open("file", "w").write("x"))
said("tmp", lambda: open("/tmp/file", "w").write("x"))
said("inet", lambda: socket.socket(socket.AF_INET).close())
said("unix", lambda: socket.socket(socket.AF_UNIX).close())
said("usr", lambda: open("/usr/x", "w"))
said("etc", lambda: open("/etc/x", "w"))
said("packet", lambda: socket.socket(socket.AF_PACKET, socket.SOCK_RAW).close())
said("netlink", lambda: socket.socket(socket.AF_NETLINK, socket.SOCK_RAW).close())
said("mount", lambda: libc_call("mount", b"none", b"/tmp", b"tmpfs", 0, None))
said("namespace", lambda: libc_call("unshare", 0x10000000))
said("clock", lambda: libc_call("settimeofday", ctypes.create_string_buffer(16), None))
said("chroot", lambda: os.chroot("/tmp"))
said("priority", lambda: libc_call("setpriority", 0, 0, -5))
"""
        done = self.run_inside(room, ["/usr/bin/python3", "-c", test])
        answers = dict(line.split() for line in done.stdout.splitlines())
        wanted = {"own-folder": "yes", "tmp": "yes", "inet": "yes", "unix": "yes"}
        wanted.update({key: "no" for key in ("usr", "etc", "packet", "netlink", "mount", "namespace", "clock", "chroot",
                                             "priority")})
        wrong = [f"{key}: {answers.get(key, 'no answer')}" for key, value in wanted.items() if answers.get(key) != value]
        self.judge("the restrictions hold", not wrong, "; ".join(wrong) or f"{len(wanted)} tried {done.stderr[-200:]}")

    def program(self):
        track = os.path.join(self.options.build, "bin", "csrt-track")
        with tempfile.TemporaryDirectory() as room:
            os.chmod(room, 0o755)
            self.filter_file(os.path.join(room, "filter"))
            self.is_closed(room)
            port = free_port()
            sending = own_sender("rtsp", port, 180)
            inside = tempfile.mkdtemp(dir=room)
            with open(os.path.join(room, "filter"), "rb") as bpf, open(os.path.join(room, "said"), "w+") as said:
                before, environment = self.sandbox(inside, bpf.fileno())
                # As ExecStart= and an environment file put it together.
                command = self.one("ExecStart").replace("${CSRT_SOURCE}", f"rtsp://127.0.0.1:{port}/test").replace(
                    "${RUNTIME_DIRECTORY}", environment["RUNTIME_DIRECTORY"]).replace(
                    "$CSRT_OPTIONS", f"--box {BOX} --record-dir {environment['STATE_DIRECTORY']} --record-quota 20G")
                command = command.replace("/usr/bin/csrt-track", track).split()
                started = subprocess.Popen([*before, *command], env=environment, pass_fds=[bpf.fileno()], stderr=said,
                                           stdin=subprocess.DEVNULL)
                try:
                    camera = self.wait_for_picture(track, os.path.join(inside, "RUNTIME"))
                    peak = self.peak_mb(started.pid)
                finally:
                    self.stop(inside, started)
                    sending.end()
                said.seek(0)
                complaints = said.read().strip()
            kept = sorted(os.listdir(os.path.join(inside, "STATE")))
            self.judge("follows a live source inside", camera.get("state") == "tracked",
                       f"{json.dumps({k: v for k, v in camera.items() if k not in ('targets', 'socket')})} {complaints}")
            self.judge("keeps video and records", len(kept) >= 2, " ".join(kept))
            limit = int(re.fullmatch(r"(\d+)G", self.one("MemoryMax")).group(1)) * 1024
            self.judge("memory", 0 < peak < limit / 2, f"{peak} MB at its peak; the unit allows {limit}")

    def wait_for_picture(self, track, folder):
        """What `status` says, asked from outside as an administrator does; the last answer within the time."""
        camera, end = {}, time.monotonic() + 120
        while time.monotonic() < end:
            time.sleep(0.25)
            done = subprocess.run([track, "status", "--json", "--dir", folder], capture_output=True, text=True)
            cameras = json.loads(done.stdout)["cameras"] if done.stdout else []
            camera = cameras[0] if cameras else {}
            if camera.get("frames", 0) > 20 and camera.get("state") == "tracked":
                break
        return camera

    def peak_mb(self, pid):
        """Of the program below the sandbox's own process."""
        most = 0
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                with open(f"/proc/{entry}/status") as file:
                    text = file.read()
            except OSError:
                continue
            parent = int(re.search(r"PPid:\s+(\d+)", text).group(1))
            found = re.search(r"VmHWM:\s+(\d+)", text)
            if found and (int(entry) == pid or parent == pid):
                most = max(most, int(found.group(1)) // 1024)
        return most

    def stop(self, inside, process):
        try:
            with socket.socket(socket.AF_UNIX) as link:
                link.settimeout(10)
                link.connect(os.path.join(inside, "RUNTIME", "control"))
                link.sendall(b"stop\n")
                link.recv(4096)
        except OSError:
            process.send_signal(signal.SIGTERM)
        try:
            self.judge("ends in order", process.wait(timeout=20) == 0, f"exit {process.returncode}")
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            self.judge("ends in order", False, "had to be killed")


def missing(whole):
    lacking = [] if shutil.which("systemd-analyze") else ["systemd-analyze (systemd)"]
    if not whole or lacking:
        return lacking
    if shutil.which("bwrap") is None:
        lacking.append("bwrap (bubblewrap)")
    try:
        import seccomp  # noqa: F401
    except ImportError:
        lacking.append("python3-seccomp")
    test = "import gi; gi.require_version('GstRtspServer', '1.0'); from gi.repository import GstRtspServer"
    if subprocess.run(["/usr/bin/python3", "-c", test], capture_output=True).returncode != 0:
        lacking.append("python3-gi with gir1.2-gst-rtsp-server-1.0")
    if not lacking and subprocess.run(["bwrap", "--unshare-user", "--ro-bind", "/", "/", "--dev", "/dev", "--proc",
                                       "/proc", "true"], capture_output=True).returncode != 0:
        lacking.append("the right to make namespaces here")
    return lacking


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--file", action="store_true")
    options = parser.parse_args()
    if missing(not options.file):
        print("skipped: not there: " + ", ".join(missing(not options.file)))
        sys.exit(77)
    check = UnitCheck(options)
    check.file()
    if not options.file:
        check.program()
    sys.exit(1 if check.failed else 0)


main()
