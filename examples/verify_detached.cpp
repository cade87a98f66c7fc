// Verifies a signature whose references point at data outside the document (a detached
// signature, or a container whose parts are separate files).
//
//   verify_detached SIGNATURE.xml [--dir DIR]... [INDEX=FILE]... [INDEX=-]
//
// The data of each external reference comes from, in this order of preference:
//  - INDEX=FILE: that file, for the reference with that index (SetRefDataFile);
//  - INDEX=-: the bytes of standard input, already in memory (SetRefDataBd), as data
//    taken from a database or a message would be;
//  - --dir DIR: a file named as the reference's URI in one of the directories
//    (ExternalRefDirs, searched in order).
// It prints every reference (URI, same-document or external, digest result and
// RefFailReason), then the verdict on the whole signature.
// Exit status: 0 valid, 1 invalid, 2 a file could not be read or an argument is wrong.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: verify_detached SIGNATURE.xml [--dir DIR]... [INDEX=FILE]... [INDEX=-]\n");
    return 2;
  }
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  if (!dsig || !bytes) return 2;
  if (!bytes->LoadFile(argv[1]) || !dsig->LoadSignatureBd(*bytes) || dsig->get_NumSignatures() == 0) {
    std::fprintf(stderr, "%s: cannot be read, or has no signature\n", argv[1]);
    return 2;
  }

  // External data belongs to the selected signature: select first (here the first one).
  dsig->put_Selector(0);
  std::string dirs;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--dir" && i + 1 < argc) {
      dirs += std::string(argv[++i]) + ";";
      continue;
    }
    const size_t eq = arg.find('=');
    if (eq == std::string::npos || eq == 0) {
      std::fprintf(stderr, "expected --dir DIR or INDEX=FILE, not '%s'\n", arg.c_str());
      return 2;
    }
    const int index = std::atoi(arg.substr(0, eq).c_str());
    const std::string file = arg.substr(eq + 1);
    if (file == "-") {
      const std::string input((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
      RcPtr<ClsBinData> data(ClsBinData::createNewCls());
      if (!data || !data->AppendBinary(input.data(), input.size()) || !dsig->SetRefDataBd(index, *data)) return 2;
    } else {
      XString filePath(file.c_str());
      if (!dsig->SetRefDataFile(index, filePath)) return 2;
    }
  }
  dsig->put_ExternalRefDirs(XString(dirs.c_str()));

  for (int i = 0; i < dsig->get_NumReferences(); ++i) {
    XString uri;
    dsig->ReferenceUri(i, uri);
    const bool external = dsig->IsReferenceExternal(i);
    const bool intact = dsig->VerifyReferenceDigest(i);
    std::printf("reference %d: URI \"%s\" (%s): %s", i, uri.getUtf8(), external ? "external" : "same document",
                intact ? "digest matches" : "FAILED");
    if (!intact) std::printf(", RefFailReason %d", dsig->get_RefFailReason());
    std::printf("\n");
  }

  if (dsig->VerifySignature(true)) {
    std::printf("%s: valid\n", argv[1]);
    return 0;
  }
  std::printf("%s: INVALID (%s)\n", argv[1], dsig->lastErrorLine().c_str());
  return 1;
}
