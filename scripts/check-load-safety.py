#!/usr/bin/env python3
"""Checks that one slice of a phone dylib can be loaded into the store processes on every iOS it claims to support:
each symbol it binds without weak import is exported by the stubs (.tbd) of the library it binds to, in each iOS SDK
of its deployment target's major version and later, and it exports nothing.

usage: check-load-safety.py [--arch arm64|arm64e] [--min-ios X.Y] [--sdks DIR] FILE
FILE is a thin or universal Mach-O; --arch picks the slice of a universal one. --min-ios defaults to the slice's
deployment target, --sdks to $THEOS/sdks or ~/theos/sdks (every iPhoneOS<version>.sdk there). Where no SDK is
extracted the stubs are not read and one line says so. Exit 1 when a symbol is missing or something is exported.
"""

import argparse
import os
import re
import struct
import sys
import zlib

CPU_TYPE_ARM64 = 0x0100000C
CPU_SUBTYPE_MASK = 0x00FFFFFF
CPU_SUBTYPE_ARM64E = 2
MH_MAGIC_64 = 0xFEEDFACF
FAT_MAGIC = 0xCAFEBABE
FAT_MAGIC_64 = 0xCAFEBABF

LC_SYMTAB = 0x2
LC_LOAD_DYLIB = 0xC
LC_LOAD_WEAK_DYLIB = 0x80000018
LC_REEXPORT_DYLIB = 0x8000001F
LC_LAZY_LOAD_DYLIB = 0x20
LC_LOAD_UPWARD_DYLIB = 0x80000023
LC_DYLD_INFO = 0x22
LC_DYLD_INFO_ONLY = 0x80000022
LC_DYLD_EXPORTS_TRIE = 0x80000033
LC_DYLD_CHAINED_FIXUPS = 0x80000034
LC_VERSION_MIN_IPHONEOS = 0x25
LC_BUILD_VERSION = 0x32
DYLIB_LOADS = {LC_LOAD_DYLIB, LC_LOAD_WEAK_DYLIB, LC_REEXPORT_DYLIB, LC_LAZY_LOAD_DYLIB, LC_LOAD_UPWARD_DYLIB}

# Library ordinals that name no dependency.
SELF, MAIN_EXECUTABLE, FLAT_LOOKUP, WEAK_LOOKUP = 0, -1, -2, -3

BIND_SYMBOL_FLAGS_WEAK_IMPORT = 0x1


class BadFile(Exception):
    pass


class Import:
    """One symbol the slice binds: the library ordinal (1-based into its dylib loads, or a special one)."""

    def __init__(self, name, ordinal, weak):
        self.name, self.ordinal, self.weak = name, ordinal, weak


class Slice:
    def __init__(self, arch, dylibs, weak_dylibs, imports, exports, min_ios):
        self.arch = arch
        self.dylibs = dylibs  # install names, in load order
        self.weak_dylibs = weak_dylibs  # the ones loaded with LC_LOAD_WEAK_DYLIB
        self.imports = imports
        self.exports = exports
        self.min_ios = min_ios  # (major, minor), or None when the slice names none


# ---- Mach-O -------------------------------------------------------------------------------------------------------


def uleb(data, pos):
    result = shift = 0
    while True:
        if pos >= len(data):
            raise BadFile("truncated ULEB128")
        byte = data[pos]
        pos += 1
        result |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            return result, pos


def cstring(data, pos):
    end = data.find(b"\0", pos)
    if end < 0:
        raise BadFile("unterminated string")
    return data[pos:end].decode("utf-8", "replace"), end + 1


def arch_of(cputype, cpusubtype):
    if cputype != CPU_TYPE_ARM64:
        return f"cputype 0x{cputype:08x}"
    return "arm64e" if cpusubtype & CPU_SUBTYPE_MASK == CPU_SUBTYPE_ARM64E else "arm64"


def slice_bytes(data, arch):
    """The bytes of the thin slice of the given architecture (or of the only one when arch is None)."""
    if len(data) < 8:
        raise BadFile("too short for a Mach-O file")
    (magic,) = struct.unpack_from(">I", data, 0)
    if magic in (FAT_MAGIC, FAT_MAGIC_64):
        entry_format = ">IIIII" if magic == FAT_MAGIC else ">IIQQII"
        size = struct.calcsize(entry_format)
        (count,) = struct.unpack_from(">I", data, 4)
        if len(data) < 8 + count * size:
            raise BadFile("truncated universal header")
        found = []
        for index in range(count):
            cputype, cpusubtype, offset, length = struct.unpack_from(entry_format, data, 8 + index * size)[:4]
            found.append(arch_of(cputype, cpusubtype))
            if arch is None and count == 1 or found[-1] == arch:
                return found[-1], data[offset : offset + length]
        raise BadFile(f"no {arch or 'single'} slice (has {', '.join(found)}); pick one with --arch")
    if len(data) < 32 or struct.unpack_from("<I", data, 0)[0] != MH_MAGIC_64:
        raise BadFile("not a 64-bit Mach-O file")
    found = arch_of(*struct.unpack_from("<II", data, 4))
    if arch is not None and found != arch:
        raise BadFile(f"the file is {found}, not {arch}")
    return found, data


def version_of(packed):
    return packed >> 16, (packed >> 8) & 0xFF


def parse_slice(data, arch=None):
    arch, data = slice_bytes(data, arch)
    ncmds, sizeofcmds = struct.unpack_from("<II", data, 16)
    pos, end = 32, 32 + sizeofcmds
    if end > len(data):
        raise BadFile("load commands run past the end of the file")
    dylibs, weak_dylibs, min_ios = [], set(), None
    binds, lazy_binds, chained, trie = b"", b"", None, b""

    def linkedit(offset, size):
        if offset + size > len(data):
            raise BadFile("linkedit data runs past the end of the file")
        return data[offset : offset + size]

    for _ in range(ncmds):
        if pos + 8 > end:
            raise BadFile("truncated load command")
        cmd, cmdsize = struct.unpack_from("<II", data, pos)
        if cmdsize < 8 or pos + cmdsize > end:
            raise BadFile(f"load command 0x{cmd:x} has a bad size")
        if cmd in DYLIB_LOADS:
            (name_offset,) = struct.unpack_from("<I", data, pos + 8)
            name, _ = cstring(data[pos : pos + cmdsize], name_offset)
            dylibs.append(name)
            if cmd == LC_LOAD_WEAK_DYLIB:
                weak_dylibs.add(name)
        elif cmd in (LC_DYLD_INFO, LC_DYLD_INFO_ONLY):
            fields = struct.unpack_from("<10I", data, pos + 8)
            binds = linkedit(fields[2], fields[3])
            lazy_binds = linkedit(fields[6], fields[7])
            trie = linkedit(fields[8], fields[9])
        elif cmd == LC_DYLD_CHAINED_FIXUPS:
            chained = linkedit(*struct.unpack_from("<II", data, pos + 8))
        elif cmd == LC_DYLD_EXPORTS_TRIE:
            trie = linkedit(*struct.unpack_from("<II", data, pos + 8))
        elif cmd == LC_BUILD_VERSION:
            min_ios = version_of(struct.unpack_from("<I", data, pos + 12)[0])
        elif cmd == LC_VERSION_MIN_IPHONEOS:
            min_ios = version_of(struct.unpack_from("<I", data, pos + 8)[0])
        pos += cmdsize
    imports = opcode_imports(binds) + opcode_imports(lazy_binds)
    if chained is not None:
        imports += chained_imports(chained)
    return Slice(arch, dylibs, weak_dylibs, imports, trie_exports(trie), min_ios)


def opcode_imports(opcodes):
    """The symbols bound by a bind or lazy-bind opcode stream. The weak-bind stream is left out on purpose: it only
    coalesces definitions the normal binds already name."""
    imports, pos = [], 0
    ordinal, name, flags = 0, None, 0
    while pos < len(opcodes):
        byte = opcodes[pos]
        pos += 1
        opcode, immediate = byte & 0xF0, byte & 0x0F
        if opcode == 0x00:  # DONE: ends one lazy entry; the stream may go on
            continue
        if opcode == 0x10:  # SET_DYLIB_ORDINAL_IMM
            ordinal = immediate
        elif opcode == 0x20:  # SET_DYLIB_ORDINAL_ULEB
            ordinal, pos = uleb(opcodes, pos)
        elif opcode == 0x30:  # SET_DYLIB_SPECIAL_IMM: 0, -1, -2, -3 as a sign-extended nibble
            ordinal = 0 if immediate == 0 else immediate - 16
        elif opcode == 0x40:  # SET_SYMBOL_TRAILING_FLAGS_IMM
            flags = immediate
            name, pos = cstring(opcodes, pos)
        elif opcode == 0x50:  # SET_TYPE_IMM
            pass
        elif opcode in (0x60, 0x70, 0x80, 0xA0):  # addend, segment+offset, add address, bind+add address
            _, pos = uleb(opcodes, pos)  # the addend is signed; skipping it needs only its length
            if opcode == 0xA0:
                imports.append(Import(name, ordinal, bool(flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT)))
        elif opcode in (0x90, 0xB0):  # DO_BIND, DO_BIND_ADD_ADDR_IMM_SCALED
            imports.append(Import(name, ordinal, bool(flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT)))
        elif opcode == 0xC0:  # DO_BIND_ULEB_TIMES_SKIPPING_ULEB
            _, pos = uleb(opcodes, pos)
            _, pos = uleb(opcodes, pos)
            imports.append(Import(name, ordinal, bool(flags & BIND_SYMBOL_FLAGS_WEAK_IMPORT)))
        elif opcode == 0xD0:  # THREADED: its sub-opcodes carry a table size or nothing
            if immediate == 0x00:
                _, pos = uleb(opcodes, pos)
        else:
            raise BadFile(f"unknown bind opcode 0x{byte:02x}")
        if name is None and opcode in (0x90, 0xA0, 0xB0, 0xC0):
            raise BadFile("bind before any symbol name")
    return imports


def chained_imports(blob):
    """The import table of LC_DYLD_CHAINED_FIXUPS: every symbol the chains bind."""
    if len(blob) < 28:
        raise BadFile("truncated chained-fixups header")
    _, _, imports_offset, symbols_offset, count, imports_format, symbols_format = struct.unpack_from("<7I", blob, 0)
    symbols = blob[symbols_offset:]
    if symbols_format == 1:
        symbols = zlib.decompress(symbols)
    elif symbols_format != 0:
        raise BadFile(f"unknown chained-fixups symbol format {symbols_format}")
    sizes = {1: 4, 2: 8, 3: 16}
    if imports_format not in sizes:
        raise BadFile(f"unknown chained-fixups import format {imports_format}")
    if imports_offset + count * sizes[imports_format] > len(blob):
        raise BadFile("chained-fixups imports run past their data")
    imports = []
    for index in range(count):
        at = imports_offset + index * sizes[imports_format]
        if imports_format == 3:
            (packed,) = struct.unpack_from("<Q", blob, at)
            ordinal, weak, name_offset = packed & 0xFFFF, (packed >> 16) & 1, packed >> 32
            ordinal = ordinal - 0x10000 if ordinal >= 0xFFF0 else ordinal
        else:
            (packed,) = struct.unpack_from("<I", blob, at)
            ordinal, weak, name_offset = packed & 0xFF, (packed >> 8) & 1, packed >> 9
            ordinal = ordinal - 0x100 if ordinal >= 0xF0 else ordinal
        name, _ = cstring(symbols, name_offset)
        imports.append(Import(name, ordinal, bool(weak)))
    return imports


def trie_exports(trie):
    """Every name the exports trie holds."""
    names, pending, seen = [], [(0, "")], set()
    while trie and pending:
        offset, prefix = pending.pop()
        if offset in seen or offset >= len(trie):
            raise BadFile("exports trie loops or points outside itself")
        seen.add(offset)
        terminal_size, pos = uleb(trie, offset)
        if terminal_size:
            names.append(prefix)
        pos += terminal_size
        if pos >= len(trie):
            raise BadFile("truncated exports trie")
        children = trie[pos]
        pos += 1
        for _ in range(children):
            edge, pos = cstring(trie, pos)
            child, pos = uleb(trie, pos)
            pending.append((child, prefix + edge))
    return sorted(names)


# ---- SDK stubs ----------------------------------------------------------------------------------------------------


def load_yaml_documents(path):
    import yaml

    loader = getattr(yaml, "CSafeLoader", yaml.SafeLoader)

    class StubLoader(loader):
        pass

    # Stubs tag their documents (!tapi-tbd, !tapi-tbd-v3); the tag adds nothing a reader here needs.
    def tagged(stub, tag, node):
        document = stub.construct_mapping(node, deep=True)
        document[TAG_KEY] = tag
        return document

    # Stubs tag their documents with their format (!tapi-tbd, !tapi-tbd-v3); older formats spell classes otherwise.
    StubLoader.add_multi_constructor("!", tagged)
    with open(path, encoding="utf-8") as file:
        return [document for document in yaml.load_all(file, Loader=StubLoader) if isinstance(document, dict)]


TAG_KEY = "(tag)"


class Library:
    def __init__(self, install_name):
        self.install_name = install_name
        self.symbols = set()
        self.reexports = []


def library_of(document, arch):
    """What one stub document says the library exports for arch: symbols, Objective-C names spelled as the linker
    binds them, and the libraries it re-exports."""
    library = Library(str(document.get("install-name", "")))
    version = 4 if "tbd-version" in document else 3 if document.get(TAG_KEY) == "tapi-tbd-v3" else 2
    target = f"{arch}-ios"

    def applies(section):
        if version == 4:
            return target in section.get("targets", [])
        return arch in section.get("archs", [])

    for key in ("exports", "reexports"):
        for section in document.get(key) or []:
            if not applies(section):
                continue
            for symbol_key in ("symbols", "weak-symbols", "weak-def-symbols", "thread-local-symbols"):
                library.symbols.update(str(name) for name in section.get(symbol_key) or [])
            for name in section.get("objc-classes") or []:
                name = str(name)
                if version < 3:  # v1 and v2 list classes with a leading "_" and imply their exception types
                    name = name[1:] if name.startswith("_") else name
                    library.symbols.add(f"_OBJC_EHTYPE_$_{name}")
                library.symbols.update({f"_OBJC_CLASS_$_{name}", f"_OBJC_METACLASS_$_{name}"})
            library.symbols.update(f"_OBJC_EHTYPE_$_{name}" for name in section.get("objc-eh-types") or [])
            library.symbols.update(f"_OBJC_IVAR_$_{name}" for name in section.get("objc-ivars") or [])
            library.reexports += [str(name) for name in section.get("re-exports") or []]
    for section in document.get("reexported-libraries") or []:
        if applies(section):
            library.reexports += [str(name) for name in section.get("libraries") or []]
    return library


class Sdk:
    """One extracted iPhoneOS SDK: its stubs, read on first use."""

    def __init__(self, path, arch):
        self.path, self.arch = path, arch
        self.name = os.path.basename(path)
        self.version = sdk_version(self.name)
        self.libraries = {}

    def stub_path(self, install_name):
        base = os.path.splitext(install_name)[0] if install_name.endswith(".dylib") else install_name
        return self.path + base + ".tbd"

    def library(self, install_name):
        """The library, None when this SDK has no such library, or "incomplete" when the SDK has the framework but
        its copy lacks the stub."""
        if install_name in self.libraries:
            return self.libraries[install_name]
        stub = self.stub_path(install_name)
        if not install_name.startswith("/") or not os.path.isfile(stub):
            framework = re.match(r"(.*\.framework)/", install_name)
            has_framework = framework and os.path.isdir(self.path + framework.group(1))
            self.libraries[install_name] = "incomplete" if has_framework else None
            return self.libraries[install_name]
        for document in load_yaml_documents(stub):
            library = library_of(document, self.arch)
            self.libraries.setdefault(library.install_name, library)
        self.libraries.setdefault(install_name, None)
        return self.libraries[install_name]

    def exports(self, install_name, symbol, visited=None):
        """True, False, or "incomplete" when a stub on the way is missing from this SDK copy."""
        visited = visited if visited is not None else set()
        if install_name in visited:
            return False
        visited.add(install_name)
        library = self.library(install_name)
        if not isinstance(library, Library):
            return library or False
        if symbol in library.symbols:
            return True
        incomplete = False
        for reexport in library.reexports:
            found = self.exports(reexport, symbol, visited)
            if found is True:
                return True
            incomplete = incomplete or found == "incomplete"
        return "incomplete" if incomplete else False


def sdk_version(name):
    found = re.match(r"iPhoneOS(\d+)\.(\d+)", name)
    return (int(found.group(1)), int(found.group(2))) if found else None


def sdks_from(directory, min_ios, arch):
    """The SDKs to check against: those of the deployment target's major version and later, oldest first."""
    if not os.path.isdir(directory):
        return []
    found = [Sdk(os.path.join(directory, name), arch) for name in os.listdir(directory)]
    found = [sdk for sdk in found if sdk.version and os.path.isdir(sdk.path)]
    return sorted((sdk for sdk in found if sdk.version[0] >= min_ios[0]), key=lambda sdk: sdk.version)


# ---- The check ----------------------------------------------------------------------------------------------------


def check(slice_, sdks):
    """(lines to print, problems) of the slice against each SDK."""
    lines, problems = [], []
    strong = [item for item in slice_.imports if not item.weak]
    # A library's symbols are checked once however many places bind them.
    wanted = {}
    for item in strong:
        # A flat lookup, and the lookup of a weak definition (operator new, type info), take the first loaded image
        # that has the name.
        if item.ordinal in (FLAT_LOOKUP, WEAK_LOOKUP):
            wanted.setdefault(None, set()).add(item.name)
        elif item.ordinal == SELF:
            continue
        elif item.ordinal == MAIN_EXECUTABLE:
            problems.append(f"{item.name} is bound to the main executable, which exports nothing to it")
        elif 1 <= item.ordinal <= len(slice_.dylibs):
            wanted.setdefault(slice_.dylibs[item.ordinal - 1], set()).add(item.name)
        else:
            problems.append(f"{item.name} is bound to library ordinal {item.ordinal}, which the slice does not load")
    weak_count = len(slice_.imports) - len(strong)
    by_library = {library: names for library, names in wanted.items() if library is not None}
    anywhere = f", {len(wanted[None])} from any loaded library" if None in wanted else ""
    lines.append(
        f"load safety: {slice_.arch} slice, iOS {slice_.min_ios[0]}.{slice_.min_ios[1]} and later: "
        f"{sum(len(names) for names in by_library.values())} symbols bound from {len(by_library)} libraries{anywhere}; "
        f"weak imports not checked: {weak_count}"
    )
    for sdk in sdks:
        notes, missing = [], []
        for install_name, names in sorted(wanted.items(), key=lambda entry: entry[0] or ""):
            if install_name is None:
                libraries = [name for name in slice_.dylibs if sdk.library(name) is not None]
                for name in sorted(names):
                    if not any(sdk.exports(library, name) is True for library in libraries):
                        missing.append(f"{name} (in any loaded library)")
                continue
            library = sdk.library(install_name)
            if library is None and install_name in slice_.weak_dylibs:
                notes.append(f"{install_name} is no SDK library and loads weakly: not checked")
                continue
            if library is None:
                missing.append(f"the library {install_name} itself")
                continue
            skipped = 0
            for name in sorted(names):
                found = sdk.exports(install_name, name)
                if found == "incomplete":
                    skipped += 1
                elif not found:
                    missing.append(f"{name} ({install_name})")
            if skipped:
                notes.append(f"no stub for {install_name} in this SDK copy: {skipped} of its symbols not checked")
        status = "ok" if not missing else f"{len(missing)} missing"
        lines.append(f"  {sdk.name}: {status}" + "".join(f"; {note}" for note in notes))
        problems += [f"{sdk.name} lacks {entry}: the store processes would not load the library there"
                     for entry in missing]
    return lines, problems


def default_sdk_directory():
    theos = os.environ.get("THEOS") or os.path.expanduser("~/theos")
    return os.path.join(theos, "sdks")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--arch", choices=["arm64", "arm64e"])
    parser.add_argument("--min-ios", help="X.Y; default: the slice's deployment target")
    parser.add_argument("--sdks", default=default_sdk_directory())
    parser.add_argument("file")
    options = parser.parse_args()
    try:
        with open(options.file, "rb") as file:
            slice_ = parse_slice(file.read(), options.arch)
    except (OSError, BadFile, struct.error) as error:
        print(f"check-load-safety: {options.file}: {error}", file=sys.stderr)
        return 1
    if options.min_ios:
        found = re.fullmatch(r"(\d+)(?:\.(\d+))?", options.min_ios)
        if not found:
            print(f"check-load-safety: --min-ios {options.min_ios} is not X.Y", file=sys.stderr)
            return 2
        slice_.min_ios = (int(found.group(1)), int(found.group(2) or 0))
    if slice_.min_ios is None:
        print(f"check-load-safety: {options.file}: no deployment target; pass --min-ios", file=sys.stderr)
        return 1

    problems = []
    sdks = sdks_from(options.sdks, slice_.min_ios, slice_.arch)
    if sdks:
        lines, problems = check(slice_, sdks)
        print("\n".join(lines))
    else:
        print(f"load safety: not checked, no iPhoneOS SDK of iOS {slice_.min_ios[0]} or later at {options.sdks}")
    problems += [f"exports {name}: it would enter the store processes' namespace" for name in slice_.exports]
    print(f"exports: {len(slice_.exports) or 'none'}")
    for problem in problems:
        print(f"check-load-safety: {problem}", file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
