// The xmldsig tool as a user runs it: help, version, usage errors, and `info` on the
// bundled examples and on every document of the corpus.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "CliRun.h"
#include "TestSupport.h"
#include "support/SupportTestHelpers.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using clirun::binary;
using clirun::quote;
using clirun::RunResult;
using clirun::runShell;
using clirun::xmldsig;

using clirun::example;

std::vector<json> jsonLines(const std::string& out) {
  std::vector<json> lines;
  for (const std::string& line : clirun::outputLines(out)) lines.push_back(json::parse(line));  // throws on bad JSON
  return lines;
}

int lineCount(const std::string& s) { return static_cast<int>(std::count(s.begin(), s.end(), '\n')); }

void expectManPage(const std::string& text) {
  for (const char* section : {"NAME\n", "SYNOPSIS\n", "DESCRIPTION\n", "EXIT STATUS\n"})
    EXPECT_NE(text.find(section), std::string::npos) << section << " missing in\n" << text;
}

}  // namespace

TEST(CliInfo, HelpVersionAndUsageErrors) {
  RunResult r = xmldsig("--help");
  EXPECT_EQ(r.exitCode, 0);
  expectManPage(r.out);
  EXPECT_NE(r.out.find("info"), std::string::npos);

  for (const char* form : {"info --help", "help info"}) {
    SCOPED_TRACE(form);
    r = xmldsig(form);
    EXPECT_EQ(r.exitCode, 0);
    expectManPage(r.out);
    EXPECT_NE(r.out.find("OPTIONS\n"), std::string::npos);
    EXPECT_NE(r.out.find("--json"), std::string::npos);
  }

  for (const char* form : {"version", "--version"}) {
    r = xmldsig(form);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind("xmldsig ", 0), 0u) << r.out;
  }

  // Usage errors: status 2 and exactly one line on stderr saying why.
  const std::map<std::string, std::string> errors = {
      {"frobnicate x.xml", "unknown command 'frobnicate'"},
      {"info", "no FILE given"},
      {"info --bogus " + quote(example("invoice-signed.xml")), "unknown option --bogus"},
      {"info -j 0 " + quote(example("invoice-signed.xml")), "-j needs a number"},
      {"info -o a -o b x", "more than once"},
  };
  for (const auto& [args, reason] : errors) {
    SCOPED_TRACE(args);
    r = xmldsig(args);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(lineCount(r.err), 1) << r.err;
    EXPECT_NE(r.err.find(reason), std::string::npos) << r.err;
  }
}

TEST(CliInfo, DescribesTheBundledExamples) {
  const std::string signedDoc = example("invoice-signed.xml");
  RunResult r = xmldsig("info " + quote(signedDoc));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("loaded, 1 signature, family generic"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("invoice-signature"), std::string::npos);
  EXPECT_NE(r.out.find("http://www.w3.org/2000/09/xmldsig#enveloped-signature"), std::string::npos);

  // JSON, one object per file, options after the files, the value joined with '='.
  r = xmldsig("info " + quote(signedDoc) + " " + quote(example("invoice-tampered.xml")) + " --json --option=ZATCA");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const std::vector<json> lines = jsonLines(r.out);
  ASSERT_EQ(lines.size(), 2u);
  for (const json& j : lines) {
    EXPECT_TRUE(j["loaded"].get<bool>());
    EXPECT_FALSE(j.contains("error"));
    ASSERT_EQ(j["signatures"].size(), 1u);
    const json& sig = j["signatures"][0];
    EXPECT_EQ(sig["index"], 0);
    EXPECT_EQ(sig["id"], "invoice-signature");
    // The family is the document's own; the ZATCA option given for it is warned about.
    EXPECT_EQ(sig["family"], "generic");
    EXPECT_TRUE(sig["suggestedOptions"].empty());
    ASSERT_EQ(j["warnings"].size(), 1u);
    EXPECT_EQ(j["warnings"][0].get<std::string>().rfind("--option ZATCA is meant for Saudi ZATCA invoices", 0), 0u);
    EXPECT_EQ(sig["canonicalizationMethod"], "http://www.w3.org/2001/10/xml-exc-c14n#");
    EXPECT_EQ(sig["signatureMethod"], "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256");
    ASSERT_EQ(sig["references"].size(), 1u);
    const json& ref = sig["references"][0];
    EXPECT_EQ(ref["index"], 0);
    EXPECT_EQ(ref["uri"], "");
    EXPECT_FALSE(ref["external"].get<bool>());
    EXPECT_EQ(ref["digestMethod"], "http://www.w3.org/2001/04/xmlenc#sha256");
  }
  EXPECT_EQ(lines[0]["file"], signedDoc);

  // Standard input, and -o.
  const testsupport::TempDir dir("cli-out");
  const std::string outFile = dir.path + "/info.jsonl";
  r = runShell("cat " + quote(signedDoc) + " | " + binary() + " info --json -o " + quote(outFile) + " -");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(r.out.empty());
  const std::vector<json> fromStdin = jsonLines(testsupport::readFile(outFile));
  ASSERT_EQ(fromStdin.size(), 1u);
  EXPECT_EQ(fromStdin[0]["file"], "-");
  EXPECT_EQ(fromStdin[0]["signatures"][0]["id"], "invoice-signature");

  // --log shows the verifier's own record of the load.
  r = xmldsig("info --log " + quote(signedDoc));
  EXPECT_NE(r.err.find("LoadSignatureBd"), std::string::npos) << r.err;
}

TEST(CliInfo, ReportsDocumentsThatDoNotLoad) {
  const testsupport::TempDir dir("cli-bad");
  const std::string bad = dir.path + "/bad.xml";
  testsupport::writeFile(bad, "<a>\n  <b></a>\n");
  RunResult r = xmldsig("info --json " + quote(bad) + " " + quote(dir.path + "/missing.xml") + " " +
                        quote(example("invoice-signed.xml")));
  EXPECT_EQ(r.exitCode, 2);
  const std::vector<json> lines = jsonLines(r.out);
  ASSERT_EQ(lines.size(), 3u);
  // Files that do not load print the error object every command prints.
  EXPECT_EQ(lines[0].size(), 2u);
  EXPECT_EQ(lines[1].size(), 2u);
  EXPECT_NE(lines[0]["error"].get<std::string>().find("line 2"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1]["error"].get<std::string>().find("missing.xml"), std::string::npos);
  EXPECT_TRUE(lines[2]["loaded"].get<bool>());
  EXPECT_EQ(lineCount(r.err), 2) << r.err;
}

namespace {

// Every signed document of the corpus (the keys, certificates and detached data beside
// them are not XML).
std::vector<std::string> corpusDocuments() {
  std::vector<std::string> docs;
  for (const auto& e : fs::recursive_directory_iterator(testsupport::corpusDir())) {
    const std::string ext = e.path().extension().string();
    if (e.is_regular_file() && (ext == ".xml" || ext == ".XML" || ext == ".ddoc")) docs.push_back(e.path().string());
  }
  std::sort(docs.begin(), docs.end());
  return docs;
}

std::map<std::string, std::vector<std::string>> familiesManifest() {
  std::map<std::string, std::vector<std::string>> rows;  // xml_path -> columns
  for (std::vector<std::string>& cols : supporttest::manifestRows("families.tsv"))
    if (cols.size() > 3) rows[testsupport::corpusDir() + "/" + cols[2]] = std::move(cols);
  return rows;
}

// The signature_count column: a number, or a sum such as "0 ds:Signature + 1
// ebics:AuthSignature" (EBICS signatures count as signatures here).
int manifestSignatureCount(const std::string& column) {
  std::istringstream in(column);
  std::string word;
  int total = 0;
  while (in >> word)
    if (std::isdigit(static_cast<unsigned char>(word[0]))) total += std::stoi(word);
  return total;
}

// Signature and reference counts by xmllint, an independent reading of the same file:
// XML-Signature Signature elements, and elements (EBICS AuthSignature) that have a
// SignedInfo and a SignatureValue of that namespace.
std::pair<int, int> xmllintCounts(const std::string& file) {
  const std::string ns = "'http://www.w3.org/2000/09/xmldsig#'";
  const std::string sig = "//*[(local-name()='Signature' and namespace-uri()=" + ns +
                          ") or (*[local-name()='SignedInfo' and namespace-uri()=" + ns +
                          "] and *[local-name()='SignatureValue' and namespace-uri()=" + ns + "])]";
  const std::string refs = sig + "/*[local-name()='SignedInfo'][1]/*[local-name()='Reference']";
  RunResult a = runShell("xmllint --nonet --xpath " + quote("count(" + sig + ")") + " " + quote(file));
  RunResult b = runShell("xmllint --nonet --xpath " + quote("count(" + refs + ")") + " " + quote(file));
  if (a.exitCode != 0 || b.exitCode != 0) return {-1, -1};
  return {std::stoi(a.out), std::stoi(b.out)};
}

}  // namespace

TEST(CliInfo, EveryCorpusDocument) {
  REQUIRE_CORPUS();
  const std::vector<std::string> docs = corpusDocuments();
  ASSERT_GT(docs.size(), 100u);
  std::string args = "info --json -j 2";
  for (const std::string& d : docs) args += " " + quote(d);
  RunResult r = xmldsig(args);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const std::vector<json> lines = jsonLines(r.out);
  ASSERT_EQ(lines.size(), docs.size());

  const auto manifest = familiesManifest();
  const bool haveXmllint = runShell("xmllint --version").exitCode == 0;
  const std::map<std::string, std::string> familyNames = {{"zatca", "zatca"},    {"myinvois", "myinvois"},
                                                          {"ebics", "ebics"},    {"ebxml", "ebxml"},
                                                          {"sunat", "sunat-pe"}, {"skxml", "sk-xml"}};
  int checkedCounts = 0;
  for (size_t i = 0; i < docs.size(); ++i) {
    const json& j = lines[i];
    SCOPED_TRACE(docs[i]);
    ASSERT_EQ(j["file"], docs[i]);  // output keeps the order of the files
    EXPECT_TRUE(j["loaded"].get<bool>()) << j.value("error", "");
    int refs = 0;
    for (const json& s : j["signatures"]) refs += static_cast<int>(s["references"].size());
    const int sigs = static_cast<int>(j["signatures"].size());

    auto row = manifest.find(docs[i]);
    if (row != manifest.end()) {
      EXPECT_EQ(sigs, manifestSignatureCount(row->second[3]));
      auto name = familyNames.find(row->second[1]);
      if (name != familyNames.end()) {
        EXPECT_EQ(j["family"], name->second);
      }
    }
    if (haveXmllint) {
      const auto [lintSigs, lintRefs] = xmllintCounts(docs[i]);
      if (lintSigs >= 0) {
        EXPECT_EQ(sigs, lintSigs);
        EXPECT_EQ(refs, lintRefs);
        ++checkedCounts;
      }
    }
  }
  if (haveXmllint) {
    EXPECT_GT(checkedCounts, 250);
  }
}
