// Signature verification end to end (load the text, check the reference, canonicalize and
// verify SignedInfo) next to libxmlsec1 (xmlReadMemory + xmlSecDSigCtxVerify with the key
// loaded once into its keys manager), in one process, on:
//   small    a ~7 KB enveloped-signed invoice document
//   zatca    a ZATCA invoice from the corpus, verified with the ZATCA option; libxmlsec1
//            cannot verify those, so it verifies a generic document of the same size
//   10MB, 100MB  enveloped-signed documents
// The generic documents are signed with OpenSSL (BenchDocuments.h); both verifiers must
// accept them. Our verifier gets the same key once (SetPublicKey) and one object is reused.
// Prints both times, the ratio, and our peak memory relative to the document size.
//
//   file:NAME  each document listed in XMLDSIG_BENCH_VERIFY_FILES (separated by ':'), as
//            bench/make_documents.py writes them: the key comes from the certificate in
//            KeyInfo, which libxmlsec1 trusts when XMLDSIG_BENCH_VERIFY_CERT names it
//
// XMLDSIG_BENCH_VERIFY_MAX_MB (default 100; 0 for none) caps the largest generated document;
// XMLDSIG_SHARED points at the shared corpus (default: beside the checkout).
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <xmlsec/crypto.h>
#include <xmlsec/keysmngr.h>
#include <xmlsec/xmldsig.h>
#include <xmlsec/xmlsec.h>
#include <xmlsec/xmltree.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "BenchDocuments.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

const benchdoc::Signer& signer() {
  static const benchdoc::Signer s;
  return s;
}

std::string zatcaInvoicePath() {
  const char* env = std::getenv("XMLDSIG_SHARED");
  const std::string shared = env && *env ? env : XMLDSIG_SHARED_DIR;
  return shared + "/corpus/families/zatca/zatca-sdk348-simplified_invoice/Simplified_Invoice.xml";
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// A generic signed document of about this size, made once per size.
const XString& genericDocument(size_t bytes) {
  static std::map<size_t, std::unique_ptr<XString>> cache;
  std::unique_ptr<XString>& doc = cache[bytes];
  if (!doc) {
    doc = std::make_unique<XString>();
    if (!benchdoc::makeSignedDocument(bytes, &signer(), doc->getUtf8Sb_rw())) doc->getUtf8Sb_rw().clear();
  }
  return *doc;
}

// ---- our verifier ----

struct OurVerifier {
  std::unique_ptr<ClsXmlDSig> dsig{ClsXmlDSig::createNewCls()};

  // withKey: the run's key is given up front; otherwise the document's KeyInfo supplies it.
  explicit OurVerifier(const char* options, bool withKey = true) {
    dsig->put_UncommonOptions(XString(options));
    if (!withKey) return;
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (key && key->LoadFromString(XString(signer().publicKeyPem().c_str()))) dsig->SetPublicKey(*key);
  }
  bool verify(XString& doc) { return dsig->LoadSignature(doc) && dsig->VerifySignature(true); }
};

void runOursWith(benchmark::State& state, const XString* text, const char* options, bool withKey) {
  XString doc(*text);  // the caller's text, which loading may repair in place
  if (doc.getUtf8Sb().isEmpty()) {
    state.SkipWithError("no document");
    return;
  }
  OurVerifier verifier(options, withKey);
  for (auto _ : state) {
    if (!verifier.verify(doc)) {
      state.SkipWithError(("not verified: " + verifier.dsig->lastErrorLine()).c_str());
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getUtf8Sb().getSize()));
}

void runOurs(benchmark::State& state, const XString* text, const char* options) {
  runOursWith(state, text, options, true);
}

void runOursKeyInfo(benchmark::State& state, const XString* text) { runOursWith(state, text, "", false); }

// ---- libxmlsec1 ----

class Xmlsec {
 public:
  Xmlsec() {
    xmlInitParser();
    if (xmlSecInit() < 0 || xmlSecCheckVersion() != 1 || xmlSecCryptoAppInit(nullptr) < 0 || xmlSecCryptoInit() < 0)
      return;
    manager_ = xmlSecKeysMngrCreate();
    if (!manager_ || xmlSecCryptoAppDefaultKeysMngrInit(manager_) < 0) return;
    const std::string pem = signer().publicKeyPem();
    xmlSecKeyPtr key = xmlSecCryptoAppKeyLoadMemory(reinterpret_cast<const xmlSecByte*>(pem.data()),
                                                    static_cast<xmlSecSize>(pem.size()), xmlSecKeyDataFormatPem,
                                                    nullptr, nullptr, nullptr);
    if (!key) return;
    if (xmlSecCryptoAppDefaultKeysMngrAdoptKey(manager_, key) < 0) {
      xmlSecKeyDestroy(key);
      return;
    }
    const char* cert = std::getenv("XMLDSIG_BENCH_VERIFY_CERT");
    if (cert && *cert &&
        xmlSecCryptoAppKeysMngrCertLoad(manager_, cert, xmlSecKeyDataFormatPem, xmlSecKeyDataTypeTrusted) < 0)
      return;
    ready_ = true;
  }
  ~Xmlsec() {
    if (manager_) xmlSecKeysMngrDestroy(manager_);
    xmlSecCryptoShutdown();
    xmlSecCryptoAppShutdown();
    xmlSecShutdown();
  }
  bool ready() const { return ready_; }

  bool verify(const StringBuffer& text) const {
    xmlDocPtr doc = xmlReadMemory(text.getString(), static_cast<int>(text.getSize()), "bench.xml", nullptr,
                                  XML_PARSE_HUGE);
    if (!doc) return false;
    bool valid = false;
    xmlNodePtr node = xmlSecFindNode(xmlDocGetRootElement(doc), xmlSecNodeSignature, xmlSecDSigNs);
    xmlSecDSigCtxPtr ctx = node ? xmlSecDSigCtxCreate(manager_) : nullptr;
    if (ctx) {
      valid = xmlSecDSigCtxVerify(ctx, node) == 0 && ctx->status == xmlSecDSigStatusSucceeded;
      xmlSecDSigCtxDestroy(ctx);
    }
    xmlFreeDoc(doc);
    return valid;
  }

 private:
  xmlSecKeysMngrPtr manager_ = nullptr;
  bool ready_ = false;
};

const Xmlsec& xmlsec() {
  static const Xmlsec x;
  return x;
}

void runXmlsec(benchmark::State& state, const XString* text) {
  const XString& doc = *text;
  if (!xmlsec().ready() || doc.getUtf8Sb().isEmpty()) {
    state.SkipWithError("libxmlsec1 not initialised or no document");
    return;
  }
  for (auto _ : state) {
    if (!xmlsec().verify(doc.getUtf8Sb())) {
      state.SkipWithError("libxmlsec1 did not verify the document");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getUtf8Sb().getSize()));
}

// ---- the comparison ----

struct Row {
  std::string name;
  size_t bytes = 0;
  double oursMs = 0, theirsMs = 0;  // CPU time per verification
  double minRatio = 0;              // target: theirs / ours at least this (0 = none)
  long peakKb = -1, documentKb = -1;
};
std::vector<Row> g_rows;

// A run's name is the registered name, possibly followed by "/settings".
bool named(const std::string& runName, const std::string& name) {
  return runName == name || runName.rfind(name + "/", 0) == 0;
}

class TimeCollector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      const double ms = run.GetAdjustedCPUTime() * 1e3 / benchmark::GetTimeUnitMultiplier(run.time_unit);
      for (Row& row : g_rows) {
        if (named(name, "ours/" + row.name)) row.oursMs = ms;
        if (named(name, "libxmlsec1/" + row.name)) row.theirsMs = ms;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

size_t maxMb() {
  const char* env = std::getenv("XMLDSIG_BENCH_VERIFY_MAX_MB");
  const long mb = env && *env ? std::atol(env) : 100;
  return static_cast<size_t>(mb > 0 ? mb : 0);
}

std::vector<std::string> listedFiles() {
  std::vector<std::string> files;
  const char* env = std::getenv("XMLDSIG_BENCH_VERIFY_FILES");
  std::istringstream list(env ? env : "");
  for (std::string path; std::getline(list, path, ':');)
    if (!path.empty()) files.push_back(path);
  return files;
}

// Our peak memory verifying a generic document of this size, and that of making it alone,
// each in a child forked before this process holds any large document.
void measureMemory(Row& row) {
  const size_t bytes = row.bytes;
  row.documentKb = benchdoc::peakKbInChild([bytes] {
    XString doc;
    return benchdoc::makeSignedDocument(bytes, &signer(), doc.getUtf8Sb_rw());
  });
  row.peakKb = benchdoc::peakKbInChild([bytes] {
    XString doc;
    if (!benchdoc::makeSignedDocument(bytes, &signer(), doc.getUtf8Sb_rw())) return false;
    OurVerifier verifier("");
    return verifier.verify(doc);
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (!signer().ok()) {
    std::fprintf(stderr, "could not make an RSA key\n");
    return 1;
  }
  const std::string zatcaText = readFile(zatcaInvoicePath());
  const size_t mb = 1024 * 1024;

  g_rows.push_back({"small", 7 * 1024, 0, 0, 4.0});
  g_rows.push_back({"zatca", zatcaText.empty() ? 14 * 1024 : zatcaText.size(), 0, 0, 1.0});
  for (size_t size : {size_t(10), size_t(100)})
    if (size <= maxMb()) g_rows.push_back({std::to_string(size) + "MB", size * mb, 0, 0, size == 100 ? 8.0 : 0});
  for (Row& row : g_rows)
    if (row.bytes >= mb) measureMemory(row);

  std::vector<std::unique_ptr<XString>> files;
  for (const std::string& path : listedFiles()) {
    const std::string text = readFile(path);
    if (text.empty()) {
      std::fprintf(stderr, "cannot read %s: skipped\n", path.c_str());
      continue;
    }
    files.push_back(std::make_unique<XString>(text.c_str()));
    const std::string name = "file:" + path.substr(path.find_last_of('/') + 1);
    g_rows.push_back({name, text.size(), 0, 0, 0});
    for (auto* b : {benchmark::RegisterBenchmark(("ours/" + name).c_str(), runOursKeyInfo, files.back().get()),
                    benchmark::RegisterBenchmark(("libxmlsec1/" + name).c_str(), runXmlsec, files.back().get())})
      b->Unit(text.size() >= mb ? benchmark::kMillisecond : benchmark::kMicrosecond)->MinTime(0.5);
  }

  XString zatca(zatcaText.c_str());
  for (const Row& row : g_rows) {
    if (row.name.rfind("file:", 0) == 0) continue;  // registered above
    const bool big = row.bytes >= mb;
    const double minTime = big ? 0.1 : 0.5;
    if (row.name == "zatca") {
      if (zatcaText.empty()) {
        std::fprintf(stderr, "ZATCA invoice not found at %s: that row is skipped\n", zatcaInvoicePath().c_str());
        continue;
      }
      const XString* generic = &genericDocument(row.bytes);
      benchmark::RegisterBenchmark("ours/zatca", runOurs, &zatca, "ZATCA")
          ->Unit(benchmark::kMicrosecond)
          ->MinTime(minTime);
      benchmark::RegisterBenchmark("libxmlsec1/zatca", runXmlsec, generic)
          ->Unit(benchmark::kMicrosecond)
          ->MinTime(minTime);
      benchmark::RegisterBenchmark("ours/zatca-size-generic", runOurs, generic, "")
          ->Unit(benchmark::kMicrosecond)
          ->MinTime(minTime);
      continue;
    }
    const XString* doc = &genericDocument(row.bytes);
    auto* ours = benchmark::RegisterBenchmark(("ours/" + row.name).c_str(), runOurs, doc, "");
    auto* theirs = benchmark::RegisterBenchmark(("libxmlsec1/" + row.name).c_str(), runXmlsec, doc);
    for (auto* b : {ours, theirs}) {
      b->Unit(big ? benchmark::kMillisecond : benchmark::kMicrosecond);
      if (big) b->Iterations(row.bytes >= 100 * mb ? 2 : 5);
      else b->MinTime(minTime);
    }
  }

  benchmark::Initialize(&argc, argv);
  TimeCollector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n%-30s %10s %12s %14s %8s  %s\n", "document", "size", "ours (ms)", "libxmlsec1 (ms)", "ratio",
              "target");
  for (const Row& row : g_rows) {
    if (row.oursMs <= 0 || row.theirsMs <= 0) continue;
    char target[32] = "";
    if (row.minRatio > 0) std::snprintf(target, sizeof target, ">= %.0f", row.minRatio);
    std::printf("%-30s %9.1fK %12.3f %14.3f %8.2f  %s\n", row.name.c_str(), row.bytes / 1024.0, row.oursMs,
                row.theirsMs, row.theirsMs / row.oursMs, target);
  }
  std::printf(
      "(zatca: ours on the ZATCA invoice with the ZATCA option, libxmlsec1 on a generic document of the "
      "same size; CPU time per verification)\n");
  for (const Row& row : g_rows) {
    if (row.peakKb <= 0) continue;
    const double docMb = static_cast<double>(row.bytes) / mb;
    std::printf("peak memory, %s: %.1f MB = %.2f x the document (the document alone: %.1f MB; target < 5)\n",
                row.name.c_str(), row.peakKb / 1024.0, row.peakKb / 1024.0 / docMb, row.documentKb / 1024.0);
  }
  return 0;
}
