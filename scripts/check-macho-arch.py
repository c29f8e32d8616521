#!/usr/bin/env python3
"""Checks the CPU slices of a phone Mach-O: the required architectures are present and every arm64e slice carries
the pointer-authentication ABI that arm64e store processes load (cpusubtype exactly 0x80000002).

usage: check-macho-arch.py [--require ARCH ...] FILE ...
ARCH is arm64 or arm64e; without --require, arm64 is required. Prints one line per file; exit 1 on any problem.
"""

import argparse
import struct
import sys

CPU_TYPE_ARM64 = 0x0100000C
CPU_SUBTYPE_ARM64_ALL = 0
CPU_SUBTYPE_ARM64_V8 = 1
CPU_SUBTYPE_ARM64E = 2
# The only arm64e subtype that current loaders accept: the ABI flag set, ABI version 0.
ARM64E_WITH_PTRAUTH_ABI = 0x80000002
CAPABILITY_BITS = 0xFF000000

MH_MAGIC_64 = 0xFEEDFACF
FAT_MAGIC = 0xCAFEBABE
FAT_MAGIC_64 = 0xCAFEBABF


class BadFile(Exception):
    pass


def thin_header(data, offset):
    """(cputype, cpusubtype) of the 64-bit little-endian Mach-O header at offset."""
    if len(data) < offset + 12:
        raise BadFile(f"truncated Mach-O header at offset {offset}")
    magic, cputype, cpusubtype = struct.unpack_from("<III", data, offset)
    if magic != MH_MAGIC_64:
        raise BadFile(f"no 64-bit Mach-O header at offset {offset} (magic 0x{magic:08x})")
    return cputype, cpusubtype


def slices(data):
    """Every (cputype, cpusubtype) in the file, checking that a universal file's table agrees with its slices."""
    if len(data) < 8:
        raise BadFile("too short for a Mach-O file")
    (magic,) = struct.unpack_from(">I", data, 0)
    if magic not in (FAT_MAGIC, FAT_MAGIC_64):
        return [thin_header(data, 0)]
    entry_format = ">IIIII" if magic == FAT_MAGIC else ">IIQQII"
    entry_size = struct.calcsize(entry_format)
    (count,) = struct.unpack_from(">I", data, 4)
    if len(data) < 8 + count * entry_size:
        raise BadFile(f"truncated universal header ({count} slices)")
    found = []
    for index in range(count):
        cputype, cpusubtype, offset = struct.unpack_from(entry_format, data, 8 + index * entry_size)[:3]
        inner = thin_header(data, offset)
        if inner != (cputype, cpusubtype):
            raise BadFile(
                f"slice {index} is listed as {describe(cputype, cpusubtype)} but its header says {describe(*inner)}"
            )
        found.append(inner)
    return found


def describe(cputype, cpusubtype):
    if cputype != CPU_TYPE_ARM64:
        return f"cputype 0x{cputype:08x}"
    if cpusubtype & ~CAPABILITY_BITS == CPU_SUBTYPE_ARM64E:
        return "arm64e" if cpusubtype == ARM64E_WITH_PTRAUTH_ABI else f"arm64e (cpusubtype 0x{cpusubtype:08x})"
    return "arm64"


def problems_of(found, required):
    problems = []
    names = []
    for cputype, cpusubtype in found:
        name = describe(cputype, cpusubtype)
        names.append(name)
        if cputype != CPU_TYPE_ARM64:
            problems.append(f"unexpected {name}")
        elif cpusubtype & ~CAPABILITY_BITS == CPU_SUBTYPE_ARM64E and cpusubtype != ARM64E_WITH_PTRAUTH_ABI:
            problems.append(
                f"arm64e slice has cpusubtype 0x{cpusubtype:08x}, not 0x{ARM64E_WITH_PTRAUTH_ABI:08x}: "
                "built without the pointer-authentication ABI, arm64e processes refuse or crash on it"
            )
        elif cpusubtype & ~CAPABILITY_BITS not in (CPU_SUBTYPE_ARM64_ALL, CPU_SUBTYPE_ARM64_V8, CPU_SUBTYPE_ARM64E):
            problems.append(f"arm64 slice has unknown cpusubtype 0x{cpusubtype:08x}")
    for arch in required:
        if arch not in names:
            problems.append(f"no {arch} slice (has {', '.join(names) or 'none'})")
    return names, problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--require", action="append", choices=["arm64", "arm64e"], default=[])
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    required = options.require or ["arm64"]
    failed = False
    for path in options.files:
        try:
            with open(path, "rb") as file:
                names, problems = problems_of(slices(file.read()), required)
        except (OSError, BadFile) as error:
            names, problems = [], [str(error)]
        if problems:
            failed = True
            for problem in problems:
                print(f"check-macho-arch: {path}: {problem}", file=sys.stderr)
        else:
            print(f"ok {path}: {', '.join(names)}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
