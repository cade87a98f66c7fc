#include "cli/VerifierSetup.h"

#include <cstdlib>

#include "cli/CliSupport.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace cli {

const OptionSpec kOptSelector{"selector", '\0', true, false, "N",
                              "Use the signature with this index (0 = the first, the default)."};
const OptionSpec kOptSignatureId{"signature-id", '\0', true, false, "ID",
                                 "Use the signature whose Id attribute is ID (instead of --selector)."};
const OptionSpec kOptRefData{"ref-data", '\0', true, true, "INDEX=FILE",
                             "Use FILE as the data of the external reference with this index; may be "
                             "repeated."};
const OptionSpec kOptExternalDir{"external-dir", '\0', true, true, "DIR",
                                 "Look for the files that external references name in DIR; may be repeated "
                                 "(searched in order)."};
const OptionSpec kOptIgnoreExternal{"ignore-external", '\0', false, false, "",
                                    "Do not count external references whose data is not available as "
                                    "failures."};

bool parseRefData(const Args& args, std::map<int, std::string>& out, std::string& error) {
  for (const std::string& pair : args.values("ref-data")) {
    const size_t eq = pair.find('=');
    char* end = nullptr;
    const long index = eq == std::string::npos ? -1 : std::strtol(pair.c_str(), &end, 10);
    if (eq == std::string::npos || eq == 0 || end != pair.c_str() + eq || index < 0 || index > 100 ||
        eq + 1 == pair.size()) {
      error = "--ref-data expects INDEX=FILE with INDEX from 0 to 100, not '" + pair + "'";
      return false;
    }
    out[static_cast<int>(index)] = pair.substr(eq + 1);
  }
  return true;
}

bool parseSelector(const Args& args, int& selector, std::string& error) {
  selector = 0;
  if (!args.has("selector")) return true;
  const std::string text = args.value("selector");
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < 0) {
    error = "--selector expects a signature index (0 or more), not '" + text + "'";
    return false;
  }
  selector = static_cast<int>(v);
  return true;
}

std::unique_ptr<ClsXmlDSig> loadVerifier(const std::string& file, const Args& args, std::string& error,
                                         std::string* logOut) {
  std::string bytes;
  if (!readInput(file, bytes, error)) return nullptr;
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> data(ClsBinData::createNewCls());
  if (!dsig || !data || !data->AppendBinary(bytes.data(), bytes.size())) {
    error = "out of memory";
    return nullptr;
  }
  bytes = std::string();
  configureVerifier(*dsig, args);
  std::string dirs;
  for (const std::string& dir : args.values("external-dir")) dirs += dir + ";";
  dsig->put_ExternalRefDirs(XString(dirs.c_str()));
  dsig->put_IgnoreExternalRefs(args.has("ignore-external"));
  if (!dsig->LoadSignatureBd(*data)) {
    error = dsig->lastErrorLine();
    if (error.empty()) error = "not well-formed XML";
    if (logOut && args.has("log")) *logOut += logForStderr(*dsig, file);
    return nullptr;
  }
  return dsig;
}

bool selectSignature(ClsXmlDSig& dsig, const Args& args, int index, std::string& error) {
  if (dsig.get_NumSignatures() == 0) {
    error = "no signature found";
    return false;
  }
  if (args.has("signature-id")) {
    if (!dsig.SelectSignatureById(XString(args.value("signature-id").c_str()))) {
      error = "no signature with Id '" + args.value("signature-id") + "'";
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

void applyRefData(ClsXmlDSig& dsig, const std::map<int, std::string>& refData) {
  for (const auto& entry : refData) {
    XString path(entry.second.c_str());
    dsig.SetRefDataFile(entry.first, path);
  }
}

}  // namespace cli
