#!/usr/bin/env python3
"""Feeds the load-safety check made-up Mach-O slices against a made-up SDK collection, one case per way a slice can
load or fail to load."""

import os
import struct
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "..", "scripts", "check-load-safety.py")

FOUNDATION = "/System/Library/Frameworks/Foundation.framework/Foundation"
LIBSYSTEM = "/usr/lib/libSystem.B.dylib"
LIBOBJC = "/usr/lib/libobjc.A.dylib"
SUBSTRATE = "/Library/Frameworks/CydiaSubstrate.framework/CydiaSubstrate"
ARM64, ARM64E = 0, 0x80000002


def align8(data):
    return data + b"\0" * (-len(data) % 8)


def bind(ordinal, name, weak=False, lazy=False):
    """Bind opcodes for one symbol: ordinal (special ones negative), flags and name, segment 2 offset 0, bind."""
    set_ordinal = bytes([0x30 | (ordinal & 0xF)]) if ordinal <= 0 else bytes([0x10 | ordinal])
    opcodes = set_ordinal + bytes([0x40 | int(weak)]) + name.encode() + b"\0" + bytes([0x72, 0x00, 0x90])
    return opcodes + (b"\0" if lazy else b"")


def chained(*imports):
    """A chained-fixups blob whose import table holds (ordinal, name, weak) entries."""
    names, table = b"\0", b""
    for ordinal, name, weak in imports:
        table += struct.pack("<I", (ordinal & 0xFF) | int(weak) << 8 | len(names) << 9)
        names += name.encode() + b"\0"
    header = struct.pack("<7I", 0, 28, 28, 28 + len(table), len(imports), 1, 0)
    return header + table + names


def trie(*names):
    """An exports trie with one edge per name from the root, each leading to a terminal node."""
    if not names:
        return b""
    root_size = 2 + sum(len(name) + 2 for name in names)  # each edge: the name, its NUL, a one-byte offset
    root, leaves = bytes([0, len(names)]), b""
    for name in names:
        root += name.encode() + b"\0" + bytes([root_size + len(leaves)])
        leaves += bytes([2, 0, 0, 0])  # terminal size 2 (flags, address), no children
    return root + leaves


def macho(dylibs, binds=b"", lazy=b"", exports=b"", fixups=None, min_ios=(11, 0), subtype=ARM64):
    """A 64-bit arm64 dylib with the given loads ((install name, weak) pairs) and linkedit contents."""
    commands = []
    for name, weak in dylibs:
        body = align8(struct.pack("<6I", 0, 0, 24, 2, 0x10000, 0x10000) + name.encode() + b"\0")
        commands.append(struct.pack("<II", 0x80000018 if weak else 0xC, len(body)) + body[8:])
    commands.append(struct.pack("<6I", 0x32, 24, 2, min_ios[0] << 16 | min_ios[1] << 8, 15 << 16, 0))
    blobs = [binds, lazy, exports] + ([fixups] if fixups is not None else [])
    linkedit_commands = 48 + (16 if fixups is not None else 0)
    start = 32 + sum(len(command) for command in commands) + linkedit_commands
    offsets = []
    for blob in blobs:
        offsets.append(start + sum(len(earlier) for earlier in blobs[: len(offsets)]))
    commands.append(
        struct.pack(
            "<12I", 0x80000022, 48, 0, 0, offsets[0], len(binds), 0, 0, offsets[1], len(lazy), offsets[2], len(exports)
        )
    )
    if fixups is not None:
        commands.append(struct.pack("<4I", 0x80000034, 16, offsets[3], len(fixups)))
    body = b"".join(commands)
    header = struct.pack("<8I", 0xFEEDFACF, 0x0100000C, subtype, 6, len(commands), len(body), 0, 0)
    return header + body + b"".join(blobs)


def fat(*slices):
    table = struct.pack(">II", 0xCAFEBABE, len(slices))
    offset, bodies = 4096, b""
    for data in slices:
        subtype = struct.unpack_from("<I", data, 8)[0]
        table += struct.pack(">5I", 0x0100000C, subtype, offset + len(bodies), len(data), 12)
        bodies += data + b"\0" * (-len(data) % 4096)
    return table.ljust(offset, b"\0") + bodies


V3 = """--- !tapi-tbd-v3
archs:           [ armv7, arm64 ]
platform:        ios
install-name:    {name}
exports:
  - archs:           [ armv7, arm64 ]
{body}...
"""

V4 = """--- !tapi-tbd
tbd-version:     4
targets:         [ arm64-ios, arm64e-ios ]
install-name:    '{name}'
exports:
  - targets:         [ arm64-ios, arm64e-ios ]
{body}"""


def stub(template, name, lines):
    return template.format(name=name, body="".join(f"    {line}\n" for line in lines))


def libsystem(template, reexport_key):
    """libSystem re-exporting libsystem_c, both documents in one file as the SDKs ship them."""
    umbrella = stub(template, LIBSYSTEM, [f"{reexport_key} [ /usr/lib/system/libsystem_c.dylib ]"])
    inner = stub(template, "/usr/lib/system/libsystem_c.dylib", ["symbols: [ _malloc, _free ]"])
    return umbrella + ("" if template is V3 else "...\n") + inner


SDKS = {
    "iPhoneOS11.4.sdk": {
        FOUNDATION: stub(V3, FOUNDATION, ["symbols: [ _NSLog ]", "objc-classes: [ NSString ]"]),
        LIBSYSTEM: libsystem(V3, "re-exports:"),
        LIBOBJC: stub(V3, LIBOBJC, ["symbols: [ _objc_msgSend ]", "objc-classes: [ NSObject ]"]),
    },
    "iPhoneOS14.5.sdk": {
        FOUNDATION: stub(V4, FOUNDATION, ["symbols: [ _NSLog, _NSNewIn14 ]", "objc-classes: [ NSString ]"])
        + "  - targets:         [ arm64e-ios ]\n    symbols: [ _OnlyOnArm64e ]\n...\n",
        LIBSYSTEM: libsystem(V4, "symbols: [ ]\nreexported-libraries:\n  - targets: [ arm64-ios, arm64e-ios ]\n"
                             "    libraries:"),
        LIBOBJC: stub(V4, LIBOBJC, ["symbols: [ _objc_msgSend ]", "objc-classes: [ NSObject ]"]) + "...\n",
    },
    # As the public collection has it: the framework's folder without its stub.
    "iPhoneOS16.5.sdk": {
        FOUNDATION: None,
        LIBSYSTEM: libsystem(V4, "symbols: [ ]\nreexported-libraries:\n  - targets: [ arm64-ios, arm64e-ios ]\n"
                             "    libraries:"),
        LIBOBJC: stub(V4, LIBOBJC, ["symbols: [ _objc_msgSend ]", "objc-classes: [ NSObject ]"]) + "...\n",
    },
}

LOADS = [(FOUNDATION, False), (LIBSYSTEM, False), (LIBOBJC, False), (SUBSTRATE, True)]
EVERYDAY = (bind(1, "_NSLog") + bind(2, "_malloc") + bind(3, "_OBJC_CLASS_$_NSObject")
            + bind(1, "_OBJC_CLASS_$_NSString"))

CASES = [
    # name, file, extra arguments, exit code, texts expected in the output
    ("symbols every SDK has, through re-exports and class names", macho(LOADS, EVERYDAY), [], 0,
     ["iPhoneOS11.4.sdk: ok", "iPhoneOS14.5.sdk: ok", "exports: none",
      f"iPhoneOS16.5.sdk: ok; no stub for {FOUNDATION} in this SDK copy: 2 of its symbols not checked"]),
    ("a symbol newer than the deployment target", macho(LOADS, bind(1, "_NSNewIn14")), [], 1,
     ["iPhoneOS11.4.sdk lacks _NSNewIn14 (" + FOUNDATION + ")", "iPhoneOS14.5.sdk: ok"]),
    ("the same symbol from a slice that starts at iOS 14", macho(LOADS, bind(1, "_NSNewIn14"), min_ios=(14, 0)),
     [], 0, ["iOS 14.0 and later", "iPhoneOS14.5.sdk: ok"]),
    ("--min-ios overrides the slice's own target", macho(LOADS, bind(1, "_NSNewIn14")), ["--min-ios", "14.0"], 0,
     ["iPhoneOS14.5.sdk: ok"]),
    ("a lazily bound symbol is checked too", macho(LOADS, lazy=bind(1, "_NSNewIn14", lazy=True)), [], 1,
     ["iPhoneOS11.4.sdk lacks _NSNewIn14"]),
    ("a weak import may be missing", macho(LOADS, bind(1, "_NSNewIn14", weak=True)), [], 0,
     ["weak imports not checked: 1", "iPhoneOS11.4.sdk: ok"]),
    ("the substrate loads weakly and is no SDK library", macho(LOADS, bind(4, "_MSHookMessageEx")), [], 0,
     [f"{SUBSTRATE} is no SDK library and loads weakly: not checked"]),
    ("a strongly loaded library no SDK has", macho([("/usr/lib/libnothere.dylib", False)], bind(1, "_x")), [], 1,
     ["iPhoneOS11.4.sdk lacks the library /usr/lib/libnothere.dylib itself"]),
    ("a symbol of another architecture's section", macho(LOADS, bind(1, "_OnlyOnArm64e"), min_ios=(14, 0)), [], 1,
     ["iPhoneOS14.5.sdk lacks _OnlyOnArm64e"]),
    ("the arm64e slice of a universal file", fat(macho(LOADS, bind(1, "_NSLog")),
                                                 macho(LOADS, bind(1, "_OnlyOnArm64e"), min_ios=(14, 0),
                                                       subtype=ARM64E)),
     ["--arch", "arm64e"], 0, ["arm64e slice, iOS 14.0 and later", "iPhoneOS14.5.sdk: ok"]),
    ("a universal file without --arch", fat(macho(LOADS), macho(LOADS, subtype=ARM64E)), [], 1,
     ["pick one with --arch"]),
    ("a flat lookup is searched in every loaded library", macho(LOADS, bind(-2, "_free") + bind(-2, "_nowhere")), [],
     1, ["iPhoneOS11.4.sdk lacks _nowhere (in any loaded library)"]),
    ("a weak-definition lookup is searched in every loaded library",
     macho(LOADS, fixups=chained((-3, "_free", False), (-3, "_nowhere", False))), [], 1,
     ["iPhoneOS11.4.sdk lacks _nowhere (in any loaded library)"]),
    ("chained fixups' imports", macho(LOADS, fixups=chained((1, "_NSLog", False), (1, "_NSNewIn14", False))), [], 1,
     ["iPhoneOS11.4.sdk lacks _NSNewIn14"]),
    ("a weak chained import", macho(LOADS, fixups=chained((1, "_NSNewIn14", True))), [], 0, ["iPhoneOS11.4.sdk: ok"]),
    ("an exported symbol", macho(LOADS, exports=trie("_leaked", "_also")), [], 1,
     ["exports: 2", "exports _also", "exports _leaked"]),
    ("an ordinal past the loads", macho(LOADS, bind(9, "_x")), [], 1, ["library ordinal 9"]),
    ("not Mach-O", b"#!/bin/sh\n", [], 1, ["not a 64-bit Mach-O file"]),
    ("truncated load commands", macho(LOADS)[:60], [], 1, ["past the end"]),
]


def write_sdks(root):
    for sdk, libraries in SDKS.items():
        for install_name, text in libraries.items():
            base = os.path.splitext(install_name)[0] if install_name.endswith(".dylib") else install_name
            path = os.path.join(root, sdk) + base + ".tbd"
            os.makedirs(os.path.dirname(path), exist_ok=True)
            if text is not None:
                with open(path, "w", encoding="utf-8") as file:
                    file.write(text)


class CheckLoadSafety(unittest.TestCase):
    def run_check(self, directory, data, arguments, sdks):
        path = os.path.join(directory, "slice")
        with open(path, "wb") as file:
            file.write(data)
        return subprocess.run([sys.executable, SCRIPT, "--sdks", sdks, *arguments, path], capture_output=True,
                              text=True, check=False)

    def test_cases(self):
        with tempfile.TemporaryDirectory() as directory:
            sdks = os.path.join(directory, "sdks")
            write_sdks(sdks)
            for name, data, arguments, expected_code, expected_texts in CASES:
                with self.subTest(name):
                    result = self.run_check(directory, data, arguments, sdks)
                    output = result.stdout + result.stderr
                    self.assertEqual(result.returncode, expected_code, output)
                    for text in expected_texts:
                        self.assertIn(text, output)

    def test_without_sdks_it_says_so_and_still_checks_exports(self):
        with tempfile.TemporaryDirectory() as directory:
            result = self.run_check(directory, macho(LOADS, bind(1, "_x"), exports=trie("_leaked")), [],
                                    os.path.join(directory, "none"))
            self.assertEqual(result.returncode, 1)
            self.assertIn("load safety: not checked, no iPhoneOS SDK of iOS 11 or later at", result.stdout)
            self.assertIn("exports _leaked", result.stderr)


if __name__ == "__main__":
    unittest.main()
