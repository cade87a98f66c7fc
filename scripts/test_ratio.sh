#!/usr/bin/env bash
# The size of the tests against the code: non-blank lines of C++ and Python under tests/
# against those everywhere else outside bench/ and fuzz/ (data files do not count).
set -euo pipefail
cd "$(dirname "$0")/.."
count() { grep -cv '^[[:space:]]*$' "$@" 2>/dev/null | awk -F: '{s += $NF} END {print s + 0}'; }
mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.hpp' '*.cc' '*.py' | grep -v '^bench/\|^fuzz/')
tests=() code=()
for f in "${files[@]}"; do
  [ -f "$f" ] || continue
  if [[ "$f" == tests/* ]]; then tests+=("$f"); else code+=("$f"); fi
done
t=$(count "${tests[@]}")
c=$(count "${code[@]}")
awk -v t="$t" -v c="$c" 'BEGIN {printf "tests %d / code %d = %.3f\n", t, c, t / c}'
