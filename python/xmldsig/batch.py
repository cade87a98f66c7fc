"""Verify many files on a Dask cluster: ``python3 -m xmldsig.batch [options] PATH...``.

The files (directories are walked) are cut into partitions of many files each; every Dask
task verifies one partition in process, and the driver writes each partition's JSON lines
to standard output in the order of the files, the same objects ``xmldsig verify --json``
prints (or with --report, one validation report per file, as ``xmldsig verify --report``). A file that cannot be read or parsed is a line ``{"file", "error"}``, never a failed
batch. A summary goes to standard error, with a progress bar when it is a terminal.

Without --scheduler a local cluster of --workers processes is started; with it, the batch
runs on that scheduler's workers, which must have this package installed and see the files
at the same paths (shared storage).

``verify_partition`` is the same work for other engines, e.g. a Spark job:
``paths_rdd.mapPartitions(lambda paths: verify_partition(paths, signature="all"))``.
"""
from __future__ import annotations

import argparse
import fnmatch
import json
import math
import os
import sys
import time
from typing import Any, Dict, Iterable, Iterator, List, Optional, Sequence, TextIO, Tuple

from . import _native
from ._options import verify_args

# Status of a result line, as the native layer reports it.
VALID, INVALID, NOT_VERIFIED = 0, 1, 2


def verify_files(paths: Sequence[str], args: Dict[str, List[str]]) -> List[Tuple[str, int]]:
    """(JSON line, status) per result of each file, in order; args are ``verify`` options."""
    return _native.verify_lines(list(paths), args)


def verify_partition(paths: Iterable[str], *, files_per_call: int = 256, **verify_options: Any) -> Iterator[str]:
    """The JSON lines (without newline) of every file of an iterable of paths, in order.

    ``verify_options`` are the keyword arguments of ``xmldsig.verify`` (``signature="all"``,
    ``hmac_key=...``, ``options=("ZATCA",)``...). The files are verified files_per_call at a
    time, each group with the GIL released, so that results stream from a long iterable.
    """
    args = verify_args(**verify_options)
    chunk: List[str] = []
    for path in paths:
        chunk.append(os.fsdecode(path))
        if len(chunk) == files_per_call:
            yield from (line for line, _ in verify_files(chunk, args))
            chunk = []
    if chunk:
        yield from (line for line, _ in verify_files(chunk, args))


# ---- the Dask driver ----

class Tally:
    """Counts of what a batch printed, for the summary and the exit status."""

    def __init__(self) -> None:
        self.files = 0
        self.valid = 0
        self.invalid = 0
        self.not_verified = 0

    def add(self, results: List[Tuple[str, int]], files: int) -> None:
        self.files += files
        for _, status in results:
            if status == VALID:
                self.valid += 1
            elif status == INVALID:
                self.invalid += 1
            else:
                self.not_verified += 1

    def exit_status(self) -> int:
        # As the tool: 2 when a file was not verified, else 1 when a signature is invalid.
        return 2 if self.not_verified else 1 if self.invalid else 0


def _chunk_task(paths: List[str], args: Dict[str, List[str]]) -> List[Tuple[str, int]]:
    """One Dask task: a partition of files verified in the worker's process."""
    return verify_files(paths, args)


def collect_files(roots: Sequence[str], pattern: str) -> List[str]:
    """Files as given, and under each directory the files whose name matches pattern
    (case-insensitive), walked in sorted order. A path that does not exist is kept, so that
    it is reported as a result line."""
    files: List[str] = []
    for root in roots:
        if not os.path.isdir(root):
            files.append(root)
            continue
        for dirpath, dirnames, filenames in os.walk(root):
            dirnames.sort()
            for name in sorted(filenames):
                if fnmatch.fnmatch(name.lower(), pattern.lower()):
                    files.append(os.path.join(dirpath, name))
    return files


def partition(files: List[str], parts_wanted: int, most: int) -> List[List[str]]:
    """Consecutive partitions: about parts_wanted of them, none larger than most files."""
    if not files:
        return []
    size = max(1, min(most, math.ceil(len(files) / max(1, parts_wanted))))
    return [files[i:i + size] for i in range(0, len(files), size)]


class Progress:
    """A one-line progress bar on a terminal; nothing otherwise."""

    def __init__(self, stream: TextIO, total: int) -> None:
        self.stream = stream
        self.total = total
        self.enabled = stream.isatty() and total > 0
        self.start = time.monotonic()

    def update(self, done: int) -> None:
        if not self.enabled:
            return
        width = 30
        filled = int(width * done / self.total)
        elapsed = max(time.monotonic() - self.start, 1e-6)
        self.stream.write(f"\r[{'#' * filled}{'.' * (width - filled)}] {done}/{self.total} files"
                          f"  {done / elapsed:.0f} files/s ")
        self.stream.flush()

    def finish(self) -> None:
        if self.enabled:
            self.stream.write("\r\033[K")
            self.stream.flush()


def _failed_chunk(paths: List[str], error: BaseException) -> List[Tuple[str, int]]:
    """Result lines for a partition whose task failed (e.g. its worker died)."""
    reason = f"not verified: the task failed ({type(error).__name__}: {error})"
    return [(json.dumps({"file": p, "error": reason}, ensure_ascii=False, separators=(",", ":")), NOT_VERIFIED)
            for p in paths]


def run_batch(client: Any, chunks: List[List[str]], args: Dict[str, List[str]], out: TextIO,
              progress: Progress, tally: Tally) -> None:
    """Submits one task per partition and writes the results in partition order, each as
    soon as it and every partition before it are done."""
    from distributed import as_completed

    futures = [client.submit(_chunk_task, chunk, args, pure=False) for chunk in chunks]
    index_of = {f.key: i for i, f in enumerate(futures)}
    ready: Dict[int, List[Tuple[str, int]]] = {}
    next_to_write = 0
    done_files = 0
    for future in as_completed(futures):
        i = index_of[future.key]
        try:
            ready[i] = future.result()
        except Exception as e:  # a lost worker or a task error: its files become result lines
            ready[i] = _failed_chunk(chunks[i], e)
        future.release()
        done_files += len(chunks[i])
        progress.update(done_files)
        while next_to_write in ready:
            results = ready.pop(next_to_write)
            tally.add(results, len(chunks[next_to_write]))
            out.write("".join(line + "\n" for line, _ in results))
            next_to_write += 1
        out.flush()


def _parser() -> argparse.ArgumentParser:
    p = argparse.ArgumentParser(
        prog="python3 -m xmldsig.batch",
        description="Verify XML signatures of many files on a Dask cluster; one JSON line per "
                    "signature on standard output (as `xmldsig verify --json`), a summary on "
                    "standard error.",
        epilog="Exit status: 0 every signature valid, 1 a signature invalid, 2 a file not "
               "verified (unreadable, not XML, no such signature) or a usage error.")
    where = p.add_mutually_exclusive_group()
    where.add_argument("--scheduler", metavar="ADDRESS",
                       help="a running Dask scheduler, e.g. tcp://10.0.0.5:8786")
    where.add_argument("--workers", type=int, metavar="N",
                       help="worker processes of the local cluster (default: the number of processors)")
    p.add_argument("--files-per-task", type=int, metavar="K",
                   help="files verified by one task (default: enough for about 4 tasks per worker "
                        "thread, at most 500)")
    p.add_argument("--glob", default="*.xml", metavar="PATTERN",
                   help="names of the files taken from directories (default: *.xml)")
    which = p.add_mutually_exclusive_group()
    which.add_argument("--all", action="store_true", help="verify every signature of each file")
    which.add_argument("--selector", type=int, default=0, metavar="N",
                       help="verify the signature with this index (default 0)")
    p.add_argument("--no-references", action="store_true",
                   help="check only the signature value, not the reference digests")
    p.add_argument("--key", metavar="FILE", help="a public key or certificate to verify with")
    p.add_argument("--hmac-key", metavar="TEXT", help="the secret of HMAC signatures")
    p.add_argument("--hmac-encoding", default="ascii", metavar="ENC",
                   help="how --hmac-key is written: ascii (default), hex, base64, ...")
    p.add_argument("--cert", action="append", default=[], metavar="FILE",
                   help="a certificate for the store KeyInfo references are looked up in; repeatable")
    p.add_argument("--cert-dir", action="append", default=[], metavar="DIR",
                   help="every certificate of DIR for the store; repeatable")
    p.add_argument("--external-dir", action="append", default=[], metavar="DIR",
                   help="where the files external references name are looked for; repeatable")
    p.add_argument("--ignore-external", action="store_true",
                   help="do not count external references without data as failures")
    p.add_argument("--option", action="append", default=[], metavar="KEYWORD",
                   help="a document-family option such as ZATCA; repeatable")
    p.add_argument("--signer", action="append", default=[], metavar="FILE",
                   help="pin the signer: only this certificate or key may have signed; repeatable")
    p.add_argument("--trust", action="append", default=[], metavar="FILE|DIR",
                   help="trust anchors the signer's certificate must chain to; repeatable")
    p.add_argument("--crl", action="append", default=[], metavar="FILE",
                   help="a certificate revocation list for the chain check; repeatable")
    p.add_argument("--at", metavar="TIME", help="check the chain at this time (ISO 8601 UTC)")
    p.add_argument("--report", action="store_true",
                   help="print each file's validation report instead (as `xmldsig verify --report`)")
    p.add_argument("paths", nargs="+", metavar="PATH", help="files, or directories to walk")
    return p


def _count(n: int, noun: str) -> str:
    return f"{n} {noun}" if n == 1 else f"{n} {noun}s"


def main(argv: Optional[Sequence[str]] = None) -> int:
    opts = _parser().parse_args(argv)
    try:
        args = verify_args(signature="all" if opts.all else opts.selector, options=opts.option,
                           key=opts.key, hmac_key=opts.hmac_key, hmac_encoding=opts.hmac_encoding,
                           external_dirs=opts.external_dir, certs=opts.cert, cert_dirs=opts.cert_dir,
                           ignore_external=opts.ignore_external,
                           check_references=not opts.no_references, signers=opts.signer,
                           trust=opts.trust, crls=opts.crl, at=opts.at, report=opts.report)
        _native.check_options(args)  # here, rather than in every task
    except (ValueError, TypeError) as e:
        print(f"xmldsig.batch: {e}", file=sys.stderr)
        return 2
    if opts.workers is not None and opts.workers < 1:
        print("xmldsig.batch: --workers needs 1 or more", file=sys.stderr)
        return 2
    if opts.files_per_task is not None and opts.files_per_task < 1:
        print("xmldsig.batch: --files-per-task needs 1 or more", file=sys.stderr)
        return 2

    import logging
    from distributed import Client, LocalCluster

    files = collect_files(opts.paths, opts.glob)
    started = time.monotonic()
    cluster = None
    if opts.scheduler:
        client = Client(opts.scheduler)
    else:
        cluster = LocalCluster(n_workers=opts.workers or os.cpu_count() or 1, threads_per_worker=1,
                               processes=True, dashboard_address=None, silence_logs=logging.ERROR)
        client = Client(cluster)
    tally = Tally()
    try:
        threads = sum(w.get("nthreads", 1) for w in client.scheduler_info()["workers"].values()) or 1
        chunks = partition(files, 4 * threads, opts.files_per_task or 500)
        ready = time.monotonic()
        progress = Progress(sys.stderr, len(files))
        run_batch(client, chunks, args, sys.stdout, progress, tally)
        progress.finish()
        verifying = time.monotonic() - ready
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    print(f"xmldsig.batch: {_count(tally.files, 'file')} in {verifying:.2f} s "
          f"({tally.files / max(verifying, 1e-6):.1f} files/s) on {_count(threads, 'worker thread')}, "
          f"{len(chunks)} tasks; {_count(tally.valid + tally.invalid, 'signature')} verified: "
          f"{tally.valid} valid, {tally.invalid} invalid; {_count(tally.not_verified, 'file')} not verified; "
          f"{ready - started:.1f} s to connect", file=sys.stderr)
    return tally.exit_status()


if __name__ == "__main__":
    # Run the functions of the importable module, not of __main__, so that the tasks sent to
    # workers name xmldsig.batch, which the workers import.
    from xmldsig.batch import main as _main
    sys.exit(_main())
