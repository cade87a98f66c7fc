#include "cli/VerifierSetup.h"

#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace cli {

const OptionSpec kOptSelector{"selector", '\0', true,
                              false,      "N",  "Use the signature with this index (0 = the first, the default)."};
const OptionSpec kOptSignatureId{
    "signature-id", '\0', true, false, "ID", "Use the signature whose Id attribute is ID (instead of --selector)."};
const OptionSpec kOptRefData{"ref-data",
                             '\0',
                             true,
                             true,
                             "INDEX=FILE",
                             "Use FILE as the data of the external reference with this index; may be "
                             "repeated."};
const OptionSpec kOptExternalDir{"external-dir",
                                 '\0',
                                 true,
                                 true,
                                 "DIR",
                                 "Look for the files that external references name in DIR; may be repeated "
                                 "(searched in order)."};
const OptionSpec kOptIgnoreExternal{"ignore-external",
                                    '\0',
                                    false,
                                    false,
                                    "",
                                    "Do not count external references whose data is not available as "
                                    "failures."};
const OptionSpec kOptLimit{"limit",
                           '\0',
                           true,
                           true,
                           "NAME=N",
                           "Set a work limit of one verification: references (default 100000), transforms "
                           "(per reference, default 100) or canonical-bytes (default 33554432); may be repeated."};

const OptionSpec kOptKey{"key",
                         '\0',
                         true,
                         true,
                         "[NAME=]FILE",
                         "A public key or certificate (PEM or DER) to verify with, after the keys the "
                         "signature's KeyInfo yields. NAME=FILE: only for a signature whose KeyInfo has "
                         "KeyName NAME; may be repeated."};
const OptionSpec kOptHmacKey{"hmac-key", '\0', true, false, "TEXT", "The secret of an HMAC signature."};
const OptionSpec kOptHmacEncoding{
    "hmac-encoding", '\0', true, false, "ENC", "How --hmac-key is written: ascii (default), hex, base64, ..."};
const OptionSpec kOptCert{"cert",
                          '\0',
                          true,
                          true,
                          "FILE",
                          "A certificate (PEM or DER) for the store that KeyInfo references are looked up in; "
                          "may be repeated."};
const OptionSpec kOptCertDir{"cert-dir", '\0',  true,
                             true,       "DIR", "Every certificate file of DIR for the store; may be repeated."};

void configureVerifier(ClsXmlDSig& dsig, const VerifyRequest& req) {
  if (req.verbose) dsig.put_VerboseLogging(true);
  std::string options;
  for (const std::string& keyword : req.options) {
    if (!options.empty()) options += ",";
    options += keyword;
  }
  if (!options.empty()) dsig.put_UncommonOptions(XString(options.c_str()));
}

std::unique_ptr<ClsXmlDSig> loadVerifier(const VerifyRequest& req, const std::string& name, std::string bytes,
                                         std::string& error, std::string* logOut) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) {
    error = "out of memory";
    return nullptr;
  }
  configureVerifier(*dsig, req);
  std::string dirs;
  for (const std::string& dir : req.externalDirs) dirs += dir + ";";
  dsig->put_ExternalRefDirs(XString(dirs.c_str()));
  dsig->put_IgnoreExternalRefs(req.ignoreExternal);
  if (req.maxReferences > 0) dsig->put_MaxReferences(req.maxReferences);
  if (req.maxTransforms > 0) dsig->put_MaxTransforms(req.maxTransforms);
  if (req.maxCanonicalBytes > 0) dsig->put_MaxCanonicalBytes(req.maxCanonicalBytes);
  // The bytes move into the verifier, which keeps them as the document text: a large
  // document is held once.
  if (!dsig->loadSignatureOwned(bytes)) {
    // Loading fails only where the text is not XML the parser accepts; its message
    // says where (line and column).
    const std::string where = dsig->lastErrorLine();
    error = where.empty() ? "not well-formed XML" : "not well-formed XML: " + where;
    if (logOut && req.log) *logOut += logForStderr(*dsig, name);
    return nullptr;
  }
  return dsig;
}

bool selectSignature(ClsXmlDSig& dsig, const VerifyRequest& req, int index, std::string& error) {
  if (dsig.get_NumSignatures() == 0) {
    error = "no signature found";
    return false;
  }
  if (!req.signatureId.empty()) {
    if (!dsig.SelectSignatureById(XString(req.signatureId.c_str()))) {
      error = "no signature with Id '" + req.signatureId + "'";
      return false;
    }
    return true;
  }
  if (index >= dsig.get_NumSignatures()) {
    error = "no signature with index " + std::to_string(index) + " (the document has " +
            std::to_string(dsig.get_NumSignatures()) + ")";
    return false;
  }
  dsig.put_Selector(index);
  return true;
}

void applyRefData(ClsXmlDSig& dsig, const VerifyRequest& req) {
  for (const auto& entry : req.refData) {
    XString path(entry.second.c_str());
    dsig.SetRefDataFile(entry.first, path);
  }
}

bool supplyKeys(ClsXmlDSig& dsig, const VerifyRequest& req, std::string& error) {
  if (!req.keyFile.empty()) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !key->LoadFromFile(XString(req.keyFile.c_str()))) {
      error = "cannot load the key or certificate '" + req.keyFile + "'";
      return false;
    }
    dsig.SetPublicKey(*key);
  }
  for (const auto& [name, file] : req.namedKeys) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !key->LoadFromFile(XString(file.c_str()))) {
      error = "cannot load the key or certificate '" + file + "' named '" + name + "'";
      return false;
    }
    dsig.AddNamedPublicKey(XString(name.c_str()), *key);
  }
  if (req.hasHmacKey) {
    XString secret(req.hmacKey.c_str());
    XString encoding(req.hmacEncoding.c_str());
    if (!dsig.SetHmacKey(secret, encoding)) {
      error = "the HMAC key is not valid " + req.hmacEncoding + " text";
      return false;
    }
  }
  if (!req.certFiles.empty() || !req.certDirs.empty()) {
    RcPtr<ClsXmlCertVault> vault(ClsXmlCertVault::createNewCls());
    if (!vault) {
      error = "out of memory";
      return false;
    }
    for (const std::string& f : req.certFiles)
      if (!vault->AddCertFile(XString(f.c_str()))) {
        error = "cannot load the certificate '" + f + "'";
        return false;
      }
    for (const std::string& d : req.certDirs)
      if (!vault->AddCertDir(XString(d.c_str()))) {
        error = "cannot load certificates from '" + d + "'";
        return false;
      }
    dsig.UseCertVault(*vault);
  }
  return true;
}

std::string logForStderr(ClsXmlDSig& dsig, const std::string& name) {
  return "==> log of " + name + "\n" + dsig.lastErrorText() + "\n";
}

}  // namespace cli
