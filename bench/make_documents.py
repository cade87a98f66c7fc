#!/usr/bin/python3
"""Signed benchmark documents, in two series, written to OUTDIR with a manifest (docs.tsv).

realistic  invoice batches as signing software writes them: pretty-printed, attributes out of
           order, namespace declarations at several depths (one of them redundant), prefixed
           attributes, empty-element tags, CDATA sections, character and entity references,
           multi-byte UTF-8 text. Variants: incl (inclusive canonicalization), excl
           (exclusive), incl-crlf (inclusive, CRLF line ends).
canonical  the same invoices as bench/BenchDocuments.h writes them: already in canonical form,
           which lets a canonicalizer copy the source through.

Every document is an enveloped RSA-SHA256 signature over the whole document, with the
signing certificate in KeyInfo (OUTDIR/cert.pem; the key is OUTDIR/key.pem).

How documents are signed. Up to --xmlsec1-max bytes, xmlsec1 signs the document as written
here; its output is re-serialized by libxml2 (CRLF, character references and the empty-tag
forms would be lost), so only its Signature element is taken and put back into the text as
written. Neither the Signature element (the enveloped transform cuts it out) nor the
serialization of SignedInfo (it is canonicalized) changes what was signed.

Larger documents (1 GB: xmlsec1 holds the whole tree and needs many times the document)
are signed without xmlsec1 but still independently of the verifier being measured. The
document is a head, N invoices differing only in numbers, and a tail. `xmllint --c14n` (or
`--exc-c14n`) canonicalizes a small sample with one invoice between marker texts; the
canonical head, invoice and tail are cut at the markers, and the digest is the SHA-256 of
canonical head + each canonical invoice (its numbers put in) + canonical tail. SignedInfo is
canonicalized by xmllint as a document of its own carrying the namespace declarations in
scope, and signed by `openssl dgst -sign`. The script computes this digest for every
document and stops if it differs from the one xmlsec1 wrote, so each run with xmlsec1
checks the method; `--xmlsec1-max 0` signs everything this way, for xmlsec1 to verify.

    bench/make_documents.py OUTDIR [--sizes 7K,1M,10M] [--xmlsec1-max 100M] [--check]

--check verifies every document of at most 100 MB with xmlsec1 afterwards.
"""
import argparse
import base64
import hashlib
import os
import re
import subprocess
import sys
import tempfile

DSIG = "http://www.w3.org/2000/09/xmldsig#"
C14N = "http://www.w3.org/TR/2001/REC-xml-c14n-20010315"
EXC_C14N = "http://www.w3.org/2001/10/xml-exc-c14n#"
UBL = "urn:oasis:names:specification:ubl:schema:xsd:"
CBC = UBL + "CommonBasicComponents-2"
CAC = UBL + "CommonAggregateComponents-2"
CHECK_MAX = 100 << 20
BEGIN, END = "@@invoice-begin@@", "@@invoice-end@@"

# ---- the realistic series ----

REALISTIC_ROOT_NS = {
    "bt": "urn:example:batch:2",
    "cbc": CBC,
    "cac": CAC,
    "xsi": "http://www.w3.org/2001/XMLSchema-instance",
}

REALISTIC_HEAD = (
    '<?xml version="1.0" encoding="UTF-8"?>\n'
    "<!-- Invoice batch exported by the accounting system -->\n"
    '<bt:InvoiceBatch xmlns:bt="urn:example:batch:2" version="2.1" xmlns:cbc="' + CBC + '"\n'
    '    xmlns:cac="' + CAC + '" created="2024-05-17T10:15:00+02:00"\n'
    '    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" bt:batchId="B-2024-0517">\n'
    '  <bt:Header xsi:type="bt:HeaderType" sender="DE123456789" receiver = \'FR98765432101\' />\n'
)

REALISTIC_INVOICE = (
    '  <Invoice xmlns="' + UBL + 'Invoice-2" status="open" bt:seq="@N@" Id="inv-@N@"\n'
    '      xmlns:ext="' + UBL + 'CommonExtensionComponents-2">\n'
    "    <ext:UBLExtensions/>\n"
    "    <cbc:ID>INV-@N@</cbc:ID>\n"
    "    <cbc:IssueDate>2024-05-17</cbc:IssueDate>\n"
    '    <cbc:Note xml:lang="de">Lieferung gemäß Rahmenvertrag &#8470; 7 &#x2014; bitte &quot;Zahlungsziel&quot; beachten</cbc:Note>\n'
    "    <cac:AccountingSupplierParty>\n"
    '      <cac:Party xmlns:addr="urn:example:address">\n'
    "        <cbc:Name>Müller &amp; Söhne GmbH</cbc:Name>\n"
    "        <addr:PostalAddress line=\"1\" addr:type='billing' country=\"DE\">\n"
    "          <addr:Street>Königstraße&#160;12</addr:Street>\n"
    "          <addr:City>Köln</addr:City>\n"
    "        </addr:PostalAddress>\n"
    '        <cac:PartyTaxScheme><cbc:CompanyID schemeID="VAT">DE123456789</cbc:CompanyID><cac:TaxScheme/></cac:PartyTaxScheme>\n'
    "      </cac:Party>\n"
    "    </cac:AccountingSupplierParty>\n"
    "    <cac:AccountingCustomerParty>\n"
    "      <cac:Party>\n"
    "        <cbc:Name>東京商事株式会社 (Tōkyō Shōji)</cbc:Name>\n"
    '        <cbc:Description><![CDATA[Terms: <net 30> & "2/10" discount]]></cbc:Description>\n'
    "      </cac:Party>\n"
    "    </cac:AccountingCustomerParty>\n"
    "    <cac:InvoiceLine>\n"
    "      <cbc:ID>1</cbc:ID>\n"
    '      <cbc:InvoicedQuantity unitCode="EA" >3</cbc:InvoicedQuantity>\n'
    '      <cbc:LineExtensionAmount currencyID="EUR">@AMOUNT@</cbc:LineExtensionAmount>\n'
    "      <cac:Item><cbc:Name>Widget &lt;large&gt; Ø 12&#x202F;mm</cbc:Name><cbc:Description/></cac:Item>\n"
    "    </cac:InvoiceLine>\n"
    '    <cac:InvoiceLine xmlns:cbc="' + CBC + '">\n'
    "      <cbc:ID>2</cbc:ID>\n"
    "      <cbc:LineExtensionAmount xsi:nil='false' currencyID='EUR'>12.50</cbc:LineExtensionAmount>\n"
    "      <cac:Item><cbc:Name>Ersatzteil &#8211; Dichtung &apos;Typ B&apos;</cbc:Name></cac:Item>\n"
    "    </cac:InvoiceLine>\n"
    '    <cac:LegalMonetaryTotal><cbc:PayableAmount currencyID="EUR">@TOTAL@</cbc:PayableAmount></cac:LegalMonetaryTotal>\n'
    "  </Invoice>\n"
)

REALISTIC_SIGNATURE = (
    '  <ds:Signature xmlns:ds="http://www.w3.org/2000/09/xmldsig#" Id="batch-signature">\n'
    "    <ds:SignedInfo>\n"
    '      <ds:CanonicalizationMethod Algorithm="@C14N@"/>\n'
    '      <ds:SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>\n'
    '      <ds:Reference URI="">\n'
    "        <ds:Transforms>\n"
    '          <ds:Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/>\n'
    '          <ds:Transform Algorithm="@C14N@"/>\n'
    "        </ds:Transforms>\n"
    '        <ds:DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/>\n'
    "        <ds:DigestValue>@DIGEST@</ds:DigestValue>\n"
    "      </ds:Reference>\n"
    "    </ds:SignedInfo>\n"
    "    <ds:SignatureValue>@SIGNATURE@</ds:SignatureValue>\n"
    "    <ds:KeyInfo>\n"
    "      <ds:X509Data>\n"
    "        <ds:X509Certificate>@CERT@</ds:X509Certificate>\n"
    "      </ds:X509Data>\n"
    "    </ds:KeyInfo>\n"
    "  </ds:Signature>\n"
)

# ---- the canonical-form series (the invoices of bench/BenchDocuments.h) ----

CANONICAL_HEAD = '<Invoices xmlns="urn:example:invoice" xmlns:cbc="urn:example:cbc">\n'

CANONICAL_INVOICE = (
    '  <Invoice Id="inv-@N@" issued="2024-05-17" status="open">\n'
    '    <cbc:Party role="seller"><cbc:Name>Smith &amp; Sons Ltd.</cbc:Name>'
    '<cbc:TaxId scheme="VAT">DE123456789</cbc:TaxId></cbc:Party>\n'
    '    <cbc:Line number="1" qty="3">Widget &lt;large&gt; no. @N@</cbc:Line>\n'
    '    <cbc:Line currency="EUR" number="2" qty="1">Spare part</cbc:Line>\n'
    "    <Note>Free text of the kind business documents carry in remarks fields, long enough "
    "to be typical.</Note>\n"
    "    <Empty></Empty>\n"
    "  </Invoice>\n"
)

CANONICAL_SIGNATURE = (
    '<Signature xmlns="http://www.w3.org/2000/09/xmldsig#"><SignedInfo>'
    '<CanonicalizationMethod Algorithm="' + EXC_C14N + '"></CanonicalizationMethod>'
    '<SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"></SignatureMethod>'
    '<Reference URI=""><Transforms>'
    '<Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"></Transform>'
    '<Transform Algorithm="@C14N@"></Transform></Transforms>'
    '<DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"></DigestMethod>'
    "<DigestValue>@DIGEST@</DigestValue></Reference></SignedInfo>"
    "<SignatureValue>@SIGNATURE@</SignatureValue>"
    "<KeyInfo><X509Data><X509Certificate>@CERT@</X509Certificate></X509Data></KeyInfo></Signature>"
)


class Style:
    """How one kind of document is written: head, repeated invoice, signature, tail."""

    def __init__(self, head, invoice, signature, tail, root_ns, signature_tag, signed_info_c14n, indent):
        self.head, self.invoice, self.signature, self.tail = head, invoice, signature, tail
        self.indent = indent  # the text before and after the Signature element
        self.root_ns = root_ns  # namespace declarations in scope at the Signature element
        self.signature_tag = signature_tag  # qualified name of the Signature element
        self.signed_info_c14n = signed_info_c14n  # None: the same as the reference's


REALISTIC = Style(REALISTIC_HEAD, REALISTIC_INVOICE, REALISTIC_SIGNATURE, "</bt:InvoiceBatch>\n",
                  REALISTIC_ROOT_NS, "ds:Signature", None, ("  ", "\n"))
CANONICAL = Style(CANONICAL_HEAD, CANONICAL_INVOICE, CANONICAL_SIGNATURE, "</Invoices>",
                  {"": "urn:example:invoice", "cbc": "urn:example:cbc"}, "Signature", EXC_C14N, ("", ""))

# name -> (style, reference canonicalization, CRLF line ends)
VARIANTS = {
    "realistic-incl": (REALISTIC, C14N, False),
    "realistic-excl": (REALISTIC, EXC_C14N, False),
    "realistic-incl-crlf": (REALISTIC, C14N, True),
    "canonical-incl": (CANONICAL, C14N, False),
}


def invoice_values(n):
    cents = 3750 + (n * 37) % 100000
    return {"@N@": str(n), "@AMOUNT@": "%d.%02d" % (cents // 100, cents % 100),
            "@TOTAL@": "%d.%02d" % ((cents + 1250) // 100, (cents + 1250) % 100)}


def fill(template, values):
    for key, value in values.items():
        template = template.replace(key, value)
    return template


def crlf(text, on):
    return text.replace("\n", "\r\n") if on else text


def run(cmd, data=None):
    result = subprocess.run(cmd, input=data, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if result.returncode != 0:
        sys.exit("make_documents: %s failed: %s" % (" ".join(cmd), result.stderr.decode(errors="replace")))
    return result.stdout


def xmllint_c14n(text, method):
    """The canonical form without comments (xmllint keeps them, so they go first)."""
    text = re.sub(r"<!--.*?-->", "", text, flags=re.S)
    option = "--exc-c14n" if method == EXC_C14N else "--c14n"
    with tempfile.NamedTemporaryFile("wb", suffix=".xml") as f:
        f.write(text.encode())
        f.flush()
        return run(["xmllint", option, f.name]).decode()


def canonical_pieces(style, method, use_crlf):
    """Canonical head, invoice template and tail of the document without its Signature."""
    # The text around the Signature element stays when the element is cut out.
    sample = crlf(style.head + BEGIN + style.invoice + END + "".join(style.indent) + style.tail, use_crlf)
    canonical = xmllint_c14n(sample, method)
    head, rest = canonical.split(BEGIN)
    invoice, tail = rest.split(END)
    return head, invoice, tail


def invoice_count(style, target):
    overhead = len((style.head + style.signature + style.tail).encode()) + 2600
    each = len(fill(style.invoice, invoice_values(10 ** 5)).encode())
    return max(1, (target - overhead) // each + 1)


def write_unsigned(path, style, method, use_crlf, count, pieces):
    """Writes the document with an unfilled signature; returns (signature offset, digest)."""
    c_head, c_invoice, c_tail = pieces
    sha = hashlib.sha256()
    sha.update(c_head.encode())
    with open(path, "wb") as out:
        out.write(crlf(style.head, use_crlf).encode())
        chunk, canonical = [], []
        for n in range(count):
            values = invoice_values(n)
            chunk.append(fill(style.invoice, values))
            canonical.append(fill(c_invoice, values))
            if len(chunk) == 512 or n == count - 1:
                out.write(crlf("".join(chunk), use_crlf).encode())
                sha.update("".join(canonical).encode())
                chunk, canonical = [], []
        out.write(style.indent[0].encode())
        offset = out.tell()
        out.write(crlf(fill(style.signature, {"@C14N@": method, "@DIGEST@": "", "@SIGNATURE@": "",
                                              "@CERT@": ""}).strip() + style.indent[1] + style.tail,
                       use_crlf).encode())
    sha.update(c_tail.encode())
    return offset, base64.b64encode(sha.digest()).decode()


def signature_element(text, style):
    starts = [m.start() for m in re.finditer("<" + style.signature_tag + r"[\s>]", text)]
    start = starts[-1] if starts else -1
    end_tag = "</" + style.signature_tag + ">"
    end = text.find(end_tag, start)
    if start < 0 or end < 0:
        sys.exit("make_documents: no %s element in xmlsec1's output" % style.signature_tag)
    return text[start:end + len(end_tag)]


def sign_with_xmlsec1(path, style, keys, signature_offset):
    with tempfile.NamedTemporaryFile(suffix=".xml", dir=os.path.dirname(path)) as signed:
        run(["xmlsec1", "--sign", "--privkey-pem", "%s,%s" % (keys["key"], keys["cert"]),
             "--output", signed.name, path])
        size = os.path.getsize(signed.name)
        with open(signed.name, "rb") as f:
            f.seek(max(0, size - (1 << 20)))
            tail = f.read().decode()
    # libxml2 may write the xmlsec1-filled signature starting a line earlier or later: what
    # counts is the element itself.
    return signature_element(tail, style)


def sign_by_pieces(style, method, digest, keys):
    signature = fill(style.signature, {"@C14N@": method, "@DIGEST@": digest, "@CERT@": keys["cert_b64"]})
    prefix = style.signature_tag.split(":")[0] + ":" if ":" in style.signature_tag else ""
    start = signature.find("<" + prefix + "SignedInfo>")
    end_tag = "</" + prefix + "SignedInfo>"
    end = signature.find(end_tag) + len(end_tag)
    signed_info = signature[start:end]
    si_method = style.signed_info_c14n or method
    # SignedInfo on its own, carrying what it has in scope: the namespaces it uses (exclusive)
    # or all declared on its ancestors (inclusive); the canonical form drops the others.
    scope = dict(style.root_ns)
    scope.update({prefix[:-1]: DSIG})
    declarations = "".join(' xmlns%s="%s"' % (":" + p if p else "", uri) for p, uri in sorted(scope.items()))
    standalone = signed_info.replace("<" + prefix + "SignedInfo>", "<" + prefix + "SignedInfo" + declarations + ">", 1)
    canonical = xmllint_c14n(standalone, si_method)
    value = base64.b64encode(run(["openssl", "dgst", "-sha256", "-sign", keys["key"]], canonical.encode())).decode()
    lines = "\n".join(value[i:i + 76] for i in range(0, len(value), 76))
    return fill(signature, {"@SIGNATURE@": lines}).strip()


def finish(path, offset, signature, style, use_crlf):
    """Puts the signed Signature element in place of the unfilled one."""
    with open(path, "r+b") as f:
        f.truncate(offset)
        f.seek(offset)
        f.write(crlf(signature + style.indent[1] + style.tail, use_crlf).encode())


def digest_in(signature):
    match = re.search(r"DigestValue>([^<]*)<", signature)
    return match.group(1).strip() if match else ""


def make_keys(outdir):
    keys = {"key": os.path.join(outdir, "key.pem"), "cert": os.path.join(outdir, "cert.pem")}
    if not os.path.exists(keys["cert"]):
        run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", keys["key"], "-out",
             keys["cert"], "-days", "3650", "-subj", "/CN=Benchmark Signer/O=Example Invoicing"])
    with open(keys["cert"]) as f:
        keys["cert_b64"] = "".join(line.strip() for line in f if not line.startswith("-----"))
    return keys


def parse_size(text):
    units = {"K": 1 << 10, "M": 1 << 20, "G": 1 << 30}
    text = text.strip().upper()
    return int(text[:-1]) * units[text[-1]] if text[-1] in units else int(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("outdir")
    parser.add_argument("--sizes", default="7K,1M,10M")
    parser.add_argument("--variants", default=",".join(VARIANTS))
    parser.add_argument("--xmlsec1-max", default="100M")
    parser.add_argument("--check", action="store_true")
    args = parser.parse_args()

    os.makedirs(args.outdir, exist_ok=True)
    keys = make_keys(args.outdir)
    xmlsec1_max = parse_size(args.xmlsec1_max)
    manifest = os.path.join(args.outdir, "docs.tsv")
    rows = {}
    if os.path.exists(manifest):
        with open(manifest) as f:
            rows = {line.split("\t")[0]: line for line in f.read().splitlines() if line}
    for size_text in args.sizes.split(","):
        target = parse_size(size_text)
        for variant in args.variants.split(","):
            style, method, use_crlf = VARIANTS[variant]
            name = "%s-%s" % (variant, size_text.upper())
            path = os.path.join(args.outdir, name + ".xml")
            pieces = canonical_pieces(style, method, use_crlf)
            count = invoice_count(style, target)
            offset, digest = write_unsigned(path, style, method, use_crlf, count, pieces)
            signer = "xmlsec1" if target <= xmlsec1_max else "pieces"
            if signer == "xmlsec1":
                signature = sign_with_xmlsec1(path, style, keys, offset)
                if digest_in(signature) != digest:
                    sys.exit("make_documents: %s: xmlsec1 wrote digest %s, the canonical pieces give %s"
                             % (name, digest_in(signature), digest))
            else:
                signature = sign_by_pieces(style, method, digest, keys)
            finish(path, offset, signature, style, use_crlf)
            checked = args.check and target <= CHECK_MAX
            if checked:
                run(["xmlsec1", "--verify", "--trusted-pem", keys["cert"], path])
            rows[name] = "\t".join([name, variant, str(os.path.getsize(path)), signer, os.path.basename(path)])
            print("%-28s %12d bytes  %6d invoices  signed by %s%s" % (
                name, os.path.getsize(path), count, signer, ", verified by xmlsec1" if checked else ""),
                flush=True)
    with open(manifest, "w") as f:
        f.write("\n".join(sorted(rows.values(), key=lambda r: (int(r.split("\t")[2]), r))) + "\n")


if __name__ == "__main__":
    main()
