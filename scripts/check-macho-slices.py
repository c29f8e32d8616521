#!/usr/bin/env python3
"""Checks each slice of the phone library against what the loader of its devices accepts.

usage: check-macho-slices.py [--slice ARCH:IOS ...] [--hook-rows N] [--fixups] FILE ...

Each --slice names a slice the file must have and the minimum iOS its header must state (arm64:11.0,
arm64e:14.0); without any, one arm64 slice of any minimum is required. Every slice must be arm64 or arm64e and
carry a valid ad-hoc signature. An arm64e slice must have the pointer-authentication ABI (cpusubtype exactly
0x80000002), ARM64E chained fixups, and every import in __auth_got bound through a signed pointer (key IA,
address-diversified); an arm64 slice must hold no signed pointer at all. With --hook-rows, the section that gathers
the library's hook bodies (__DATA,__qv_bodies: one 24-byte binding per body, the row's position first) must bind each
of the N rows exactly once: the compiler checks each body against its row, only the linked image shows that every
row has one. --fixups prints every decoded fixup.
Prints one line per slice; exit 1 on any problem.
"""

import argparse
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import macho_image  # noqa: E402
from macho_image import BadImage  # noqa: E402

ARCHS = ("arm64", "arm64e")
AUTH_SECTIONS = ("__auth_got", "__auth_ptr", "__auth_stubs")


def slice_spec(text):
    arch, _, minimum = text.partition(":")
    if arch not in ARCHS or not minimum:
        raise argparse.ArgumentTypeError(f"expected ARCH:IOS with ARCH one of {', '.join(ARCHS)}, got {text!r}")
    return arch, minimum


def pointer_problems(name, image, fixups):
    """What is wrong with the slice's pointers for its architecture, and a summary of them."""
    formats = sorted({fixup.pointer_format for fixup in fixups})
    signed = [fixup for fixup in fixups if fixup.signed]
    if name == "arm64":
        problems = [f"{len(signed)} signed pointer(s), first at {signed[0].describe()}"] if signed else []
        auth_sections = [section.name for section in image.sections() if section.name in AUTH_SECTIONS]
        if auth_sections:
            problems.append(f"has pointer-authentication sections {', '.join(auth_sections)}")
        layout = "chained fixups " + "/".join(macho_image.POINTER_FORMAT_NAMES[f] for f in formats) if fixups else (
            "classic dyld info"
        )
        return problems, f"{layout}, no signed pointer"
    problems = []
    if image.chained_fixups is None:
        return ["no chained fixups: the linker did not write the arm64e pointer format"], ""
    if formats != [macho_image.PTR_ARM64E]:
        names = ", ".join(macho_image.POINTER_FORMAT_NAMES.get(f, str(f)) for f in formats) or "none"
        problems.append(f"pointer format {names}, not ARM64E")
    got = [fixup for fixup in fixups if fixup.section.endswith(",__auth_got")]
    if not got:
        problems.append("no import is bound through __auth_got")
    unsigned = [fixup for fixup in got if fixup.kind != "auth-bind" or fixup.key != "IA" or not fixup.address_diversity]
    if unsigned:
        problems.append(f"{len(unsigned)} __auth_got entr(ies) not signed with IA and the slot address, first "
                        f"{unsigned[0].describe()}")
    summary = (
        f"chained fixups ARM64E, {len(got)} imports bound through signed __auth_got, "
        f"{len(signed)} of {len(fixups)} pointers signed"
    )
    return problems, summary


HOOK_BODIES = "__qv_bodies"
BINDING_SIZE = 24


def hook_body_problems(image, rows):
    """What is wrong with the slice's hook-body bindings for a table of rows, and a summary of them."""
    sections = [s for s in image.sections() if s.name == HOOK_BODIES]
    if not sections:
        return [f"no {HOOK_BODIES} section: the hook bodies were not linked in"], ""
    section = sections[0]
    segment = next(seg for seg in image.segments if seg.name == section.segment)
    start = segment.file_offset + section.address - segment.address
    if section.size % BINDING_SIZE:
        return [f"{section.name} holds {section.size} bytes, not whole {BINDING_SIZE}-byte bindings"], ""
    bound = [macho_image.unpack("<Q", image.data, start + at)[0] for at in range(0, section.size, BINDING_SIZE)]
    problems = []
    unknown = sorted(position for position in set(bound) if position >= rows)
    if unknown:
        problems.append(f"bindings for row position(s) {unknown}, the table has {rows} rows")
    twice = sorted(position + 1 for position in set(bound) if bound.count(position) > 1)
    if twice:
        problems.append(f"row(s) {twice} bound more than once")
    missing = sorted(position + 1 for position in set(range(rows)) - set(bound))
    if missing:
        problems.append(f"row(s) {missing} have no body")
    return problems, f"{len(bound)} hook bodies for {rows} rows"


def signature_problems(image):
    directories = macho_image.code_directories(image)
    problems = []
    for directory in directories:
        if not directory.flags & macho_image.CS_ADHOC:
            problems.append(f"CodeDirectory {directory.hash_name} is not ad-hoc (flags 0x{directory.flags:x})")
        if directory.bad_pages:
            problems.append(f"{directory.hash_name} hash of page(s) {directory.bad_pages[:5]} does not match")
        if directory.bad_special_slots:
            problems.append(f"{directory.hash_name} special slot(s) {directory.bad_special_slots} do not match")
        if directory.code_limit != image.code_signature[0]:
            problems.append(f"signature covers 0x{directory.code_limit:x} bytes, the image has "
                            f"0x{image.code_signature[0]:x} before it")
    first = directories[0]
    return problems, f"ad-hoc signature {first.hash_name} over {first.pages} pages ({first.identifier})"


def check_slice(piece, minimum, hook_rows=None):
    """(name, problems, summary) of one slice; minimum is the iOS its header must state, or None for any."""
    name = macho_image.arch_name(piece.cputype, piece.cpusubtype)
    if name not in ARCHS:
        return name, [f"unexpected {name}"], ""
    problems = []
    if name == "arm64e" and piece.cpusubtype != macho_image.ARM64E_WITH_PTRAUTH_ABI:
        problems.append(
            f"cpusubtype 0x{piece.cpusubtype:08x}, not 0x{macho_image.ARM64E_WITH_PTRAUTH_ABI:08x}: built without "
            "the pointer-authentication ABI, arm64e processes refuse or crash on it"
        )
    image = macho_image.Image(piece.data)
    if minimum is not None and image.minimum_ios != minimum:
        problems.append(f"minimum iOS {image.minimum_ios}, expected {minimum}")
    pointers, pointer_summary = pointer_problems(name, image, image.fixups())
    signature, signature_summary = signature_problems(image)
    summary = f"cpusubtype 0x{piece.cpusubtype:08x}, iOS {image.minimum_ios}, {pointer_summary}, {signature_summary}"
    if hook_rows is not None:
        hooks, hooks_summary = hook_body_problems(image, hook_rows)
        problems += hooks
        summary += f", {hooks_summary}"
    return name, problems + pointers + signature, summary


def check_file(path, wanted, print_fixups, hook_rows=None):
    """Problems of one file; prints a line per good slice."""
    with open(path, "rb") as file:
        pieces = macho_image.slices(file.read())
    problems = []
    names = []
    for piece in pieces:
        name = macho_image.arch_name(piece.cputype, piece.cpusubtype)
        try:
            name, slice_problems, summary = check_slice(piece, wanted.get(name), hook_rows)
            if print_fixups and name in ARCHS:
                for fixup in macho_image.Image(piece.data).fixups():
                    print(f"  {name} {fixup.describe()}")
        except BadImage as error:
            slice_problems, summary = [str(error)], ""
        names.append(name)
        problems += [f"{name}: {problem}" for problem in slice_problems]
        if not slice_problems:
            print(f"ok {path} {name}: {summary}")
    for arch in wanted:
        if arch not in names:
            problems.append(f"no {arch} slice (has {', '.join(names) or 'none'})")
    for arch in set(names):
        if names.count(arch) > 1:
            problems.append(f"{names.count(arch)} {arch} slices")
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--slice", action="append", type=slice_spec, default=[], dest="slices")
    parser.add_argument("--hook-rows", type=int)
    parser.add_argument("--fixups", action="store_true")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    wanted = dict(options.slices) or {"arm64": None}
    failed = False
    for path in options.files:
        try:
            problems = check_file(path, wanted, options.fixups, options.hook_rows)
        except (OSError, BadImage) as error:
            problems = [str(error)]
        for problem in problems:
            print(f"check-macho-slices: {path}: {problem}", file=sys.stderr)
        failed |= bool(problems)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
