// The registry of subcommands and the options they share.
#include "cli/Commands.h"

namespace cli {

const OptionSpec kOptJson{"json", '\0', false, false, "", "Print one JSON object per line instead of text."};
const OptionSpec kOptLog{"log", '\0', false, false, "", "Print the verifier's log of each file to standard error."};
const OptionSpec kOptVerbose{"verbose", 'v', false,
                             false,     "",  "Include the verbose entries in the verifier's log (see --log)."};
const OptionSpec kOptOutput{"output", 'o', true, false, "FILE", "Write the output to FILE instead of standard output."};
const OptionSpec kOptJobs{"jobs",
                          'j',
                          true,
                          false,
                          "N",
                          "Process up to N files at the same time (default 1); output keeps the order "
                          "of the files."};
const OptionSpec kOptUncommon{"option",
                              '\0',
                              true,
                              true,
                              "KEYWORD",
                              "Switch on an uncommon behaviour of the verifier: ZATCA, MYINVOIS, "
                              "AllowXmlDigestError or VerifyEncapsulatedTimeStamp, in any case; may be "
                              "repeated. An unknown keyword is a usage error. A family option (ZATCA, "
                              "MYINVOIS) on a document of another family gives a warning."};
const OptionSpec kOptHelp{"help", 'h', false, false, "", "Print this help and exit."};

const std::vector<Command>& commands() {
  static const std::vector<Command> registry = {
      {verifySpec, runVerify}, {reportSpec, runReport},       {infoSpec, runInfo},     {refsSpec, runReferences},
      {c14nSpec, runC14n},     {timestampSpec, runTimestamp}, {signedSpec, runSigned},
  };
  return registry;
}

const Command* findCommand(const std::string& name) {
  for (const Command& c : commands())
    if (name == c.spec().name) return &c;
  return nullptr;
}

}  // namespace cli
