"""Reads the binary moments file of twiss-optics as a user of numpy would.

    read_moments.py TWISS_OPTICS EXAMPLE_DIR README

Runs the tool on a copy of the example with --save-moments in both forms, reads the
binary one with the example script (which the README must show verbatim) and checks
every count and number against the JSON form's, exactly. Exits 77 (skipped) when numpy
cannot be imported.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

try:
    import numpy as np  # noqa: F401 (the example script needs it)
except ImportError as missing:
    print(f"skipped: numpy is not installed for {sys.executable} ({missing})")
    sys.exit(77)


def check(condition, message):
    if not condition:
        print("FAILED:", message)
        sys.exit(1)


def compare(tool, run, measures, read_moments, sets_of):
    """Saves the run's moments of these measures in both forms; the binary one read with
    numpy must hold every count and number of the JSON one. Returns the number of planes."""
    for name in ("m.bin", "m.json"):
        subprocess.run([tool, "-q", "-o", "t.csv", "--measures", measures, "--save-moments",
                        name], cwd=run, check=True)
    header, counts, sets = read_moments(os.path.join(run, "m.bin"))
    with open(os.path.join(run, "m.json")) as f:
        text = json.load(f)
    planes = text.pop("planes")
    check(header == text, "the header is not the JSON form without its planes")
    check(counts.shape == (len(planes), 7), f"counts of shape {counts.shape}")
    check(sorted(sets) == sorted(name for name, _ in sets_of(header)), f"sets {sorted(sets)}")
    check(len(sets) == (5 if measures == "2d" else 9), f"{len(sets)} sets of {measures}")
    for k, plane in enumerate(planes):
        flags = [plane["n"], plane["n_back"], plane["left_out"], "species" in plane,
                 plane.get("species", 0), plane["mixed_species"], plane["unknown_species"]]
        check(list(counts[k]) == [int(v) for v in flags], f"plane {k}: counts {counts[k]}")
        check(sorted(plane) == sorted(list(sets) + ["n", "n_back", "left_out", "species",
                                                     "mixed_species", "unknown_species"]),
              f"plane {k}: keys {sorted(plane)}")
        for name in sets:
            numbers = [float.fromhex(v) for v in plane[name].split()]
            check(list(sets[name][k]) == numbers, f"plane {k}: {name} differs")
    return len(planes)


def main():
    tool, example, readme = sys.argv[1], sys.argv[2], sys.argv[3]
    script = os.path.abspath(os.path.join(example, "..", "read_moments.py"))
    with open(script) as f, open(readme) as r:
        shown = "".join("    " + line if line.strip() else line for line in f)
        check(shown in r.read(), "the README does not show examples/read_moments.py as it is")
    sys.path.insert(0, os.path.dirname(script))
    from read_moments import read_moments, sets_of
    with tempfile.TemporaryDirectory() as work:
        run = os.path.join(work, "run")
        shutil.copytree(example, run)
        for measures in ("all", "2d"):
            planes = compare(tool, run, measures, read_moments, sets_of)
        shown = subprocess.run([sys.executable, script, "m.bin"], cwd=run, check=True,
                               capture_output=True, text=True).stdout
        check(shown.startswith("s = 250 mm: n = 195, mean x = ") and
              shown.count("\n") == planes, f"the example script printed {shown!r}")
    print(f"read {planes} planes of moments with numpy {np.__version__}")


if __name__ == "__main__":
    main()
