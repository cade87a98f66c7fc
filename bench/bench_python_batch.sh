#!/usr/bin/env bash
# Files per second of `python3 -m xmldsig.batch` on a local Dask cluster of 1 and 2 workers,
# beside `xmldsig verify --json` with -j 1 and -j 2, on the same files: the corpus documents
# copied into a temporary directory until there are COUNT of them. The batch is timed twice:
# from its own summary (verifying only) and as a whole command (with the cluster's start).
# Every run must print the same set of lines.
#
#   bench/bench_python_batch.sh [BUILD_DIR] [COUNT]
#
# BUILD_DIR defaults to build (a Release build with the Python module), COUNT to 1000. The
# corpus is taken from $XMLDSIG_SHARED/corpus or ../shared/corpus beside the checkout.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
build="$(cd "${1:-$here/../build}" && pwd)"
count="${2:-1000}"
python=${PYTHON:-/usr/bin/python3}
bin="$build/xmldsig"
[ -x "$bin" ] || { echo "bench_python_batch: no $bin (build first)" >&2; exit 2; }
[ -f "$build/python/xmldsig/__init__.py" ] || { echo "bench_python_batch: no Python module in $build" >&2; exit 2; }
corpus="${XMLDSIG_SHARED:-$here/../../shared}/corpus"
[ -d "$corpus" ] || { echo "bench_python_batch: no corpus at $corpus (set XMLDSIG_SHARED)" >&2; exit 2; }

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mapfile -d '' sources < <(find "$corpus" -name '*.xml' -type f -print0 | sort -z)
mkdir "$work/docs"
n=0
while [ "$n" -lt "$count" ]; do
  for src in "${sources[@]}"; do
    [ "$n" -lt "$count" ] || break
    cp "$src" "$work/docs/$(printf '%06d' "$n").xml"
    n=$((n + 1))
  done
done
cat "$work/docs"/*.xml >/dev/null  # warm the page cache
echo "bench_python_batch: $n files ($(du -sm "$work/docs" | cut -f1) MiB) on $(nproc) processors"

now() { date +%s.%N; }
rate() { awk -v n="$n" -v s="$1" 'BEGIN { printf "%.0f", n / s }'; }

for jobs in 1 2; do
  start=$(now)
  "$bin" verify --all --json -j "$jobs" "$work/docs"/*.xml >"$work/cli-$jobs.jsonl" 2>/dev/null || true
  secs=$(awk -v a="$start" -v b="$(now)" 'BEGIN { print b - a }')
  sort "$work/cli-$jobs.jsonl" >"$work/cli-$jobs.sorted"
  printf '  xmldsig verify -j %s       %8s files/s  (%.2f s)\n' "$jobs" "$(rate "$secs")" "$secs"
done

for workers in 1 2; do
  start=$(now)
  PYTHONPATH="$build/python" "$python" -m xmldsig.batch --workers "$workers" --all "$work/docs" \
    >"$work/batch-$workers.jsonl" 2>"$work/batch-$workers.err" || true
  secs=$(awk -v a="$start" -v b="$(now)" 'BEGIN { print b - a }')
  verifying=$(sed -n 's/.* in \([0-9.]*\) s (.*/\1/p' "$work/batch-$workers.err" | tail -1)
  [ -n "$verifying" ] || { cat "$work/batch-$workers.err" >&2; exit 1; }
  printf '  xmldsig.batch --workers %s %8s files/s  (%.2f s verifying; %8s files/s, %.2f s, with the cluster start)\n' \
    "$workers" "$(rate "$verifying")" "$verifying" "$(rate "$secs")" "$secs"
  sort "$work/batch-$workers.jsonl" | cmp -s - "$work/cli-1.sorted" ||
    { echo "bench_python_batch: the batch on $workers workers printed other lines than the tool" >&2; exit 1; }
done
cmp -s "$work/cli-1.sorted" "$work/cli-2.sorted" ||
  { echo "bench_python_batch: -j 1 and -j 2 printed different lines" >&2; exit 1; }
echo "bench_python_batch: every run printed the same lines"
