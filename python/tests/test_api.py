"""xmldsig.verify, info and canonicalize against the xmldsig tool on the same documents,
and the errors a caller sees."""
from __future__ import annotations

import csv
import json
import os
import re
import threading
import time
from pathlib import Path
from typing import Dict, List, Tuple

import pytest

import xmldsig
from conftest import json_line, run_tool

CASES_FILE = Path(__file__).with_name("verify_cases.tsv")


def _cases() -> List[Dict[str, str]]:
    with open(CASES_FILE, newline="", encoding="utf-8") as f:
        rows = (line for line in f if not line.startswith("#"))
        return list(csv.DictReader(rows, delimiter="\t"))


def _kwargs(row: Dict[str, str], corpus: Path) -> dict:
    def expand(value):
        if isinstance(value, str):
            return value.replace("{corpus}/", str(corpus) + "/")
        if isinstance(value, list):
            return [expand(v) for v in value]
        if isinstance(value, dict):
            return {k: expand(v) for k, v in value.items()}
        return value

    kwargs = expand(json.loads(row["kwargs"]))
    if "ref_data" in kwargs:
        kwargs["ref_data"] = {int(k): v for k, v in kwargs["ref_data"].items()}
    return kwargs


def _tool_args(kwargs: dict) -> List[str]:
    """The tool's options for the same request, written out independently of the package."""
    args = ["verify", "--json"]
    signature = kwargs.get("signature", 0)
    args += ["--all"] if signature == "all" else ["--selector", str(signature)]
    for keyword in kwargs.get("options", ()):
        args += ["--option", keyword]
    if "key" in kwargs:
        args += ["--key", kwargs["key"]]
    if "hmac_key" in kwargs:
        args += ["--hmac-key", kwargs["hmac_key"], "--hmac-encoding", kwargs.get("hmac_encoding", "ascii")]
    for index, path in kwargs.get("ref_data", {}).items():
        args += ["--ref-data", f"{index}={path}"]
    for directory in kwargs.get("external_dirs", ()):
        args += ["--external-dir", directory]
    for name, option in (("signers", "--signer"), ("trust", "--trust"), ("crls", "--crl")):
        for path in kwargs.get(name, ()):
            args += [option, path]
    if "at" in kwargs:
        args += ["--at", kwargs["at"]]
    if kwargs.get("report"):
        args[1] = "--report"

    return args


def _document(row: Dict[str, str], corpus: Path) -> bytes:
    data = (corpus / row["document"]).read_bytes()
    if row["tamper"]:
        old, new = (part.encode("utf-8") for part in row["tamper"].split(" => "))
        assert old in data, f"{row['name']}: the text to change is not in the document"
        data = data.replace(old, new, 1)
    return data


def _as_text(data: bytes) -> str:
    if data.startswith(b"\xef\xbb\xbf"):
        return data[3:].decode("utf-8")
    declared = re.match(rb"\s*<\?xml[^>]*encoding\s*=\s*[\"']([A-Za-z0-9._-]+)", data)
    return data.decode(declared.group(1).decode() if declared else "utf-8")


@pytest.mark.parametrize("row", _cases(), ids=lambda row: row["name"])
def test_verify_gives_the_tools_json_from_bytes_text_and_path(row, corpus, tool, tmp_path):
    kwargs = _kwargs(row, corpus)
    data = _document(row, corpus)
    path = tmp_path / Path(row["document"]).name
    path.write_bytes(data)

    def lines(source) -> List[str]:
        results = xmldsig.verify(source, **kwargs)
        return [json_line(d) for d in ([results] if kwargs.get("report") else results)]

    from_stdin = run_tool(tool, _tool_args(kwargs) + ["-"], stdin=data)
    from_file = run_tool(tool, _tool_args(kwargs) + [str(path)])
    assert from_stdin.status in (0, 1), from_stdin.err
    assert lines(data) == from_stdin.lines()
    assert lines(_as_text(data)) == from_stdin.lines()
    assert lines(path) == from_file.lines()

    if row["tamper"] and not kwargs.get("report"):
        assert not any(d["valid"] for d in xmldsig.verify(data, **kwargs)), "a changed document verified"
    if row["expect"]:
        field, _, value = row["expect"].partition("=")
        got = xmldsig.verify(data, **kwargs)
        got = got["signatures"][0] if kwargs.get("report") else got[0]
        for key in field.split("."):
            got = got[int(key)] if isinstance(got, list) else got[key]
        assert str(got) == value, f"{field} is {got}"


def test_info_and_canonicalize_give_the_tools_output(corpus, tool):
    documents = [corpus / "families/zatca/zatca-sdk348-simplified_invoice/Simplified_Invoice.xml",
                 corpus / "families/xades-t/xadest-dss-signature-x-ro_tra-4/Signature-X-RO_TRA-4.xml",
                 corpus / "interop/xmlsec/aleksey-xmldsig-01/signature-two-keynames.xml"]
    for doc in documents:
        data = doc.read_bytes()
        assert json_line(xmldsig.info(doc)) == run_tool(tool, ["info", "--json", str(doc)]).lines()[0]
        assert json_line(xmldsig.info(data)) == run_tool(tool, ["info", "--json", "-"], stdin=data).lines()[0]
        for exclusive, comments in ((False, False), (True, True)):
            flags = (["--exclusive"] if exclusive else []) + (["--with-comments"] if comments else [])
            expected = run_tool(tool, ["c14n", *flags, str(doc)]).out
            assert xmldsig.canonicalize(doc, exclusive=exclusive, with_comments=comments) == expected
            assert xmldsig.canonicalize(_as_text(data), exclusive=exclusive, with_comments=comments) == expected

    # One element, by Id, with an inclusive prefix list.
    doc = documents[1]
    sig_id = xmldsig.info(doc)["signatures"][0]["id"]
    expected = run_tool(tool, ["c14n", "--exclusive", "--prefixes", "ds #default", "--fragment", sig_id, str(doc)])
    assert expected.status == 0, expected.err
    assert xmldsig.canonicalize(doc, exclusive=True, fragment_id=sig_id, prefixes=("ds", "#default")) == expected.out


def test_documents_that_do_not_load_raise_xml_error_with_the_tools_reason(tool, tmp_path):
    unsigned = tmp_path / "unsigned.xml"
    unsigned.write_bytes(b"<a><b/></a>")
    broken = tmp_path / "broken.xml"
    broken.write_bytes(b"<a>\n  <b></a>")
    latin1 = tmp_path / "latin1.xml"
    latin1.write_bytes(b"<?xml version='1.0' encoding='UTF-8'?><a>caf\xe9</a>")
    missing = tmp_path / "missing.xml"
    for path in (unsigned, broken, latin1, missing):
        expected = run_tool(tool, ["verify", "--json", str(path)]).objects()
        assert list(expected[0]) == ["file", "error"]
        with pytest.raises(xmldsig.XmlError) as raised:
            xmldsig.verify(path)
        assert expected[0]["error"] in str(raised.value)
    with pytest.raises(xmldsig.XmlError, match="line 2"):
        xmldsig.verify(broken.read_bytes())
    with pytest.raises(xmldsig.XmlError, match="line 2"):
        xmldsig.info("<a>\n  <b></a>")
    with pytest.raises(xmldsig.XmlError, match="line 2"):
        xmldsig.canonicalize(broken)
    with pytest.raises(xmldsig.XmlError):
        xmldsig.canonicalize(unsigned, fragment_id="nowhere")
    # A document without signatures loads: info describes it, verify has nothing to verify.
    assert xmldsig.info(unsigned)["signatures"] == []
    with pytest.raises(xmldsig.XmlError, match="no signature"):
        xmldsig.verify(unsigned, signature="all")


def test_arguments_that_cannot_be_honoured_are_refused():
    doc = b"<a/>"
    # Keys, anchors and times that cannot be used are the caller's mistake, found before any
    # document is read.
    for kwargs in ({"key": "/nonexistent/key.pem"}, {"hmac_key": "zz", "hmac_encoding": "hex"},
                   {"signers": ["/nonexistent/cert.pem"]}, {"trust": ["/nonexistent/ca.pem"]},
                   {"crls": ["/nonexistent/x.crl"]}, {"at": "yesterday"}):
        with pytest.raises(ValueError):
            xmldsig.verify(doc, **kwargs)
    for signature in (-1, "first", True, 1.0):
        with pytest.raises(ValueError, match="signature"):
            xmldsig.verify(doc, signature=signature)
    with pytest.raises(ValueError, match="ref_data"):
        xmldsig.verify(doc, ref_data={101: "x"})
    with pytest.raises(TypeError):
        xmldsig.verify(12345)
    with pytest.raises(ValueError, match="exclusive"):
        xmldsig.canonicalize(doc, prefixes=("ds",))


def _threaded(work: List[Tuple[bytes, dict]], threads: int) -> List[list]:
    """verify() of every item on `threads` Python threads; results in the order of work."""
    results: List[list] = [[] for _ in work]

    def worker(k: int) -> None:
        for i in range(k, len(work), threads):
            results[i] = xmldsig.verify(work[i][0], **work[i][1])

    pool = [threading.Thread(target=worker, args=(k,)) for k in range(threads)]
    for t in pool:
        t.start()
    for t in pool:
        t.join()
    return results


def _thread_work(corpus: Path, copies: int) -> List[Tuple[bytes, dict]]:
    rows = {row["name"]: row for row in _cases()}
    names = ("zatca-valid", "zatca-amount-changed", "two-signatures-all", "hmac-valid", "external-data")
    return [(_document(rows[n], corpus), _kwargs(rows[n], corpus)) for n in names] * copies


def test_threads_verify_while_python_runs_and_agree_with_a_serial_run(corpus):
    work = _thread_work(corpus, 8)
    assert _threaded(work, 8) == _threaded(work, 1)

    # While one thread is inside verify(), another runs Python: the GIL is not held. The
    # document is large so that the call lasts long enough to tell.
    rows = {row["name"]: row for row in _cases()}
    big = _document(rows["hmac-valid"], corpus).replace(b"up up and away", b"away " * 4_000_000)
    ticks: List[float] = []
    stop = threading.Event()

    def ticker() -> None:
        while not stop.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.001)

    thread = threading.Thread(target=ticker)
    thread.start()
    try:
        inside = 0
        for _ in range(3):
            start = time.perf_counter()
            result = xmldsig.verify(big, hmac_key="testkey")
            end = time.perf_counter()
            assert not result[0]["valid"]
            # Margins for the ticks a thread switch can let in just before the call starts.
            inside = sum(1 for t in ticks if start + 0.02 < t < end - 0.02)
            if inside:
                break
    finally:
        stop.set()
        thread.join()
    assert inside > 0, "no other thread ran while verify() worked: the GIL is held"


def test_eight_threads_verify_faster_than_one(corpus):
    processors = len(os.sched_getaffinity(0))
    if processors < 2:
        pytest.skip("one processor: threads cannot run faster than one")
    if os.getloadavg()[0] > processors - 1:
        pytest.skip(f"the machine is busy (load {os.getloadavg()[0]:.1f} on {processors} processors): "
                    "timings would not tell")
    work = _thread_work(corpus, 30)
    best = float("inf")
    for _ in range(3):
        start = time.perf_counter()
        _threaded(work, 1)
        one = time.perf_counter() - start
        start = time.perf_counter()
        _threaded(work, 8)
        best = min(best, (time.perf_counter() - start) / one)
        if best < 0.8:
            break
    assert best < 0.8, f"eight threads took {best:.2f} of one thread's time"
