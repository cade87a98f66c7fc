#!/usr/bin/env bash
# Plants a fixed list of faults in the library, one at a time, and runs the tests that
# should notice each: a fault the tests miss is a gap in the tests. Each fault is a small
# text replacement in a named file; a replacement that no longer matches exactly once
# stops the run, so the list is kept true to the code as it moves.
#
#   scripts/mutants.sh [NAME...]      (default: every fault)
#
# Each fault is planted in the working tree and built in its Release build directory
# (build/, or $MUTANTS_BUILD; configured when absent; ccache, -j2), and the file is put
# back afterwards, also when the run is interrupted: do not edit the tree meanwhile.
# Prints one line per fault, caught or MISSED, and exits 1 when any was missed.
set -euo pipefail

repo="$(cd "$(dirname "$0")/.." && pwd)"
src="$repo"
build="${MUTANTS_BUILD:-$repo/build}"
work="$(mktemp -d)"
planted=""
restore() {
  if [ -n "$planted" ]; then cp "$work/original" "$src/$planted"; fi
  rm -rf "$work"
}
trap restore EXIT
trap 'exit 130' INT TERM

# name | file | text to replace | replacement | ctest labels of the suites to run.
# "\n" in the texts stands for a line break.
FAULTS=$(cat <<'EOF'
attribute-order|xml/XmlCanonWriter.cpp|return c != 0 ? c < 0 : a.local < b.local;|return c != 0 ? c > 0 : a.local < b.local;|xml dsig
namespace-inheritance|xml/XmlCanonWriter.cpp|    if (isApex) {\n      m_inScope.forEachInScope|    if (isApex && m_opt.selection == CanonSelection::WholeDocument) {\n      m_inScope.forEachInScope|xml dsig
namespace-redeclaration|xml/XmlCanonWriter.cpp|if (rendered != nullptr && *rendered == *value) return;|if (rendered != nullptr) return;|xml dsig
transform-dispatch-row|dsig/transform/TransformAlgorithms.cpp|{"http://www.w3.org/2001/10/xml-exc-c14n#", StepKind::Canonical, CanonicalForm::Exclusive10, false},|{"http://www.w3.org/2001/10/xml-exc-c14n#", StepKind::Canonical, CanonicalForm::Inclusive10, false},|dsig
xpath-pattern|dsig/transform/XPathTransform.cpp|if (!childFilter(transform, 0, nullptr).equals("subtract")) {|if (childFilter(transform, 0, nullptr).equals("")) {|dsig
xpath-axis|xml/XPathParse.cpp|{"ancestor-or-self", XPathAxis::AncestorOrSelf}|{"ancestor-or-self", XPathAxis::Ancestor}|xml dsig
family-cut|dsig/family/UblExclusions.cpp|  return localOf(tree.tagOf(node)) == local && tree.namespaceOfElement(node) == ns;|  return localOf(tree.tagOf(node)) == local;|dsig
digest-comparison|dsig/reference/ReferenceDigest.cpp|  log.LogDataSb("storedRefDigest", stored);\n  if (computed.equals(stored)) {|  log.LogDataSb("storedRefDigest", stored);\n  if (computed.beginsWith(stored.getString())) {|dsig
key-type-branch|dsig/keys/SignatureValueCheck.cpp|      const RsaKeyData* rsa = key.getRsaKey();\n      if (!rsa) return Outcome::OtherKind;|      const RsaKeyData* rsa = key.getRsaKey();\n      if (!rsa) return Outcome::Valid;|dsig
id-lookup|support/xml/XmlTree.cpp|if (carriers.empty() || carriers.back() != n) carriers.push_back(n);|if (carriers.empty()) carriers.push_back(n);|support dsig
EOF
)

names=("$@")
wanted() {
  [ ${#names[@]} -eq 0 ] && return 0
  local n
  for n in "${names[@]}"; do [ "$n" = "$1" ] && return 0; done
  return 1
}

# Replaces the one occurrence of OLD in FILE by NEW; fails when OLD occurs 0 or 2+ times.
plant() {
  /usr/bin/python3 - "$1" "$2" "$3" <<'PY'
import sys
path, old, new = sys.argv[1], sys.argv[2].replace("\\n", "\n"), sys.argv[3].replace("\\n", "\n")
text = open(path, encoding="utf-8").read()
count = text.count(old)
if count != 1:
    sys.exit("%s: the text to replace occurs %d times, not once: %r" % (path, count, old))
open(path, "w", encoding="utf-8").write(text.replace(old, new))
PY
}


# Every fault must apply before anything is built (checked on a copy of each file).
while IFS='|' read -r name file old new labels; do
  wanted "$name" || continue
  cp "$src/$file" "$work/check"
  plant "$work/check" "$old" "$new"
done <<<"$FAULTS"

[ -f "$build/CMakeCache.txt" ] || cmake -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
echo "building the unchanged tree in $build"
cmake --build "$build" -j2 >/dev/null

missed=0
results=()
while IFS='|' read -r name file old new labels; do
  wanted "$name" || continue
  cp "$src/$file" "$work/original"
  planted="$file"
  plant "$src/$file" "$old" "$new"
  status=caught
  if ! log=$(cmake --build "$build" -j2 2>&1); then
    status="caught (does not compile)"
  else
    regex="^($(echo "$labels" | tr ' ' '|'))\$"
    if (cd "$build" && ctest -j2 -L "$regex" --stop-on-failure --timeout 600 >"$work/ctest.log" 2>&1); then
      status=MISSED
      missed=$((missed + 1))
    else
      status="caught: $(grep -c '\*\*\*Failed' "$work/ctest.log" || true) failing test(s), e.g. $(grep -m1 -oE '[A-Za-z0-9_]+\.[A-Za-z0-9_]+ \.+\*?\*?\*?Failed' "$work/ctest.log" | cut -d' ' -f1)"
    fi
  fi
  cp "$work/original" "$src/$file"
  planted=""
  results+=("$(printf '%-24s %-40s %s' "$name" "$file" "$status")")
  echo "${results[-1]}"
done <<<"$FAULTS"

echo
echo "${#results[@]} faults planted, $((${#results[@]} - missed)) caught, $missed missed"
[ "$missed" -eq 0 ]
