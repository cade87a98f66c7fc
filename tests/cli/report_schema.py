"""The validation report against its published schema: every document of both corpus
manifests, verified with what its manifest row supplies, gets a report that validates; and
each failing document of data/report_cases.tsv gets a report naming the failing reference
and the sub-indication. With --signed instead: `xmldsig signed` prints, for each document of
data/signed_cases.tsv that verifies, bytes that hash to each reference's DigestValue, and
nothing for one that does not.

Usage: report_schema.py [--signed] XMLDSIG_TOOL SCHEMA SHARED_DIR. Exits 77 (skipped) when
the shared corpus is absent."""
import base64
import csv
import hashlib
import json
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

import jsonschema

HERE = Path(__file__).resolve().parent
SKIPPED = 77


def rows(path):
    with open(path, newline="", encoding="utf-8") as f:
        return list(csv.DictReader((line for line in f if not line.startswith("#")), delimiter="\t"))


def interop_args(row, corpus):
    args = []
    kind, key = row["key_kind"], row["key_path"]
    if kind == "pubkey":
        args += ["--key", str(corpus / key)]
    elif kind == "store":
        # Anchors given as trust anchors, so that reports with a chain check are checked too.
        for entry in filter(None, key.split(";")):
            role, path = entry.split(":", 1)
            args += ["--trust" if role == "trusted" else "--cert", str(corpus / path)]
    elif kind == "hmac":
        args += ["--hmac-key", row["hmac_secret"]]
    dirs = {str((corpus / item.split("=", 1)[1]).parent) for item in row["external_data"].split(";") if "=" in item}
    for d in sorted(dirs):
        args += ["--external-dir", d]
    return args


def family_args(row):
    option = {"zatca": "ZATCA", "myinvois": "MYINVOIS"}.get(row["family"])
    return ["--option", option] if option else []


def reports(tool, args, files):
    proc = subprocess.run([tool, "verify", "--report", "--all", *args, *files], capture_output=True, timeout=600)
    if proc.returncode not in (0, 1, 2):
        sys.exit(f"verify --report {args} crashed (status {proc.returncode}): {proc.stderr.decode()[-2000:]}")
    return [json.loads(line) for line in proc.stdout.decode("utf-8").splitlines()]


def check_corpus(tool, validator, corpus):
    groups = defaultdict(list)
    for row in rows(corpus / "interop.tsv"):
        groups[tuple(interop_args(row, corpus))].append(str(corpus / row["xml_path"]))
    for row in rows(corpus / "families.tsv"):
        groups[tuple(family_args(row))].append(str(corpus / row["xml_path"]))
    failures, count = [], 0
    for args, files in groups.items():
        got = reports(tool, list(args), files)
        if len(got) != len(files):
            failures.append(f"{args}: {len(got)} reports for {len(files)} files")
        for report in got:
            count += 1
            for error in validator.iter_errors(report):
                failures.append(f"{report.get('file')}: {error.json_path}: {error.message[:300]}")
    return failures, count


def case_document(case, corpus, tmp):
    """The case's document, changed as its tamper column says (a copy in tmp)."""
    document = corpus / case["document"]
    if case["tamper"]:
        old, new = case["tamper"].split(" => ")
        text = document.read_bytes()
        assert old.encode() in text, f"{document}: '{old}' not found"
        document = Path(tmp) / document.name
        document.write_bytes(text.replace(old.encode(), new.encode(), 1))
    return str(document)


def case_args(case, corpus):
    return case["args"].replace("{corpus}/", f"{corpus}/").split()


def check_failing_cases(tool, validator, corpus):
    failures = []
    for case in rows(HERE / "data" / "report_cases.tsv"):
        args = case_args(case, corpus)
        with tempfile.TemporaryDirectory() as tmp:
            [report] = reports(tool, args, [case_document(case, corpus, tmp)])
        where = f"{case['document']} {case['args']} {case['tamper']}"
        failures += [f"{where}: {e.message[:300]}" for e in validator.iter_errors(report)]
        sig = report["signatures"][0]
        got = (sig["indication"], sig["subIndication"])
        if got != (case["indication"], case["subIndication"]):
            failures.append(f"{where}: indication {got}")
        failing = [(r["index"], r["status"]) for r in sig["references"] if r["status"] != "valid"]
        expected = [] if case["reference"] == "-" else [(int(case["reference"]), case["status"])]
        if failing != expected:
            failures.append(f"{where}: failing references {failing}, expected {expected}")
        if sig["verdict"] == "valid" or not sig["reason"]:
            failures.append(f"{where}: verdict {sig['verdict']} with reason {sig['reason']!r}")
    return failures


def digests_of(data, method):
    """The DigestValue forms a digest of data may have: base64 of the digest, and base64 of
    its hex text (as some e-invoice families write it)."""
    name = method.rsplit("#", 1)[-1].replace("-", "")
    digest = hashlib.new(name, data)
    return {base64.b64encode(digest.digest()).decode(), base64.b64encode(digest.hexdigest().encode()).decode()}


def check_signed(tool, corpus):
    failures = []
    for case in rows(HERE / "data" / "signed_cases.tsv"):
        args = case_args(case, corpus)
        where = f"{case['document']} {case['args']} {case['tamper']}"
        with tempfile.TemporaryDirectory() as tmp:
            document = case_document(case, corpus, tmp)
            listing = subprocess.run([tool, "signed", *args, document], capture_output=True, timeout=120)
            if listing.returncode != int(case["status"]):
                failures.append(f"{where}: status {listing.returncode}: {listing.stderr.decode()[-300:]}")
            if listing.returncode != 0:
                if listing.stdout:
                    failures.append(f"{where}: printed content of a signature that does not verify")
                continue
            [report] = reports(tool, args, [document])
            for ref in report["signatures"][0]["references"]:
                one = subprocess.run([tool, "signed", "--reference", str(ref["index"]), *args, document],
                                     capture_output=True, timeout=120)
                if ref["storedDigest"] not in digests_of(one.stdout, ref["digestMethod"]):
                    failures.append(f"{where}: reference {ref['index']}: the bytes printed do not hash to DigestValue")
                if not ref["external"] and one.stdout not in listing.stdout:
                    failures.append(f"{where}: reference {ref['index']} missing from the listing")
    return failures


def main():
    signed = sys.argv[1] == "--signed"
    tool, schema_path, shared = sys.argv[1 + signed], Path(sys.argv[2 + signed]), Path(sys.argv[3 + signed])
    corpus = shared / "corpus"
    if not (corpus / "interop.tsv").is_file():
        print(f"skipped: the shared corpus is not at {corpus}")
        return SKIPPED
    if signed:
        failures = check_signed(tool, corpus)
        for f in failures:
            print(f)
        return 1 if failures else 0
    schema = json.loads(schema_path.read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    failures, count = check_corpus(tool, validator, corpus)
    failures += check_failing_cases(tool, validator, corpus)
    for f in failures[:50]:
        print(f)
    print(f"{count} corpus reports checked, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
