#!/usr/bin/env bash
# Documents as signing software writes them (bench/make_documents.py: pretty-printed,
# attributes out of order, namespaces at several depths, CDATA, references, UTF-8, CRLF;
# inclusive and exclusive) verify, whether xmlsec1 signed them or the script's own signer
# did (the one used for documents too large for xmlsec1), and stop verifying when one
# signed character changes.
#
#   tests/realistic/run.sh PATH/TO/xmldsig
set -euo pipefail

bin="${1:?usage: run.sh PATH/TO/xmldsig}"
here="$(cd "$(dirname "$0")" && pwd)"
for tool in xmlsec1 xmllint openssl /usr/bin/python3; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
failures=0

# --xmlsec1-max 0: every document signed by the script's signer; --check has xmlsec1 verify it.
for signer in xmlsec1:100M own:0; do
  dir="$work/${signer%%:*}"
  /usr/bin/python3 "$here/../../bench/make_documents.py" "$dir" --sizes 7K --xmlsec1-max "${signer#*:}" --check \
    >/dev/null
  for doc in "$dir"/*.xml; do
    if ! out="$("$bin" verify "$doc" 2>&1)"; then
      echo "FAIL: ${signer%%:*}/$(basename "$doc") does not verify: $out"
      failures=$((failures + 1))
    fi
    altered="${doc%.xml}.altered"
    sed 's/Id="inv-1"/Id="inv-9"/' "$doc" >"$altered"
    cmp -s "$doc" "$altered" && { echo "FAIL: nothing to alter in $doc"; failures=$((failures + 1)); }
    status=0
    out="$("$bin" verify "$altered" 2>&1)" || status=$?
    if [ "$status" -ne 1 ] || [[ "$out" != *"INVALID (digest mismatch in reference"* ]]; then
      echo "FAIL: altered ${signer%%:*}/$(basename "$doc") gave status $status: $out"
      failures=$((failures + 1))
    fi
  done
done
[ "$failures" -eq 0 ] && echo "all realistic documents verified, all altered ones rejected"
exit $((failures > 0))
