#!/usr/bin/env bash
# Regenerates the bundled examples with independent tools: openssl makes a throw-away
# RSA key and a self-signed certificate, xmlsec1 signs a small invoice (enveloped
# signature, exclusive canonicalization, RSA-SHA256, the certificate in KeyInfo).
# Outputs, next to this script:
#   invoice-signed.xml    the signed invoice
#   invoice-tampered.xml  the same with one amount changed after signing
#   signer-cert.pem       the signer's certificate (the private key is not kept)
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

for tool in openssl xmlsec1; do
  command -v "$tool" >/dev/null || { echo "make-examples: $tool is not installed" >&2; exit 2; }
done

echo "make-examples: creating an RSA key and a self-signed certificate"
openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
  -subj "/C=DE/O=Example Seller GmbH/CN=Example Invoice Signer" \
  -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null

cat > "$work/template.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<Invoice xmlns="urn:example:invoice:1">
  <Number>2024-0042</Number>
  <IssueDate>2024-03-15</IssueDate>
  <Seller>
    <Name>Example Seller GmbH</Name>
    <VatId>DE123456789</VatId>
  </Seller>
  <Buyer>
    <Name>Sample Buyer S.A.</Name>
    <VatId>FR98765432101</VatId>
  </Buyer>
  <Line number="1">
    <Description>Consulting services, March</Description>
    <Quantity unit="HUR">10</Quantity>
    <Price currency="EUR">100.00</Price>
  </Line>
  <TaxTotal currency="EUR">190.00</TaxTotal>
  <PayableAmount currency="EUR">1190.00</PayableAmount>
  <ds:Signature xmlns:ds="http://www.w3.org/2000/09/xmldsig#" Id="invoice-signature">
    <ds:SignedInfo>
      <ds:CanonicalizationMethod Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>
      <ds:SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>
      <ds:Reference URI="">
        <ds:Transforms>
          <ds:Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/>
          <ds:Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>
        </ds:Transforms>
        <ds:DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/>
        <ds:DigestValue/>
      </ds:Reference>
    </ds:SignedInfo>
    <ds:SignatureValue/>
    <ds:KeyInfo>
      <ds:X509Data>
        <ds:X509Certificate/>
      </ds:X509Data>
    </ds:KeyInfo>
  </ds:Signature>
</Invoice>
XML

echo "make-examples: signing the invoice with xmlsec1"
xmlsec1 --sign --privkey-pem "$work/key.pem,$work/cert.pem" \
  --output "$here/invoice-signed.xml" "$work/template.xml"

echo "make-examples: changing the payable amount after signing"
sed 's|<PayableAmount currency="EUR">1190.00</PayableAmount>|<PayableAmount currency="EUR">9190.00</PayableAmount>|' \
  "$here/invoice-signed.xml" > "$here/invoice-tampered.xml"
cmp -s "$here/invoice-signed.xml" "$here/invoice-tampered.xml" && { echo "make-examples: tampering failed" >&2; exit 1; }

cp "$work/cert.pem" "$here/signer-cert.pem"

# xmlsec1 itself must accept the signed invoice and reject the tampered one.
xmlsec1 --verify --trusted-pem "$here/signer-cert.pem" "$here/invoice-signed.xml" 2>/dev/null \
  || { echo "make-examples: xmlsec1 rejects invoice-signed.xml" >&2; exit 1; }
if xmlsec1 --verify --trusted-pem "$here/signer-cert.pem" "$here/invoice-tampered.xml" 2>/dev/null; then
  echo "make-examples: xmlsec1 accepts invoice-tampered.xml" >&2; exit 1
fi
echo "make-examples: wrote invoice-signed.xml, invoice-tampered.xml, signer-cert.pem"
