#!/usr/bin/env python3
"""Runs `verify --json --log`, `refs` and `info --json` of an xmldsig binary over every
document of the corpus manifests (interop.tsv, families.tsv), with the keys, certificates,
detached data and uncommon options each row names, and saves or compares the outputs.

  corpus_outputs.py save CORPUS DIR BINARY     write DIR/commands.tsv and DIR/out/...
  corpus_outputs.py compare CORPUS DIR BINARY  run the commands DIR/commands.tsv lists and
                                               report every output that differs from DIR/out

Each output file holds the command's standard output, its standard error and its exit
status. The commands run in CORPUS with paths relative to it, so that outputs do not
depend on where the corpus or the binaries are. The command lines are worked out once
(when saving) and reused when comparing, so both binaries get the same arguments.
"""
import concurrent.futures
import csv
import json
import os
import subprocess
import sys

COMMANDS = ("verify", "refs", "info")


def manifest_rows(corpus, name):
    with open(os.path.join(corpus, name), newline="", encoding="utf-8") as f:
        for row in csv.DictReader(f, delimiter="\t", quoting=csv.QUOTE_NONE):
            if row.get("case_id"):
                row["manifest"] = name
                yield row


def reference_indexes(binary, corpus, xml, common):
    """Index of each reference URI of the selected signature (several references may share one)."""
    proc = subprocess.run([binary, "refs", "--json", *common, xml], cwd=corpus, capture_output=True)
    indexes = {}
    for line in proc.stdout.decode("utf-8", "replace").splitlines():
        try:
            doc = json.loads(line)
        except ValueError:
            continue
        for ref in doc.get("references", []):
            indexes.setdefault(ref.get("uri", ""), []).append(ref["index"])
    return indexes


def arguments(binary, corpus, row):
    """The command lines of one case: {command: [args...]}, the document last."""
    xml = row.get("xml_path", "")
    case_dir = os.path.dirname(xml)
    family = row.get("family", "")
    options = []
    if family == "zatca":
        options += ["--option", "ZATCA"]
    elif family == "myinvois":
        options += ["--option", "MYINVOIS"]
    selector = ["--selector", row["signature_selector"]] if row.get("signature_selector") else []

    keys = []
    kind = row.get("key_kind", "")
    if kind == "pubkey" and row.get("key_path"):
        keys += ["--key", row["key_path"]]
    elif kind == "hmac":
        keys += ["--hmac-key", row.get("hmac_secret", "")]
    elif kind == "store":
        for entry in filter(None, row.get("key_path", "").split(";")):
            keys += ["--cert", entry.split(":", 1)[-1]]
    needs = row.get("needs", "")
    supplied = "(supplied: "
    if needs.startswith("a certificate") and supplied in needs:
        name = needs[needs.index(supplied) + len(supplied):needs.index(")", needs.index(supplied))]
        keys += ["--key", os.path.join(case_dir, name)]

    detached = [pair.rsplit("=", 1) for pair in filter(None, row.get("external_data", "").split(";"))]
    if needs.startswith("external data: cid:") and "(supplied in case dir)" in needs:
        uri = needs[len("external data: "):].split(" ")[0]
        detached.append([uri, os.path.join(case_dir, "attachment-" + uri[len("cid:"):])])
    ref_data = []
    if detached:
        indexes = reference_indexes(binary, corpus, xml, options + selector)
        for uri, path in detached:
            for index in indexes.get(uri, []):
                ref_data += ["--ref-data", "%d=%s" % (index, path)]

    return {
        "verify": ["verify", "--json", "--log", *options, *selector, *keys, *ref_data, xml],
        "refs": ["refs", *options, *selector, *ref_data, xml],
        "info": ["info", "--json", *options, xml],
    }


def run_one(binary, corpus, args):
    proc = subprocess.run([binary, *args], cwd=corpus, capture_output=True)
    return proc.stdout + b"\n--- stderr ---\n" + proc.stderr + b"\n--- exit %d ---\n" % proc.returncode


def output_path(directory, case_key, command):
    return os.path.join(directory, "out", case_key, command + ".txt")


def load_commands(directory):
    with open(os.path.join(directory, "commands.tsv"), encoding="utf-8") as f:
        for line in f:
            case_key, command, encoded = line.rstrip("\n").split("\t")
            yield case_key, command, json.loads(encoded)


def save(corpus, directory, binary):
    jobs = []
    for manifest in ("interop.tsv", "families.tsv"):
        for row in manifest_rows(corpus, manifest):
            case_key = manifest[:-4] + "/" + row["case_id"]
            for command, args in arguments(binary, corpus, row).items():
                jobs.append((case_key, command, args))
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "commands.tsv"), "w", encoding="utf-8") as f:
        for case_key, command, args in jobs:
            f.write("%s\t%s\t%s\n" % (case_key, command, json.dumps(args)))
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        outputs = pool.map(lambda job: run_one(binary, corpus, job[2]), jobs)
        for (case_key, command, _), output in zip(jobs, outputs):
            path = output_path(directory, case_key, command)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as f:
                f.write(output)
    print("saved %d outputs of %s in %s" % (len(jobs), binary, directory))
    return 0


def first_difference(old, new):
    old_lines, new_lines = old.splitlines(), new.splitlines()
    for number, (a, b) in enumerate(zip(old_lines, new_lines), 1):
        if a != b:
            column = next((i for i, (x, y) in enumerate(zip(a, b)) if x != y), min(len(a), len(b)))
            start = max(0, column - 60)
            return "line %d col %d:\n      was: %r\n      now: %r" % (
                number, column + 1, a[start:column + 80], b[start:column + 80])
    return "line %d: %d lines before, %d now" % (min(len(old_lines), len(new_lines)) + 1,
                                                 len(old_lines), len(new_lines))


def compare(corpus, directory, binary):
    jobs = list(load_commands(directory))
    differences = 0
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        outputs = pool.map(lambda job: run_one(binary, corpus, job[2]), jobs)
        for (case_key, command, _), output in zip(jobs, outputs):
            with open(output_path(directory, case_key, command), "rb") as f:
                saved = f.read()
            if saved != output:
                differences += 1
                print("DIFFERS %s %s: %s" % (command, case_key, first_difference(saved, output)))
    print("%d of %d outputs differ" % (differences, len(jobs)))
    return 1 if differences else 0


def main(argv):
    if len(argv) != 5 or argv[1] not in ("save", "compare"):
        sys.stderr.write(__doc__)
        return 2
    action, corpus, directory, binary = argv[1], argv[2], os.path.abspath(argv[3]), os.path.abspath(argv[4])
    return (save if action == "save" else compare)(corpus, directory, binary)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
