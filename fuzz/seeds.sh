#!/usr/bin/env bash
# Writes the seed inputs of one fuzz target into a directory, taken at run time from the
# shared corpus of signed documents (never copied into the repository).
# Usage: fuzz/seeds.sh TARGET OUTDIR [MAX_BYTES]
set -euo pipefail
target=$1
out=$2
max=${3:-65536}
corpus=${XMLDSIG_SHARED:-$(cd "$(dirname "$0")/../.." && pwd)/shared}/corpus
mkdir -p "$out"
if [ ! -d "$corpus" ]; then
  echo "seeds.sh: no corpus at $corpus; $target starts from an empty corpus" >&2
  exit 0
fi

n=0
keep() {  # keep FILE: copies a seed under a numbered name
  if [ -s "$1" ] && [ "$(stat -c %s "$1")" -le "$max" ]; then
    n=$((n + 1))
    cp "$1" "$out/seed-$n"
  fi
}

# The base64 texts of the elements that carry certificates, digests and signature
# values, one per line, white space removed.
base64_texts() {
  find "$corpus" -name '*.xml' -print0 |
    xargs -0 perl -0777 -ne 'while (/<(?:\w+:)?(X509Certificate|DigestValue|SignatureValue|EncapsulatedTimeStamp|Modulus|BinarySecurityToken)\b[^>]*>([^<]+)</g) { (my $t = $2) =~ s/\s+//g; print "$t\n"; }'
}

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
case "$target" in
  fuzz_load|fuzz_canonicalize|fuzz_xmlcanon|fuzz_verify)
    while IFS= read -r -d '' f; do keep "$f"; done < <(find "$corpus" \( -name '*.xml' -o -name '*.XML' \) -print0 | sort -z)
    ;;
  fuzz_coding)
    base64_texts | sort -u | awk 'NR <= 400' | split -l 1 - "$tmp/b64-"
    for f in "$tmp"/b64-*; do keep "$f"; done
    for f in "$tmp"/b64-*; do  # the same values as hex
      base64 -d "$f" 2>/dev/null | od -An -v -tx1 | tr -d ' \n' > "$f.hex" || true
      keep "$f.hex"
    done
    ;;
  fuzz_asn1)
    while IFS= read -r -d '' f; do keep "$f"; done < <(find "$corpus" -name '*.der' -print0 | sort -z)
    while IFS= read -r -d '' f; do
      openssl x509 -in "$f" -outform DER -out "$tmp/pem.der" 2>/dev/null && keep "$tmp/pem.der"
    done < <(find "$corpus" \( -name '*.pem' -o -name '*.crt' \) -print0 | sort -z)
    i=0
    while IFS= read -r line; do
      i=$((i + 1))
      printf '%s' "$line" | base64 -d > "$tmp/x-$i.der" 2>/dev/null || continue
      keep "$tmp/x-$i.der"
    done < <(base64_texts | awk 'length($0) > 200' | sort -u | awk 'NR <= 300')
    ;;
  *)
    echo "seeds.sh: no seeds defined for $target" >&2
    ;;
esac
echo "$target: $n seeds in $out"
