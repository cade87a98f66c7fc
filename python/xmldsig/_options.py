"""Keyword arguments of verify() as the options of ``xmldsig verify``.

The native layer reads exactly what the command-line tool reads, so both give the same
verdicts and the same JSON objects; this module is the one place that maps one onto the
other, for xmldsig.verify() and for the batch driver alike.
"""
from __future__ import annotations

import os
from typing import Dict, Iterable, List, Mapping, Optional, Union

PathLike = Union[str, "os.PathLike[str]"]

def _path(value: object, what: str) -> str:
    if isinstance(value, (bytes, bytearray)):
        return os.fsdecode(bytes(value))
    try:
        return os.fspath(value)  # type: ignore[arg-type]
    except TypeError:
        raise TypeError(f"{what} must be a path, not {type(value).__name__}") from None


def _paths(values: Iterable[object], what: str) -> List[str]:
    if isinstance(values, (str, bytes, os.PathLike)):
        values = [values]
    return [_path(v, what) for v in values]


def verify_args(
    *,
    signature: Union[int, str] = 0,
    options: Iterable[str] = (),
    key: Optional[PathLike] = None,
    hmac_key: Union[str, bytes, None] = None,
    hmac_encoding: str = "ascii",
    ref_data: Optional[Mapping[int, PathLike]] = None,
    external_dirs: Iterable[PathLike] = (),
    certs: Iterable[PathLike] = (),
    cert_dirs: Iterable[PathLike] = (),
    ignore_external: bool = False,
    check_references: bool = True,
    signers: Iterable[PathLike] = (),
    trust: Iterable[PathLike] = (),
    crls: Iterable[PathLike] = (),
    at: Optional[str] = None,
    report: bool = False,
) -> Dict[str, List[str]]:
    """The ``xmldsig verify`` options (name -> values; a flag has none) for these arguments."""
    args: Dict[str, List[str]] = {}
    if isinstance(signature, str) and signature == "all":
        args["all"] = []
    elif isinstance(signature, int) and not isinstance(signature, bool) and signature >= 0:
        args["selector"] = [str(signature)]
    else:
        raise ValueError(f"signature must be an index (0 or more) or \"all\", not {signature!r}")
    if isinstance(options, str):
        options = [options]
    keywords = [str(o) for o in options]
    if keywords:
        args["option"] = keywords
    if key is not None:
        args["key"] = [_path(key, "key")]
    if hmac_key is not None:
        if isinstance(hmac_key, (bytes, bytearray)):
            if hmac_encoding != "ascii":
                raise ValueError("hmac_encoding applies to a text hmac_key, not to bytes")
            args["hmac-key"] = [bytes(hmac_key).hex()]
            args["hmac-encoding"] = ["hex"]
        elif isinstance(hmac_key, str):
            args["hmac-key"] = [hmac_key]
            args["hmac-encoding"] = [hmac_encoding]
        else:
            raise TypeError(f"hmac_key must be str or bytes, not {type(hmac_key).__name__}")
    if ref_data:
        pairs = []
        for index, path in sorted(ref_data.items()):
            if not isinstance(index, int) or isinstance(index, bool) or not 0 <= index <= 100:
                raise ValueError(f"ref_data keys are reference indexes from 0 to 100, not {index!r}")
            pairs.append(f"{index}={_path(path, 'ref_data')}")
        args["ref-data"] = pairs
    for name, values, what in (("external-dir", external_dirs, "external_dirs"), ("cert", certs, "certs"),
                               ("cert-dir", cert_dirs, "cert_dirs"), ("signer", signers, "signers"),
                               ("trust", trust, "trust"), ("crl", crls, "crls")):
        paths = _paths(values, what)
        if paths:
            args[name] = paths
    if ignore_external:
        args["ignore-external"] = []
    if not check_references:
        args["no-references"] = []
    if at is not None:
        if not isinstance(at, str):
            raise TypeError(f"at must be an ISO 8601 UTC time as str, not {type(at).__name__}")
        args["at"] = [at]
    if report:
        args["report"] = []
    return args
