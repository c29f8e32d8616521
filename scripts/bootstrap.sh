#!/usr/bin/env bash
# Installs the Debian packages that building, testing and packaging Verdigo need; safe to run again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git file
  clang-14 lld-14 llvm-14 libclang-rt-14-dev clang-format clang-tidy
  libgtest-dev libgmock-dev libbenchmark-dev
  libicu-dev libplist-dev libzip-dev libcurl4-openssl-dev libcli11-dev
  libboost-dev zlib1g-dev libcpp-httplib-dev libsqlite3-dev sqlite3 libpq-dev postgresql
  # The service's pages: their templates, and the browser (driven through its WebDriver) that tests them.
  libkainjow-mustache-dev chromium chromium-driver
  dpkg-dev fakeroot curl python3 python3-yaml
  # The package source (make repo) and the tests of what an operator sees: apt-ftparchive, promtool.
  apt-utils xz-utils bzip2 prometheus
  # make bench: the static-file server the service is measured beside, and the HTTP load generator.
  nginx wrk
  # The phone library: clang-22 compiles both slices; building the arm64e linker (README "The phone library") also
  # takes LLVM 22's TextAPI reader, uuid-dev and patchelf.
  clang-22 llvm-22 llvm-22-dev uuid-dev patchelf make
)

missing=()
for pkg in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "bootstrap: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "bootstrap: need root or sudo to install packages" >&2; exit 1; }
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
