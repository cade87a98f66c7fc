// Replays the saved findings of the support-layer fuzz targets (base64/hex coding and the
// canonicalizer) through the targets' own code, built here without libFuzzer, and runs
// the targets' invariants (round trips, canonical output canonical again, failures that
// leave the output alone) over edge inputs. A broken invariant aborts the test; memory
// errors show under the sanitizer build.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "fuzz/fuzz_coding.cpp"
#include "fuzz/fuzz_xmlcanon.cpp"

namespace fs = std::filesystem;

namespace {

// Runs every file of fuzz/regressions/<target>/ through run; the number of files.
int replay(const std::string& target, int (*run)(const uint8_t*, size_t)) {
  const fs::path dir = fs::path(testsupport::sourceDir()) / "fuzz" / "regressions" / target;
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) return 0;
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(dir)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.string());
    const std::string bytes = testsupport::readFile(file.string());
    run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  return static_cast<int>(files.size());
}

}  // namespace

TEST(FuzzRegressions, SupportTargetsReplayTheirFindings) {
  std::printf("replayed %d coding and %d canonicalizer findings\n", replay("fuzz_coding", fuzz_coding::run),
              replay("fuzz_xmlcanon", fuzz_xmlcanon::run));
}

TEST(FuzzRegressions, SupportTargetInvariantsHoldOnEdgeInputs) {
  const std::string xml[] = {
      "<r a=\"&#9;&#xD;&#xA; x\">\r\n&#xD;&gt;]]&gt;</r>",
      "<a xmlns=\"urn:u\" xmlns:p=\"urn:p\"><b xmlns=\"\"><p:c p:x=\"1\" y=\"2\"/></b></a>",
      "<!DOCTYPE r [<!ATTLIST r d CDATA \"x&#9;y\" Id ID #IMPLIED><!ENTITY e \"&#60;&#60;\">]><r Id=\"i\">&e;</r>",
      "<?pi data?><!--before--><r xml:space=\"preserve\" xml:lang=\"en\"><s xml:lang=\"\"/></r><!--after-->",
      "<r><![CDATA[<&>]]]]><![CDATA[>]]></r>",
      "<e:r xmlns:e=\"urn:e\" authenticate=\"true\"><e:s authenticate=\"true\" Id=\"x\"/></e:r>",
      "\xef\xbb\xbf<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>\xc3\xa9</r>",
  };
  for (const std::string& text : xml) {
    SCOPED_TRACE(text);
    fuzz_xmlcanon::run(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    // The target chooses its settings from the input's tail: a trailing comment varies them.
    for (int k = 0; k < 16; ++k) {
      const std::string varied = text + "<!--" + std::to_string(k) + "-->";
      fuzz_xmlcanon::run(reinterpret_cast<const uint8_t*>(varied.data()), varied.size());
    }
  }
  const std::string coded[] = {"", " QQ== ", "QQ", "Q===", "QUJD\nREVG", "ab cd", "abc", "=", "AAAA=AAA", "\xff\x00"};
  for (const std::string& text : coded) {
    SCOPED_TRACE(text);
    fuzz_coding::run(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
}
