#include "dsig/RsaPssParams.h"

#include <cstdlib>
#include <string>

#include "dsig/AlgorithmTables.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"

namespace rsapss {
namespace {

constexpr std::string_view kRsaPssUri = "http://www.w3.org/2007/05/xmldsig-more#rsa-pss";
constexpr const char* kMgf1 = "http://www.w3.org/2007/05/xmldsig-more#MGF1";

// The digest a DigestMethod child of parent names: its hash identifier, 0 when absent,
// -1 when the URI is not a known digest method.
int digestOf(ClsXml& parent, LogBase& log) {
  RcPtr<ClsXml> digestMethod(parent.getChildWithTagUtf8("*:DigestMethod"));
  if (!digestMethod) return 0;
  StringBuffer uri;
  digestMethod->getAttrValue("Algorithm", uri);
  const dsig_algorithms::DigestMethod* row = dsig_algorithms::findDigestMethod(uri.view());
  if (row) return row->hashId;
  log.LogError("Unknown RSAPSSParams DigestMethod algorithm.");
  log.LogDataSb("algorithm", uri);
  return -1;
}

// A whole non-negative decimal number of at most 4 digits (salt lengths are bytes of a
// modulus); -1 otherwise.
int smallNumber(ClsXml& parent, const char* tag) {
  StringBuffer text;
  if (!parent.getChildContentUtf8(tag, text, false)) return -2;  // absent
  text.trim2();
  const std::string s(text.view());
  if (s.empty() || s.size() > 4 || s.find_first_not_of("0123456789") != std::string::npos) return -1;
  return std::atoi(s.c_str());
}

}  // namespace

bool readParams(ClsXml& signature, std::string_view methodUri, int rowHashId, Params& params, LogBase& log) {
  params = Params();
  params.hashId = params.mgfHashId = rowHashId;
  const bool digestFixedByUri = methodUri != kRsaPssUri;
  RcPtr<ClsXml> pss(signature.getChildWithTagUtf8("*:SignedInfo|*:SignatureMethod|*:RSAPSSParams"));
  if (!pss) return true;

  const int digest = digestOf(*pss, log);
  if (digest < 0) return false;
  if (digest > 0) {
    if (digestFixedByUri && digest != params.hashId) {
      log.LogError("RSAPSSParams names another digest than the signature method.");
      return false;
    }
    params.hashId = digest;
    params.mgfHashId = digest;  // the MGF follows the digest unless it names its own
  }

  RcPtr<ClsXml> mgf(pss->getChildWithTagUtf8("*:MaskGenerationFunction"));
  if (mgf) {
    StringBuffer mgfUri;
    mgf->getAttrValue("Algorithm", mgfUri);
    if (!mgfUri.isEmpty() && mgfUri.view() != kMgf1) {
      log.LogError("Unsupported RSA-PSS mask generation function.");
      log.LogDataSb("algorithm", mgfUri);
      return false;
    }
    const int mgfDigest = digestOf(*mgf, log);
    if (mgfDigest < 0) return false;
    if (mgfDigest > 0) params.mgfHashId = mgfDigest;
  }

  const int salt = smallNumber(*pss, "*:SaltLength");
  if (salt == -1) {
    log.LogError("Malformed RSAPSSParams SaltLength.");
    return false;
  }
  if (salt >= 0) params.saltLength = salt;
  const int trailer = smallNumber(*pss, "*:TrailerField");
  if (trailer != -2 && trailer != 1) {
    log.LogError("Unsupported RSAPSSParams TrailerField (only 1 is defined for RSA-PSS).");
    return false;
  }
  return true;
}

}  // namespace rsapss
