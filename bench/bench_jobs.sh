#!/usr/bin/env bash
# How `xmldsig verify --jobs N --json` scales over many files: copies every XML document of
# the shared corpus into a temporary directory, repeated until there are at least COUNT
# files, verifies them all once per job count, and prints files per second for each. It
# also checks that every job count printed the same JSON lines in the same order.
#
#   bench/bench_jobs.sh PATH/TO/xmldsig [COUNT] [JOBS...]
#
# COUNT defaults to 3000; JOBS to "1 N" with N the number of processors. Use a Release
# build. The corpus is taken from $XMLDSIG_SHARED/corpus or ../shared/corpus beside the
# checkout.
set -euo pipefail

bin="${1:?usage: bench_jobs.sh PATH/TO/xmldsig [COUNT] [JOBS...]}"
[ -x "$bin" ] || { echo "bench_jobs: $bin is not an executable" >&2; exit 2; }
bin="$(cd "$(dirname "$bin")" && pwd)/$(basename "$bin")"
count="${2:-3000}"
shift $(($# < 2 ? $# : 2))
jobs=("$@")
[ ${#jobs[@]} -gt 0 ] || jobs=(1 "$(nproc)")

here="$(cd "$(dirname "$0")" && pwd)"
corpus="${XMLDSIG_SHARED:-$here/../../shared}/corpus"
[ -d "$corpus" ] || { echo "bench_jobs: no corpus at $corpus (set XMLDSIG_SHARED)" >&2; exit 2; }

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# One cp per round (a process per file takes minutes on a busy machine), each round in its
# own directory with the corpus layout, so that names from different folders stay apart.
mapfile -d '' sources < <(cd "$corpus" && find . -name '*.xml' -type f -print0 | sort -z)
[ ${#sources[@]} -gt 0 ] || { echo "bench_jobs: no XML files under $corpus" >&2; exit 2; }
mkdir "$work/docs"
n=0 round=0
while [ "$n" -lt "$count" ]; do
  dir="$work/docs/$(printf '%03d' "$round")"
  mkdir "$dir"
  (cd "$corpus" && cp --parents "${sources[@]}" "$dir/")
  n=$((n + ${#sources[@]}))
  round=$((round + 1))
done
mapfile -d '' files < <(cd "$work/docs" && find . -name '*.xml' -type f -print0 | sort -z)
bytes=$(du -sb "$work/docs" | cut -f1)
echo "bench_jobs: $n files ($((bytes / 1024 / 1024)) MiB, ${#sources[@]} corpus documents x $round) on $(nproc) processors"

# Warm the page cache so that the first run does not pay for reading the files.
(cd "$work/docs" && cat "${files[@]}" >/dev/null)

# CPU use tells a busy machine apart from a run that does not scale: on an idle machine
# --jobs N should come near N x 100%.
timer=()
[ -x /usr/bin/time ] && timer=(/usr/bin/time -f "%U %S" -o "$work/cpu")

first=""
for j in "${jobs[@]}"; do
  echo "0 0" >"$work/cpu"
  start=$(date +%s.%N)
  # Exit status 1 or 2 only says that some documents are invalid or unreadable.
  (cd "$work/docs" && "${timer[@]}" "$bin" verify --json --jobs "$j" "${files[@]}" >"$work/out-$j.jsonl" 2>/dev/null) || true
  end=$(date +%s.%N)
  lines=$(wc -l <"$work/out-$j.jsonl")
  read -r user sys < <(tail -n 1 "$work/cpu")
  awk -v j="$j" -v n="$n" -v s="$start" -v e="$end" -v l="$lines" -v u="$user" -v y="$sys" \
    'BEGIN { t = e - s; cpu = u + y;
             printf "jobs=%-3s %6d files in %6.2f s  %7.1f files/s  cpu %4.0f%%  (%d JSON lines)\n",
                    j, n, t, n / t, 100 * cpu / t, l }'
  if [ -z "$first" ]; then
    first="$j"
  elif ! cmp -s "$work/out-$first.jsonl" "$work/out-$j.jsonl"; then
    echo "bench_jobs: --jobs $j printed other results or another order than --jobs $first" >&2
    exit 1
  fi
done
