#include "cli/DocumentInfo.h"

#include <exception>
#include <memory>

#include "cli/VerifierSetup.h"
#include "crypto/CertSummary.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsStringArray.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace cli {

namespace {

std::string attr(ClsXml* node, const char* name) {
  StringBuffer v;
  if (node) node->getAttrValue(name, v);
  return v.getString();
}

ReferenceInfo describeReference(ClsXml* ref) {
  ReferenceInfo r;
  StringBuffer uri;
  r.uriPresent = ref->getAttrValue("URI", uri);
  r.uri = uri.getString();
  // Same-document references are empty or start with '#'; anything else names outside data.
  r.external = !r.uri.empty() && r.uri[0] != '#';
  RcPtr<ClsXml> digest(ref->getChildWithTagUtf8("*:DigestMethod"));
  r.digestMethod = attr(digest.get(), "Algorithm");
  RcPtr<ClsXml> transforms(ref->getChildWithTagUtf8("*:Transforms"));
  if (transforms) {
    LogNull quiet;
    const int n = transforms->numChildrenHavingTagUtf8("*:Transform", quiet);
    for (int i = 0; i < n; ++i) {
      RcPtr<ClsXml> t(transforms->getNthChildWithTagUtf8("*:Transform", i, quiet));
      r.transforms.push_back(attr(t.get(), "Algorithm"));
    }
  }
  return r;
}

std::vector<CertificateInfo> describeCertificates(ClsXmlDSig& d) {
  std::vector<CertificateInfo> out;
  LogNull quiet;
  RcPtr<ClsXml> keyInfo(d.getKeyInfo(quiet));
  RcPtr<ClsStringArray> texts(ClsStringArray::createNewCls());
  if (!keyInfo || !texts || !d.certsFromKeyInfo(keyInfo.get(), *texts, quiet)) return out;
  for (int i = 0; i < texts->get_Count(); ++i) {
    const std::string text = texts->getStringUtf8(i);
    DataBuffer der;
    certsummary::Summary s;
    if (!ContentCoding::decodeBase64ToDb(text.data(), text.size(), der) || !certsummary::summarize(der, s)) continue;
    out.push_back({s.subject, s.issuer, s.notBefore, s.notAfter});
  }
  return out;
}

SignatureInfo describeSignature(ClsXmlDSig& d, int index) {
  d.put_Selector(index);
  SignatureInfo s;
  s.index = index;
  LogNull quiet;
  StringBuffer a, b;
  if (d.selectedSignatureId(a, quiet)) s.id = a.getString();
  if (ClsXml* sig = d.selectedSignature()) {
    s.element = std::string(sig->tagView());
    RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
    s.hasSignedInfo = static_cast<bool>(signedInfo);
  }
  if (d.getCanonicalizationMethod(a, b, quiet)) {
    s.c14nMethod = a.getString();
    s.prefixList = b.getString();
  }
  if (d.getSignatureMethod(a, quiet)) s.signatureMethod = a.getString();
  const int refs = d.numReferences(d.selectedSignature(), quiet);
  for (int i = 0; i < refs; ++i) {
    RcPtr<ClsXml> ref(d.getReference(i, quiet));
    if (ref) s.references.push_back(describeReference(ref.get()));
  }
  s.certificates = describeCertificates(d);
  return s;
}

DocumentInfo inspectLoaded(const VerifyRequest& req, const std::string& name, std::string bytes) {
  DocumentInfo info;
  info.name = name;
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) {
    info.error = "out of memory";
    return info;
  }
  configureVerifier(*dsig, req);

  info.loaded = dsig->loadSignatureOwned(bytes);
  if (req.log) {
    info.log = logForStderr(*dsig, name);
    info.logJson = dsig->m_log.renderJson();
  }
  if (!info.loaded) {
    info.error = dsig->lastErrorLine();
    if (info.error.empty()) info.error = "not loaded";
    return info;
  }
  info.family = describeFamily(*dsig);
  info.warnings = familyOptionWarnings(info.family, req.options);
  const int count = dsig->get_NumSignatures();
  for (int i = 0; i < count; ++i) info.signatures.push_back(describeSignature(*dsig, i));
  return info;
}

}  // namespace

DocumentInfo inspectDocument(const VerifyRequest& req, const std::string& name, std::string bytes) {
  try {
    return inspectLoaded(req, name, std::move(bytes));
  } catch (const std::exception& e) {
    DocumentInfo failed;
    failed.name = name;
    failed.error = std::string("internal error: ") + e.what();
    return failed;
  }
}

}  // namespace cli
