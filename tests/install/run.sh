#!/usr/bin/env bash
# Installs the built project into a temporary prefix, then builds and runs a small
# consumer program against it twice: through find_package(xmldsig) and through pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
example="$source_dir/examples/invoice-signed.xml"

cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$("$work/cmake-build/consumer" "$example")
[ "$out" = "signatures=1" ] || { echo "cmake consumer printed '$out'"; exit 1; }

export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++17 "$source_dir/tests/install/consumer/main.cpp" -o "$work/pc-consumer" \
  $(pkg-config --cflags --libs xmldsig) -Wl,-rpath,"$work/prefix/lib"
out=$("$work/pc-consumer" "$example")
[ "$out" = "signatures=1" ] || { echo "pkg-config consumer printed '$out'"; exit 1; }
echo "installed package works with CMake and pkg-config"
