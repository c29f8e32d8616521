#!/usr/bin/env bash
# The package source as a real package manager sees it: make-repo.py indexes the built packages, qvdovrin serve
# offers them under /repo/, and apt (with its own private state, no root) updates, shows and downloads the package.
# Where no packages were built it says so in one line and is skipped.
set -euo pipefail
cli=$1
source_dir=$2
packages=${QV_PACKAGES_DIR:-$source_dir/build/packages}
skipped=77

shopt -s nullglob
debs=("$packages"/*.deb)
if [ ${#debs[@]} -eq 0 ]; then
  echo "package source test skipped: no packages in $packages (make package builds them where the iOS SDK is)"
  exit $skipped
fi

work=$(mktemp -d)
server=""
cleanup() {
  if [ -n "$server" ]; then kill -TERM "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

python3 "$source_dir/scripts/make-repo.py" "$packages" "$work/repo"
"$cli" serve --listen 127.0.0.1:0 --db "$work/v.sqlite" --repo "$work/repo" >"$work/serve.out" 2>&1 &
server=$!
for _ in $(seq 100); do
  grep -q "serving on" "$work/serve.out" && break
  sleep 0.1
done
url=$(grep -o 'http://127.0.0.1:[0-9]*/' "$work/serve.out" | head -n1)
[ -n "$url" ] || { echo "the service did not start:"; cat "$work/serve.out"; exit 1; }

# apt as a phone of each packaged architecture runs it.
check_architecture() {
  local deb=$1 arch package apt
  arch=$(dpkg-deb -f "$deb" Architecture)
  package=$(dpkg-deb -f "$deb" Package)
  apt="$work/apt-$arch"
  mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial" "$apt/etc/apt.conf.d" "$apt/etc/preferences.d" \
    "$apt/etc/sources.list.d" "$apt/download"
  touch "$apt/state/status"
  # Unsigned, as the phones' package managers take it; [trusted=yes] tells apt so.
  echo "deb [trusted=yes] ${url}repo/ ./" >"$apt/etc/sources.list"
  cat >"$apt/apt.conf" <<CONF
Dir::State "$apt/state";
Dir::State::status "$apt/state/status";
Dir::Cache "$apt/cache";
Dir::Etc "$apt/etc";
Dir::Etc::sourcelist "$apt/etc/sources.list";
Dir::Etc::sourceparts "$apt/etc/sources.list.d";
Dir::Etc::parts "$apt/etc/apt.conf.d";
Dir::Etc::preferencesparts "$apt/etc/preferences.d";
APT::Architecture "$arch";
APT::Architectures { "$arch"; };
Acquire::Languages "none";
Debug::NoLocking "true";
// Downloads run as whoever runs the test; apt would otherwise switch to its own user, who cannot write here.
APT::Sandbox::User "$(id -un)";
CONF
  export APT_CONFIG="$apt/apt.conf"

  echo "\$ apt-get update    # APT::Architectures=$arch"
  apt-get update 2>&1 | tee "$apt/update.out"
  if grep -q '^E:\|^W:\|^Err:' "$apt/update.out"; then
    echo "FAIL: apt-get update reported a problem"; exit 1
  fi
  echo "\$ apt-cache show $package"
  apt-cache show "$package" | tee "$apt/show.out"
  grep -q "^Package: $package\$" "$apt/show.out" || { echo "FAIL: apt does not know $package"; exit 1; }
  grep -q "^Architecture: $arch\$" "$apt/show.out" || { echo "FAIL: not the $arch package"; exit 1; }

  echo "\$ apt-get download $package"
  (cd "$apt/download" && apt-get download "$package" 2>&1)
  local got=("$apt/download"/*.deb)
  [ ${#got[@]} -eq 1 ] || { echo "FAIL: apt downloaded nothing"; exit 1; }
  cmp -s "${got[0]}" "$deb" || { echo "FAIL: the downloaded package differs from the built one"; exit 1; }
  echo "ok: apt updated from ${url}repo/, showed and downloaded $package ($arch)"
}

for deb in "${debs[@]}"; do
  check_architecture "$deb"
done
echo "package source test passed"
