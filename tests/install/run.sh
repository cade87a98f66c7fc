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

# A consumer must compile without the development files of the library's dependencies:
# their headers are shadowed by ones that fail when included.
shadow="$work/shadow"
for h in nlohmann/json.hpp nlohmann/json_fwd.hpp curl/curl.h openssl/evp.h openssl/x509.h openssl/crypto.h \
  openssl/bio.h openssl/pem.h openssl/err.h openssl/bn.h openssl/ec.h openssl/rsa.h openssl/types.h \
  openssl/core_names.h openssl/opensslv.h; do
  mkdir -p "$shadow/$(dirname "$h")"
  echo "#error $h is not available to a consumer" >"$shadow/$h"
done

cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS="-I$shadow" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$("$work/cmake-build/consumer" "$example")
[ "$out" = "signatures=1" ] || { echo "cmake consumer printed '$out'"; exit 1; }

# Only the installed package's own .pc file is visible: those of OpenSSL, curl and
# nlohmann-json are not there on a machine without their development packages.
export PKG_CONFIG_LIBDIR="$work/prefix/lib/pkgconfig"
unset PKG_CONFIG_PATH
flags=$(pkg-config --cflags --libs xmldsig)
# shellcheck disable=SC2086
g++ -std=c++17 -I"$shadow" "$source_dir/tests/install/consumer/main.cpp" -o "$work/pc-consumer" \
  $flags -Wl,-rpath,"$work/prefix/lib"
out=$("$work/pc-consumer" "$example")
[ "$out" = "signatures=1" ] || { echo "pkg-config consumer printed '$out'"; exit 1; }
echo "installed package works with CMake and pkg-config"
