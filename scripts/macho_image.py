"""Reads what the package checks need from a 64-bit Mach-O file: its slices, segments and sections, minimum iOS,
the chained fixups dyld applies at load (signed arm64e pointers included), and the ad-hoc code signature.

Every malformed or truncated input raises BadImage with a one-line reason; nothing is trusted to be in bounds.
"""

import hashlib
import struct
from dataclasses import dataclass, field

CPU_TYPE_ARM64 = 0x0100000C
CPU_SUBTYPE_MASK = 0x00FFFFFF
CPU_SUBTYPE_ARM64E = 2
# arm64e with the pointer-authentication ABI flag, ABI version 0: the only arm64e that current loaders accept.
ARM64E_WITH_PTRAUTH_ABI = 0x80000002

MH_MAGIC_64 = 0xFEEDFACF
FAT_MAGIC = 0xCAFEBABE
FAT_MAGIC_64 = 0xCAFEBABF

LC_SEGMENT_64 = 0x19
LC_CODE_SIGNATURE = 0x1D
LC_VERSION_MIN_IPHONEOS = 0x25
LC_BUILD_VERSION = 0x32
LC_DYLD_CHAINED_FIXUPS = 0x80000034

# Pointer formats of a chained-fixups segment that this reader decodes.
PTR_ARM64E = 1
PTR_64 = 2
PTR_64_OFFSET = 6
POINTER_FORMAT_NAMES = {PTR_ARM64E: "ARM64E", PTR_64: "64", PTR_64_OFFSET: "64_OFFSET"}
PAGE_START_NONE = 0xFFFF
PAGE_START_MULTI = 0x8000
KEYS = ("IA", "IB", "DA", "DB")

CSMAGIC_EMBEDDED_SIGNATURE = 0xFADE0CC0
CSMAGIC_CODEDIRECTORY = 0xFADE0C02
CS_ADHOC = 0x2
CS_HASHES = {1: hashlib.sha1, 2: hashlib.sha256, 3: hashlib.sha256, 4: hashlib.sha384}

# A chain longer than this is a loop in a damaged image, not a real page (16 KiB / 4-byte stride).
MAX_CHAIN_LENGTH = 4096


class BadImage(Exception):
    pass


def unpack(fmt, data, offset):
    if offset < 0 or offset + struct.calcsize(fmt) > len(data):
        raise BadImage(f"truncated: {struct.calcsize(fmt)} bytes at offset {offset} of {len(data)}")
    return struct.unpack_from(fmt, data, offset)


def c_string(data, offset):
    if offset < 0 or offset >= len(data):
        raise BadImage(f"string offset {offset} outside the image")
    end = data.find(b"\0", offset)
    if end < 0:
        raise BadImage(f"unterminated string at offset {offset}")
    return data[offset:end].decode("utf-8", "replace")


@dataclass
class Slice:
    cputype: int
    cpusubtype: int
    data: bytes


def arch_name(cputype, cpusubtype):
    if cputype != CPU_TYPE_ARM64:
        return f"cputype 0x{cputype:08x}"
    if cpusubtype & CPU_SUBTYPE_MASK == CPU_SUBTYPE_ARM64E:
        return "arm64e"
    return "arm64"


def slices(data):
    """Each slice of a thin or universal file; a universal table must agree with the headers it points at."""
    if len(data) < 8:
        raise BadImage("too short for a Mach-O file")
    (magic,) = unpack(">I", data, 0)
    if magic not in (FAT_MAGIC, FAT_MAGIC_64):
        return [Slice(*thin_header(data, 0), data)]
    entry_format = ">IIIII" if magic == FAT_MAGIC else ">IIQQII"
    entry_size = struct.calcsize(entry_format)
    (count,) = unpack(">I", data, 4)
    if 8 + count * entry_size > len(data):
        raise BadImage(f"truncated universal header ({count} slices)")
    found = []
    for index in range(count):
        cputype, cpusubtype, offset, size = unpack(entry_format, data, 8 + index * entry_size)[:4]
        if offset + size > len(data):
            raise BadImage(f"slice {index} runs past the end of the file")
        inner = thin_header(data, offset)
        if inner != (cputype, cpusubtype):
            raise BadImage(
                f"slice {index} is listed as {arch_name(cputype, cpusubtype)} (0x{cpusubtype:08x}) "
                f"but its header says {arch_name(*inner)} (0x{inner[1]:08x})"
            )
        found.append(Slice(cputype, cpusubtype, data[offset : offset + size]))
    return found


def thin_header(data, offset):
    magic, cputype, cpusubtype = unpack("<III", data, offset)
    if magic != MH_MAGIC_64:
        raise BadImage(f"no 64-bit Mach-O header at offset {offset} (magic 0x{magic:08x})")
    return cputype, cpusubtype


@dataclass
class Section:
    segment: str
    name: str
    address: int
    size: int


@dataclass
class Segment:
    name: str
    address: int
    size: int
    file_offset: int
    file_size: int
    sections: list = field(default_factory=list)


@dataclass
class Fixup:
    address: int
    section: str
    pointer_format: int
    kind: str  # rebase, bind, auth-rebase or auth-bind
    target: int = 0  # rebase target; for binds the import's index
    symbol: str = ""
    weak: bool = False
    key: str = ""
    address_diversity: bool = False
    diversity: int = 0

    @property
    def signed(self):
        return self.kind.startswith("auth-")

    def describe(self):
        text = f"0x{self.address:08x} {self.section:<28} {self.kind:<11}"
        if self.signed:
            text += f" key={self.key} addrDiv={int(self.address_diversity)} div=0x{self.diversity:04x}"
        if self.kind.endswith("bind"):
            return text + f" {self.symbol}{' (weak)' if self.weak else ''}"
        return text + f" -> 0x{self.target:x}"


class Image:
    """One thin 64-bit Mach-O image."""

    def __init__(self, data):
        self.data = data
        self.cputype, self.cpusubtype = thin_header(data, 0)
        (ncmds, sizeofcmds) = unpack("<II", data, 16)
        if 32 + sizeofcmds > len(data):
            raise BadImage("load commands run past the end of the image")
        self.segments = []
        self.minimum_ios = None
        self.chained_fixups = None  # (offset, size) of the fixups blob
        self.code_signature = None  # (offset, size) of the signature blob
        offset = 32
        for _ in range(ncmds):
            cmd, size = unpack("<II", data, offset)
            if size < 8 or offset + size > 32 + sizeofcmds:
                raise BadImage(f"load command 0x{cmd:x} at offset {offset} has bad size {size}")
            self._read_command(cmd, offset)
            offset += size

    def _read_command(self, cmd, offset):
        data = self.data
        if cmd == LC_SEGMENT_64:
            name = data[offset + 8 : offset + 24].rstrip(b"\0").decode("ascii", "replace")
            address, size, file_offset, file_size = unpack("<QQQQ", data, offset + 24)
            (nsects,) = unpack("<I", data, offset + 64)
            segment = Segment(name, address, size, file_offset, file_size)
            for index in range(nsects):
                at = offset + 72 + 80 * index
                section_name = data[at : at + 16].rstrip(b"\0").decode("ascii", "replace")
                section_address, section_size = unpack("<QQ", data, at + 32)
                segment.sections.append(Section(name, section_name, section_address, section_size))
            self.segments.append(segment)
        elif cmd == LC_BUILD_VERSION:
            self.minimum_ios = version_text(unpack("<I", data, offset + 12)[0])
        elif cmd == LC_VERSION_MIN_IPHONEOS:
            self.minimum_ios = version_text(unpack("<I", data, offset + 8)[0])
        elif cmd == LC_DYLD_CHAINED_FIXUPS:
            self.chained_fixups = self._blob(cmd, offset)
        elif cmd == LC_CODE_SIGNATURE:
            self.code_signature = self._blob(cmd, offset)

    def _blob(self, cmd, offset):
        blob_offset, blob_size = unpack("<II", self.data, offset + 8)
        if blob_offset + blob_size > len(self.data):
            raise BadImage(f"load command 0x{cmd:x} points past the end of the image")
        return blob_offset, blob_size

    def sections(self):
        return [section for segment in self.segments for section in segment.sections]

    def section_of(self, address):
        for section in self.sections():
            if section.address <= address < section.address + section.size:
                return f"{section.segment},{section.name}"
        return "?"

    def fixups(self):
        """Every pointer dyld fixes up at load, from walking the chains page by page."""
        if self.chained_fixups is None:
            return []
        base, size = self.chained_fixups
        blob = self.data[base : base + size]
        (_version, starts_offset, imports_offset, symbols_offset, imports_count, imports_format, _symbols_format) = (
            unpack("<7I", blob, 0)
        )
        imports = read_imports(blob, imports_offset, symbols_offset, imports_count, imports_format)
        (segment_count,) = unpack("<I", blob, starts_offset)
        if segment_count > len(self.segments):
            raise BadImage(f"chained fixups name {segment_count} segments, the image has {len(self.segments)}")
        found = []
        for index in range(segment_count):
            (info_offset,) = unpack("<I", blob, starts_offset + 4 + 4 * index)
            if info_offset != 0:
                found += self._walk_segment(self.segments[index], blob, starts_offset + info_offset, imports)
        return found

    def _walk_segment(self, segment, blob, at, imports):
        _size, page_size, pointer_format, _segment_offset, _max_valid, page_count = unpack("<IHHQIH", blob, at)
        if pointer_format not in POINTER_FORMAT_NAMES:
            raise BadImage(f"segment {segment.name}: pointer format {pointer_format} is not one this reader knows")
        stride = 8 if pointer_format == PTR_ARM64E else 4
        found = []
        for page, start in enumerate(unpack(f"<{page_count}H", blob, at + 22)):
            if start == PAGE_START_NONE:
                continue
            if start & PAGE_START_MULTI:
                raise BadImage(f"segment {segment.name}: multiple chain starts in page {page} are not read")
            offset = page * page_size + start
            for _ in range(MAX_CHAIN_LENGTH):
                if offset + 8 > segment.file_size:
                    raise BadImage(f"segment {segment.name}: chain leaves the segment at offset 0x{offset:x}")
                (raw,) = unpack("<Q", self.data, segment.file_offset + offset)
                address = segment.address + offset
                found.append(decode(raw, pointer_format, imports, address, self.section_of(address)))
                step = (raw >> 51) & (0x7FF if pointer_format == PTR_ARM64E else 0xFFF)
                if step == 0:
                    break
                offset += step * stride
            else:
                raise BadImage(f"segment {segment.name}: chain in page {page} does not end")
        return found


def version_text(packed):
    major, minor, patch = packed >> 16, (packed >> 8) & 0xFF, packed & 0xFF
    return f"{major}.{minor}.{patch}" if patch else f"{major}.{minor}"


def read_imports(blob, imports_offset, symbols_offset, count, imports_format):
    """(name, weak) of each import, in the order binds refer to them."""
    imports = []
    for index in range(count):
        if imports_format == 1:
            (value,) = unpack("<I", blob, imports_offset + 4 * index)
            weak, name_offset = (value >> 8) & 1, value >> 9
        elif imports_format == 2:
            (value, _addend) = unpack("<Ii", blob, imports_offset + 8 * index)
            weak, name_offset = (value >> 8) & 1, value >> 9
        elif imports_format == 3:
            (value, _addend) = unpack("<QQ", blob, imports_offset + 16 * index)
            weak, name_offset = (value >> 16) & 1, value >> 32
        else:
            raise BadImage(f"imports format {imports_format} is not one this reader knows")
        imports.append((c_string(blob, symbols_offset + name_offset), bool(weak)))
    return imports


def decode(raw, pointer_format, imports, address, section):
    def bound(kind, ordinal, **signature):
        if ordinal >= len(imports):
            raise BadImage(f"bind at 0x{address:x} names import {ordinal} of {len(imports)}")
        name, weak = imports[ordinal]
        return Fixup(address, section, pointer_format, kind, ordinal, name, weak, **signature)

    if pointer_format != PTR_ARM64E:
        if raw >> 63:
            return bound("bind", raw & 0xFFFFFF)
        return Fixup(address, section, pointer_format, "rebase", raw & 0xFFFFFFFFF)
    auth, bind = raw >> 63, (raw >> 62) & 1
    if auth:
        signature = {
            "key": KEYS[(raw >> 49) & 3],
            "address_diversity": bool((raw >> 48) & 1),
            "diversity": (raw >> 32) & 0xFFFF,
        }
        if bind:
            return bound("auth-bind", raw & 0xFFFF, **signature)
        return Fixup(address, section, pointer_format, "auth-rebase", raw & 0xFFFFFFFF, **signature)
    if bind:
        return bound("bind", raw & 0xFFFF)
    return Fixup(address, section, pointer_format, "rebase", raw & 0x7FFFFFFFFFF)


@dataclass
class CodeDirectory:
    identifier: str
    flags: int
    hash_name: str
    pages: int
    page_size: int
    bad_pages: list
    bad_special_slots: list
    code_limit: int


def code_directories(image):
    """Each CodeDirectory of the image's signature, with the pages and special slots whose hashes do not match."""
    if image.code_signature is None:
        raise BadImage("not signed (no LC_CODE_SIGNATURE)")
    base, _size = image.code_signature
    data = image.data
    magic, _length, count = unpack(">III", data, base)
    if magic != CSMAGIC_EMBEDDED_SIGNATURE:
        raise BadImage(f"signature has magic 0x{magic:08x}, not an embedded signature")
    blobs = {}
    for index in range(count):
        blob_type, blob_offset = unpack(">II", data, base + 12 + 8 * index)
        blobs[blob_type] = base + blob_offset
    directories = []
    for at in blobs.values():
        if unpack(">I", data, at)[0] == CSMAGIC_CODEDIRECTORY:
            directories.append(read_code_directory(data, at, blobs, base))
    if not directories:
        raise BadImage("signature has no CodeDirectory")
    return directories


def read_code_directory(data, at, blobs, signature_offset):
    (_magic, _length, _version, flags, hash_offset, ident_offset, special_slots, code_slots, code_limit) = unpack(
        ">9I", data, at
    )
    hash_size, hash_type, _platform, page_log2 = unpack(">4B", data, at + 36)
    if hash_type not in CS_HASHES:
        raise BadImage(f"CodeDirectory hash type {hash_type} unknown")
    if code_limit > signature_offset:
        raise BadImage(f"CodeDirectory covers 0x{code_limit:x} bytes, past its own signature")
    digest = CS_HASHES[hash_type]
    page_size = 1 << page_log2 if page_log2 else code_limit
    hashes = at + hash_offset
    bad_pages = []
    for page in range(code_slots):
        start = page * page_size
        expected = data[hashes + page * hash_size : hashes + (page + 1) * hash_size]
        if digest(data[start : min(start + page_size, code_limit)]).digest()[:hash_size] != expected:
            bad_pages.append(page)
    if code_slots * page_size < code_limit:
        bad_pages.append(code_slots)  # the tail of the image is covered by no hash at all
    bad_special_slots = []
    for slot in range(1, special_slots + 1):
        expected = data[hashes - slot * hash_size : hashes - (slot - 1) * hash_size]
        blob = blobs.get(slot)
        if blob is None:
            if expected.strip(b"\0"):
                bad_special_slots.append(slot)
            continue
        (blob_length,) = unpack(">I", data, blob + 4)
        if digest(data[blob : blob + blob_length]).digest()[:hash_size] != expected:
            bad_special_slots.append(slot)
    return CodeDirectory(
        c_string(data, at + ident_offset),
        flags,
        digest().name,
        code_slots,
        page_size,
        bad_pages,
        bad_special_slots,
        code_limit,
    )
