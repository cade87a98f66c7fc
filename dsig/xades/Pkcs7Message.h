// Pkcs7Message: a CMS SignedData (here: an RFC 3161 time-stamp token) and the time-stamp
// request that obtains one.
//
// What verifyOpaqueSignature trusts: it checks that the token's signature verifies with the
// signer certificate, which is taken from the certificates the token carries or, failing
// that, from the verifier's certificate store. It does not build or check a chain to a
// trusted root, nor revocation: whether the time-stamp authority is trusted is the
// caller's decision, as it is for the signer of the document.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/DataBuffer.h"

class ClsJsonObject;
class LogBase;
class SystemCerts;
class _clsCades;

class Pkcs7Message {
 public:
  Pkcs7Message();
  ~Pkcs7Message();
  Pkcs7Message(const Pkcs7Message&) = delete;
  Pkcs7Message& operator=(const Pkcs7Message&) = delete;

  // Parses DER as a CMS ContentInfo holding SignedData. The text argument is unused; mode
  // 2 means a time-stamp token is expected. isSigned tells whether it is a SignedData.
  bool loadPkcs7Der(const DataBuffer& der, const char* unused, int mode, bool& isSigned, SystemCerts* store,
                    LogBase& log);
  // Verifies the signature of the loaded SignedData and yields its encapsulated content.
  bool verifyOpaqueSignature(DataBuffer& content, _clsCades& cades, SystemCerts* store, LogBase& log);

  // What a loaded time-stamp token states, without verifying it: its time (ISO 8601 UTC)
  // and its authority (the TSA name of the token, else the subject of the certificate the
  // token's signer identifies among those it carries). False when the content is not a
  // time-stamp.
  bool describeTimeStamp(std::string& time, std::string& authority, LogBase& log) const;

  // The DER of the certificates the loaded message carries, the one its signer identifies
  // first. Empty when the message does not carry its signer's certificate.
  std::vector<std::string> certificatesSignerFirst() const;

  // Asks the time-stamp authority named in the options for a token over data. Options:
  //   "tsaUrl"        (required) the authority's URL
  //   "hashAlgorithm" "sha256" (default), "sha1", "sha384", "sha512"
  //   "requestTsaCert" whether the authority should include its certificate (default true)
  //   "tsaUsername", "tsaPassword"  HTTP basic authentication, when given
  // The HTTP object comes from cades (a default one is used when the caller set none).
  // token receives the DER of the token (a CMS ContentInfo).
  static bool getTimestampToken(ClsJsonObject& options, const DataBuffer& data, _clsCades& cades, DataBuffer& token,
                                LogBase& log);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
