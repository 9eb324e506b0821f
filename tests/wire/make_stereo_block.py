#!/usr/bin/env python3
"""Writes the golden block: a stereo float buffer of 8 frames, laid out by hand.

usage: make_stereo_block.py FILE
"""
import struct
import sys

FRAMES = 8


def sample(frame, channel):
    return (frame + 1) / 16.0 * (1.0 if channel == 0 else -1.0)


def block():
    out = struct.pack("<dQdQ", 12345.0, 9876543210, 1.0, 4242)
    out += struct.pack("<hhIIIhhhh", 1, 2, 3, 4, 5, 6, 7, 8, 9)
    out += struct.pack("<II", 0x1F, 0)
    out += struct.pack("<I", 2)
    for channel in range(2):
        out += struct.pack("<II", 1, 4 * FRAMES)
        out += b"".join(struct.pack("<f", sample(f, channel)) for f in range(FRAMES))
    return out


if __name__ == "__main__":
    with open(sys.argv[1], "wb") as file:
        file.write(block())
