// A tiny program built outside the source tree against the installed library.
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

#include "dsig/ClsXmlDSig.h"
#include "support/XString.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::ifstream in(argv[1], std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 2;
  XString xml(text.str().c_str());
  if (!dsig->LoadSignature(xml)) return 2;
  std::printf("signatures=%d\n", dsig->get_NumSignatures());
  return 0;
}
