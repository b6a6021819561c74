#!/usr/bin/env python3
"""Gives the built program bad input of every kind and looks at what it says and leaves behind.

usage: bad-input.py [--program PATH] [--jobs N] [--list] [--verbose] [WORD...]

Every case runs csrt-track in a folder of its own and expects an exit status and a part of its sentence; most also that
files stay as they are. Whatever the case: no signal ends the program, no assertion text is shown, nothing half-written
is left behind. With words: only the cases whose group or name has one of them. The table says how many of each group
were as expected.
Exit: 0 all were, 1 some were not, 2 wrong usage.
"""
import argparse
import concurrent.futures
import os
import signal
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "bad_input"))
import cases_files  # noqa: E402
import cases_guard  # noqa: E402
import cases_runs  # noqa: E402
import cases_sources  # noqa: E402
import cases_texts  # noqa: E402
import cases_usage  # noqa: E402
import material  # noqa: E402
from case import run_case  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def all_cases():
    cases = []
    for part in (cases_files, cases_guard, cases_runs, cases_sources, cases_texts, cases_usage):
        cases += part.cases()
    return cases


def report(cases, faults):
    groups = {}
    for case in cases:
        tried, good = groups.get(case.group, (0, 0))
        groups[case.group] = (tried + 1, good + (0 if faults[case] else 1))
    width = max(len(group) for group in groups)
    print(f"{'':{width}}  tried  as expected")
    for group, (tried, good) in groups.items():
        print(f"{group:{width}}  {tried:5}  {good:11}")


def main():
    signal.signal(signal.SIGHUP, signal.SIG_DFL)  # under nohup it is ignored, also by what is started here
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default=os.path.join(ROOT, "build", "bin", "csrt-track"))
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--verbose", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    cases = [c for c in all_cases() if not options.words or any(w in f"{c.group}: {c.name}" for w in options.words)]
    names = [(c.group, c.name) for c in cases]
    if len(set(names)) != len(names):
        parser.error(f"two cases of one name: {sorted(n for n in names if names.count(n) > 1)[0]}")
    if options.list:
        for case in cases:
            print(f"{case.group}: {case.name}")
        return 0
    program = os.path.abspath(options.program)
    if not os.access(program, os.X_OK):
        parser.error(f"'{program}' is not there; build it first")
    os.environ["CSRT_PROGRAM"] = program
    begin = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="bad-input-") as top:
        os.chmod(top, 0o755)
        template = os.path.join(top, "material")
        material.make(program, template)
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            jobs = {case: pool.submit(run_case, case, program, template, os.path.join(top, str(number)))
                    for number, case in enumerate(cases)}
            faults = {case: job.result() for case, job in jobs.items()}
    for case in cases:
        if faults[case]:
            print(f"NOT AS EXPECTED  {case.group}: {case.name}")
            for fault in faults[case]:
                print(f"    {fault}")
        elif options.verbose:
            print(f"as expected      {case.group}: {case.name}")
    report(cases, faults)
    bad = sum(1 for case in cases if faults[case])
    print(f"{len(cases)} cases in {time.monotonic() - begin:.0f} s, {bad} not as expected")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
