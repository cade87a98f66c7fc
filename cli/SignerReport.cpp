#include "cli/SignerReport.h"

#include "crypto/CertSummary.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsStringArray.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace cli {

const OptionSpec kOptSigner{"signer",
                            '\0',
                            true,
                            true,
                            "FILE",
                            "Pin the signer: only this key (a certificate or public key, PEM or DER) may have made "
                            "the signature; may be repeated. Any other key makes the signature invalid."};
const OptionSpec kOptTrust{"trust",
                           '\0',
                           true,
                           true,
                           "FILE|DIR",
                           "Trust anchors (certificates, PEM or DER; a directory of them): the signer's certificate "
                           "must chain to one. May be repeated."};
const OptionSpec kOptCrl{"crl",
                         '\0',
                         true,
                         true,
                         "FILE",
                         "A certificate revocation list (PEM or DER) for the chain check; may be repeated. Nothing "
                         "is fetched from the network."};
const OptionSpec kOptAt{"at",
                        '\0',
                        true,
                        false,
                        "TIME",
                        "Check the chain at this time (ISO 8601 UTC, e.g. 2025-03-01T12:00:00Z) instead of the "
                        "time of a verified signature time-stamp whose authority chains to an anchor too, or now."};

namespace {

std::string text(void (ClsXmlDSig::*get)(XString&), ClsXmlDSig& dsig) {
  XString out;
  (dsig.*get)(out);
  return out.getUtf8();
}

}  // namespace

bool applySignerPolicy(ClsXmlDSig& dsig, const VerifyRequest& req, std::string& error) {
  for (const std::string& file : req.signerFiles) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !key->LoadFromFile(XString(file.c_str())) || !dsig.AddPinnedSigner(*key)) {
      error = "cannot load the signer certificate or key '" + file + "'";
      return false;
    }
  }
  for (const std::string& path : req.trustPaths)
    if (!dsig.AddTrustAnchors(XString(path.c_str()))) {
      error = "cannot load trust anchors from '" + path + "'";
      return false;
    }
  for (const std::string& file : req.crlFiles)
    if (!dsig.AddCrlFile(XString(file.c_str()))) {
      error = "cannot load the CRL '" + file + "'";
      return false;
    }
  if (!req.validationTime.empty() && !dsig.SetValidationTime(XString(req.validationTime.c_str()))) {
    error = "--at expects an ISO 8601 UTC time such as 2025-03-01T12:00:00Z, not '" + req.validationTime + "'";
    return false;
  }
  return true;
}

SignerReport signerReport(ClsXmlDSig& dsig) {
  SignerReport s;
  s.source = text(&ClsXmlDSig::get_SignerSource, dsig);
  s.hasCert = dsig.get_HasSignerCert();
  if (s.hasCert) {
    s.subject = text(&ClsXmlDSig::get_SignerSubject, dsig);
    s.issuer = text(&ClsXmlDSig::get_SignerIssuer, dsig);
    s.serial = text(&ClsXmlDSig::get_SignerSerial, dsig);
    s.notBefore = text(&ClsXmlDSig::get_SignerNotBefore, dsig);
    s.notAfter = text(&ClsXmlDSig::get_SignerNotAfter, dsig);
    s.sha256 = text(&ClsXmlDSig::get_SignerSha256, dsig);
  }
  s.trustChecked = dsig.get_TrustChecked();
  s.trusted = dsig.get_Trusted();
  RcPtr<ClsStringArray> chain(ClsStringArray::createNewCls());
  if (chain && dsig.GetTrustChain(*chain))
    for (int i = 0; i < chain->get_Count(); ++i) s.chain.push_back(chain->getStringUtf8(i));
  s.validationTime = text(&ClsXmlDSig::get_ValidationTime, dsig);
  s.validationTimeSource = text(&ClsXmlDSig::get_ValidationTimeSource, dsig);
  s.trustError = text(&ClsXmlDSig::get_TrustError, dsig);
  return s;
}

nlohmann::ordered_json signerJson(const SignerReport& s) {
  nlohmann::ordered_json j;
  j["source"] = s.source;
  if (!s.hasCert) return j;
  j["subject"] = s.subject;
  j["issuer"] = s.issuer;
  j["serial"] = s.serial;
  j["notBefore"] = s.notBefore;
  j["notAfter"] = s.notAfter;
  j["sha256"] = s.sha256;
  return j;
}

nlohmann::ordered_json trustJson(const SignerReport& s) {
  nlohmann::ordered_json j;
  j["checked"] = s.trustChecked;
  j["trusted"] = s.trusted;
  j["chain"] = s.chain;
  j["validationTime"] = s.validationTime;
  j["validationTimeSource"] = s.validationTimeSource;
  j["error"] = s.trustError;
  return j;
}

}  // namespace cli
