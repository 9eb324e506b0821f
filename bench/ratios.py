#!/usr/bin/env python3
"""Reads google-benchmark's console output on standard input and prints what each figure is of its
floor, or beyond it: a benchmark Name/of is measured against Name/floor of the same run, by their
medians."""
import re
import sys

AIMS = {
    "SerialiseStereo512": ("a 512-frame stereo block against memcpy of 4096 bytes", 2.0),
    "ReadFrameSize": ("'fsiz' through the entry table against mutex + map + virtual call", 2.0),
    "RecordWithCaptureOff": ("a cycle's seven events with capture off against seven tests of a flag", 1.5),
    "RecordWithCaptureOn": ("an event with capture on against lock + clock + 72 bytes stored", 1.5),
}
# In nanoseconds, and only where it is built.
DIFFERENCES = {
    "OverridePassesOn": ("what the default output override adds to a call that it passes on", 3.0),
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
for name, (what, aim) in DIFFERENCES.items():
    of, floor = medians.get((name, "of")), medians.get((name, "floor"))
    if of is not None and floor is not None:
        print(f"{of - floor:5.2f}ns  {what} ({of:.2f} ns - {floor:.2f} ns, aim at most {aim} ns)")
