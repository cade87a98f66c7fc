// xmldsig c14n: prints the canonical form of an XML document, or of the element a
// fragment identifier names, through the verifier's public canonicalization operations.
#include <memory>
#include <string>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/InputFile.h"
#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace cli {

namespace {

const OptionSpec kOptExclusive{"exclusive", '\0', false,
                               false,       "",   "Exclusive XML Canonicalization 1.0 instead of Canonical XML 1.0."};
const OptionSpec kOptWithComments{"with-comments", '\0', false, false, "", "Keep comments."};
const OptionSpec kOptFragment{"fragment",
                              '\0',
                              true,
                              false,
                              "ID",
                              "Canonicalize only the element identified by ID (an Id, ID or id attribute "
                              "with any prefix, or a DTD ID attribute), or an XPointer: \"xpointer(/)\", "
                              "\"xpointer(id('ID'))\"."};
const OptionSpec kOptPrefixes{"prefixes",
                              '\0',
                              true,
                              false,
                              "\"P1 P2\"",
                              "With --exclusive: the InclusiveNamespaces prefix list, separated by "
                              "spaces (\"#default\" for the default namespace)."};

}  // namespace

const CommandSpec& c14nSpec() {
  static const CommandSpec spec{
      "c14n",
      "print the canonical form of an XML document or of one element",
      "[--exclusive] [--with-comments] [--fragment ID] [--prefixes \"P1 P2\"] [--log] [-o FILE] FILE",
      "Prints the canonical form of FILE (\"-\" reads standard input): Canonical XML 1.0, or "
      "Exclusive XML Canonicalization 1.0 with --exclusive, without comments unless "
      "--with-comments is given. The bytes are read in the encoding their byte-order mark or "
      "XML declaration names; the output is UTF-8.\n\n"
      "With --fragment only the identified element is written, with the namespace context it "
      "inherits (and, for Canonical XML, the xml:* attributes of its ancestors). A bare ID is "
      "the form of a same-document reference \"#ID\" and yields the element without its "
      "comments; \"xpointer(id('ID'))\" keeps them when --with-comments is given.",
      {kOptExclusive, kOptWithComments, kOptFragment, kOptPrefixes, kOptLog, kOptOutput, kOptHelp},
      "0  the canonical form was written\n"
      "2  usage error, or FILE could not be read, is not well-formed, or has no such fragment"};
  return spec;
}

int runC14n(const Args& args) {
  if (args.positionals.size() != 1) return usageError("c14n", "expects exactly one FILE");
  if (args.has("prefixes") && !args.has("exclusive"))
    return usageError("c14n", "--prefixes applies to --exclusive canonicalization only");
  const std::string& file = args.positionals[0];

  std::string bytes, error;
  if (!readInput(file, bytes, error)) return usageError("c14n", error);
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return usageError("c14n", "out of memory");

  DataBuffer utf8(bytes.data(), bytes.size());
  if (!utf8.convertXmlToUtf8(dsig->m_log)) return usageError("c14n", file + ": " + dsig->lastErrorLine());
  XString xml;
  xml.getUtf8Sb_rw().appendN(reinterpret_cast<const char*>(utf8.getData2()), utf8.getSize());

  XString version(args.has("exclusive") ? "excl_c14n" : "c14n");
  const bool comments = args.has("with-comments");
  XString out;
  bool ok;
  if (args.has("fragment")) {
    XString fragment(args.value("fragment").c_str());
    XString prefixes(args.value("prefixes").c_str());
    ok = dsig->CanonicalizeFragment(xml, fragment, version, prefixes, comments, out);
  } else {
    ok = dsig->CanonicalizeXml(xml, version, comments, out);
  }
  if (args.has("log")) std::fputs(logForStderr(*dsig, file).c_str(), stderr);
  if (!ok) return usageError("c14n", file + ": " + dsig->lastErrorLine());

  Output output;
  if (!output.open(args, error)) return usageError("c14n", error);
  output.write(out.getUtf8Sb().str());
  return finishOutput(output, "c14n", kExitOk);
}

}  // namespace cli
