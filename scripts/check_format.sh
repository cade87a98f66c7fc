#!/usr/bin/env bash
# Lists the C++ files whose formatting differs from .clang-format and exits 1 when any
# does; --fix reformats them. Run by the test suite, so a change that is not formatted
# does not pass.
#
#   scripts/check_format.sh [--fix] [FILE...]     (default: every tracked .cpp and .h)
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || { echo "clang-format is not installed" >&2; exit 2; }
fix=false
if [ "${1:-}" = --fix ]; then fix=true; shift; fi
if [ $# -gt 0 ]; then files=("$@"); else mapfile -t files < <(git ls-files '*.cpp' '*.h'); fi

if $fix; then
  printf '%s\0' "${files[@]}" | xargs -0 -n 40 -P 2 clang-format -i --style=file
  exit 0
fi
# One clang-format per batch of files; each differing line is reported as
# "FILE:LINE:COL: error: code should be clang-formatted".
differing=$(printf '%s\0' "${files[@]}" |
  xargs -0 -n 40 -P 2 clang-format --style=file --dry-run -Werror 2>&1 |
  sed -n 's/^\([^:]*\):[0-9]*:[0-9]*: error: code should be clang-formatted.*/\1/p' | sort | uniq -c) || true
if [ -n "$differing" ]; then
  echo "$differing" | awk '{print $2 ": " $1 " change(s)"}'
  echo "$(echo "$differing" | wc -l) file(s) differ from .clang-format (scripts/check_format.sh --fix reformats them)"
  exit 1
fi
echo "every file matches .clang-format"
