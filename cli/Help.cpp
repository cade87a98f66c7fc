#include "cli/Help.h"

#include <sstream>

#include "cli/Commands.h"

namespace cli {

namespace {

constexpr size_t kWidth = 78;

void wrapOne(const std::string& paragraph, size_t indent, std::string& out) {
  std::istringstream words(paragraph);
  std::string word;
  std::string line;
  while (words >> word) {
    if (!line.empty() && indent + line.size() + 1 + word.size() > kWidth) {
      out += std::string(indent, ' ') + line + "\n";
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  if (!line.empty()) out += std::string(indent, ' ') + line + "\n";
}

std::string optionHeading(const OptionSpec& o) {
  std::string h;
  if (o.shortName) h += std::string("-") + o.shortName + ", ";
  h += std::string("--") + o.longName;
  if (o.takesValue) h += std::string(" ") + o.valueName;
  return h;
}

}  // namespace

std::string wrapParagraphs(const std::string& text, size_t indent) {
  std::string out;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find("\n\n", start);
    if (end == std::string::npos) end = text.size();
    if (!out.empty()) out += "\n";
    wrapOne(text.substr(start, end - start), indent, out);
    start = end + 2;
  }
  return out;
}

std::string commandHelp(const CommandSpec& spec) {
  std::string out;
  out += "NAME\n    xmldsig " + std::string(spec.name) + " - " + spec.summary + "\n\n";
  out += "SYNOPSIS\n    xmldsig " + std::string(spec.name) + " " + spec.synopsis + "\n\n";
  out += "DESCRIPTION\n" + wrapParagraphs(spec.description, 4) + "\n";
  out += "OPTIONS\n";
  for (const OptionSpec& o : spec.options) {
    out += "    " + optionHeading(o) + "\n";
    out += wrapParagraphs(o.help, 8);
  }
  out += "\nEXIT STATUS\n";
  std::istringstream lines(spec.exitStatus);
  std::string line;
  while (std::getline(lines, line)) out += "    " + line + "\n";
  return out;
}

std::string toolHelp() {
  std::string out;
  out += "NAME\n    xmldsig - verify and inspect XML digital signatures\n\n";
  out +=
      "SYNOPSIS\n"
      "    xmldsig COMMAND [OPTIONS] FILE...\n"
      "    xmldsig COMMAND --help\n"
      "    xmldsig help [COMMAND]\n"
      "    xmldsig version | --version\n\n";
  out += "DESCRIPTION\n" +
         wrapParagraphs(
             "xmldsig reads XML documents that carry XML-Signature elements (e-invoices, tax and "
             "health documents, SWIFT, EBICS, SAML and WS-Security messages) and reports on or "
             "checks their signatures the way the signing software of each document family "
             "produces them.\n\n"
             "FILE may be - to read standard input; pipes, FIFOs and /dev/stdin are read as "
             "streams. Options may come before or after the files; long options take their value as "
             "--name VALUE or --name=VALUE.\n\n"
             "-o FILE writes to a temporary file renamed over FILE only when the command succeeds, "
             "so FILE may be one of the inputs (\"timestamp add doc.xml -o doc.xml\" stamps in "
             "place) and a failed command leaves it as it was. With --json, every command prints "
             "{\"file\", \"error\"} for a FILE it could not read or load.",
             4) +
         "\n";
  out += "COMMANDS\n";
  for (const Command& c : commands()) {
    const CommandSpec& s = c.spec();
    std::string name = s.name;
    if (name.size() < 10) name.resize(10, ' ');
    out += "    " + name + " " + s.summary + "\n";
  }
  out += "    help       print this help, or the help of a command\n";
  out += "    version    print the version\n\n";
  out +=
      "EXIT STATUS\n"
      "    0  success: the documents were read (and the signatures are valid)\n"
      "    1  a signature is invalid\n"
      "    2  usage error, or an input that cannot be read or parsed\n";
  return out;
}

}  // namespace cli
