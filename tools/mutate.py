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
import sys
import time

from mutation import ROOT, Workshop


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

    workshop = Workshop()
    results, started = [], time.time()
    for m in mutants:
        original = workshop.read(m["file"])
        if original.count(m["from"]) != 1:
            results.append((m, "stale", 0.0))
            continue
        begin = time.time()
        outcome = workshop.outcome(m["file"], original.replace(m["from"], m["to"]), args.timeout)
        if outcome == "unbuilt":
            outcome = "killed"  # the fault does not even build
        results.append((m, outcome, time.time() - begin))
        print(f"{m['id']:28} {outcome:9} {time.time() - begin:6.1f} s", flush=True)

    print()
    print("| mutant | file | outcome | what a user would see |")
    print("|---|---|---|---|")
    for m, outcome, _ in results:
        print(f"| {m['id']} | {m['file']} | {outcome} | {m['sees']} |")
    passed = sum(1 for _, o, _ in results if o in ("killed", "hang"))
    print(f"\nmutate: {len(results)} mutants in {time.time() - started:.0f} s")
    workshop.close()
    print(f"{passed} passed, {len(results) - passed} failed")
    return 0 if passed == len(results) else 1


if __name__ == "__main__":
    sys.exit(main())
