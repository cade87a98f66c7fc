// References to data outside the document: the caller's data store (SetRefData...), the
// search of ExternalRefDirs, the streaming digest of a detached file, and the small URI
// queries (ReferenceUri, IsReferenceExternal).
#include <fstream>
#include <iterator>
#include <memory>
#include <new>

#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/ReferencePipeline.h"
#include "support/Charset.h"
#include "support/ClsBinData.h"
#include "support/ClsStringBuilder.h"
#include "support/ClsXml.h"
#include "support/FileSys.h"
#include "support/LogBase.h"

namespace {

// Reference indexes for which external data can be stored.
constexpr unsigned kMaxExternalRefIndex = 100;

}  // namespace

DSigRefExternalData* ClsXmlDSig::getExtRef(int index, bool create, LogBase& log) {
  LogContextExitor ctx(log, "getExtRef");
  log.LogDataLong("index", index);
  // Taken as unsigned, a negative index is also out of range.
  if (static_cast<unsigned>(index) > kMaxExternalRefIndex) return nullptr;

  // The per-signature holder is made on first use even by a lookup; it is empty and harmless.
  auto* sigData = static_cast<DSigExternalData*>(m_refExternalData.elementAt(m_selector));
  if (!sigData) {
    std::unique_ptr<DSigExternalData> fresh(new (std::nothrow) DSigExternalData);
    if (!fresh) return nullptr;
    sigData = fresh.get();
    m_refExternalData.setAt(m_selector, std::move(fresh));
  }

  auto* refData = static_cast<DSigRefExternalData*>(sigData->refs.elementAt(index));
  if (!refData && create) {
    std::unique_ptr<DSigRefExternalData> fresh(new (std::nothrow) DSigRefExternalData);
    if (!fresh) return nullptr;
    refData = fresh.get();
    sigData->refs.setAt(index, std::move(fresh));
  }
  return refData;
}

bool ClsXmlDSig::SetRefDataFile(int index, XString& path) {
  OperationFrame frame(*this, "SetRefDataFile", false);
  DSigRefExternalData* refData = getExtRef(index, true, m_log);
  if (!refData) return false;
  refData->filePath.copyFromX(path);
  refData->data.clear();
  logSuccessFailure(true);
  return true;
}

bool ClsXmlDSig::SetRefDataSb(int index, ClsStringBuilder& sb, XString& charset) {
  OperationFrame frame(*this, "SetRefDataSb", false);
  DSigRefExternalData* refData = getExtRef(index, true, m_log);
  if (!refData) return false;
  refData->filePath.clear();
  refData->data.clear();
  _btCharset cs;
  cs.setByName(charset.getUtf8());
  const bool ok = sb.getXString().getConverted(cs, refData->data);
  logSuccessFailure(ok);
  return ok;
}

bool ClsXmlDSig::SetRefDataBd(int index, ClsBinData& bd) {
  OperationFrame frame(*this, "SetRefDataBd", false);
  DSigRefExternalData* refData = getExtRef(index, true, m_log);
  if (!refData) return false;
  refData->filePath.clear();
  refData->data.clear();
  const bool ok = refData->data.append(bd.getDb());
  logSuccessFailure(ok);
  return ok;
}

bool ClsXmlDSig::getReferenceUri(int index, StringBuffer& out, LogBase& log) {
  out.clear();
  RcPtr<ClsXml> referenceXml(getReference(index, log));
  if (!referenceXml) return false;
  if (!referenceXml->getAttrValue("URI", out)) out.clear();
  return true;
}

bool ClsXmlDSig::ReferenceUri(int index, XString& out) {
  OperationFrame frame(*this, "ReferenceUri", false);
  return getReferenceUri(index, out.getUtf8Sb_rw(), m_log);
}

bool ClsXmlDSig::IsReferenceExternal(int index) {
  OperationFrame frame(*this, "IsReferenceExternal", false);
  RcPtr<ClsXml> referenceXml(getReference(index, m_log));
  if (!referenceXml) return false;
  StringBuffer uri;
  if (!referenceXml->getAttrValue("URI", uri)) uri.clear();
  // Not trimmed: " #x" counts as external here, as the caller wrote it.
  return !uri.isEmpty() && !uri.beginsWith("#");
}

namespace {

// Digest of an external reference's data: the bytes when given, else the file streamed in
// chunks so that detached files of any size verify in little memory. `reasonOnFailure`
// is set to 2 when the file opened but could not be read to its end.
bool hashExternalData(const DSigRefExternalData& refData, int hashAlg, DataBuffer& digest, int& reasonOnFailure,
                      LogBase& log) {
  if (!refData.data.isEmpty()) return _btHash::doHash(refData.data.getData2(), refData.data.getSize(), hashAlg, digest);

  _btFileDataSource source;
  if (!source.openDataSourceFile(refData.filePath.getUtf8(), log)) return false;
  if (!_btHash::hashDataSource(source, hashAlg, digest, log)) {
    log.LogError("Failed to hash the external file data.");
    reasonOnFailure = 2;
    return false;
  }
  return true;
}

// True when a relative file name has a ".." segment: looked up in a directory it would name
// a file outside it, so a document could make the verifier read any file of the machine.
bool climbsOut(std::string_view name) {
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('/', start);
    if (end == std::string_view::npos) end = name.size();
    if (name.substr(start, end - start) == "..") return true;
    start = end + 1;
  }
  return false;
}

// The bytes an external reference digested, for a caller that asked to keep them.
void keepExternalBytes(const DSigRefExternalData& refData, ReferenceResult& result) {
  if (!refData.data.isEmpty()) {
    result.digestedBytes.assign(reinterpret_cast<const char*>(refData.data.getData2()), refData.data.getSize());
    result.bytesKept = true;
    return;
  }
  std::ifstream in(refData.filePath.getUtf8(), std::ios::binary);
  if (!in) return;
  result.digestedBytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  result.bytesKept = true;
}

}  // namespace

bool ClsXmlDSig::verifyExternalReference(int index, const StringBuffer& uri, ReferencePipeline& pipe,
                                         bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log) {
  log.LogDataSb("externalUri", uri);
  const DSigReference& ref = pipe.ref;
  Coverage& coverage = pipe.result.coverage;
  coverage.kind = "external";
  coverage.externalUri = uri.getString();

  const DSigRefExternalData* refData = getExtRef(index, false, log);
  DSigRefExternalData foundFile;  // used only when the file is found in ExternalRefDirs
  if (!refData && dirs.getSize() > 0 && climbsOut(uri.view())) {
    log.LogError(
        "The reference's URI has a \"..\" segment: it is not looked up in ExternalRefDirs, whose files are "
        "the only ones a reference may name.");
  } else if (!refData && dirs.getSize() > 0) {
    log.LogDataSb("externalRefFileName", uri);
    // The URI is taken as a relative file name exactly as written: no percent-decoding
    // and no scheme handling.
    for (int i = 0; i < dirs.getSize(); ++i) {
      const StringBuffer* dir = dirs.sbAt(i);
      if (!dir) continue;
      log.LogDataSb("externalRefDir", *dir);
      StringBuffer path;
      _btFilePath::CombineDirAndFilepath(dir->getString(), uri.getString(), path);
      log.LogDataSb("pathToCheck", path);
      bool checkFailed = false;
      if (FileSys::fileExistsX(path.getString(), checkFailed, nullptr)) {
        log.LogDataSb("usingFile", path);
        foundFile.filePath.setFromSbUtf8(path);
        refData = &foundFile;
        break;
      }
    }
  }

  if (refData) {
    coverage.externalSource = refData->data.isEmpty() && !refData->filePath.isEmpty() ? "file" : "caller-data";
    if (coverage.externalSource == "file") coverage.externalFile = refData->filePath.getUtf8();
  }
  if (!refData) {
    log.LogError("No external data defined for this reference.");
    log.LogInfo(
        "Hint 1: Set the IgnoreExternalRefs property to verify without checking digests for external file references.");
    log.LogInfo(
        "Hint 2: Set the ExternalRefDirs property to specify a set of directories to look for the referenced file.");
    externalDataMissing = true;
    m_refFailReason = 2;
    return false;
  }

  DataBuffer digest;
  int reason = m_refFailReason;
  if (!hashExternalData(*refData, ref.getHashAlg(), digest, reason, log)) {
    m_refFailReason = reason;
    return false;
  }
  if (pipe.keepsBytes()) keepExternalBytes(*refData, pipe.result);

  // External data is compared once: none of the same-document fallbacks apply.
  StringBuffer computed;
  digest.encodeDB("base64", computed);
  log.LogDataSb("calculatedDigest", computed);
  pipe.result.calculatedDigest = computed.getString();
  log.LogDataSb("storedRefDigest", ref.digestValue);
  const bool match = computed.equals(ref.digestValue);
  m_refFailReason = match ? 0 : 1;
  return match;
}
