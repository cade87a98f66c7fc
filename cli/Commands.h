// The subcommands of the xmldsig tool. Each lives in its own file (cmd_<name>.cpp) and
// provides a description for the help (CommandSpec) and a run function; adding a
// subcommand means adding that file and one line to the registry in Registry.cpp.
#pragma once

#include <string>
#include <vector>

#include "cli/Args.h"

namespace cli {

struct CommandSpec {
  const char* name;
  const char* summary;      // one line, for the tool's command list
  const char* synopsis;     // what follows "xmldsig <name> "
  const char* description;  // paragraphs separated by blank lines
  std::vector<OptionSpec> options;
  const char* exitStatus;  // lines "N  meaning"
};

using RunFunction = int (*)(const Args&);

struct Command {
  const CommandSpec& (*spec)();
  RunFunction run;
};

// Every registered subcommand, in the order the help lists them.
const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

// Options that most subcommands accept; a command lists the ones it uses.
extern const OptionSpec kOptJson;
extern const OptionSpec kOptLog;
extern const OptionSpec kOptVerbose;
extern const OptionSpec kOptOutput;
extern const OptionSpec kOptJobs;
extern const OptionSpec kOptUncommon;
extern const OptionSpec kOptHelp;

// Man-page style help of one subcommand.
std::string commandHelp(const CommandSpec& spec);

// ---- subcommands ----
const CommandSpec& infoSpec();
int runInfo(const Args& args);

const CommandSpec& verifySpec();
int runVerify(const Args& args);

const CommandSpec& c14nSpec();
int runC14n(const Args& args);

const CommandSpec& timestampSpec();
int runTimestamp(const Args& args);

// The validation report of documents as one HTML page; `verify --html` writes the same.
const CommandSpec& reportSpec();
int runReport(const Args& args);

const CommandSpec& signedSpec();
int runSigned(const Args& args);
// Reference digests only; `verify --references-only` runs the same.
const CommandSpec& refsSpec();
int runReferences(const Args& args);

}  // namespace cli
