#!/usr/bin/env bash
# Makes the inputs of the API guide's example programs with independent tools: openssl
# makes a throw-away RSA key and certificate, xmlsec1 signs. Nothing here is committed;
# run it into any directory:
#   bash examples/make-api-inputs.sh DIR
# Writes into DIR:
#   signer-cert.pem              the signer's certificate (the private key is deleted)
#   other-cert.pem               a certificate of a key that signed nothing here
#   invoice-issuer-serial.xml    an enveloped signature whose KeyInfo names its certificate
#                                by issuer and serial number instead of carrying it
#   statement.txt                a plain file, and
#   statement-signature.xml      a detached signature over it (Reference URI="statement.txt")
#   invoice-for-timestamp.xml    an enveloped signature whose SignatureValue has an Id,
#                                ready for a signature time-stamp
set -euo pipefail

dir="${1:?usage: make-api-inputs.sh DIR}"
mkdir -p "$dir"
dir="$(cd "$dir" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

for tool in openssl xmlsec1; do
  command -v "$tool" >/dev/null || { echo "make-api-inputs: $tool is not installed" >&2; exit 2; }
done

openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
  -subj "/C=DE/O=Example Seller GmbH/CN=Example Document Signer" \
  -keyout "$work/key.pem" -out "$dir/signer-cert.pem" 2>/dev/null
openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
  -subj "/C=DE/O=Somebody Else/CN=Unrelated Signer" \
  -keyout "$work/other-key.pem" -out "$dir/other-cert.pem" 2>/dev/null

invoice_body='  <Number>2024-0043</Number>
  <Seller><Name>Example Seller GmbH</Name></Seller>
  <PayableAmount currency="EUR">250.00</PayableAmount>'

# $1 = attributes of ds:Signature, $2 = attributes of ds:SignatureValue, $3 = ds:X509Data content,
# $4 = Reference URI, $5 = Transforms element (or nothing)
signature() {
  cat <<XML
  <ds:Signature xmlns:ds="http://www.w3.org/2000/09/xmldsig#"$1>
    <ds:SignedInfo>
      <ds:CanonicalizationMethod Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>
      <ds:SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>
      <ds:Reference URI="$4">$5
        <ds:DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/>
        <ds:DigestValue/>
      </ds:Reference>
    </ds:SignedInfo>
    <ds:SignatureValue$2/>
    <ds:KeyInfo>
      <ds:X509Data>$3</ds:X509Data>
    </ds:KeyInfo>
  </ds:Signature>
XML
}
enveloped='
        <ds:Transforms>
          <ds:Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/>
          <ds:Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>
        </ds:Transforms>'

sign() {  # $1 = template, $2 = output
  (cd "$dir" && xmlsec1 --sign --privkey-pem "$work/key.pem,$dir/signer-cert.pem" --output "$2" "$1")
}

{
  printf '<?xml version="1.0" encoding="UTF-8"?>\n<Invoice xmlns="urn:example:invoice:1">\n%s\n' "$invoice_body"
  signature ' Id="invoice-signature"' '' '<ds:X509IssuerSerial/>' '' "$enveloped"
  printf '</Invoice>\n'
} > "$work/issuer-serial.tmpl"
sign "$work/issuer-serial.tmpl" "$dir/invoice-issuer-serial.xml"

printf 'Account statement 2024-03\nClosing balance: 1190.00 EUR\n' > "$dir/statement.txt"
{
  printf '<?xml version="1.0" encoding="UTF-8"?>\n'
  signature ' Id="statement-signature"' '' '<ds:X509Certificate/>' 'statement.txt' ''
} > "$work/detached.tmpl"
sign "$work/detached.tmpl" "$dir/statement-signature.xml"

{
  printf '<?xml version="1.0" encoding="UTF-8"?>\n<Invoice xmlns="urn:example:invoice:1">\n%s\n' "$invoice_body"
  signature ' Id="invoice-signature"' ' Id="invoice-signature-value"' '<ds:X509Certificate/>' '' "$enveloped"
  printf '</Invoice>\n'
} > "$work/timestamp.tmpl"
sign "$work/timestamp.tmpl" "$dir/invoice-for-timestamp.xml"

echo "make-api-inputs: wrote the example inputs to $dir"
