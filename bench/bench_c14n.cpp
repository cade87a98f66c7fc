// Canonicalization speed and memory: XmlCanon against libxml2's canonicalizer
// (xmlReadMemory + xmlC14NDocSaveTo, what `xmllint --c14n` runs) on the same generated
// document, in one process. Prints the time ratio and XmlCanon's peak memory.
//
// The document is XMLDSIG_BENCH_C14N_MB megabytes (default 100) of invoices with
// namespaces, attributes, entity references, comments and empty elements.
#include <benchmark/benchmark.h>
#include <libxml/c14n.h>
#include <libxml/parser.h>
#include <libxml/xmlIO.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace {

size_t documentBytes() {
  const char* env = std::getenv("XMLDSIG_BENCH_C14N_MB");
  const long mb = env ? std::atol(env) : 100;
  return static_cast<size_t>(mb > 0 ? mb : 100) * 1024 * 1024;
}

const StringBuffer& document() {
  static const StringBuffer doc = [] {
    const size_t target = documentBytes();
    std::string s;
    s.reserve(target + 4096);
    s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<inv:Invoices xmlns:inv=\"urn:example:invoice\" xmlns:cbc=\"urn:example:cbc\" "
         "xmlns=\"urn:example:default\">\n";
    for (size_t n = 0; s.size() < target; ++n) {
      const std::string id = std::to_string(n);
      s += "  <inv:Invoice status=\"open\" cbc:currency=\"EUR\" Id=\"inv-" + id +
           "\">\n"
           "    <cbc:Line qty=\"3\" number=\"1\">Widget &amp; gadget &lt;large&gt; no. " +
           id +
           "</cbc:Line>\n"
           "    <cbc:Line qty=\"1\" number=\"2\" cbc:note='single \"quoted\"'>Spare part</cbc:Line>\n"
           "    <!-- checked by clerk " +
           id +
           " -->\n"
           "    <Note xmlns=\"\">Plain text without a namespace, long enough to be typical of "
           "free-text fields in real business documents.</Note>\n"
           "    <Empty/>\n"
           "  </inv:Invoice>\n";
    }
    s += "</inv:Invoices>\n";
    return StringBuffer(s);
  }();
  return doc;
}

bool canonicalizeOurs(std::string& sizeOut) {
  XmlCanon canon;
  canon.canonMethod = 1;
  canon.withComments = true;
  StringBuffer out;
  LogNull log;
  const bool ok = canon.xmlCanonicalize(document(), nullptr, 0, out, log);
  sizeOut = std::to_string(out.getSize());
  return ok;
}

int discardWrite(void*, const char*, int len) { return len; }
int discardClose(void*) { return 0; }

// Mean wall and CPU time per iteration (ms) of each benchmark, for the ratios printed at
// the end. On a shared machine the CPU ratio is the steadier one.
struct Times {
  double wallMs = 0;
  double cpuMs = 0;
};
Times g_ours;
Times g_libxml2;

void BM_XmlCanon(benchmark::State& state) {
  const StringBuffer& doc = document();
  for (auto _ : state) {
    std::string size;
    if (!canonicalizeOurs(size)) state.SkipWithError("XmlCanon failed");
    benchmark::DoNotOptimize(size);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getSize()));
}

void BM_Libxml2(benchmark::State& state) {
  const StringBuffer& doc = document();
  for (auto _ : state) {
    xmlDocPtr parsed = xmlReadMemory(doc.getString(), static_cast<int>(doc.getSize()), "bench.xml", nullptr,
                                     XML_PARSE_HUGE | XML_PARSE_NOENT | XML_PARSE_DTDATTR);
    if (!parsed) {
      state.SkipWithError("libxml2 could not parse");
      break;
    }
    xmlOutputBufferPtr buf = xmlOutputBufferCreateIO(discardWrite, discardClose, nullptr, nullptr);
    const int rc = xmlC14NDocSaveTo(parsed, nullptr, XML_C14N_1_0, nullptr, 1, buf);
    xmlOutputBufferClose(buf);
    xmlFreeDoc(parsed);
    if (rc < 0) state.SkipWithError("xmlC14NDocSaveTo failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getSize()));
}

// Peak resident memory of one XmlCanon run, measured in a child process so that nothing
// the benchmarks allocate later counts. The document itself is included.
long childPeakKb() {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    std::string size;
    canonicalizeOurs(size);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const long kb = usage.ru_maxrss;
    if (write(fds[1], &kb, sizeof kb) != static_cast<ssize_t>(sizeof kb)) _exit(1);
    _exit(0);
  }
  close(fds[1]);
  long kb = -1;
  if (read(fds[0], &kb, sizeof kb) != static_cast<ssize_t>(sizeof kb)) kb = -1;
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return kb;
}

class TimeCollector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const Times t{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};  // both in milliseconds
      if (run.benchmark_name().rfind("BM_XmlCanon", 0) == 0) g_ours = t;
      if (run.benchmark_name().rfind("BM_Libxml2", 0) == 0) g_libxml2 = t;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

BENCHMARK(BM_XmlCanon)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Libxml2)->Unit(benchmark::kMillisecond)->MinTime(2.0);

int main(int argc, char** argv) {
  const double docMb = static_cast<double>(document().getSize()) / (1024.0 * 1024.0);
  const long peakKb = childPeakKb();

  benchmark::Initialize(&argc, argv);
  TimeCollector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\ndocument: %.1f MB\n", docMb);
  if (peakKb > 0)
    std::printf("XmlCanon peak memory: %.1f MB = %.2f x the document (target < 3)\n", peakKb / 1024.0,
                peakKb / 1024.0 / docMb);
  if (g_ours.wallMs > 0 && g_ours.cpuMs > 0 && g_libxml2.wallMs > 0)
    std::printf("libxml2 time / XmlCanon time: %.2f wall, %.2f CPU (target >= 3)\n", g_libxml2.wallMs / g_ours.wallMs,
                g_libxml2.cpuMs / g_ours.cpuMs);
  return 0;
}
