#!/usr/bin/python3
"""Renders validation reports as HTML pages, loads each in headless Chromium and checks the
DOM the browser built: the verdict of every signature, the signer, the failing reference
with its digests highlighted, the log's failing branch open (and nothing else open), hostile
document text shown as text, and a page that loads nothing and runs only its own script.

    run.py PATH/TO/xmldsig SHARED_DIR ARTIFACT_DIR GROUP

GROUP is a group of cases.tsv: corpus (documents of SHARED_DIR/corpus, skipped when it is
absent) or signed (templates signed here with xmlsec1). The pages and a screenshot of each
stay in ARTIFACT_DIR. Exit status 77 means skipped (no browser, corpus or signing tool).
"""
import csv
import html.parser
import os
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SKIPPED = 77


def skip(reason):
    print("skipped: " + reason)
    sys.exit(SKIPPED)


class Node:
    def __init__(self, tag, attrs, parent):
        self.tag, self.attrs, self.parent, self.children = tag, dict(attrs), parent, []

    def classes(self):
        return (self.attrs.get("class") or "").split()

    def text(self):
        return "".join(c if isinstance(c, str) else c.text() for c in self.children)

    def walk(self):
        for c in self.children:
            if isinstance(c, Node):
                yield c
                yield from c.walk()

    def find(self, tag, cls=None):
        return [n for n in self.walk() if n.tag == tag and (cls is None or cls in n.classes())]


class DomBuilder(html.parser.HTMLParser):
    VOID = {"meta", "input", "br", "img", "link", "hr", "source", "wbr", "area", "base", "col", "embed"}

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.root = self.node = Node("#document", [], None)

    def handle_starttag(self, tag, attrs):
        n = Node(tag, attrs, self.node)
        self.node.children.append(n)
        if tag not in self.VOID:
            self.node = n

    def handle_endtag(self, tag):
        n = self.node
        while n.parent and n.tag != tag:
            n = n.parent
        if n.parent:
            self.node = n.parent

    def handle_data(self, data):
        self.node.children.append(data)


def parse(dom):
    builder = DomBuilder()
    builder.feed(dom)
    return builder.root


def sign_template(template, out, work):
    key, cert = os.path.join(work, "key.pem"), os.path.join(work, "cert.pem")
    with open(os.path.splitext(template)[0] + ".subject") as f:
        subject = f.read().strip()
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", cert,
                    "-days", "30", "-subj", subject], check=True, capture_output=True)
    subprocess.run(["xmlsec1", "--sign", "--privkey-pem", key + "," + cert, "--id-attr:Id", "Data",
                    "--output", out, template], check=True, capture_output=True)


def prepare(case, corpus, work):
    out = os.path.join(work, case["case"] + ".xml")
    if case["group"] == "corpus":
        shutil.copyfile(os.path.join(corpus, case["document"]), out)
    else:
        sign_template(os.path.join(HERE, case["document"]), out, work)
    if case["alter"] != "-":
        with open(out, "rb") as f:
            before = f.read()
        subprocess.run(["sed", "-i", "-e", case["alter"], out], check=True)
        with open(out, "rb") as f:
            if f.read() == before:
                sys.exit("%s: the alteration changed nothing" % case["case"])
    return out


def render(xmldsig, command, docs, page):
    if command == "report":
        argv = [xmldsig, "report", *docs, "-o", page]
    else:
        argv = [xmldsig, "verify", "--all", "--html", page, *docs]
    done = subprocess.run(argv, capture_output=True, text=True)
    if done.returncode not in (0, 1) or not os.path.exists(page):
        sys.exit("%s gave status %d: %s" % (" ".join(argv), done.returncode, done.stderr))


def browse(page, screenshot):
    """The DOM as the browser built it, and a screenshot, from one browser launch."""
    argv = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--window-size=1280,2400",
            "--screenshot=" + screenshot, "--dump-dom", "file://" + page]
    try:
        done = subprocess.run(argv, capture_output=True, text=True, timeout=180)
    except (OSError, subprocess.TimeoutExpired) as e:
        skip("chromium cannot run: %s" % e)
    if done.returncode != 0 or "<html" not in done.stdout:
        skip("chromium cannot run (status %d): %s" % (done.returncode, done.stderr.strip()[-300:]))
    return done.stdout


def check_page(root, failures):
    """What holds for every page, whatever the documents: only the page's own script, which
    ran (it records how each log branch opened), nothing loaded, no event handlers."""
    scripts = root.find("script")
    if len(scripts) != 1 or "src" in scripts[0].attrs:
        failures.append("the page has %d script elements, expected its own one" % len(scripts))
    for n in root.walk():
        if n.tag in ("img", "iframe", "object", "embed", "link", "base", "form"):
            failures.append("the page has a <%s> element" % n.tag)
        if "src" in n.attrs or any(a.startswith("on") for a in n.attrs):
            failures.append("<%s> carries %s" % (n.tag, sorted(n.attrs)))
        if n.tag == "a" and not (n.attrs.get("href") or "#").startswith("#"):
            failures.append("a link leaves the page: %s" % n.attrs.get("href"))
    branches = root.find("details")
    if branches and any("data-initial" not in d.attrs for d in branches):
        failures.append("the page's script did not run")


def check_case(case, root, doc, failures):
    name = case["case"]
    sections = [s for s in root.find("section", "file") if s.find("h2") and s.find("h2")[0].text() == doc]
    if len(sections) != 1:
        failures.append("%s: %d sections for %s" % (name, len(sections), doc))
        return
    section = sections[0]
    articles = section.find("article", "signature")
    verdicts = [a.find("div", "banner")[0].attrs.get("data-verdict") for a in articles]
    if verdicts != case["verdicts"].split(","):
        failures.append("%s: verdicts %s, expected %s" % (name, verdicts, case["verdicts"]))
        return
    if case["subject"] != "-":
        subjects = [d.text() for d in articles[0].find("dd", "subject")]
        if not subjects or case["subject"] not in subjects[0]:
            failures.append("%s: signer subject %s, expected it to show %r" % (name, subjects, case["subject"]))
    if case["failing"] != "-":
        # The digests side by side can differ only once the calculated one is reported.
        for row in articles[0].find("tr", "ref"):
            index = row.find("td")[0].text().strip()
            calculated = row.find("td", "calculated")[0]
            marked = ["failed" in row.classes()]
            if calculated.text().strip() != "-":
                marked.append("mismatch" in calculated.classes())
            if any(m != (index == case["failing"]) for m in marked):
                failures.append("%s: reference %s: row failed, calculated digest highlighted: %s"
                                % (name, index, marked))
    for article, verdict in zip(articles, verdicts):
        opened = [d for d in article.find("details") if "open" in d.attrs]
        if verdict == "valid" and opened:
            failures.append("%s: a valid signature's log has open branches" % name)
        if verdict != "valid":
            trees = article.find("div", "log-tree")
            top = trees[0].find("details")[:1] if trees else []
            if not top or "open" not in top[0].attrs or not all("failing" in d.classes() for d in opened):
                failures.append("%s: the log's failing branch is not open from the top" % name)
            if not any("cause" in n.classes() for n in article.walk()):
                failures.append("%s: no log line is marked as the cause" % name)
    if case["as_text"] != "-":
        shown = root.text()
        for expected in case["as_text"].split(" | "):
            if expected not in shown:
                failures.append("%s: the page does not show %r as text" % (name, expected))


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    xmldsig, shared, artifacts, group = sys.argv[1:]
    xmldsig, artifacts = os.path.abspath(xmldsig), os.path.abspath(artifacts)
    with open(os.path.join(HERE, "cases.tsv"), newline="") as f:
        rows = csv.DictReader((line for line in f if not line.startswith("# ")), delimiter="\t",
                              quoting=csv.QUOTE_NONE)
        cases = [r for r in rows if r["group"] == group]
    if not cases:
        sys.exit("no cases in group " + group)
    if not shutil.which("chromium"):
        skip("chromium is not installed")
    corpus = os.path.join(shared, "corpus")
    if group == "corpus" and not os.path.isdir(corpus):
        skip("no corpus at " + corpus)
    if group == "signed" and not (shutil.which("xmlsec1") and shutil.which("openssl")):
        skip("xmlsec1 or openssl is not installed")
    work = os.path.join(artifacts, group)
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)

    failures = []
    for command in sorted({c["command"] for c in cases}):
        batch = [c for c in cases if c["command"] == command]
        docs = [prepare(c, corpus, work) for c in batch]
        page = os.path.join(work, "%s-%s.html" % (group, command))
        render(xmldsig, command, docs, page)
        root = parse(browse(page, os.path.splitext(page)[0] + ".png"))
        check_page(root, failures)
        for case, doc in zip(batch, docs):
            check_case(case, root, doc, failures)
    for f in failures:
        print("FAIL: " + f)
    print("%d cases, %d failures; pages and screenshots in %s" % (len(cases), len(failures), work))
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
