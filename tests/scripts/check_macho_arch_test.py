#!/usr/bin/env python3
"""Feeds the phone library's slice check made-up Mach-O headers, one per way a slice can be right or wrong."""

import os
import struct
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "..", "scripts", "check-macho-arch.py")

ARM64 = (0x0100000C, 0)
ARM64E = (0x0100000C, 0x80000002)
ARM64E_OLD = (0x0100000C, 2)
ARM64E_FUTURE_ABI = (0x0100000C, 0x81000002)
X86_64 = (0x01000007, 3)


def thin(cpu):
    cputype, cpusubtype = cpu
    # magic, cputype, cpusubtype, filetype (dylib), ncmds, sizeofcmds, flags, reserved
    return struct.pack("<IIIIIIII", 0xFEEDFACF, cputype, cpusubtype, 6, 0, 0, 0, 0)


def fat(*cpus, listed=None):
    """A universal file whose table lists `listed` (default: the slices' own headers)."""
    listed = listed or cpus
    table = struct.pack(">II", 0xCAFEBABE, len(cpus))
    offset = 4096
    bodies = b""
    for actual, claimed in zip(cpus, listed):
        table += struct.pack(">IIIII", claimed[0], claimed[1], offset + len(bodies), 32, 12)
        bodies += thin(actual).ljust(4096, b"\0")
    return table.ljust(offset, b"\0") + bodies


CASES = [
    # name, file bytes, --require arguments, expected exit code, text expected in the output
    ("thin arm64", thin(ARM64), [], 0, "arm64"),
    ("thin arm64e with the authentication ABI", thin(ARM64E), ["arm64e"], 0, "arm64e"),
    ("arm64e.old (no ABI flag)", thin(ARM64E_OLD), [], 1, "0x00000002, not 0x80000002"),
    ("arm64e of an ABI version loaders do not know", thin(ARM64E_FUTURE_ABI), [], 1, "0x81000002"),
    ("arm64e link that came out as plain arm64", thin(ARM64), ["arm64e"], 1, "no arm64e slice"),
    ("arm64 required but only arm64e", thin(ARM64E), [], 1, "no arm64 slice"),
    ("universal arm64 + arm64e", fat(ARM64, ARM64E), ["arm64", "arm64e"], 0, "arm64, arm64e"),
    ("universal with an arm64e.old slice", fat(ARM64, ARM64E_OLD), [], 1, "not 0x80000002"),
    ("universal table disagreeing with its slice", fat(ARM64, ARM64E_OLD, listed=(ARM64, ARM64E)), [], 1,
     "listed as arm64e"),
    ("foreign architecture", thin(X86_64), [], 1, "unexpected cputype"),
    ("not Mach-O", b"#!/bin/sh\necho hi\n", [], 1, "no 64-bit Mach-O header"),
    ("truncated universal table", fat(ARM64, ARM64E)[:24], [], 1, "truncated"),
]


class CheckMachoArch(unittest.TestCase):
    def test_cases(self):
        with tempfile.TemporaryDirectory() as directory:
            for name, data, required, expected_code, expected_text in CASES:
                with self.subTest(name):
                    path = os.path.join(directory, "library.dylib")
                    with open(path, "wb") as file:
                        file.write(data)
                    arguments = [argument for arch in required for argument in ("--require", arch)]
                    run = subprocess.run([sys.executable, SCRIPT, *arguments, path], capture_output=True, text=True)
                    self.assertEqual(run.returncode, expected_code, run.stdout + run.stderr)
                    self.assertIn(expected_text, run.stdout + run.stderr)

    def test_every_file_is_reported_and_one_bad_file_fails_the_run(self):
        with tempfile.TemporaryDirectory() as directory:
            good, bad = os.path.join(directory, "good"), os.path.join(directory, "bad")
            with open(good, "wb") as file:
                file.write(thin(ARM64))
            with open(bad, "wb") as file:
                file.write(thin(ARM64E_OLD))
            run = subprocess.run([sys.executable, SCRIPT, bad, good], capture_output=True, text=True)
            self.assertEqual(run.returncode, 1)
            self.assertIn(f"ok {good}", run.stdout)


if __name__ == "__main__":
    unittest.main()
