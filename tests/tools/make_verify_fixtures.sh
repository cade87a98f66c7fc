#!/usr/bin/env bash
# Keys and signed documents for the verification tests, made by independent software
# (xmlsec1 signs the templates, openssl makes the keys and the re-signed variants) in DIR:
#   rsa.pem cert.pem rsa-pub.pem    the RSA 2048 signing key, its certificate, its public key
#   small-cert.pem                  a certificate of an RSA 1024 key (another modulus size)
#   other-cert.pem                  a certificate of another RSA 2048 key (same size, wrong key)
#   hmac.key                        the HMAC secret "secret"
#   two-refs.xml     enveloping, Id "sig-two", references #obj-a and #obj-b, certificate in KeyInfo
#   external.xml     Id "sig-ext", references payload.txt (external, beside it) and #obj
#   two-no-id.xml    two enveloping signatures without Id in one document, no KeyInfo
#   pkcs1.xml        enveloped, inclusive c14n, rsa-sha256, no KeyInfo
#   pss.xml          as pkcs1.xml with sha256-rsa-MGF1, re-signed with PSS by openssl
#   pss-as-pkcs1.xml     SignatureMethod rsa-sha256 but a PSS signature value
#   pkcs1-as-pss.xml     SignatureMethod sha256-rsa-MGF1 but a PKCS#1 v1.5 signature value
#   pss-params.xml   as pkcs1.xml with rsa-pss and RSAPSSParams (SHA-256, MGF1 with SHA-1,
#                    salt 20, trailer 1), re-signed with those parameters
#   pss-params-other-salt.xml, pss-params-other-mgf.xml   the same SignedInfo signed with
#                    salt 32, or with MGF1-SHA-256: values that do not match the parameters
#   pss-params-trailer2.xml  RSAPSSParams with TrailerField 2, signed as pss-params.xml
#   keyname.xml      enveloped, KeyInfo holding only KeyName "invoice-key"
#   unknown-c14n.xml as pkcs1.xml with an unknown CanonicalizationMethod, re-signed (inclusive)
#   hmac.xml         enveloped, hmac-sha256 with the secret
#   hmac-truncated.xml   as hmac.xml with HMACOutputLength 128
#   invoice.xml      enveloped (whole document, enveloped + exclusive c14n), Signature Id "sig-1"
#   id-ref.xml       enveloped signature over the element with Id "d1" (exclusive c14n)
#   id-ref-incl.xml  as id-ref.xml with inclusive c14n, the signed element's text a QName
#   swift.xml, cma.xml, doda.xml   family documents (below), enveloped, Signature Id "sig-1"
# The variants are re-signed over the canonical SignedInfo written out here; the script
# first checks that text against xmlsec1's own PKCS#1 v1.5 signature (which is deterministic),
# so a variant is exactly what a signer would have produced.
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"

DS=http://www.w3.org/2000/09/xmldsig#
C14N=http://www.w3.org/TR/2001/REC-xml-c14n-20010315
EXC=http://www.w3.org/2001/10/xml-exc-c14n#
RSA256=http://www.w3.org/2001/04/xmldsig-more#rsa-sha256
PSS256=http://www.w3.org/2007/05/xmldsig-more#sha256-rsa-MGF1
SHA256=http://www.w3.org/2001/04/xmlenc#sha256
ENVELOPED=http://www.w3.org/2000/09/xmldsig#enveloped-signature
HMAC256=http://www.w3.org/2001/04/xmldsig-more#hmac-sha256

key_and_cert() {  # $1 = base name, $2 = bits
  openssl req -x509 -newkey "rsa:$2" -nodes -keyout "$1.pem" -out "$1-cert.pem" -days 30 \
    -subj "/CN=xmldsig verify fixture $1" >/dev/null 2>&1
}
key_and_cert rsa 2048
mv rsa-cert.pem cert.pem
openssl pkey -in rsa.pem -pubout -out rsa-pub.pem 2>/dev/null
key_and_cert small 1024
key_and_cert other 2048
printf 'secret' > hmac.key

sign() {  # $1 = output, $2 = template file, then extra xmlsec1 arguments
  local out=$1 tmpl=$2
  shift 2
  xmlsec1 --sign "$@" --output "$out.signed" "$tmpl" >/dev/null 2>&1
  # Drop the XML declaration xmlsec1 adds, so documents can be nested.
  sed '1{/^<?xml/d}' "$out.signed" > "$out"
  rm -f "$out.signed" "$tmpl"
}

# ---- two references, the second of which a test tampers ----
cat > two-refs.tmpl <<XML
<ds:Signature xmlns:ds="$DS" Id="sig-two"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI="#obj-a"><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference><ds:Reference URI="#obj-b"><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><ds:X509Data><ds:X509Certificate/></ds:X509Data></ds:KeyInfo><ds:Object Id="obj-a"><Item>alpha</Item></ds:Object><ds:Object Id="obj-b"><Item>beta</Item></ds:Object></ds:Signature>
XML
sign two-refs.xml two-refs.tmpl --privkey-pem rsa.pem,cert.pem --id-attr:Id "$DS:Object"

# ---- an external reference (payload.txt, resolved beside the template) ----
printf 'detached payload\n' > payload.txt
cat > external.tmpl <<XML
<ds:Signature xmlns:ds="$DS" Id="sig-ext"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI="payload.txt"><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference><ds:Reference URI="#obj"><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><ds:X509Data><ds:X509Certificate/></ds:X509Data></ds:KeyInfo><ds:Object Id="obj"><Item>inline</Item></ds:Object></ds:Signature>
XML
sign external.xml external.tmpl --privkey-pem rsa.pem,cert.pem --id-attr:Id "$DS:Object"

# ---- two signatures without Id, each enveloping its own object ----
for n in 1 2; do
  cat > no-id-$n.tmpl <<XML
<ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$C14N"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI="#part-$n"><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:Object Id="part-$n"><Part>number $n</Part></ds:Object></ds:Signature>
XML
  sign no-id-$n.xml no-id-$n.tmpl --privkey-pem rsa.pem --id-attr:Id "$DS:Object"
done
{ printf '<Bundle>'; cat no-id-1.xml no-id-2.xml; printf '</Bundle>\n'; } > two-no-id.xml
rm -f no-id-1.xml no-id-2.xml

# ---- enveloped RSA with a SignedInfo whose canonical form is written out below ----
# $1 = CanonicalizationMethod, $2 = SignatureMethod, $3 = DigestValue
signed_info() {
  printf '<SignedInfo><CanonicalizationMethod Algorithm="%s"></CanonicalizationMethod><SignatureMethod Algorithm="%s"></SignatureMethod><Reference URI=""><Transforms><Transform Algorithm="%s"></Transform></Transforms><DigestMethod Algorithm="%s"></DigestMethod><DigestValue>%s</DigestValue></Reference></SignedInfo>' \
    "$1" "$2" "$ENVELOPED" "$SHA256" "$3"
}
document() {  # $1 = SignedInfo, $2 = SignatureValue
  printf '<Doc><Item>one</Item><Item>two</Item><Signature xmlns="%s">%s<SignatureValue>%s</SignatureValue></Signature></Doc>\n' \
    "$DS" "$1" "$2"
}
canonical() {  # inclusive canonical form of the SignedInfo in place: the default namespace is inherited
  printf '%s' "$1" | sed "s|^<SignedInfo>|<SignedInfo xmlns=\"$DS\">|"
}
openssl_sign() {  # $1 = canonical text, then openssl dgst options; prints base64
  local input
  input=$(mktemp)
  printf '%s' "$1" > "$input"
  shift
  openssl dgst -sha256 -sign rsa.pem "$@" "$input" | base64 -w0
  rm -f "$input"
}
pss_opts=(-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 -sigopt rsa_mgf1_md:sha256)

document "$(signed_info "$C14N" "$RSA256" "")" "" > pkcs1.tmpl
sign pkcs1.xml pkcs1.tmpl --privkey-pem rsa.pem
digest=$(sed -n 's|.*<DigestValue>\([^<]*\)</DigestValue>.*|\1|p' pkcs1.xml)
xmlsec_value=$(tr -d '\n' < pkcs1.xml | sed -n 's|.*<SignatureValue>\([^<]*\)</SignatureValue>.*|\1|p')
base=$(signed_info "$C14N" "$RSA256" "$digest")
if [ "$(openssl_sign "$(canonical "$base")")" != "$xmlsec_value" ]; then
  echo "the written-out canonical SignedInfo is not what xmlsec1 signed" >&2
  exit 1
fi

variant() {  # $1 = file, $2 = SignedInfo, then openssl dgst options
  local file=$1 si=$2
  shift 2
  document "$si" "$(openssl_sign "$(canonical "$si")" "$@")" > "$file"
}
pss_si=$(signed_info "$C14N" "$PSS256" "$digest")
variant pss.xml "$pss_si" "${pss_opts[@]}"
variant pss-as-pkcs1.xml "$base" "${pss_opts[@]}"
variant pkcs1-as-pss.xml "$pss_si"
MORE07=http://www.w3.org/2007/05/xmldsig-more#
pss_params() {  # $1 = SaltLength, $2 = TrailerField
  printf '<pss:RSAPSSParams xmlns:pss="%s"><DigestMethod Algorithm="%s"></DigestMethod><pss:MaskGenerationFunction Algorithm="%sMGF1"><DigestMethod Algorithm="%s"></DigestMethod></pss:MaskGenerationFunction><pss:SaltLength>%s</pss:SaltLength><pss:TrailerField>%s</pss:TrailerField></pss:RSAPSSParams>' \
    "$MORE07" "$SHA256" "$MORE07" "${DS}sha1" "$1" "$2"
}
with_params() {  # $1 = SaltLength, $2 = TrailerField: the rsa-pss SignedInfo with those parameters
  local si
  si=$(signed_info "$C14N" "${MORE07}rsa-pss" "$digest")
  printf '%s' "${si/<\/SignatureMethod>/$(pss_params "$1" "$2")<\/SignatureMethod>}"
}
salt20_mgf1=(-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:20 -sigopt rsa_mgf1_md:sha1)
variant pss-params.xml "$(with_params 20 1)" "${salt20_mgf1[@]}"
variant pss-params-other-salt.xml "$(with_params 20 1)" -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 \
  -sigopt rsa_mgf1_md:sha1
variant pss-params-other-mgf.xml "$(with_params 20 1)" -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:20 \
  -sigopt rsa_mgf1_md:sha256
variant pss-params-trailer2.xml "$(with_params 20 2)" "${salt20_mgf1[@]}"
variant unknown-c14n.xml "$(signed_info "urn:example:unknown-c14n" "$RSA256" "$digest")"

# ---- HMAC, full length and truncated ----
hmac_template() {  # $1 = content of SignatureMethod
  printf '<Doc><Item>mac</Item><ds:Signature xmlns:ds="%s"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="%s"/><ds:SignatureMethod Algorithm="%s">%s</ds:SignatureMethod><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="%s"/></ds:Transforms><ds:DigestMethod Algorithm="%s"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Doc>\n' \
    "$DS" "$EXC" "$HMAC256" "$1" "$ENVELOPED" "$SHA256"
}
hmac_template '' > hmac.tmpl
sign hmac.xml hmac.tmpl --hmackey hmac.key
hmac_template '<ds:HMACOutputLength>128</ds:HMACOutputLength>' > hmac-truncated.tmpl
sign hmac-truncated.xml hmac-truncated.tmpl --hmackey hmac.key

# ---- the documents the structural attacks start from ----
cat > invoice.tmpl <<XML
<Invoice><ID>INV-1</ID><PayableAmount>100.00</PayableAmount><ds:Signature xmlns:ds="$DS" Id="sig-1"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/><ds:Transform Algorithm="$EXC"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Invoice>
XML
sign invoice.xml invoice.tmpl --privkey-pem rsa.pem
cat > id-ref.tmpl <<XML
<Doc><Data Id="d1"><Amount>100.00</Amount></Data><ds:Signature xmlns:ds="$DS" Id="sig-1"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI="#d1"><ds:Transforms><ds:Transform Algorithm="$EXC"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Doc>
XML
sign id-ref.xml id-ref.tmpl --privkey-pem rsa.pem --id-attr:Id Data
cat > id-ref-incl.tmpl <<XML
<Doc xmlns:t="urn:types"><Data Id="d1"><Amount>100.00</Amount><Kind>t:Gross</Kind></Data><ds:Signature xmlns:ds="$DS" Id="sig-1"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$C14N"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI="#d1"><ds:Transforms><ds:Transform Algorithm="$C14N"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Doc>
XML
sign id-ref-incl.xml id-ref-incl.tmpl --privkey-pem rsa.pem --id-attr:Id Data
# ---- a KeyInfo that only names the key ----
cat > keyname.tmpl <<XML
<Invoice><ID>INV-2</ID><ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><ds:KeyName/></ds:KeyInfo></ds:Signature></Invoice>
XML
sign keyname.xml keyname.tmpl --privkey-pem:invoice-key rsa.pem

# ---- family documents: signed as their signers sign them, then put in the envelope the
# family adds after signing (the whole-document reference digests only the signed part) ----
family_template() {  # $1 = document element start tag, $2 = its content, $3 = its end tag
  printf '%s%s<ds:Signature xmlns:ds="%s" Id="sig-1"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="%s"/><ds:SignatureMethod Algorithm="%s"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="%s"/><ds:Transform Algorithm="%s"/></ds:Transforms><ds:DigestMethod Algorithm="%s"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature>%s\n' \
    "$1" "$2" "$DS" "$EXC" "$RSA256" "$ENVELOPED" "$EXC" "$SHA256" "$3"
}
#   swift.xml  SWIFT Alliance message whose signature is then wrapped in its LAU block
family_template '<DataPDU xmlns="urn:swift:saa:xsd:saa.2.0">' '<Header><Sender>BANKAAAA</Sender></Header><Body><Amount>100.00</Amount></Body>' '</DataPDU>' > swift.tmpl
sign swift.signed swift.tmpl --privkey-pem rsa.pem
sed 's|<ds:Signature |<LAU><ds:Signature |; s|</ds:Signature>|</ds:Signature></LAU>|' swift.signed > swift.xml
#   cma.xml    CMA STP Document, signed, then put in a message with a header
family_template '<Document xmlns="urn:cma:stp:xsd:stp.1.0">' '<Amount>100.00</Amount>' '</Document>' > cma.tmpl
sign cma.signed cma.tmpl --privkey-pem rsa.pem
{ printf '<Message xmlns="urn:cma:stp:xsd:stp.1.0"><Header><Ref>1</Ref></Header>'; tr -d '\n' < cma.signed; printf '</Message>\n'; } > cma.xml
#   doda.xml   Mexican SAT doda element, signed, then put in an envelope naming the SIAT service
family_template '<doda>' '<Amount>100.00</Amount>' '</doda>' > doda.tmpl
sign doda.signed doda.tmpl --privkey-pem rsa.pem
{ printf '<Envelope xmlns:sat="http://siat.sat.gob.mx/pedimento"><Header><Ref>1</Ref></Header>'; tr -d '\n' < doda.signed; printf '</Envelope>\n'; } > doda.xml
rm -f swift.signed cma.signed doda.signed

for f in keyname two-refs external two-no-id pkcs1 pss pss-as-pkcs1 pkcs1-as-pss unknown-c14n hmac hmac-truncated invoice id-ref id-ref-incl swift cma doda; do
  grep -q 'SignatureValue>[A-Za-z0-9+/]' "$f.xml" || { echo "$f.xml is not signed" >&2; exit 1; }
done
