// What verifying one reference found, kept by the verifier per reference of the selected
// signature (the last result of each), and why the last signature verification failed.
// Callers read these as data instead of reading the log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// An element of the loaded document, as a user finds it: its qualified name and namespace
// as written, its Id, its absolute path with 1-based positions among same-named siblings
// (e.g. "/Invoice[1]/cac:InvoiceLine[3]"), and its byte span in the document text.
struct CoveredElement {
  std::string name;
  std::string ns;
  std::string id;
  std::string path;
  size_t start = 0;
  size_t end = 0;
};

// Part of the covered data that the transforms took out, and which step did.
struct RemovedPart {
  CoveredElement element;
  std::string by;  // enveloped-signature, xpath, xpath-filter2, family, comments
};

// What a reference covers: the whole document, one element of it, or external data.
struct Coverage {
  std::string kind = "none";  // document, element, external, none
  bool hasElement = false;    // element (the document element for kind document)
  CoveredElement element;
  uint32_t nodeIndex = 0;  // of element in the loaded tree, when hasElement
  std::vector<RemovedPart> removed;
  std::string externalUri;
  std::string externalSource = "none";  // caller-data, file, none
  std::string externalFile;
};

struct ReferenceResult {
  bool checked = false;  // false: the reference was not reached
  int index = 0;
  std::string uri;
  bool external = false;
  int refFailReason = 0;
  // The digest comparison failed but AllowXmlDigestError let the reference pass.
  bool mismatchWaived = false;
  bool externalDataMissing = false;
  std::string digestMethod;
  std::vector<std::string> transforms;
  std::string calculatedDigest;  // base64 of the last digest compared; empty when none
  std::string storedDigest;
  Coverage coverage;
  // Why a family cut or the document's structure refused the reference ("" when nothing did).
  std::string refusal;
  bool bytesKept = false;
  std::string digestedBytes;  // with KeepDigestedBytes: exactly what was hashed last

  // valid, digest-mismatch, external-data-missing, no-such-reference, ambiguous-id,
  // unsupported-algorithm, canonicalization-failed, limit-exceeded, not-checked, failed.
  std::string status() const;
  std::string toJson() const;
};

// The status word of a RefFailReason.
const char* referenceStatusOf(int refFailReason);

// Results of the last verification of the selected signature.
struct VerificationRecord {
  int selector = -1;  // the signature the results belong to
  std::vector<ReferenceResult> references;
  std::string failureCause;  // "" when the last VerifySignature passed
  std::string failureText;
  int failedReference = -1;
  bool keepDigestedBytes = false;
  bool signedInfoKept = false;
  std::string canonicalSignedInfo;

  void clear() {
    const bool keep = keepDigestedBytes;
    *this = VerificationRecord();
    keepDigestedBytes = keep;
  }
  void clearFailure() {
    failureCause.clear();
    failureText.clear();
    failedReference = -1;
  }
};
