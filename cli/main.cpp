// xmldsig command-line tool: entry point and subcommand dispatch.
#include <cstdio>
#include <cstring>
#include <string>

namespace {

const char* kVersion = "0.1.0";

void printUsage(FILE* out) {
  std::fprintf(out,
               "usage: xmldsig <command> [options]\n"
               "\n"
               "commands:\n"
               "  version     print the version\n"
               "  help        print this help\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    printUsage(stderr);
    return 2;
  }
  std::string cmd = argv[1];
  if (cmd == "--help" || cmd == "-h" || cmd == "help") {
    printUsage(stdout);
    return 0;
  }
  if (cmd == "version" || cmd == "--version") {
    std::printf("xmldsig %s\n", kVersion);
    return 0;
  }
  std::fprintf(stderr, "xmldsig: unknown command '%s' (try 'xmldsig --help')\n", cmd.c_str());
  return 2;
}
