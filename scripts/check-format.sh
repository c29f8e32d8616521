#!/usr/bin/env bash
# Checks (or with --fix, applies) clang-format on every C++ and Objective-C++ source of the project.
set -euo pipefail
mode=check
[ "${1:-}" = "--fix" ] && mode=fix
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h' '*.hpp' '*.mm' | grep -v '^third_party/')
[ ${#files[@]} -eq 0 ] && exit 0
if [ "$mode" = fix ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
  echo "format: ${#files[@]} files clean"
fi
