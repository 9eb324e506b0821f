#!/usr/bin/env python3
"""Reads google-benchmark's console output on standard input and prints what each figure is of its
floor: a benchmark Name/of is measured against Name/floor of the same run, by their medians."""
import re
import sys

AIMS = {
    "SerialiseStereo512": ("a 512-frame stereo block against memcpy of 4096 bytes", 2.0),
    "ReadFrameSize": ("'fsiz' through the entry table against mutex + map + virtual call", 2.0),
}
medians = {}
for line in sys.stdin:
    match = re.match(r"(\w+)/(of|floor)\S*_median\s+([\d.e+]+) ns", line)
    if match:
        medians[match.group(1), match.group(2)] = float(match.group(3))
for name, (what, aim) in AIMS.items():
    of, floor = medians.get((name, "of")), medians.get((name, "floor"))
    if of is None or floor is None:
        sys.exit(f"{name}: not measured")
    print(f"{of / floor:6.2f}x  {what} ({of:.1f} ns / {floor:.1f} ns, aim at most {aim}x)")
