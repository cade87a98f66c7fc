#!/usr/bin/python3
"""Speed and memory of `xmldsig` on the documents bench/make_documents.py wrote, next to
xmlsec1, with the targets beside the measured values.

    bench/run_bench.py BUILD_DIR DOCS_DIR [--runs 3] [--min-size 0] [--max-size 10M] [--jobs-files 3000]
                       [--no-in-process] [--no-jobs]

Prints, for every document of DOCS_DIR/docs.tsv made for --min-size to --max-size:
  - whole process: the median wall time of `xmldsig verify` and `xmlsec1 --verify` over
    --runs runs, taken in turn in the same run (CPU time, user + system, beside it), the
    ratio, and our peak resident memory as a multiple of the document. Above 100 MB xmlsec1
    is not run (it holds the whole tree); `sha256sum` on the same file is timed instead.
  - `xmldsig info` (load and tree): MB/s.
Then, in process (BUILD_DIR/bench/bench_verify, built with -DXMLDSIG_BENCH=ON): verifications
per second of the 7 KB documents and of the ZATCA invoice against libxmlsec1; and
bench/bench_jobs.sh: `--jobs 2` against `--jobs 1` over the corpus files.

A document that a verifier does not accept gets no timing, only the failure: a fast wrong
answer is no result.
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MB = 1 << 20


def parse_size(text):
    units = {"K": 1 << 10, "M": 1 << 20, "G": 1 << 30}
    text = text.strip().upper()
    return int(text[:-1]) * units[text[-1]] if text[-1] in units else int(text)


def nominal_size(name):
    """The size a document was made for, from the end of its name (realistic-incl-10M: 10 MB)."""
    return parse_size(name.rsplit("-", 1)[1])


class Failed(Exception):
    pass


def timed(cmd):
    """(wall seconds, cpu seconds, peak RSS in kB) of one run of cmd; Failed unless it exits with 0."""
    with tempfile.NamedTemporaryFile("r", suffix=".time") as out:
        start = time.monotonic()
        result = subprocess.run(["/usr/bin/time", "-f", "%U %S %M", "-o", out.name] + cmd,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        wall = time.monotonic() - start
        if result.returncode != 0:
            raise Failed("%s exited with %d: %s" % (" ".join(cmd), result.returncode,
                                                    result.stderr.decode(errors="replace")[-300:].strip()))
        user, system, kb = out.read().split()[-3:]
    return wall, float(user) + float(system), int(kb)


def verdict(ok):
    return "met" if ok else "NOT met"


def machine():
    model = "?"
    with open("/proc/cpuinfo") as f:
        for line in f:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    with open("/proc/meminfo") as f:
        mem_kb = int(f.readline().split()[1])
    load = " ".join("%.1f" % x for x in os.getloadavg())
    return "%d x %s, %.0f GB RAM, load average %s" % (os.cpu_count(), model, mem_kb / MB, load)


def whole_process(build, docs, rows, runs, min_size, max_size):
    xmldsig = os.path.join(build, "xmldsig")
    cert = os.path.join(docs, "cert.pem")
    print("\n== Whole process: median of %d runs, wall seconds (CPU seconds) ==" % runs)
    print("%-24s %8s %15s %16s %13s %13s %14s  %s" % (
        "document", "MB", "xmldsig s (cpu)", "other s (cpu)", "ratio (cpu)", "peak RSS MB", "info MB/s (cpu)",
        "targets"))
    for name, size, path in rows:
        if not min_size <= nominal_size(name) <= max_size:
            continue
        big = size > 100 * MB
        ours, theirs, info = [], [], []
        other = ["sha256sum", path] if big else ["xmlsec1", "--verify", "--trusted-pem", cert, path]
        try:
            for _ in range(runs):
                ours.append(timed([xmldsig, "verify", path]))
                theirs.append(timed(other))
                info.append(timed([xmldsig, "info", path]))
        except Failed as failure:
            print("%-24s %8.2f  FAILED: %s" % (name, size / MB, failure), flush=True)
            continue
        wall, cpu = (statistics.median(r[i] for r in ours) for i in (0, 1))
        other_wall, other_cpu = (statistics.median(r[i] for r in theirs) for i in (0, 1))
        rss_mb = max(r[2] for r in ours) / 1024
        rss = rss_mb * MB / size
        info_wall, info_cpu = (size / MB / max(statistics.median(r[i] for r in info), 0.01) for i in (0, 1))
        targets = []
        if big:
            ratio, cpu_ratio = wall / other_wall, cpu / other_cpu  # our time in sha256sum times
            targets.append("<= 10x sha256sum: %s" % verdict(cpu_ratio <= 10))
            targets.append("RSS <= 2x: %s" % verdict(rss <= 2))
        else:
            ratio, cpu_ratio = other_wall / wall, other_cpu / cpu  # times faster than xmlsec1
            if nominal_size(name) >= 100 * MB and name.startswith("realistic"):
                targets.append(">= 8x: %s" % verdict(cpu_ratio >= 8))
                targets.append("RSS <= 2x: %s" % verdict(rss <= 2))
        if nominal_size(name) >= 100 * MB and name.startswith("realistic-incl-") and "crlf" not in name:
            targets.append("info >= 400 MB/s: %s" % verdict(info_cpu >= 400))
        print("%-24s %8.2f %7.3f (%6.2f) %7.3f (%6.2f) %5.2f%s (%5.2f) %6.0f %5.1fx %6.1f (%6.1f)  %s" % (
            name, size / MB, wall, cpu, other_wall, other_cpu, ratio, "s" if big else "x", cpu_ratio, rss_mb,
            rss, info_wall, info_cpu, ", ".join(targets)), flush=True)
    print("other: xmlsec1 --verify; over 100 MB sha256sum. ratio: xmlsec1's time / ours ('x'), or ours / "
          "sha256sum's ('s').\nTargets are judged on CPU time (user + system): on a shared machine the wall time "
          "includes waiting for a core.\nPeak RSS is ours, in MB and as a multiple of the document.")


def in_process(build, docs, rows):
    bench = os.path.join(build, "bench", "bench_verify")
    if not os.access(bench, os.X_OK):
        print("\n(no %s: configure with -DXMLDSIG_BENCH=ON to measure in process)" % bench)
        return
    files = [path for name, size, path in rows if size < 64 * 1024]
    env = dict(os.environ, XMLDSIG_BENCH_VERIFY_MAX_MB="0", XMLDSIG_BENCH_VERIFY_FILES=":".join(files),
               XMLDSIG_BENCH_VERIFY_CERT=os.path.join(docs, "cert.pem"))
    with tempfile.NamedTemporaryFile("r", suffix=".json") as out:
        result = subprocess.run([bench, "--benchmark_out=" + out.name, "--benchmark_out_format=json"], env=env,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if result.returncode != 0:
            sys.exit("run_bench: bench_verify failed: " + result.stderr[-400:])
        results = json.load(out)["benchmarks"]
    rate = {}
    for b in results:
        if b.get("error_occurred"):
            sys.exit("run_bench: %s: %s" % (b["name"], b.get("error_message")))
        seconds = b["cpu_time"] / {"ns": 1e9, "us": 1e6, "ms": 1e3, "s": 1.0}[b["time_unit"]]
        rate[b["name"].split("/min_time")[0]] = 1 / seconds
    print("\n== In process: verifications per second (CPU time) ==")
    print("%-34s %12s %12s %7s  %s" % ("document", "xmldsig", "libxmlsec1", "ratio", "target"))
    cases = [("file:" + os.path.basename(f), 4 if "realistic-incl-7K" in f else 0) for f in files]
    cases += [("small", 4), ("zatca", 1)]
    for case, minimum in cases:
        ours, theirs = rate.get("ours/" + case), rate.get("libxmlsec1/" + case)
        if not ours or not theirs:
            continue
        ratio = ours / theirs
        target = ">= %dx: %s" % (minimum, verdict(ratio >= minimum)) if minimum else ""
        print("%-34s %12.0f %12.0f %7.2f  %s" % (case, ours, theirs, ratio, target))
    print("file:*: KeyInfo's certificate gives the key to both; small: a canonical-form document, the key "
          "given up front;\nzatca: the ZATCA invoice (ZATCA option) against libxmlsec1 on a generic document of "
          "its size.")


def jobs(build, count):
    print("\n== --jobs 2 against --jobs 1 over %d corpus files ==" % count, flush=True)
    result = subprocess.run([os.path.join(HERE, "bench_jobs.sh"), os.path.join(build, "xmldsig"), str(count), "1",
                             "2"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    rates = {}
    for line in result.stdout.splitlines():
        print(line)
        if line.startswith("jobs="):
            fields = line.split()
            rates[fields[0]] = float(fields[fields.index("files/s") - 1])
    if result.returncode != 0 or len(rates) != 2:
        print("(bench_jobs.sh failed)")
        return
    ratio = rates["jobs=2"] / rates["jobs=1"]
    print("-j 2 / -j 1: %.2f  target >= 1.7 on an idle machine: %s" % (ratio, verdict(ratio >= 1.7)))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("docs")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--min-size", default="0")
    parser.add_argument("--max-size", default="10M")
    parser.add_argument("--jobs-files", type=int, default=3000)
    parser.add_argument("--no-in-process", action="store_true")
    parser.add_argument("--no-jobs", action="store_true")
    args = parser.parse_args()

    rows = []
    with open(os.path.join(args.docs, "docs.tsv")) as f:
        for line in f.read().splitlines():
            name, _, size, _, file = line.split("\t")
            rows.append((name, int(size), os.path.join(args.docs, file)))
    rows.sort(key=lambda r: (r[1] > 64 * 1024, r[1], r[0]))
    print("Machine: " + machine())
    whole_process(args.build, args.docs, rows, args.runs, parse_size(args.min_size), parse_size(args.max_size))
    if not args.no_in_process:
        in_process(args.build, args.docs, rows)
    if not args.no_jobs:
        jobs(args.build, args.jobs_files)
    print("\nLoad average at the end: " + " ".join("%.1f" % x for x in os.getloadavg()))


if __name__ == "__main__":
    main()
