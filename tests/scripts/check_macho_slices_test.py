#!/usr/bin/env python3
"""Feeds the phone library's slice check small made-up Mach-O images, one per way a slice can be right or wrong."""

import hashlib
import os
import struct
import subprocess
import sys
import tempfile
import unittest

SCRIPTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts")
SCRIPT = os.path.join(SCRIPTS, "check-macho-slices.py")
sys.path.insert(0, SCRIPTS)

import macho_image  # noqa: E402

ARM64, ARM64E, ARM64E_OLD = 0, 0x80000002, 2
X86_64 = 0x01000007
DATA = 0x4000  # file offset and address of __DATA_CONST, one 16 KiB page
LINKEDIT = 0x8000
SECTIONS = ("__auth_got", "__got", "__const")  # 0x100 bytes each, from DATA on
BODIES = "__qv_bodies"  # after them, one 24-byte binding per hook body
IMPORTS = ("_objc_msgSend", "_MSHookMessageEx")


def section_address(name):
    return DATA + 0x100 * (SECTIONS + (BODIES,)).index(name)


# Pointer bodies without their next field, as the linker writes them.
def auth_bind(ordinal, key=0, address_diversity=1, diversity=0):
    return 1 << 63 | 1 << 62 | key << 49 | address_diversity << 48 | diversity << 32 | ordinal


def auth_rebase(target, key=0, address_diversity=0, diversity=0):
    return 1 << 63 | key << 49 | address_diversity << 48 | diversity << 32 | target


def arm64e_bind(ordinal):
    return 1 << 62 | ordinal


def arm64e_rebase(target, high8=0):
    return high8 << 43 | target


def plain_bind(ordinal):
    return 1 << 63 | ordinal


def fixups_blob(pointers, pointer_format, weak=(1,)):
    """Chained fixups for pointers ({offset in __DATA_CONST: body}, one chain in its one page)."""
    symbols = b"\0"
    imports = b""
    for index, name in enumerate(IMPORTS):
        imports += struct.pack("<I", 1 | (index in weak) << 8 | len(symbols) << 9)
        symbols += name.encode() + b"\0"
    page_start = min(pointers) if pointers else 0xFFFF
    starts_in_segment = struct.pack("<IHHQIHH", 24, 0x4000, pointer_format, DATA, 0, 1, page_start)
    starts = struct.pack("<4I", 3, 0, 16, 0) + starts_in_segment
    header_size = 28
    imports_offset = header_size + len(starts)
    header = struct.pack("<7I", 0, header_size, imports_offset, imports_offset + len(imports), len(IMPORTS), 1, 0)
    return header + starts + imports + symbols


def load_command(cmd, body):
    return struct.pack("<II", cmd, 8 + len(body)) + body


def segment(name, address, size, sections=(), sizes=None):
    body = struct.pack("<16sQQQQIIII", name.encode(), address, size, address, size, 3, 3, len(sections), 0)
    for section in sections:
        section_size = (sizes or {}).get(section, 0x100)
        body += struct.pack("<16s16sQQIIIIIIII", section.encode(), name.encode(), section_address(section), section_size,
                            section_address(section), 3, 0, 0, 0, 0, 0, 0)
    return load_command(macho_image.LC_SEGMENT_64, body)


def code_signature(image, flags=macho_image.CS_ADHOC):
    """An embedded signature with one SHA-256 CodeDirectory over image's 4 KiB pages."""
    identifier = b"Verdigo.dylib\0"
    pages = [image[at : at + 4096] for at in range(0, len(image), 4096)]
    hashes = b"".join(hashlib.sha256(page).digest() for page in pages)
    header_size = 44
    length = header_size + len(identifier) + len(hashes)
    directory = struct.pack(">9I4BI", macho_image.CSMAGIC_CODEDIRECTORY, length, 0x20000, flags,
                            header_size + len(identifier), header_size, 0, len(pages), len(image), 32, 2, 0, 12, 0)
    directory += identifier + hashes
    return struct.pack(">5I", macho_image.CSMAGIC_EMBEDDED_SIGNATURE, 20 + len(directory), 1, 0, 20) + directory


def thin(subtype=ARM64E, minimum=(14, 0), pointers=None, pointer_format=macho_image.PTR_ARM64E, sections=SECTIONS,
         version_min=False, chained=True, signed=True, signature_flags=macho_image.CS_ADHOC, after_signing=None,
         bodies=None):
    """A dylib slice: header, __TEXT, __DATA_CONST with the pointers chained in one page, __LINKEDIT."""
    pointers = {0: auth_bind(0), 8: auth_bind(1, diversity=0)} if pointers is None else pointers
    blob = fixups_blob(pointers, pointer_format) if chained else b""
    signature_offset = LINKEDIT + (len(blob) + 15) // 16 * 16
    packed_minimum = minimum[0] << 16 | minimum[1] << 8
    sizes = {}
    if bodies is not None:
        sections, sizes = sections + (BODIES,), {BODIES: 24 * len(bodies)}
    commands = segment("__TEXT", 0, DATA) + segment("__DATA_CONST", DATA, DATA, sections, sizes)
    commands += segment("__LINKEDIT", LINKEDIT, 0x4000)
    if version_min:
        commands += load_command(macho_image.LC_VERSION_MIN_IPHONEOS, struct.pack("<II", packed_minimum, 0))
    else:
        commands += load_command(macho_image.LC_BUILD_VERSION, struct.pack("<4I", 2, packed_minimum, 0, 0))
    if chained:
        commands += load_command(macho_image.LC_DYLD_CHAINED_FIXUPS, struct.pack("<II", LINKEDIT, len(blob)))
    if signed:
        commands += load_command(macho_image.LC_CODE_SIGNATURE, struct.pack("<II", signature_offset, 0))
    count = sum(1 for _ in iter_commands(commands))
    header = struct.pack("<8I", macho_image.MH_MAGIC_64, macho_image.CPU_TYPE_ARM64, subtype, 6, count,
                         len(commands), 0, 0)
    image = bytearray((header + commands).ljust(DATA, b"\0"))
    data = bytearray(DATA)
    ordered = sorted(pointers)
    stride, shift = (8, 51) if pointer_format == macho_image.PTR_ARM64E else (4, 51)
    for offset, following in zip(ordered, ordered[1:] + [None]):
        step = 0 if following is None else (following - offset) // stride
        struct.pack_into("<Q", data, offset, pointers[offset] | step << shift)
    for index, row in enumerate(bodies or ()):
        struct.pack_into("<Q", data, section_address(BODIES) - DATA + 24 * index, row)
    image += data + blob.ljust(signature_offset - LINKEDIT, b"\0")
    if signed:
        signature = code_signature(bytes(image), signature_flags)
        struct.pack_into("<II", image, len(header) + len(commands) - 8, signature_offset, len(signature))
        signature = code_signature(bytes(image), signature_flags)
        image += signature
    if after_signing:
        after_signing(image)
    return bytes(image)


def iter_commands(commands):
    offset = 0
    while offset < len(commands):
        yield offset
        offset += struct.unpack_from("<I", commands, offset + 4)[0]


def fat(*slices, listed=None):
    """A universal file whose table lists `listed` subtypes (default: the slices' own)."""
    table = struct.pack(">II", macho_image.FAT_MAGIC, len(slices))
    offset = 0x4000
    bodies = b""
    for index, body in enumerate(slices):
        subtype = listed[index] if listed else struct.unpack_from("<I", body, 8)[0]
        table += struct.pack(">IIIII", macho_image.CPU_TYPE_ARM64, subtype, offset + len(bodies), len(body), 14)
        bodies += body.ljust((len(body) + 0x3FFF) // 0x4000 * 0x4000, b"\0")
    return table.ljust(offset, b"\0") + bodies


def flip_byte(at):
    def change(image):
        image[at] ^= 0xFF

    return change


GOOD_ARM64 = thin(ARM64, (11, 0), chained=False, sections=("__got", "__const"), version_min=True)
GOOD_ARM64E = thin()
BOTH = ["--slice", "arm64:11.0", "--slice", "arm64e:14.0"]
ARM64E_ONLY = ["--slice", "arm64e:14.0"]

CASES = [
    # name, file bytes, arguments, expected exit code, text expected in the output
    ("fat arm64 + arm64e", fat(GOOD_ARM64, GOOD_ARM64E), BOTH, 0, "2 imports bound through signed __auth_got"),
    ("arm64 at 11.0 from the old version command", GOOD_ARM64, ["--slice", "arm64:11.0"], 0, "iOS 11.0"),
    ("plain chained arm64", thin(ARM64, (14, 0), {0: plain_bind(0), 8: 0x4000}, macho_image.PTR_64, ("__got",)),
     [], 0, "chained fixups 64, no signed pointer"),
    ("arm64e.old subtype", fat(GOOD_ARM64, thin(ARM64E_OLD)), BOTH, 1, "0x00000002, not 0x80000002"),
    ("arm64e below iOS 14", fat(GOOD_ARM64, thin(minimum=(13, 0))), BOTH, 1, "minimum iOS 13.0, expected 14.0"),
    ("arm64 raised to 14.0", fat(thin(ARM64, (14, 0), chained=False, sections=()), GOOD_ARM64E), BOTH, 1,
     "minimum iOS 14.0, expected 11.0"),
    ("unsigned import in __auth_got", thin(pointers={0: auth_bind(0), 8: arm64e_bind(1)}), [], 1,
     "1 __auth_got entr(ies) not signed"),
    ("__auth_got signed with a data key", thin(pointers={0: auth_bind(0, key=2)}), [], 1, "not signed with IA"),
    ("__auth_got signed without the slot address", thin(pointers={0: auth_bind(0, address_diversity=0)}), [], 1,
     "not signed with IA"),
    ("nothing bound through __auth_got", thin(pointers={0x100: arm64e_bind(0)}), [], 1,
     "no import is bound through __auth_got"),
    ("arm64e in the plain pointer format", thin(pointers={0x100: plain_bind(0)}, pointer_format=macho_image.PTR_64),
     [], 1, "pointer format 64, not ARM64E"),
    ("arm64e without chained fixups", thin(chained=False), [], 1, "no chained fixups"),
    ("signed pointer in the arm64 slice", thin(ARM64, (11, 0), {0x200: auth_rebase(0x10)}, sections=("__const",)),
     [], 1, "1 signed pointer(s)"),
    ("authentication sections in the arm64 slice", thin(ARM64, (11, 0), chained=False), [], 1,
     "pointer-authentication sections __auth_got"),
    ("page changed after signing", thin(after_signing=flip_byte(DATA + 0x300)), [], 1, "page(s) [4]"),
    ("not signed", thin(signed=False), [], 1, "not signed (no LC_CODE_SIGNATURE)"),
    ("signed, but not ad-hoc", thin(signature_flags=0), [], 1, "is not ad-hoc"),
    ("arm64e missing", GOOD_ARM64, BOTH, 1, "no arm64e slice (has arm64)"),
    ("two arm64 slices", fat(GOOD_ARM64, GOOD_ARM64), [], 1, "2 arm64 slices"),
    ("chain running out of its segment", thin(pointers={0x3FF8: arm64e_rebase(0) | 0x7FF << 51}), [], 1,
     "chain leaves the segment"),
    ("bind of an import that is not there", thin(pointers={0: auth_bind(9)}), [], 1, "names import 9 of 2"),
    ("universal table disagreeing with its slice", fat(GOOD_ARM64, thin(ARM64E_OLD), listed=[ARM64, ARM64E]), [], 1,
     "listed as arm64e"),
    ("truncated slice", fat(GOOD_ARM64E[:0x200]), [], 1, "past the end"),
    ("truncated universal table", fat(GOOD_ARM64, GOOD_ARM64E)[:24], [], 1, "truncated universal header"),
    ("not Mach-O", b"#!/bin/sh\necho hi\n", [], 1, "no 64-bit Mach-O header"),
    ("a body for each hook row", thin(bodies=[3, 0, 2, 1]), ARM64E_ONLY + ["--hook-rows", "4"], 0, "4 hook bodies for 4 rows"),
    ("a hook row without its body", thin(bodies=[3, 0, 1]), ARM64E_ONLY + ["--hook-rows", "4"], 1, "row(s) [3] have no body"),
    ("a hook row bound twice", thin(bodies=[0, 1, 1, 2, 3]), ARM64E_ONLY + ["--hook-rows", "4"], 1,
     "row(s) [2] bound more than once"),
    ("a body for a row the table lacks", thin(bodies=[0, 1, 2, 3, 7]), ARM64E_ONLY + ["--hook-rows", "4"], 1,
     "row position(s) [7]"),
    ("no hook bodies linked in", GOOD_ARM64E, ARM64E_ONLY + ["--hook-rows", "4"], 1, "no __qv_bodies section"),
]


class CheckMachoSlices(unittest.TestCase):
    def run_check(self, data, arguments):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "Verdigo.dylib")
            with open(path, "wb") as file:
                file.write(data)
            return subprocess.run([sys.executable, SCRIPT, *arguments, path], capture_output=True, text=True)

    def test_cases(self):
        for name, data, arguments, expected_code, expected_text in CASES:
            with self.subTest(name):
                run = self.run_check(data, arguments)
                self.assertEqual(run.returncode, expected_code, run.stdout + run.stderr)
                self.assertIn(expected_text, run.stdout + run.stderr)

    def test_fixups_follow_the_chain_and_name_each_signature(self):
        pointers = {0: auth_bind(0), 8: auth_bind(1), 0x200: auth_rebase(0x1234, key=2, address_diversity=1,
                                                                          diversity=0xC310),
                    0x218: arm64e_rebase(0x5678, high8=0x80)}
        run = self.run_check(thin(pointers=pointers), ["--fixups"])
        lines = [line.split() for line in run.stdout.splitlines() if line.startswith("  arm64e")]
        self.assertEqual(
            [line[1:] for line in lines],
            [
                ["0x00004000", "__DATA_CONST,__auth_got", "auth-bind", "key=IA", "addrDiv=1", "div=0x0000",
                 "_objc_msgSend"],
                ["0x00004008", "__DATA_CONST,__auth_got", "auth-bind", "key=IA", "addrDiv=1", "div=0x0000",
                 "_MSHookMessageEx", "(weak)"],
                ["0x00004200", "__DATA_CONST,__const", "auth-rebase", "key=DA", "addrDiv=1", "div=0xc310",
                 "->", "0x1234"],
                ["0x00004218", "__DATA_CONST,__const", "rebase", "->", "0x5678"],
            ],
        )


if __name__ == "__main__":
    unittest.main()
