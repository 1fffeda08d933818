"""Reads the particle file of twiss-optics as a user of h5py would.

    read_particles.py TWISS_OPTICS EXAMPLE_DIR README

Runs the tool on a copy of the example with --particles, then opens the file with
h5py and checks the root attributes, the units of every record and component, the
species names, and that the weighted mean and width of x at every plane are those of
the optics table; then runs the example script that the README shows (and must show
verbatim). Exits 77 (skipped) when h5py cannot be imported.
"""
import csv
import os
import shutil
import subprocess
import sys
import tempfile

try:
    import h5py
    import numpy as np
except ImportError as missing:
    print(f"skipped: h5py is not installed for {sys.executable} ({missing})")
    sys.exit(77)

MEV_PER_C = 1e6 * 1.602176634e-19 / 299792458.0
LENGTH, MOMENTUM = [1, 0, 0, 0, 0, 0, 0], [1, 1, -1, 0, 0, 0, 0]
TIME, CHARGE, NONE = [0, 0, 1, 0, 0, 0, 0], [0, 0, 1, 1, 0, 0, 0], [0] * 7
UNITS = {
    "position/x": (LENGTH, 1e-3), "position/y": (LENGTH, 1e-3), "position/z": (LENGTH, 1e-3),
    "momentum/x": (MOMENTUM, MEV_PER_C), "momentum/y": (MOMENTUM, MEV_PER_C),
    "momentum/z": (MOMENTUM, MEV_PER_C), "time": (TIME, 1e-9), "weight": (CHARGE, 1.0),
    "id": (NONE, 1.0), "particleStatus": (NONE, 1.0), "sPosition": (LENGTH, 1.0),
}
ROOT = {
    "openPMD": b"2.0.0", "openPMDextension": b"BeamPhysics;SpeciesType",
    "dataType": b"openPMD", "basePath": b"/data/%T/", "particlesPath": b"particles/",
    "iterationEncoding": b"groupBased", "iterationFormat": b"/data/%T/",
    "software": b"twiss-optics",
}


def check(condition, message):
    if not condition:
        print("FAILED:", message)
        sys.exit(1)


def main():
    tool, example, readme = sys.argv[1], sys.argv[2], sys.argv[3]
    script = os.path.join(example, "..", "read_particles.py")
    with open(script) as f, open(readme) as r:
        shown = "".join("    " + line if line.strip() else line for line in f)
        check(shown in r.read(), "the README does not show examples/read_particles.py as it is")
    with tempfile.TemporaryDirectory() as work:
        run = os.path.join(work, "run")
        shutil.copytree(example, run)
        subprocess.run([tool, "-q", "--particles", "beam.h5"], cwd=run, check=True)
        with open(os.path.join(run, "twiss.optics.csv"), newline="") as table:
            rows = list(csv.DictReader(table))
        with h5py.File(os.path.join(run, "beam.h5"), "r") as f:
            for name, value in ROOT.items():
                check(f.attrs[name] == value, f"root attribute {name}: {f.attrs[name]!r}")
            # h5py lists the iterations in text order: 0, 1, 10, 11, ..., 2, ...
            iterations = sorted(f["data"], key=int)
            check(iterations == [str(k) for k in range(len(rows))], f"iterations {iterations}")
            for k in iterations:
                species = f[f"data/{k}/particles"]
                check(set(species) <= {"anti-muon", "muon", "electron", "positron", "photon"},
                      f"species {list(species)}")
                xs, ws = [], []
                for name, group in species.items():
                    check(group.attrs["speciesType"] == name.encode(), f"speciesType of {name}")
                    for record, (dimension, unit) in UNITS.items():
                        node = group[record]
                        check(list(node.attrs["unitDimension"]) == dimension,
                              f"unitDimension of {k}/{name}/{record}")
                        check(abs(node.attrs["unitSI"] - unit) <= 1e-15 * unit,
                              f"unitSI of {k}/{name}/{record}")
                    xs.append(group["position/x"][:])
                    ws.append(group["weight"][:])
                x, w = np.concatenate(xs), np.concatenate(ws)
                mean = np.sum(w * x) / np.sum(w)
                sigma = np.sqrt(np.sum(w * (x - mean) ** 2) / np.sum(w))
                row = rows[int(k)]
                check(int(row["n"]) == len(x), f"plane {k}: n {row['n']} against {len(x)}")
                check(abs(float(row["mean_x_mm"]) - mean) <= 1e-9 * abs(mean) + 1e-12,
                      f"plane {k}: mean {row['mean_x_mm']} against {mean}")
                check(abs(float(row["sigma_x_mm"]) - sigma) <= 1e-9 * sigma,
                      f"plane {k}: sigma {row['sigma_x_mm']} against {sigma}")
        shown = subprocess.run([sys.executable, script], cwd=run, check=True,
                               capture_output=True, text=True).stdout
        check(shown.startswith("s = 1.75 m: 195 muons") and shown.count("\n") == 1 + len(rows)
              and "[]" not in shown, f"the example script printed {shown!r}")
    print(f"read {len(rows)} planes with h5py {h5py.__version__}")


if __name__ == "__main__":
    main()
