#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, when missing.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libssl-dev libcurl4-openssl-dev nlohmann-json3-dev
  libgtest-dev libbenchmark-dev
  xmlsec1 libxml2-utils        # test oracles
  libxml2-dev libxmlsec1-dev   # comparison benchmarks only
  openssl python3              # test fixtures and the local time-stamp authority
  ccache clang-format
  python3-dev pybind11-dev python3-pybind11     # the Python module
  python3-pytest python3-dask python3-distributed python3-jsonschema
  chromium                     # renders the HTML report in its test
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "bootstrap: installing ${missing[*]}"
sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then sudo=(sudo); else
    echo "bootstrap: not root and no sudo; install these packages: ${missing[*]}" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
