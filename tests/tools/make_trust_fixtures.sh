#!/usr/bin/env bash
# A small PKI and documents signed with it, for the signer-trust tests, made in DIR by
# openssl (keys, certificates, CRL) and xmlsec1 (signatures):
#   root.pem inter.pem                 root CA and intermediate CA (issued by root)
#   leaf.pem leaf.key                  signer certificate (issued by inter), digitalSignature
#   expired.pem noku.pem revoked.pem   signers: validity 2020-01-01..2020-02-01; key usage
#                                      keyEncipherment only; revoked in inter.crl
#   other-root.pem                     an unrelated CA
#   anchors/                           root.pem, other-root.pem and a file that is no certificate
#   leaf-pub.pem leaf.der              the signer's public key; its certificate as DER
#   inter.crl                          the intermediate's CRL (revokes revoked.pem)
#   tsa.pem tsa.key                    a time-stamp authority (issued by root), valid from 2019
#   attacker.pem attacker-ec.pem attacker-pub.pem  the attacker's RSA certificate, EC key and RSA public key
#   trusted.xml expired.xml noku.xml revoked.xml   enveloped, KeyInfo holds the signer and inter
#   expired-ids.xml    expired.xml with Ids on Signature and SignatureValue (a time-stamp names them)
#   forged-ec.xml      altered content signed with the attacker's EC key; KeyInfo holds the
#                      genuine leaf certificate, then the attacker's ECKeyValue
#   forged-token.xml   altered content signed with the attacker's RSA key; KeyInfo references a
#                      token Id that does not exist, the document's only token is the attacker's
#   forged-dsa.xml     altered content; KeyInfo holds the leaf certificate and a DSA key with
#                      g = y = 1, under which the signature value r = s = 1 fits any data
set -euo pipefail
dir=$1
mkdir -p "$dir"
cd "$dir"

DS=http://www.w3.org/2000/09/xmldsig#
EXC=http://www.w3.org/2001/10/xml-exc-c14n#
RSA256=http://www.w3.org/2001/04/xmldsig-more#rsa-sha256
EC256=http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256
DSA256=http://www.w3.org/2009/xmldsig11#dsa-sha256
SHA256=http://www.w3.org/2001/04/xmlenc#sha256
ENVELOPED=http://www.w3.org/2000/09/xmldsig#enveloped-signature
WSSE=http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd
WSU=http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd
X509V3=http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-x509-token-profile-1.0#X509v3

cat > ca.cnf <<'CNF'
[ ca ]
default_ca = ca_section
[ ca_section ]
dir = .
database = $dir/index-$ENV::CA.txt
new_certs_dir = $dir/newcerts
serial = $dir/serial-$ENV::CA
default_md = sha256
policy = anything
copy_extensions = none
default_crl_days = 3650
unique_subject = no
[ anything ]
organizationName = optional
commonName = supplied
[ ext_ca ]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[ ext_signer ]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, nonRepudiation
[ ext_tsa ]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, nonRepudiation
extendedKeyUsage = critical, timeStamping
[ ext_noku ]
basicConstraints = CA:FALSE
keyUsage = critical, keyEncipherment
[ req ]
distinguished_name = dn
[ dn ]
CNF
mkdir -p newcerts
for ca in root inter other; do : > "index-$ca.txt"; echo 1000 > "serial-$ca"; done

newkey() { openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$1.key" 2>/dev/null; }
csr() { CA=root openssl req -new -key "$1.key" -subj "$2" -out "$1.csr" -config ca.cnf 2>/dev/null; }
issue() {  # name, issuing CA, extension section, then extra "openssl ca" arguments
  local name=$1 issuer=$2 ext=$3
  shift 3
  CA=$issuer openssl ca -batch -config ca.cnf -cert "$issuer.pem" -keyfile "$issuer.key" -in "$name.csr" \
    -out "$name.pem" -extensions "$ext" -notext "$@" >/dev/null 2>&1
}
selfsigned() {  # name, subject
  newkey "$1"
  csr "$1" "$2"
  CA=$1 openssl ca -batch -selfsign -config ca.cnf -keyfile "$1.key" -in "$1.csr" -out "$1.pem" \
    -extensions ext_ca -notext -startdate 20190101000000Z -enddate 20361231000000Z >/dev/null 2>&1
}

selfsigned root "/O=xmldsig tests/CN=Trust Fixture Root"
selfsigned other "/O=xmldsig tests/CN=Unrelated Root"
mv other.pem other-root.pem
newkey inter && csr inter "/O=xmldsig tests/CN=Trust Fixture Issuing CA" && issue inter root ext_ca -startdate 20190101000000Z -enddate 20361231000000Z
for n in leaf expired noku revoked; do newkey "$n"; csr "$n" "/O=xmldsig tests/CN=Signer $n"; done
issue leaf inter ext_signer -days 365
issue expired inter ext_signer -startdate 20200101000000Z -enddate 20200201000000Z
issue noku inter ext_noku -days 365
issue revoked inter ext_signer -days 365
newkey tsa && csr tsa "/O=xmldsig tests/CN=Trust Fixture TSA" && issue tsa root ext_tsa -startdate 20190101000000Z -enddate 20361231000000Z
CA=inter openssl ca -config ca.cnf -cert inter.pem -keyfile inter.key -revoke revoked.pem >/dev/null 2>&1
CA=inter openssl ca -config ca.cnf -cert inter.pem -keyfile inter.key -gencrl -out inter.crl >/dev/null 2>&1

openssl req -x509 -newkey rsa:2048 -nodes -keyout attacker.key -out attacker.pem -days 30 \
  -subj "/CN=Attacker" >/dev/null 2>&1
openssl pkey -in attacker.key -pubout -out attacker-pub.pem 2>/dev/null
openssl pkey -in leaf.key -pubout -out leaf-pub.pem 2>/dev/null
openssl x509 -in leaf.pem -outform DER -out leaf.der
mkdir -p anchors
cp root.pem other-root.pem anchors/
echo "not a certificate" > anchors/README
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out attacker-ec.key 2>/dev/null
openssl pkey -in attacker-ec.key -pubout -out attacker-ec.pem 2>/dev/null

certbody() { sed '/-----/d' "$1" | tr -d '\n'; }

sign() {  # output, template, then extra xmlsec1 arguments
  local out=$1 tmpl=$2
  shift 2
  xmlsec1 --sign "$@" --output "$out.signed" "$tmpl" >/dev/null 2>&1
  sed '1{/^<?xml/d}' "$out.signed" > "$out"
  rm -f "$out.signed" "$tmpl"
}

signed_by() {  # name: the document signed by name.key, KeyInfo holding name.pem and inter.pem
  cat > "$1.tmpl" <<XML
<Invoice><Amount>100</Amount><ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><ds:X509Data><ds:X509Certificate>$(certbody "$1.pem")</ds:X509Certificate><ds:X509Certificate>$(certbody inter.pem)</ds:X509Certificate></ds:X509Data></ds:KeyInfo></ds:Signature></Invoice>
XML
  sign "$2" "$1.tmpl" --privkey-pem "$1.key"
}
signed_by leaf trusted.xml
signed_by expired expired.xml
signed_by noku noku.xml
signed_by revoked revoked.xml
# Neither Id is signed: the enveloped signature is left out of what the reference digests.
sed -e 's|<ds:Signature xmlns|<ds:Signature Id="sig-expired" xmlns|' \
  -e 's|<ds:SignatureValue>|<ds:SignatureValue Id="sv-expired">|' expired.xml > expired-ids.xml
grep -q 'Id="sv-expired"' expired-ids.xml

# The attacker's EC signature, with the genuine certificate listed first.
cat > forged-ec.tmpl <<XML
<Invoice><Amount>999999</Amount><ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$EC256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Invoice>
XML
sign forged-ec.xml forged-ec.tmpl --privkey-pem attacker-ec.key
ECPOINT=$(openssl pkey -pubin -in attacker-ec.pem -outform DER 2>/dev/null | tail -c 65 | base64 -w0)
DSIG11=http://www.w3.org/2009/xmldsig11#
sed -i "s|</ds:SignatureValue>|</ds:SignatureValue><ds:KeyInfo><ds:X509Data><ds:X509Certificate>$(certbody leaf.pem)</ds:X509Certificate></ds:X509Data><ds:KeyValue><dsig11:ECKeyValue xmlns:dsig11=\"$DSIG11\"><dsig11:NamedCurve URI=\"urn:oid:1.2.840.10045.3.1.7\"/><dsig11:PublicKey>$ECPOINT</dsig11:PublicKey></dsig11:ECKeyValue></ds:KeyValue></ds:KeyInfo>|" forged-ec.xml

# A token reference to an Id nobody carries; the only token is the attacker's.
cat > forged-token.tmpl <<XML
<Envelope xmlns:wsse="$WSSE" xmlns:wsu="$WSU"><Header><wsse:BinarySecurityToken ValueType="$X509V3" wsu:Id="attacker-token">$(certbody attacker.pem)</wsse:BinarySecurityToken></Header><Body><Amount>999999</Amount></Body><ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><wsse:SecurityTokenReference><wsse:Reference URI="#genuine-token" ValueType="$X509V3"/></wsse:SecurityTokenReference></ds:KeyInfo></ds:Signature></Envelope>
XML
sign forged-token.xml forged-token.tmpl --privkey-pem attacker.key

# The degenerate DSA key: the reference digest is genuine (xmlsec1 computes it while signing
# with an RSA key), then the signature method, key and value are replaced.
cat > forged-dsa.tmpl <<XML
<Invoice><Amount>999999</Amount><ds:Signature xmlns:ds="$DS"><ds:SignedInfo><ds:CanonicalizationMethod Algorithm="$EXC"/><ds:SignatureMethod Algorithm="$RSA256"/><ds:Reference URI=""><ds:Transforms><ds:Transform Algorithm="$ENVELOPED"/></ds:Transforms><ds:DigestMethod Algorithm="$SHA256"/><ds:DigestValue/></ds:Reference></ds:SignedInfo><ds:SignatureValue/></ds:Signature></Invoice>
XML
sign forged-dsa.xml forged-dsa.tmpl --privkey-pem attacker.key
openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 -pkeyopt dsa_paramgen_q_bits:256 \
  -out dsa-params.pem 2>/dev/null
b64num() { echo "$1" | xxd -r -p | base64 -w0; }
dsaparam() {  # the hex of one DSA parameter (p or q) as the "openssl pkeyparam -text" listing writes it
  openssl pkeyparam -in dsa-params.pem -text -noout | awk -v k="$1:" '
    $1 == k {on = 1; next} on && /^[A-Za-z]/ {on = 0} on {gsub(/[ :]/, ""); printf "%s", $0}'
}
P=$(b64num "$(dsaparam P)")
Q=$(b64num "$(dsaparam Q)")
ONE=$(b64num 01)
SIGVAL=$(b64num "$(printf '%064x%064x' 1 1)")
tr -d '\n' < forged-dsa.xml > forged-dsa.oneline && mv forged-dsa.oneline forged-dsa.xml
sed -i -e "s|$RSA256|$DSA256|" \
  -e "s|<ds:SignatureValue>[^<]*</ds:SignatureValue>|<ds:SignatureValue>$SIGVAL</ds:SignatureValue><ds:KeyInfo><ds:X509Data><ds:X509Certificate>$(certbody leaf.pem)</ds:X509Certificate></ds:X509Data><ds:KeyValue><ds:DSAKeyValue><ds:P>$P</ds:P><ds:Q>$Q</ds:Q><ds:G>$ONE</ds:G><ds:Y>$ONE</ds:Y></ds:DSAKeyValue></ds:KeyValue></ds:KeyInfo>|" \
  forged-dsa.xml
grep -q "<ds:G>$ONE</ds:G>" forged-dsa.xml
for f in trusted expired expired-ids noku revoked forged-ec forged-token forged-dsa; do test -s "$f.xml"; done
test -s tsa.pem
