#!/usr/bin/env python3
"""Puts one small fault at a time into a copy of the tree and runs the tests.

    tools/mutate.py [--list tests/mutants.txt] [--only ID,...] [--timeout SECONDS]

Each mutant of the list replaces one exact text of one file. For each, the copy is
rebuilt incrementally and the tests run with a time limit; then the file is restored.
A mutant is killed when a test fails (or the build does), a hang when the tests run out
of time, survived when every test passes, and stale when its text is not found exactly
once. The last line counts killed and hung mutants as passed, the others as failed.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def read_mutants(path):
    """Blocks of 'key value' lines separated by blank lines; \\n in a value is a newline."""
    mutants, current = [], {}
    with open(path, encoding="utf-8") as f:
        for line in f.read().split("\n") + [""]:
            if line.startswith("#"):
                continue
            if not line.strip():
                if current:
                    mutants.append(current)
                    current = {}
                continue
            key, _, value = line.partition(" ")
            current[key] = value.replace("\\n", "\n")
    for m in mutants:
        for key in ("id", "file", "from", "to", "sees"):
            if key not in m:
                sys.exit(f"mutate: mutant {m.get('id', '?')} has no '{key}'")
    return mutants


def run(command, cwd, timeout=None):
    """Exit status of a command, or None when it ran out of time."""
    try:
        return subprocess.run(command, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--list", default=os.path.join(ROOT, "tests", "mutants.txt"))
    parser.add_argument("--only", default="")
    parser.add_argument("--timeout", type=int, default=300)
    args = parser.parse_args()
    mutants = read_mutants(args.list)
    if args.only:
        wanted = set(args.only.split(","))
        mutants = [m for m in mutants if m["id"] in wanted]

    work = tempfile.mkdtemp(prefix="mutate-")
    tree, build = os.path.join(work, "tree"), os.path.join(work, "build")
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT,
                           capture_output=True, text=True, check=True).stdout.split()
    for name in files:
        os.makedirs(os.path.dirname(os.path.join(tree, name)) or tree, exist_ok=True)
        shutil.copy2(os.path.join(ROOT, name), os.path.join(tree, name))
    jobs = str(os.cpu_count() or 2)
    if run(["cmake", "-S", tree, "-B", build, "-DCMAKE_BUILD_TYPE=Release"], tree) != 0 or \
            run(["cmake", "--build", build, "-j", jobs], tree) != 0:
        sys.exit("mutate: the unchanged tree does not build")

    results, started = [], time.time()
    for m in mutants:
        path = os.path.join(tree, m["file"])
        with open(path, encoding="utf-8") as f:
            original = f.read()
        if original.count(m["from"]) != 1:
            results.append((m, "stale", 0.0))
            continue
        begin = time.time()
        with open(path, "w", encoding="utf-8") as f:
            f.write(original.replace(m["from"], m["to"]))
        try:
            if run(["cmake", "--build", build, "-j", jobs], tree) != 0:
                outcome = "killed"  # the fault does not even build
            else:
                status = run(["ctest", "-j", jobs, "--stop-on-failure", "--timeout", "120"],
                             build, timeout=args.timeout)
                outcome = "hang" if status is None else ("killed" if status != 0 else "survived")
        finally:
            with open(path, "w", encoding="utf-8") as f:
                f.write(original)
            # The restored file must be newer than the objects built from the mutant.
            os.utime(path)
        results.append((m, outcome, time.time() - begin))
        print(f"{m['id']:28} {outcome:9} {time.time() - begin:6.1f} s", flush=True)

    print()
    print("| mutant | file | outcome | what a user would see |")
    print("|---|---|---|---|")
    for m, outcome, _ in results:
        print(f"| {m['id']} | {m['file']} | {outcome} | {m['sees']} |")
    passed = sum(1 for _, o, _ in results if o in ("killed", "hang"))
    print(f"\nmutate: {len(results)} mutants in {time.time() - started:.0f} s")
    shutil.rmtree(work, ignore_errors=True)
    print(f"{passed} passed, {len(results) - passed} failed")
    return 0 if passed == len(results) else 1


if __name__ == "__main__":
    sys.exit(main())
