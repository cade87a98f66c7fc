"""python3 -m xmldsig.batch on a local Dask cluster against `xmldsig verify --all --json`."""
from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import xmldsig
from xmldsig.batch import verify_partition
from conftest import run_tool

# A few corpus directories: documents of several families, valid and not, one and two
# signatures; small enough to run in seconds.
DIRECTORIES = ["families/zatca/zatca-sdk348-simplified_invoice", "families/xades-t",
               "interop/xmlsec/xmldsig11-interop-2012"]


def test_batch_on_two_workers_prints_the_tools_lines(corpus, tool, tmp_path):
    not_xml = tmp_path / "not-xml.xml"
    not_xml.write_bytes(b"%PDF-1.4 not a document")
    missing = str(tmp_path / "missing.xml")
    roots = [str(corpus / d) for d in DIRECTORIES] + [str(not_xml), missing]
    files = sorted(str(p) for d in DIRECTORIES for p in (corpus / d).rglob("*.xml")) + [str(not_xml), missing]
    assert len(files) > 20

    env = dict(os.environ, PYTHONPATH=str(Path(xmldsig.__file__).resolve().parents[1]))
    batch = subprocess.run([sys.executable, "-m", "xmldsig.batch", "--workers", "2", "--files-per-task", "7",
                            "--all", "--hmac-key", "testkey", "--option", "ZATCA", *roots],
                           capture_output=True, env=env, timeout=300)
    expected = run_tool(tool, ["verify", "--all", "--json", "--hmac-key", "testkey", "--option", "ZATCA", *files])

    stderr = batch.stderr.decode("utf-8", "replace")
    lines = batch.stdout.decode("utf-8").splitlines()
    assert sorted(lines) == sorted(expected.lines()), stderr
    assert batch.returncode == expected.status == 2
    assert f"{len(files)} files" in stderr.splitlines()[-1]
    assert "\r" not in stderr  # no progress bar when standard error is not a terminal

    # The function other engines call gives the same lines, in the order of the paths.
    lines = verify_partition(iter(files), files_per_call=7, signature="all", hmac_key="testkey", options=("ZATCA",))
    assert list(lines) == expected.lines()

    # Reports and the signer's requirements pass through as well.
    trust = str(corpus / "interop/xmlsec/keys/cacert.der")
    at = "2025-01-01T00:00:00Z"  # the time the chain is checked at, the same in both runs
    reports = run_tool(tool, ["verify", "--report", "--all", "--trust", trust, "--at", at, *files[:5]])
    assert list(verify_partition(files[:5], signature="all", trust=[trust], at=at, report=True)) == reports.lines()


def test_batch_refuses_options_it_cannot_use_before_starting(tmp_path):
    env = dict(os.environ, PYTHONPATH=str(Path(xmldsig.__file__).resolve().parents[1]))
    for option in (["--hmac-key", "zz", "--hmac-encoding", "hex"], ["--key", str(tmp_path / "missing.pem")]):
        batch = subprocess.run([sys.executable, "-m", "xmldsig.batch", "--workers", "1", *option, str(tmp_path)],
                               capture_output=True, env=env, timeout=120)
        assert batch.returncode == 2
        assert batch.stderr.decode().startswith("xmldsig.batch: "), batch.stderr
        assert batch.stdout == b""
