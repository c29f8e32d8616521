#!/usr/bin/env python3
"""Builds the package source (build/repo) from the built packages: indexes by Debian's own tools, icon, pages."""
import argparse
import html
import math
import shutil
import struct
import subprocess
import sys
import zlib
from pathlib import Path
from string import Template

ROOT = Path(__file__).resolve().parent.parent
TEMPLATES = ROOT / "resources" / "repo"
ICON_SIZE = 120
ICON_NAME = "CydiaIcon.png"  # the name phone package managers fetch from a source's root
LABEL = "Verdigo"


def fail(message):
    print(f"make repo: {message}", file=sys.stderr)
    sys.exit(1)


def png(size, pixels):
    raw = b"".join(b"\x00" + bytes(c for px in row for c in px) for row in pixels)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def icon():
    """A rounded verdigris square with a white downward chevron: going back a version."""
    background, mark = (67, 160, 150), (255, 255, 255)

    def inside_square(x, y):
        r = 0.22
        cx, cy = min(max(x, r), 1 - r), min(max(y, r), 1 - r)
        return (x - cx) ** 2 + (y - cy) ** 2 <= r * r

    def inside_chevron(x, y):
        # Two thick strokes meeting at the bottom centre.
        half = 0.075
        for (x0, y0, x1, y1) in ((0.25, 0.35, 0.5, 0.65), (0.75, 0.35, 0.5, 0.65)):
            dx, dy = x1 - x0, y1 - y0
            t = max(0.0, min(1.0, ((x - x0) * dx + (y - y0) * dy) / (dx * dx + dy * dy)))
            if math.hypot(x - (x0 + t * dx), y - (y0 + t * dy)) <= half:
                return True
        return False

    samples = 3
    rows = []
    for py in range(ICON_SIZE):
        row = []
        for px in range(ICON_SIZE):
            square = chevron = 0
            for sy in range(samples):
                for sx in range(samples):
                    x = (px + (sx + 0.5) / samples) / ICON_SIZE
                    y = (py + (sy + 0.5) / samples) / ICON_SIZE
                    if inside_square(x, y):
                        square += 1
                        chevron += inside_chevron(x, y)
            total = samples * samples
            if square == 0:
                row.append((0, 0, 0, 0))
                continue
            w = chevron / square
            colour = tuple(round(b * (1 - w) + m * w) for b, m in zip(background, mark))
            row.append(colour + (round(255 * square / total),))
        rows.append(row)
    return png(ICON_SIZE, rows)


def control_fields(deb):
    text = subprocess.run(["dpkg-deb", "-f", str(deb)], check=True, capture_output=True, text=True).stdout
    fields, key = {}, None
    for line in text.splitlines():
        if line.startswith((" ", "\t")) and key:
            fields[key] += "\n" + line[1:]
        elif ":" in line:
            key, value = line.split(":", 1)
            fields[key] = value.strip()
    return fields


def description_text(description):
    summary, _, rest = description.partition("\n")
    paragraphs = "\n".join("" if line.strip() == "." else line for line in rest.splitlines())
    return summary, paragraphs.strip()


def filled(template, values, markup=None):
    """The template with every value escaped; `markup` holds values that are already HTML."""
    escaped = {k: html.escape(v) for k, v in values.items()}
    return Template((TEMPLATES / template).read_text()).substitute(escaped, **(markup or {}))


def run(command, cwd, output=None):
    try:
        result = subprocess.run(command, cwd=cwd, check=True, capture_output=True)
    except FileNotFoundError:
        fail(f"{command[0]} is missing; run scripts/bootstrap.sh")
    except subprocess.CalledProcessError as error:
        fail(f"{' '.join(command)} failed: {error.stderr.decode(errors='replace').strip()}")
    if output is not None:
        output.write_bytes(result.stdout)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("packages", type=Path, help="folder with the built .deb files")
    parser.add_argument("repo", type=Path, help="the package source to write (replaced whole)")
    parser.add_argument("--base-url", default="", help="where the source is served (…/repo/), for the depiction")
    args = parser.parse_args()

    debs = sorted(args.packages.glob("*.deb")) if args.packages.is_dir() else []
    if not debs:
        fail(f"no packages in {args.packages}; run make package first")
    base_url = args.base_url
    if base_url and not base_url.endswith("/"):
        base_url += "/"

    staging = args.repo.with_name(args.repo.name + ".tmp")
    shutil.rmtree(staging, ignore_errors=True)
    (staging / "debs").mkdir(parents=True)
    (staging / "depictions").mkdir()
    packages = {}
    for deb in debs:
        shutil.copy2(deb, staging / "debs" / deb.name)
        fields = control_fields(deb)
        packages.setdefault(fields["Package"], []).append(fields)

    extra_override = staging / "override.extra"
    lines = []
    items = []
    for name, variants in sorted(packages.items()):
        fields = variants[0]
        summary, details = description_text(fields.get("Description", ""))
        page = f"depictions/{name}.html"
        (staging / page).write_text(filled("depiction.html", {
            "name": fields.get("Name", name), "package": name, "version": fields.get("Version", ""),
            "summary": summary, "details": details,
            "architectures": ", ".join(sorted(v.get("Architecture", "") for v in variants)),
            "depends": fields.get("Depends", "nothing"), "section": fields.get("Section", ""),
            "maintainer": fields.get("Maintainer", ""),
        }))
        items.append(f'<li><a href="{html.escape(page)}">{html.escape(fields.get("Name", name))}</a> '
                     f'{html.escape(fields.get("Version", ""))}: {html.escape(summary)}</li>')
        if base_url:
            lines.append(f"{name} Depiction {base_url}{page}")
            lines.append(f"{name} Icon {base_url}{ICON_NAME}")
    extra_override.write_text("".join(line + "\n" for line in lines))

    scan = ["dpkg-scanpackages", "--multiversion"] + (["--extra-override", extra_override.name] if lines else [])
    run(scan + ["debs", "/dev/null"], staging, staging / "Packages")
    extra_override.unlink()
    raw = (staging / "Packages").read_bytes()
    for suffix, tool in ((".gz", ["gzip", "-9n"]), (".bz2", ["bzip2", "-9"]), (".xz", ["xz", "-9"])):
        compressed = subprocess.run(tool + ["-c"], input=raw, check=True, capture_output=True).stdout
        (staging / ("Packages" + suffix)).write_bytes(compressed)

    (staging / ICON_NAME).write_bytes(icon())
    index = filled("index.html", {"label": LABEL, "address": base_url or "this page's address, ending in /repo/"},
                   {"packages": "\n".join(items)})
    (staging / "index.html").write_text(index)

    architectures = sorted({v.get("Architecture", "") for vs in packages.values() for v in vs})
    release = ["apt-ftparchive",
               "-o", f"APT::FTPArchive::Release::Origin={LABEL}",
               "-o", f"APT::FTPArchive::Release::Label={LABEL}",
               "-o", "APT::FTPArchive::Release::Suite=stable",
               "-o", "APT::FTPArchive::Release::Codename=verdigo",
               "-o", "APT::FTPArchive::Release::Version=1.0",
               "-o", f"APT::FTPArchive::Release::Architectures={' '.join(architectures)}",
               "-o", f"APT::FTPArchive::Release::Description={LABEL} packages",
               "release", "."]
    # Written beside, then moved in: apt-ftparchive would otherwise hash the half-written Release itself.
    run(release, staging, staging.parent / (staging.name + ".Release"))
    shutil.move(str(staging.parent / (staging.name + ".Release")), staging / "Release")

    shutil.rmtree(args.repo, ignore_errors=True)
    staging.rename(args.repo)
    print(f"make repo: {args.repo} holds {len(debs)} packages of {len(packages)} name(s) "
          f"({', '.join(architectures)}){'' if base_url else '; no depiction URL (give QV_API_BASE_URL)'}")


if __name__ == "__main__":
    main()
