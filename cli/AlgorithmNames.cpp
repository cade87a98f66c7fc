#include "cli/AlgorithmNames.h"

#include <cctype>

#include "crypto/_btHash.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/transform/TransformAlgorithms.h"

namespace cli {

namespace {

constexpr const char* kUnsupported = "unsupported";

// "sha256" -> "SHA-256", "sha3-384" -> "SHA3-384", "ripemd160" -> "RIPEMD-160", "md5" -> "MD5".
std::string hashName(int hashId) {
  std::string name = _btHash::hashIdToName(hashId);
  for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const size_t digits = name.find_first_of("0123456789");
  const bool family = name.rfind("SHA", 0) == 0 || name.rfind("RIPEMD", 0) == 0;
  if (family && digits != std::string::npos && name.find('-') == std::string::npos && name != "SHA3")
    name.insert(digits, "-");
  return name;
}

const char* keyTypeName(dsig_algorithms::KeyType type, dsig_algorithms::RsaPadding padding) {
  using dsig_algorithms::KeyType;
  switch (type) {
    case KeyType::Rsa: return padding == dsig_algorithms::RsaPadding::Pss ? "RSA-PSS" : "RSA PKCS#1 v1.5";
    case KeyType::Dsa: return "DSA";
    case KeyType::Ecdsa: return "ECDSA";
    case KeyType::Hmac: return "HMAC";
    case KeyType::EdDsa: return "EdDSA";
  }
  return "";
}

const char* canonicalName(dsig_algorithms::CanonicalForm form) {
  using dsig_algorithms::CanonicalForm;
  switch (form) {
    case CanonicalForm::Inclusive10: return "Canonical XML 1.0";
    case CanonicalForm::Exclusive10: return "Exclusive Canonical XML 1.0";
    case CanonicalForm::Inclusive11: return "Canonical XML 1.1";
    case CanonicalForm::None: break;
  }
  return "";
}

}  // namespace

std::string signatureMethodName(const std::string& uri) {
  const dsig_algorithms::SignatureMethod* m = dsig_algorithms::findSignatureMethod(uri);
  if (!m) return kUnsupported;
  std::string name = keyTypeName(m->keyType, m->padding);
  if (m->hashId != 0) name += " with " + hashName(m->hashId);
  return name;
}

std::string digestMethodName(const std::string& uri) {
  const dsig_algorithms::DigestMethod* m = dsig_algorithms::findDigestMethod(uri);
  return m ? hashName(m->hashId) : kUnsupported;
}

std::string transformName(const std::string& uri) {
  using dsig_algorithms::StepKind;
  const dsig_algorithms::AlgorithmRow* row = dsig_algorithms::findAlgorithm(uri);
  if (!row) return kUnsupported;
  switch (row->kind) {
    case StepKind::Canonical:
      return std::string(canonicalName(row->form)) + (row->withComments ? " with comments" : "");
    case StepKind::EnvelopedSignature: return "enveloped signature";
    case StepKind::XPath: return "XPath filter";
    case StepKind::XPathFilter2: return "XPath Filter 2.0";
    case StepKind::Base64: return "base64 decoding";
    case StepKind::Unknown: break;
  }
  return kUnsupported;
}

}  // namespace cli
