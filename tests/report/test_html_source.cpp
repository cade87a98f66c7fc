// The document source view of the HTML report, from reports in source_cases.json: which
// text each reference tints, what is struck through and marked, and which parts of a large
// document are shown. The whole page, in a browser, is checked by run.py.
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli/HtmlReport.h"

TEST(HtmlReportSource, CasesRenderAsExpected) {
  std::ifstream in(std::string(XMLDSIG_SOURCE_DIR) + "/tests/report/source_cases.json");
  ASSERT_TRUE(in) << "source_cases.json not found";
  const nlohmann::ordered_json cases = nlohmann::ordered_json::parse(in);
  for (const nlohmann::ordered_json& c : cases) {
    SCOPED_TRACE(c["name"].get<std::string>());
    cli::HtmlReportOptions options;
    options.sourceShowLimit = c.value("showLimit", options.sourceShowLimit);
    options.minimumShown = 1;
    const std::string page = cli::renderHtmlReport({c["report"]}, options);
    const std::string source = page.substr(page.find("<section class=\"source\">"));
    for (const auto& expected : c["shows"])
      EXPECT_NE(source.find(expected.get<std::string>()), std::string::npos)
          << "missing: " << expected << "\nin: " << source.substr(0, source.find("</section>"));
    for (const auto& unexpected : c["hides"])
      EXPECT_EQ(source.find(unexpected.get<std::string>()), std::string::npos) << "present: " << unexpected;
  }
}
