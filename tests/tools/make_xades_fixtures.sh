#!/usr/bin/env bash
# Signs small documents of each XAdES shape with xmlsec1 (an independent signer) into DIR:
#   plain.xml        no XAdES properties and no Object
#   qualifying.xml   an Object with QualifyingProperties/SignedProperties, no unsigned properties
#   unsigned.xml     QualifyingProperties that already hold UnsignedSignatureProperties
#   declared.xml     no properties; the Signature element declares xmlns:xades
# Every SignatureValue carries an Id, which a signature time-stamp refers to.
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"
openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 30 \
  -subj "/CN=xmldsig xades fixture" >/dev/null 2>&1

signature() {  # $1 = Signature attributes, $2 = content after KeyInfo
  cat <<XML
<ds:Signature xmlns:ds="http://www.w3.org/2000/09/xmldsig#" $1><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/><ds:SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/><ds:Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/></ds:Transforms><ds:DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue Id="$3"/><ds:KeyInfo><ds:X509Data><ds:X509Certificate/></ds:X509Data></ds:KeyInfo>$2</ds:Signature>
XML
}

doc() {  # $1 = file, $2 = signature text
  printf '<Invoice xmlns="urn:example:invoice"><ID>INV-1</ID><Amount currency="EUR">10.00</Amount>%s</Invoice>\n' "$2" > "$1.tmpl"
  xmlsec1 --sign --privkey-pem key.pem,cert.pem --output "$1" "$1.tmpl" >/dev/null 2>&1
  rm -f "$1.tmpl"
}

qp_signed='<xades:SignedProperties Id="props-%s"><xades:SignedSignatureProperties><xades:SigningTime>2026-01-01T00:00:00Z</xades:SigningTime></xades:SignedSignatureProperties></xades:SignedProperties>'

doc plain.xml "$(signature 'Id="sig-plain"' '' 'sv-plain')"
doc qualifying.xml "$(signature 'Id="sig-q"' "<ds:Object><xades:QualifyingProperties xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\" Target=\"#sig-q\">$(printf "$qp_signed" q)</xades:QualifyingProperties></ds:Object>" 'sv-q')"
doc unsigned.xml "$(signature 'Id="sig-u"' "<ds:Object><xades:QualifyingProperties xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\" Target=\"#sig-u\">$(printf "$qp_signed" u)<xades:UnsignedProperties><xades:UnsignedSignatureProperties><xades:Note>kept</xades:Note></xades:UnsignedSignatureProperties></xades:UnsignedProperties></xades:QualifyingProperties></ds:Object>" 'sv-u')"
doc declared.xml "$(signature 'Id="sig-d" xmlns:xades="http://uri.etsi.org/01903/v1.3.2#"' '' 'sv-d')"
ls "$dir"/*.xml >/dev/null
