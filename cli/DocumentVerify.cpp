#include "cli/DocumentVerify.h"

#include <memory>

#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"
#include "support/LogBase.h"

namespace cli {

DocumentVerdict verifyDocument(const VerifyRequest& req, const std::string& name, std::string bytes) {
  DocumentVerdict res;
  res.name = name;
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(req, name, std::move(bytes), res.error, &res.log);
  if (!dsig) return res;
  res.numSignatures = dsig->get_NumSignatures();
  std::vector<int> indexes;
  if (req.all) {
    for (int i = 0; i < res.numSignatures; ++i) indexes.push_back(i);
  } else {
    indexes.push_back(req.selector);
  }
  if (indexes.empty()) {
    res.error = "no signature found";
    return res;
  }
  for (int index : indexes) {
    if (!selectSignature(*dsig, req, index, res.error)) return res;
    // Keys and external data belong to the selected signature: supply them after selecting.
    applyRefData(*dsig, req);
    if (!supplyKeys(*dsig, req, res.error)) return res;
    SignatureVerdict s;
    s.index = dsig->get_Selector();
    StringBuffer id;
    LogNull quiet;
    if (dsig->selectedSignatureId(id, quiet)) s.id = id.getString();
    s.valid = dsig->VerifySignature(!req.noReferences);
    s.refFailReason = dsig->get_RefFailReason();
    if (!s.valid) {
      s.reason = dsig->lastErrorLine();
      if (s.reason.empty()) s.reason = "the signature is not valid";
    }
    if (req.log) s.log = logForStderr(*dsig, name + "#" + std::to_string(s.index));
    res.signatures.push_back(std::move(s));
  }
  res.loaded = true;
  return res;
}

}  // namespace cli
