// Reference digest of a large enveloped document: VerifyReferenceDigest on its one
// whole-document reference (enveloped signature + inclusive canonicalization + SHA-256),
// with the document loaded once, and the peak memory of loading and checking it.
//
// The document is XMLDSIG_BENCH_REFS_MB megabytes (default 100); its digest is computed by
// OpenSSL while it is generated (see BenchDocuments.h). Target: well under a second.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "BenchDocuments.h"
#include "dsig/ClsXmlDSig.h"
#include "support/XString.h"

namespace {

size_t documentBytes() {
  const char* env = std::getenv("XMLDSIG_BENCH_REFS_MB");
  const long mb = env ? std::atol(env) : 100;
  return static_cast<size_t>(mb > 0 ? mb : 100) * 1024 * 1024;
}

bool makeDocument(XString& doc) { return benchdoc::makeSignedDocument(documentBytes(), nullptr, doc.getUtf8Sb_rw()); }

// Loads the document; the check itself is what is timed.
std::unique_ptr<ClsXmlDSig> loadedVerifier(XString& doc) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig || !dsig->LoadSignature(doc) || dsig->get_NumSignatures() != 1) return nullptr;
  return dsig;
}

double g_docMb = 0;

void BM_VerifyReferenceDigest(benchmark::State& state) {
  XString doc;
  if (!makeDocument(doc)) {
    state.SkipWithError("could not generate the document");
    return;
  }
  g_docMb = static_cast<double>(doc.getUtf8Sb().getSize()) / (1024.0 * 1024.0);
  std::unique_ptr<ClsXmlDSig> dsig = loadedVerifier(doc);
  if (!dsig) {
    state.SkipWithError("the document did not load");
    return;
  }
  for (auto _ : state) {
    if (!dsig->VerifyReferenceDigest(0)) {
      state.SkipWithError(("the reference digest did not verify: " + dsig->lastErrorLine()).c_str());
      break;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getUtf8Sb().getSize()));
}

}  // namespace

BENCHMARK(BM_VerifyReferenceDigest)->Unit(benchmark::kMillisecond)->MinTime(1.0);

int main(int argc, char** argv) {
  // Memory first, in children forked while this process is still small: the document alone,
  // then the document loaded and its reference checked.
  const long documentKb = benchdoc::peakKbInChild([] {
    XString doc;
    return makeDocument(doc);
  });
  const long checkedKb = benchdoc::peakKbInChild([] {
    XString doc;
    if (!makeDocument(doc)) return false;
    std::unique_ptr<ClsXmlDSig> dsig = loadedVerifier(doc);
    return dsig && dsig->VerifyReferenceDigest(0);
  });

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  const double docMb = static_cast<double>(documentBytes()) / (1024.0 * 1024.0);
  std::printf("\ndocument: %.1f MB\n", g_docMb > 0 ? g_docMb : docMb);
  if (documentKb > 0 && checkedKb > 0)
    std::printf("peak memory: %.1f MB with the document generated, %.1f MB loaded and checked = %.2f x the document\n",
                documentKb / 1024.0, checkedKb / 1024.0, checkedKb / 1024.0 / docMb);
  else std::printf("peak memory: the reference did not verify in the measuring process\n");
  return 0;
}
