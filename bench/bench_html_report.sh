#!/usr/bin/env bash
# What the HTML report adds to verifying a large document: makes a signed 10 MB invoice
# batch (bench/make_documents.py), then times `xmldsig verify` and `xmldsig report -o`
# on it, each RUNS times, and prints the best and median wall times, the difference, and
# the size of the page.
#
#   bench/bench_html_report.sh PATH/TO/xmldsig [SIZE] [RUNS]
#
# SIZE defaults to 10M, RUNS to 5. Use a Release build on a quiet machine.
set -euo pipefail

bin="${1:?usage: bench_html_report.sh PATH/TO/xmldsig [SIZE] [RUNS]}"
size="${2:-10M}"
runs="${3:-5}"
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

/usr/bin/python3 "$here/make_documents.py" "$work" --sizes "$size" --variants realistic-excl >/dev/null
doc="$work/realistic-excl-${size^^}.xml"

# Wall times in seconds of RUNS runs of the command, one per line.
times() {
  for _ in $(seq "$runs"); do
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || [ $? -eq 1 ]
    end=$(date +%s.%N)
    awk -v a="$end" -v b="$start" 'BEGIN { printf "%.4f\n", a - b }'
  done
}

summary() {  # best and median of the times on standard input
  sort -n | awk '{t[NR] = $1} END {printf "best %.3f s  median %.3f s", t[1], t[int((NR + 1) / 2)]}'
}

verify=$(times "$bin" verify "$doc")
report=$(times "$bin" report "$doc" -o "$work/page.html")
printf 'document        %s (%d bytes)\n' "$(basename "$doc")" "$(stat -c %s "$doc")"
printf 'verify          %s\n' "$(summary <<<"$verify")"
printf 'report -o HTML  %s\n' "$(summary <<<"$report")"
best() { sort -n | head -1; }
awk -v r="$(best <<<"$report")" -v v="$(best <<<"$verify")" 'BEGIN { printf "added (best)    %.3f s\n", r - v }'
printf 'page size       %d bytes\n' "$(stat -c %s "$work/page.html")"
