// Replays the saved findings of the fuzz targets above the support layer (ASN.1 to XML,
// loading, the canonicalization API, verification) through the targets' own code, built
// here without libFuzzer, and checks what the fixed findings now give.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "fuzz/fuzz_asn1.cpp"
#include "fuzz/fuzz_canonicalize.cpp"
#include "fuzz/fuzz_load.cpp"
#include "fuzz/fuzz_verify.cpp"

namespace fs = std::filesystem;

TEST(FuzzRegressions, EveryTargetReplaysItsFindings) {
  using Target = int (*)(const uint8_t*, size_t);
  const std::map<std::string, Target> targets = {
      {"fuzz_asn1", fuzz_asn1::run}, {"fuzz_canonicalize", fuzz_canonicalize::run},
      {"fuzz_load", fuzz_load::run}, {"fuzz_verify", fuzz_verify::run},
      {"fuzz_coding", nullptr},      {"fuzz_xmlcanon", nullptr},  // replayed by test_support
  };
  const fs::path root = fs::path(testsupport::sourceDir()) / "fuzz" / "regressions";
  int replayed = 0;
  for (const auto& dir : fs::directory_iterator(root)) {
    if (!dir.is_directory()) continue;
    const auto target = targets.find(dir.path().filename().string());
    ASSERT_NE(target, targets.end()) << "no fuzz target named " << dir.path().filename();
    if (!target->second) continue;
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(dir.path())) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
      SCOPED_TRACE(file.string());
      const std::string bytes = testsupport::readFile(file.string());
      target->second(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++replayed;
    }
  }
  EXPECT_GE(replayed, 2);
}

// A SEQUENCE or SET in primitive form comes back as it was, through a generic element.
TEST(FuzzRegressions, PrimitiveConstructedTypesRoundTrip) {
  const struct {
    std::string der;
    std::string rendered;
  } cases[] = {
      {std::string("\x10\x00", 2), "<universal tag=\"16\" constructed=\"0\"/>"},
      {std::string("\x11\x01\x05", 3), "<universal tag=\"17\" constructed=\"0\">BQ==</universal>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rendered);
    StringBuffer xml;
    LogNull log;
    ASSERT_TRUE(Asn1Xml::derToXml(DataBuffer(c.der.data(), c.der.size()), false, false, xml, nullptr, log));
    EXPECT_EQ(xml.str(), c.rendered);
    RcPtr<ClsXml> root(ClsXml::createNewCls());
    ASSERT_TRUE(root->loadXml(xml, true, log));
    DataBuffer back;
    ASSERT_TRUE(Asn1Xml::xmlToDer(root.get(), back, log));
    EXPECT_EQ(back.view(), c.der);
  }
}
