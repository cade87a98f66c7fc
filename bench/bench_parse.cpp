// Parser throughput: our scanner alone, our element tree (ClsXml::loadXml) and libxml2's
// xmlReadMemory on the same generated document, reported in MB/s.
//
// The document is XMLDSIG_BENCH_PARSE_MB megabytes (default 100) of invoice-like
// elements with namespaces, attributes, entity references and base64 content.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstdlib>
#include <string>

#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/xml/XmlScanner.h"

namespace {

size_t documentBytes() {
  const char* env = std::getenv("XMLDSIG_BENCH_PARSE_MB");
  const long mb = env ? std::atol(env) : 100;
  return static_cast<size_t>(mb > 0 ? mb : 100) * 1024 * 1024;
}

const StringBuffer& document() {
  static const StringBuffer doc = [] {
    const size_t target = documentBytes();
    std::string s;
    s.reserve(target + 4096);
    s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<inv:Invoices xmlns:inv=\"urn:example:invoice\" xmlns:cbc=\"urn:example:cbc\">\n";
    for (size_t n = 0; s.size() < target; ++n) {
      const std::string id = std::to_string(n);
      s += "  <inv:Invoice id=\"INV-" + id +
           "\" currency=\"EUR\" issued=\"2024-05-17\">\n"
           "    <cbc:Party role=\"seller\"><cbc:Name>Smith &amp; Sons Ltd.</cbc:Name>"
           "<cbc:TaxId scheme=\"VAT\">DE123456789</cbc:TaxId></cbc:Party>\n"
           "    <cbc:Line no=\"1\" qty=\"3\"><cbc:Item>Widget &lt;large&gt;</cbc:Item>"
           "<cbc:Price>12.50</cbc:Price></cbc:Line>\n"
           "    <!-- attachment -->\n"
           "    <cbc:Attachment encoding=\"base64\">"
           "TUlJQklqQU5CZ2txaGtpRzl3MEJBUUVGQUFPQ0FROEFNSUlCQ2dLQ0FRRUF1K0Z4VzZ3\n"
           "dGtYVjJzUmNnYXBqM3B0Q3N5a1Z3b3JpN2ZtS2xqbXE2a0dQV3N5b0RRWXlQbFNoRmlZ</cbc:Attachment>\n"
           "    <cbc:Note/>\n"
           "  </inv:Invoice>\n";
    }
    s += "</inv:Invoices>\n";
    return StringBuffer(s);
  }();
  return doc;
}

void BM_XmlScanner(benchmark::State& state) {
  const StringBuffer& doc = document();
  for (auto _ : state) {
    xml::XmlScanner scanner(doc.view());
    xml::XmlToken tok;
    size_t tokens = 0;
    while (scanner.next(tok)) ++tokens;
    if (scanner.hasError()) state.SkipWithError(scanner.errorMessage().c_str());
    benchmark::DoNotOptimize(tokens);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getSize()));
}

void BM_ClsXmlLoad(benchmark::State& state) {
  const StringBuffer& doc = document();
  LogNull log;
  for (auto _ : state) {
    RcPtr<ClsXml> root(ClsXml::createNewCls());
    if (!root || !root->loadXml(doc, false, log)) state.SkipWithError("loadXml failed");
    benchmark::DoNotOptimize(root.get());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getSize()));
}

void BM_Libxml2ReadMemory(benchmark::State& state) {
  const StringBuffer& doc = document();
  for (auto _ : state) {
    xmlDocPtr parsed = xmlReadMemory(doc.getString(), static_cast<int>(doc.getSize()), "bench.xml", nullptr,
                                     XML_PARSE_NONET | XML_PARSE_HUGE);
    if (!parsed) state.SkipWithError("xmlReadMemory failed");
    xmlFreeDoc(parsed);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.getSize()));
}

}  // namespace

BENCHMARK(BM_XmlScanner)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ClsXmlLoad)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Libxml2ReadMemory)->Unit(benchmark::kMillisecond)->MinTime(2.0);

BENCHMARK_MAIN();
