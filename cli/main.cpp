// xmldsig command-line tool: finds the subcommand, parses its options, prints help or
// runs it. Every failure to understand the command line exits with status 2 and a
// one-line reason on standard error.
#include <cstdio>
#include <string>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/Help.h"

using namespace cli;

namespace {

bool isHelpWord(const std::string& a) { return a == "--help" || a == "-h" || a == "help"; }

int printHelpOf(const std::string& name) {
  const Command* cmd = findCommand(name);
  if (!cmd) return usageError("unknown command '" + name + "' (try 'xmldsig --help')");
  std::fputs(commandHelp(cmd->spec()).c_str(), stdout);
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usageError("no command given (try 'xmldsig --help')");
  const std::string name = argv[1];
  if (isHelpWord(name)) {
    if (argc > 2) return printHelpOf(argv[2]);
    std::fputs(toolHelp().c_str(), stdout);
    return kExitOk;
  }
  if (name == "version" || name == "--version") {
    std::printf("xmldsig %s\n", kToolVersion);
    return kExitOk;
  }

  const Command* cmd = findCommand(name);
  if (!cmd) return usageError("unknown command '" + name + "' (try 'xmldsig --help')");
  const CommandSpec& spec = cmd->spec();

  Args args;
  args.command = name;
  std::string error;
  if (!parseArgs(spec.options, argc, argv, 2, args, error)) return usageError(name, error);
  if (args.has("help")) {
    std::fputs(commandHelp(spec).c_str(), stdout);
    return kExitOk;
  }
  try {
    return cmd->run(args);
  } catch (const std::exception& e) {
    return usageError(name, std::string("internal error: ") + e.what());
  }
}
