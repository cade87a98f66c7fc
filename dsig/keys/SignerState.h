// What the caller requires of the signer (pinned keys, trust anchors, validation time)
// and what the last verification found out about it: the key that verified, where it
// came from, its certificate, and the chain check.
#pragma once

#include <string>
#include <vector>

#include "crypto/ClsPublicKey.h"
#include "crypto/TrustStore.h"
#include "support/DataBuffer.h"
#include "support/RefCountedObject.h"

struct SignerPolicy {
  std::vector<RcPtr<ClsPublicKey>> pinned;  // when any: only these keys may verify
  TrustStore trust;                         // when it has anchors: the signer must chain to one
  bool hasValidationTime = false;
  long long validationTime = 0;  // seconds since 1970, UTC
};

struct SignerResult {
  RcPtr<ClsPublicKey> key;  // the key that verified; null for an HMAC secret or before a success
  std::string source;       // KeyValue, X509Certificate, X509IssuerSerial, X509SubjectName, X509SKI,
                            // SecurityToken, CallerKey, PinnedKey, HmacKey; "" when none verified
  DataBuffer certDer;       // the signer's certificate; empty when there is none

  // Chain trust (only when anchors were given).
  bool trustChecked = false;
  bool trusted = false;
  std::vector<std::string> chain;    // subjects, the signer's first
  std::string validationTime;        // ISO 8601 UTC
  std::string validationTimeSource;  // caller, timestamp or now
  std::string trustError;

  // Why the first key the signature offered was refused by the key checks ("" when none was).
  std::string refusedKey;
  // Candidate keys left out because they are not pinned, in the last verification.
  int unpinnedCandidates = 0;
  // The signature time-stamp, checked whenever the signature carries one: whether it
  // verified (its token's signature, over this signature value), why not, its genTime
  // (seconds since 1970, or -1) and the token's certificates (DER, its signer's first).
  bool timeStampChecked = false;
  bool timeStampVerified = false;
  std::string timeStampError;
  long long timeStampTime = -1;
  std::vector<std::string> timeStampCerts;

  void clear() { *this = SignerResult(); }
};
