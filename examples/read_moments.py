"""Reads a binary moments file of twiss-optics (--save-moments FILE.bin) with numpy.

    python3 read_moments.py FILE.bin
"""
import json
import sys
import zlib

import numpy as np

SETS = [("horizontal", 48), ("vertical", 48), ("horizontal_canonical", 23),
        ("vertical_canonical", 23), ("time", 14)]
# The sets each measure of --measures adds to those of the default, in this order.
MEASURE_SETS = [("4d", [("transverse_4d", 152)]), ("6d", [("phase_space_6d", 244)]),
                ("longitudinal", [("longitudinal", 23)]),
                ("angular-momentum", [("transverse_4d", 152), ("angular_momentum", 14)])]


def sets_of(header):
    """The file's sets of moments with their sizes, in their order, each once."""
    sets = list(SETS)
    for measure, extra in MEASURE_SETS:
        if measure in header.get("measures", {}):
            sets += [s for s in extra if s not in sets]
    return sets


def read_moments(path):
    """The header (a dict), the counts (planes x 7) and each set's numbers (planes x K)."""
    raw = open(path, "rb").read()
    assert raw[:8] == b"\x89TWM\r\n\x1a\n", "not a binary moments file"
    assert zlib.crc32(raw[:-4]) == int.from_bytes(raw[-4:], "little"), "damaged"
    length = int.from_bytes(raw[12:16], "little")
    header = json.loads(raw[16:16 + length])
    planes = len(header["planes_s_mm"])
    offset = 16 + length
    counts = np.frombuffer(raw, "<i8", planes * 7, offset).reshape(planes, 7)
    offset += counts.nbytes
    sets = {}
    for name, size in sets_of(header):
        sets[name] = np.frombuffer(raw, "<f8", planes * size, offset).reshape(planes, size)
        offset += sets[name].nbytes
    return header, counts, sets


if __name__ == "__main__":
    header, counts, sets = read_moments(sys.argv[1])
    for k, s in enumerate(header["planes_s_mm"]):
        print(f"s = {float.fromhex(s):g} mm: n = {counts[k, 0]}, "
              f"mean x = {sets['horizontal'][k, 0]:.6g} mm")
