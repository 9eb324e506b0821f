#!/usr/bin/env python3
"""Holds what the device's code writes against readers of its own: plistlib for the messages on the
listener port, decode_block.py for the blocks on the data port.

usage: check_wire.py WRITER GOLDEN_FOLDER
"""
import math
import os
import pathlib
import plistlib
import subprocess
import sys
import tempfile
import unittest

import decode_block
import make_stereo_block

WRITER = None
GOLDEN = None


class Wire(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        child = subprocess.Popen([WRITER, cls.folder.name])
        cls.pid = child.pid
        assert child.wait() == 0

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def read(self, name):
        return pathlib.Path(self.folder.name, name).read_bytes()

    def check_full(self, name):
        data = self.read(name)
        self.assertEqual(data[:8], b"bplist00")
        message = plistlib.loads(data)
        self.assertEqual(
            message,
            {
                "uid": os.getuid(),
                "pid": self.pid,
                "frsz": 512,
                "rate": 44100.0,
                "format": int.from_bytes(b"lpcm", "big"),
                "flags": 41,
                "bpp": 4,
                "fpp": 1,
                "bpf": 4,
                "bpch": 32,
                "chpf": 2,
            },
        )
        for key, value in message.items():
            self.assertIs(type(value), float if key == "rate" else int, key)

    def test_add(self):
        self.check_full("add.plist")

    def test_echo(self):
        self.check_full("echo.plist")

    def test_dispose(self):
        message = plistlib.loads(self.read("dispose.plist"))
        self.assertEqual(message, {"uid": os.getuid(), "pid": self.pid})

    def test_names_and_message_ids(self):
        uid = os.getuid()
        self.assertEqual(
            self.read("names").decode().splitlines(),
            [f"com.tembra.tmbasrv.{uid}", f"com.tembra.tmbasrv.{uid}.4321", "ddac", "ohce", "ledc"],
        )

    def check_block(self, name, channels, frames):
        block = decode_block.decode(self.read(name))
        self.assertEqual(block["sample_time"], 512.0)
        self.assertEqual(block["host_time"], 1234567890123)
        self.assertEqual(block["rate_scalar"], 1.0)
        self.assertEqual(block["flags"], 7)
        self.assertEqual(len(block["buffers"]), channels)
        for channel, record in enumerate(block["buffers"]):
            self.assertEqual(record["channels"], 1)
            self.assertEqual(
                decode_block.floats(record), [channel * 1000.0 + frame for frame in range(frames)]
            )

    def test_mono_block(self):
        self.check_block("mono.block", 1, 16)

    def test_stereo_block(self):
        self.check_block("stereo.block", 2, 512)
        self.assertEqual(len(self.read("stereo.block")), 68 + 2 * (8 + 2048))

    def test_block_of_six_channels(self):
        self.check_block("six.block", 6, 64)


class Golden(unittest.TestCase):
    def setUp(self):
        self.data = pathlib.Path(GOLDEN, "stereo_block.bin").read_bytes()

    def test_is_what_it_was_made_from(self):
        self.assertEqual(self.data, make_stereo_block.block())

    def test_decodes(self):
        block = decode_block.decode(self.data)
        self.assertEqual(block["sample_time"], 12345.0)
        self.assertEqual(block["word_clock"], 4242)
        self.assertEqual(len(block["buffers"]), 2)
        left, right = (decode_block.floats(record) for record in block["buffers"])
        self.assertEqual(left, [(frame + 1) / 16 for frame in range(8)])
        self.assertEqual(right, [-sample for sample in left])
        self.assertTrue(all(map(math.isfinite, left)))

    def test_each_prefix_is_malformed(self):
        for size in range(len(self.data)):
            with self.assertRaises(decode_block.Malformed, msg=str(size)):
                decode_block.decode(self.data[:size])

    def test_bytes_too_many_are_malformed(self):
        with self.assertRaises(decode_block.Malformed):
            decode_block.decode(self.data + b"\0")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    GOLDEN = sys.argv.pop()
    WRITER = sys.argv.pop()
    unittest.main()
