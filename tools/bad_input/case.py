"""One case: a command line, what is expected of it, and how it is tried."""
import dataclasses
import os
import shutil
import subprocess
import time
from typing import Callable, Optional

LONGEST_S = 20  # far more than any case needs; a program that hangs is ended
NEVER_SHOWN = ("OpenCV(", "Assertion", "terminate called", "std::", "[json.exception", "cv::", "unexpected:")


@dataclasses.dataclass(eq=False)
class Case:
    """`args` are csrt-track's; all files lie in the case's own folder, which begins as a copy of the material."""

    group: str
    name: str
    args: list
    status: int
    says: tuple = ()  # parts of standard error, or of both outputs where it is not a failure
    keeps: tuple = ()  # files that must be as they were, byte for byte
    leaves: tuple = ()  # files that must be there and not empty
    leaves_not: tuple = ()
    one_line: Optional[bool] = None  # exactly one line on standard error; default: for statuses 2 to 6
    prepare: Optional[Callable] = None  # called with the folder
    check: Optional[Callable] = None  # called with the folder and the result; returns a fault or None
    while_running: Optional[Callable] = None  # called with the folder and the process
    shell: str = ""  # run by bash instead, with $CSRT as the program
    not_root: bool = False  # root may read and write everything


class Result:
    def __init__(self, status, out, err):
        self.status = status
        self.out = out
        self.err = err


def contents(path):
    if os.path.isdir(path):
        return tuple((name, contents(os.path.join(path, name))) for name in sorted(os.listdir(path)))
    with open(path, "rb") as file:
        return file.read()


def start(case, program, folder):
    command = ["bash", "-c", case.shell] if case.shell else [program] + [str_or_bytes(a) for a in case.args]
    out = open(os.path.join(folder, ".out"), "wb")
    err = open(os.path.join(folder, ".err"), "wb")
    nobody = {"user": 65534, "group": 65534, "extra_groups": []} if case.not_root and os.geteuid() == 0 else {}
    with out, err:
        return subprocess.Popen(command, cwd=folder, stdout=out, stderr=err, env=dict(os.environ, CSRT=program),
                                stdin=subprocess.DEVNULL, **nobody)


def str_or_bytes(argument):
    return argument if isinstance(argument, bytes) else os.fsencode(argument)


def read(folder, name):
    with open(os.path.join(folder, name), "rb") as file:
        return file.read().decode("utf-8", "backslashreplace")


def run(case, program, folder):
    process = start(case, program, folder)
    try:
        if case.while_running:
            case.while_running(folder, process)
        process.wait(timeout=LONGEST_S)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return Result("hangs", read(folder, ".out"), read(folder, ".err"))
    return Result(process.returncode, read(folder, ".out"), read(folder, ".err"))


def faults_of(case, folder, before, result):
    said = result.out + result.err
    if result.status != case.status:
        yield f"ends with {result.status} and not with {case.status}; says: {said.strip()[-300:]}"
    failure = 2 <= case.status <= 6
    for part in case.says:
        if part not in (result.err if failure else said):
            yield f"does not say '{part}'; says: {said.strip()[-300:]}"
    for never in NEVER_SHOWN:
        if never in said:
            yield f"shows '{never}': {said.strip()[-300:]}"
    one_line = failure if case.one_line is None else case.one_line
    if one_line and (result.err.count("\n") != 1 or not result.err.startswith("csrt-track: ")):
        yield f"does not say one sentence: {result.err.strip()[-400:]}"
    for name, content in before.items():
        path = os.path.join(folder, name)
        if not os.path.lexists(path) or contents(path) != content:
            yield f"'{name}' is not as it was"
    for name in case.leaves:
        path = os.path.join(os.fsencode(folder), str_or_bytes(name))
        if not os.path.exists(path) or not os.path.getsize(path):
            yield f"'{name}' is not there or empty"
    for name in case.leaves_not:
        if os.path.lexists(os.path.join(folder, name)):
            yield f"'{name}' is left behind"
    for place, folders, files in os.walk(os.fsencode(folder)):
        for name in files:
            if b".csrt-track-" in name:
                yield f"a temporary file is left behind: {os.path.join(place, name)!r}"
    if case.check:
        try:
            fault = case.check(folder, result)
        except (OSError, ValueError, KeyError, IndexError) as error:
            fault = f"what it leaves cannot be judged: {error}"
        if fault:
            yield fault


def run_case(case, program, template, folder):
    """The faults of a case, as sentences; empty when all is as expected."""
    shutil.copytree(template, folder, symlinks=True)
    try:
        os.chmod(folder, 0o777)
        if case.prepare:
            case.prepare(folder)
        before = {name: contents(os.path.join(folder, name)) for name in case.keeps}
        return list(faults_of(case, folder, before, run(case, program, folder)))
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def wait_for_lines(name, count, process, folder):
    """Until a file that a running program writes has so many lines."""
    end = time.monotonic() + LONGEST_S
    while process.poll() is None and time.monotonic() < end:
        path = os.path.join(folder, name)
        if os.path.exists(path):
            with open(path, "rb") as file:
                if file.read().count(b"\n") >= count:
                    return
        time.sleep(0.01)


def write(folder, name, text):
    """For prepare: makes a file; text or bytes."""
    path = os.path.join(os.fsencode(folder), str_or_bytes(name))
    with open(path, "wb") as file:
        file.write(text.encode() if isinstance(text, str) else text)


def files(**texts):
    """prepare that writes files; a name's '__' stands for its dot."""
    def prepare(folder):
        for name, text in texts.items():
            write(folder, name.replace("__", "."), text)
    return prepare
