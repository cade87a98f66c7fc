#!/usr/bin/env bash
# Lists the C++ files whose formatting differs from .clang-format, with the number of
# changes clang-format would make in each; exits 1 when any does. --fix reformats them.
#
#   scripts/check_format.sh [--fix] [FILE...]     (default: every tracked .cpp and .h)
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || { echo "clang-format is not installed" >&2; exit 2; }
fix=false
if [ "${1:-}" = --fix ]; then fix=true; shift; fi
if [ $# -gt 0 ]; then files=("$@"); else mapfile -t files < <(git ls-files '*.cpp' '*.h'); fi

if $fix; then
  clang-format -i --style=file "${files[@]}"
  exit 0
fi
differing=0
for f in "${files[@]}"; do
  changes=$(clang-format --style=file --dry-run "$f" 2>&1 | grep -c 'warning:' || true)
  if [ "$changes" -gt 0 ]; then
    echo "$f: $changes change(s)"
    differing=$((differing + 1))
  fi
done
if [ "$differing" -gt 0 ]; then
  echo "$differing file(s) differ from .clang-format (scripts/check_format.sh --fix reformats them)"
  exit 1
fi
echo "every file matches .clang-format"
