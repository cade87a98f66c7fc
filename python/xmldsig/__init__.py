"""Verify XML signatures, describe signed documents and canonicalize XML.

The library runs in process and releases the GIL while it works, so Python threads verify
in parallel. Results are the objects ``xmldsig verify --json`` and ``xmldsig info --json``
print, as dicts with the same fields. For many files on a Dask cluster, see
``python3 -m xmldsig.batch --help``.

A source is ``bytes`` (the document as stored; its encoding comes from the byte-order mark
or the XML declaration), ``str`` (XML text) or a path-like object (``pathlib.Path``; a plain
``str`` is always XML text). A document that cannot be read or parsed raises ``XmlError``;
a signature that does not verify is a result with ``"valid": False``, never an exception.
"""
from __future__ import annotations

import os
from typing import Any, Dict, Iterable, List, Mapping, Optional, Tuple, Union

from . import _native
from ._native import XmlError
from ._options import PathLike, verify_args

__all__ = ["verify", "info", "canonicalize", "XmlError"]

Source = Union[bytes, bytearray, memoryview, str, "os.PathLike[str]"]

# A UTF-8 byte-order mark takes precedence over the XML declaration: text handed over as
# str is read as the Unicode it is, whatever encoding its declaration names.
_UTF8_BOM = b"\xef\xbb\xbf"

# The name the tool gives a document read from standard input; results of bytes and text
# carry it in "file".
_NO_FILE = "-"


def _document(source: Source) -> Tuple[Optional[bytes], str]:
    """(bytes, None-or-path): the bytes of an in-memory source, or None and the path."""
    if isinstance(source, (bytes, bytearray, memoryview)):
        return bytes(source), _NO_FILE
    if isinstance(source, str):
        try:
            return _UTF8_BOM + source.encode("utf-8"), _NO_FILE
        except UnicodeEncodeError as e:
            raise XmlError(f"the text is not valid Unicode: {e.reason} at offset {e.start}") from None
    if isinstance(source, os.PathLike):
        return None, os.fsdecode(os.fspath(source))
    raise TypeError(f"source must be bytes, str (XML text) or a path-like object, not {type(source).__name__}")


def verify(
    source: Source,
    *,
    signature: Union[int, str] = 0,
    options: Iterable[str] = (),
    key: Optional[PathLike] = None,
    signers: Iterable[PathLike] = (),
    trust: Iterable[PathLike] = (),
    crls: Iterable[PathLike] = (),
    at: Optional[str] = None,
    hmac_key: Union[str, bytes, None] = None,
    hmac_encoding: str = "ascii",
    ref_data: Optional[Mapping[int, PathLike]] = None,
    external_dirs: Iterable[PathLike] = (),
    report: bool = False,
) -> Union[List[Dict[str, Any]], Dict[str, Any]]:
    """Verifies one signature of a document, or every one with ``signature="all"``.

    Returns one dict per verified signature with exactly the fields of the line
    ``xmldsig verify --json`` prints for the same document and options (``xmldsig verify
    --help`` lists them), among them ``file`` (the path, or ``"-"`` for bytes and text),
    ``signature`` (its index), ``id``, ``valid``, ``refFailReason`` and, when not valid,
    ``reason``.

    - ``signature``: the index of the signature to verify (0, the first, by default) or
      ``"all"``.
    - ``options``: keywords of document families verified by their own rules only on
      request, e.g. ``("ZATCA",)``; ``info()`` suggests them.
    - ``key``: a public key or certificate file (PEM or DER) tried after the keys the
      signature's KeyInfo yields.
    - ``hmac_key``: the secret of an HMAC signature, as text written in ``hmac_encoding``
      (``"ascii"``, ``"hex"``, ``"base64"``, ...), or as bytes.
    - ``ref_data``: ``{reference index: file}``, the data of external references.
    - ``external_dirs``: directories searched for the files external references name.
    - ``signers``: certificates or public keys (PEM or DER files) the signer must be one of;
      a signature made with any other key is not valid.
    - ``trust``: trust anchors (certificate files or directories of them): the signer's
      certificate must chain to one; ``crls``: revocation lists for that check; ``at``: the
      time it is checked at, ISO 8601 UTC such as ``"2025-03-01T12:00:00Z"``.
    - ``report``: return instead the document's validation report, one dict as
      ``xmldsig verify --report`` prints it (docs/report.schema.json): every signature with
      its indication, algorithms, signer and trust, references, time-stamp, warnings and log.

    Raises XmlError when the document cannot be read or parsed, has no signature, or has no
    signature with that index; ValueError when a key, certificate, trust anchor or revocation
    list given does not load, or ``at`` is not such a time.
    """
    args = verify_args(signature=signature, options=options, key=key, hmac_key=hmac_key,
                       hmac_encoding=hmac_encoding, ref_data=ref_data, external_dirs=external_dirs,
                       signers=signers, trust=trust, crls=crls, at=at, report=report)
    data, file = _document(source)
    results = _native.verify(data, file, args)
    return results[0] if report else results


def info(source: Source) -> Dict[str, Any]:
    """What a document carries, as ``xmldsig info --json`` describes it.

    The dict has ``file``, ``loaded``, ``family``, ``suggestedOptions`` and ``signatures``
    (each with its index, Id, element, canonicalization and signature methods and
    references). Nothing is verified. Raises XmlError when the document cannot be read or
    parsed.
    """
    data, file = _document(source)
    return _native.info(data, file, {})


def canonicalize(
    source: Source,
    *,
    exclusive: bool = False,
    with_comments: bool = False,
    fragment_id: Optional[str] = None,
    prefixes: Iterable[str] = (),
) -> bytes:
    """The canonical form of a document, or of one element, as UTF-8 bytes.

    Canonical XML 1.0, or Exclusive XML Canonicalization 1.0 with ``exclusive=True``;
    comments are dropped unless ``with_comments=True``. ``fragment_id`` selects one element:
    an Id (as a same-document reference ``#ID`` names it) or an XPointer such as
    ``"xpointer(id('ID'))"``. ``prefixes`` is the exclusive form's inclusive namespace prefix
    list (``"#default"`` for the default namespace). The output equals ``xmldsig c14n``'s.

    Raises XmlError when the document cannot be read or parsed or has no such fragment.
    """
    if isinstance(prefixes, str):
        prefixes = prefixes.split()
    prefix_list = " ".join(prefixes)
    if prefix_list and not exclusive:
        raise ValueError("prefixes apply to exclusive canonicalization only")
    data, file = _document(source)
    if data is None:
        try:
            with open(file, "rb") as f:
                data = f.read()
        except OSError as e:
            raise XmlError(f"{file}: {e.strerror or e}") from None
    return _native.canonicalize(data, exclusive, with_comments, fragment_id, prefix_list)
