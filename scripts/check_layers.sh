#!/usr/bin/env bash
# Holds the sources to the layering: a file includes headers of its own layer and of the
# layers below it only (support < xml, crypto < dsig < cli; xml and crypto do not include
# each other), and the tests of a layer (tests/LAYER/) likewise. Also checks that the
# installed headers (cmake/InstalledHeaders.txt) include only installed headers, so the
# installed package compiles on its own.
#
#   scripts/check_layers.sh [SOURCE_DIR]
set -euo pipefail
root="${1:-$(cd "$(dirname "$0")/.." && pwd)}"
cd "$root"

allowed() {
  case "$1" in
    support) echo "support" ;;
    xml) echo "support xml" ;;
    crypto) echo "support crypto" ;;
    dsig) echo "support xml crypto dsig" ;;
    cli) echo "support xml crypto dsig cli" ;;
  esac
}

failures=0
for layer in support xml crypto dsig cli; do
  ok=" $(allowed "$layer") "
  for dir in "$layer" "tests/$layer"; do
    [ -d "$dir" ] || continue
    # "FILE:LINE:#include "LAYER/..."" for every include of a project header.
    while IFS= read -r hit; do
      included="${hit#*#include \"}"
      included="${included%%\"*}"
      target="${included%%/*}"
      if [[ "$ok" != *" $target "* ]]; then
        echo "layer $layer: ${hit%%:#include*} includes $included"
        failures=$((failures + 1))
      fi
    done < <(grep -rnE --include='*.h' --include='*.cpp' '^#include "(support|xml|crypto|dsig|cli)/' "$dir" || true)
  done
done

# Installed headers include installed headers only.
list=cmake/InstalledHeaders.txt
while IFS= read -r header; do
  [ -f "$header" ] || { echo "installed header $header does not exist"; failures=$((failures + 1)); continue; }
  while IFS= read -r included; do
    if ! grep -qxF "$included" "$list"; then
      echo "installed header $header includes $included, which is not installed"
      failures=$((failures + 1))
    fi
  done < <(sed -nE 's/^#include "((support|xml|crypto|dsig|cli)\/[^"]+)".*/\1/p' "$header")
done < <(grep -vE '^(#|$)' "$list")

if [ "$failures" -gt 0 ]; then
  echo "$failures include(s) cross the layers"
  exit 1
fi
echo "every include stays within its layer and the layers below"
