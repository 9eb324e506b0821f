#!/usr/bin/env python3
"""An independent reader of the data port's block; as a program it prints one as JSON.

usage: decode_block.py FILE
"""
import json
import struct
import sys

STAMP = struct.Struct("<dQdQ24sII")
COUNT = struct.Struct("<I")
RECORD = struct.Struct("<II")


class Malformed(Exception):
    pass


def decode(data):
    """The block as a dictionary; every byte must be accounted for."""
    if len(data) < STAMP.size + COUNT.size:
        raise Malformed(f"{len(data)} bytes are no header")
    sample_time, host_time, rate_scalar, word_clock, smpte, flags, reserved = STAMP.unpack_from(data)
    (count,) = COUNT.unpack_from(data, STAMP.size)
    position = STAMP.size + COUNT.size
    buffers = []
    for index in range(count):
        if position + RECORD.size > len(data):
            raise Malformed(f"record {index} of {count} has no header")
        channels, size = RECORD.unpack_from(data, position)
        position += RECORD.size
        if position + size > len(data):
            raise Malformed(f"record {index} claims {size} bytes, {len(data) - position} are left")
        buffers.append({"channels": channels, "data": data[position : position + size]})
        position += size
    if position != len(data):
        raise Malformed(f"{len(data) - position} bytes follow the last record")
    return {
        "sample_time": sample_time,
        "host_time": host_time,
        "rate_scalar": rate_scalar,
        "word_clock": word_clock,
        "smpte": smpte,
        "flags": flags,
        "reserved": reserved,
        "buffers": buffers,
    }


def floats(record):
    data = record["data"]
    return list(struct.unpack(f"<{len(data) // 4}f", data[: len(data) // 4 * 4]))


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as file:
        decoded = decode(file.read())
    decoded["smpte"] = decoded["smpte"].hex()
    for record in decoded["buffers"]:
        record["floats"] = floats(record)
        del record["data"]
    print(json.dumps(decoded, indent=2))
