#!/usr/bin/env python3
"""Plants faults nobody picked: N sites drawn at random, one at a time, then the tests.

    tools/mutate-random.py [--count N] [--seed S] [--timeout SECONDS] [--list] [--only NAME,...]

The sites come from the library's and the tools' sources (src/, twiss/, optics/) and
the operators of tools/mutation_sites.py; the same seed and sources draw the same
mutants. Each is built and tested in a copy of the tree as tools/mutate.py does. A
survivor named in tests/equivalent-mutants.txt (its name, then why no input can tell
it from the original) counts as equivalent; a mutant that does not build counts for
nothing. The table at the end gives, per folder, the killed share of the others.
--list only prints the drawn mutants; --only keeps those of the draw with these names
(to try survivors again once they have a test).
"""
import argparse
import collections
import os
import random
import sys
import time

from mutation import ROOT, Workshop
from mutation_sites import FOLDERS, file_sites


def sources():
    return sorted(os.path.join(folder, name) for folder in FOLDERS
                  for name in os.listdir(os.path.join(ROOT, folder))
                  if name.endswith((".cpp", ".h")))


def draw(count, seed):
    """(name, site, original text) for `count` sites drawn with the seed; one of each
    site's changes, drawn too."""
    every = []
    for name in sources():
        with open(os.path.join(ROOT, name), encoding="utf-8") as f:
            source = f.read()
        # One entry per place; the place's changes are drawn among in a second step.
        places = collections.OrderedDict()
        for site in file_sites(name, source):
            places.setdefault((site.line, site.column, site.operator), []).append(site)
        every += [(name, changes, source) for changes in places.values()]
    chooser = random.Random(seed)
    drawn = chooser.sample(every, min(count, len(every)))
    return [(name, chooser.choice(changes), source) for name, changes, source in drawn]


def read_equivalents(path):
    """Names of mutants no input can tell apart, each with the reason."""
    equivalents = {}
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            for line in f:
                if line.strip() and not line.startswith("#"):
                    name, _, why = line.strip().partition(" ")
                    equivalents[name] = why
    return equivalents


def describe(name, site, source):
    lines = source.split("\n")
    return (site.ident(lines), f"{name}:{site.line + 1}",
            lines[site.line].strip(), site.apply_lines(lines).split("\n")[0].strip())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--count", type=int, default=40)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--timeout", type=int, default=300)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--only", default="")
    args = parser.parse_args()
    mutants = draw(args.count, args.seed)
    if args.only:
        wanted = set(args.only.split(","))
        mutants = [m for m in mutants if describe(*m)[0] in wanted]
    if args.list:
        for name, site, source in mutants:
            ident, where, before, after = describe(name, site, source)
            print(f"{ident}  {where}\n    {before}\n    {after}")
        return 0

    equivalents = read_equivalents(os.path.join(ROOT, "tests", "equivalent-mutants.txt"))
    workshop, results, started = Workshop(), [], time.time()
    for name, site, source in mutants:
        begin = time.time()
        outcome = workshop.outcome(name, site.apply(source), args.timeout)
        ident, where, before, after = describe(name, site, source)
        if outcome == "survived" and ident in equivalents:
            outcome = "equivalent"
        results.append((name, outcome))
        print(f"{outcome:10} {time.time() - begin:6.1f} s  {ident}  {where}\n"
              f"    {before}\n    {after}", flush=True)
    workshop.close()

    print(f"\nmutate-random: {len(results)} mutants, seed {args.seed}, "
          f"in {time.time() - started:.0f} s")
    print("| folder | killed | hung | survived | equivalent | unbuilt | killed share |")
    print("|---|---|---|---|---|---|---|")
    survivors = 0
    for folder in FOLDERS:
        counts = collections.Counter(o for n, o in results if n.startswith(folder + "/"))
        counted = counts["killed"] + counts["hang"] + counts["survived"]
        share = f"{100 * (counts['killed'] + counts['hang']) / counted:.0f} %" if counted else "-"
        print(f"| {folder} | {counts['killed']} | {counts['hang']} | {counts['survived']} | "
              f"{counts['equivalent']} | {counts['unbuilt']} | {share} |")
        survivors += counts["survived"]
    return 0 if survivors == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
