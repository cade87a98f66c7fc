#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) and runs each for a bounded time,
# one target after the other at the lowest priority, since the machine is shared.
# Usage: fuzz/run.sh [TARGET...]      (default: every fuzz/fuzz_*.cpp)
# Environment: FUZZ_SECONDS (60 per target), FUZZ_BUILD (build-fuzz), XMLDSIG_SHARED.
# Inputs that crash, leak, time out or break an invariant land in
# $FUZZ_BUILD/artifacts/TARGET/; keep each one under fuzz/regressions/TARGET/ so that the
# test suite replays it. Exit status 1 when any target found something.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${FUZZ_BUILD:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
cxx=$(command -v clang++-14 || command -v clang++ || true)
cc=$(command -v clang-14 || command -v clang || true)
if [ -z "$cxx" ] || [ -z "$cc" ]; then
  echo "fuzz/run.sh: clang is required" >&2
  exit 2
fi

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DCMAKE_C_FLAGS_DEBUG="-O1 -g" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" -DXMLDSIG_FUZZ=ON -DXMLDSIG_TESTS=OFF >/dev/null

if [ $# -gt 0 ]; then
  targets=("$@")
else
  targets=()
  for src in fuzz/fuzz_*.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi
nice -n 19 cmake --build "$build" -j 2 --target "${targets[@]}"

status=0
summary=()
for t in "${targets[@]}"; do
  seeds="$build/seeds/$t"
  corpus="$build/corpus/$t"
  artifacts="$build/artifacts/$t"
  log="$build/logs/$t.log"
  rm -rf "$seeds"
  mkdir -p "$corpus" "$artifacts" "$(dirname "$log")"
  max_len=65536
  [ "$t" = fuzz_coding ] && max_len=16384
  fuzz/seeds.sh "$t" "$seeds" "$max_len"
  dict=()
  case "$t" in fuzz_load|fuzz_canonicalize|fuzz_xmlcanon|fuzz_verify) dict=(-dict=fuzz/xml.dict) ;; esac
  echo "== $t: ${seconds}s"
  start=$(date +%s)
  set +e
  nice -n 19 "$build/fuzz/$t" "${dict[@]}" -max_total_time="$seconds" -max_len="$max_len" -timeout=20 \
    -rss_limit_mb=2560 -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "$seeds" >"$log" 2>&1
  rc=$?
  set -e
  elapsed=$(( $(date +%s) - start ))
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo "?")
  if [ $rc -eq 0 ]; then
    summary+=("$t: ran ${elapsed}s, $runs inputs, no finding")
  else
    status=1
    summary+=("$t: FINDING after ${elapsed}s (exit $rc): $(ls -t "$artifacts" | head -1) - see $log")
  fi
done
echo
printf '%s\n' "${summary[@]}"
exit $status
