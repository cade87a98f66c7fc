#!/usr/bin/env bash
# Compares what two xmldsig tools print for every document of the corpus manifests:
# `verify --json --log`, `refs` and `info --json` (standard output, standard error and
# exit status), byte for byte, and lists each document and command whose output differs.
# Exits 1 when any does.
#
#   scripts/compare_outputs.sh OLD NEW            compare two tools
#   scripts/compare_outputs.sh --save DIR OLD     save OLD's outputs (and command lines) in DIR
#   scripts/compare_outputs.sh --against DIR NEW  compare NEW with outputs saved in DIR
#
# OLD and NEW are xmldsig binaries or git revisions; a revision is built (the tool only,
# Release, with ccache) in a worktree under build-compare/ kept for the next run.
# --corpus DIR names the corpus (default: ../shared/corpus beside the repository, or
# $XMLDSIG_CORPUS).
set -euo pipefail

repo="$(cd "$(dirname "$0")/.." && pwd)"
corpus="${XMLDSIG_CORPUS:-$repo/../shared/corpus}"
[ -d "$corpus" ] || corpus=/work/shared/corpus
mode=pair
dir=""

usage() { sed -n '2,15s/^# \{0,1\}//p' "$0" >&2; exit 2; }

while [ $# -gt 0 ]; do
  case "$1" in
    --corpus) corpus="$2"; shift 2 ;;
    --save) mode=save; dir="$2"; shift 2 ;;
    --against) mode=against; dir="$2"; shift 2 ;;
    -h|--help) usage ;;
    *) break ;;
  esac
done
[ -f "$corpus/interop.tsv" ] || { echo "no corpus manifests in $corpus" >&2; exit 2; }
if [ "$mode" = pair ]; then [ $# -eq 2 ] || usage; else [ $# -eq 1 ] || usage; fi

# The path of the tool TARGET names: the file itself, or the tool built from a revision.
tool() {
  local target="$1"
  if [ -f "$target" ] && [ -x "$target" ]; then
    (cd "$(dirname "$target")" && echo "$PWD/$(basename "$target")")
    return
  fi
  local rev
  rev="$(git -C "$repo" rev-parse --verify --quiet "$target^{commit}")" ||
    { echo "$target is neither an executable nor a git revision" >&2; exit 2; }
  local src="$repo/build-compare/src-${rev:0:12}"
  if [ ! -d "$src" ]; then
    git -C "$repo" worktree add --detach "$src" "$rev" >/dev/null 2>&1
  fi
  echo "building $target (${rev:0:12}) in $src/build" >&2
  cmake -S "$src" -B "$src/build" -DCMAKE_BUILD_TYPE=Release -DXMLDSIG_TESTS=OFF -DXMLDSIG_PYTHON=OFF >/dev/null
  cmake --build "$src/build" -j2 --target xmldsig_cli >/dev/null
  echo "$src/build/xmldsig"
}

run() { /usr/bin/python3 "$repo/scripts/corpus_outputs.py" "$@"; }

case "$mode" in
  save) run save "$corpus" "$dir" "$(tool "$1")" ;;
  against) run compare "$corpus" "$dir" "$(tool "$1")" ;;
  pair)
    old="$(tool "$1")"
    new="$(tool "$2")"
    saved="$(mktemp -d)"
    trap 'rm -rf "$saved"' EXIT
    run save "$corpus" "$saved" "$old" >/dev/null
    run compare "$corpus" "$saved" "$new"
    ;;
esac
