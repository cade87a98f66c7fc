// The validation report as one self-contained HTML page, rendered from the report JSON
// alone (one object per file, as `verify --report` prints them) so that anything holding
// reports can render them. All text is escaped; the page loads nothing from anywhere, and
// its content security policy forbids it to.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cli {

struct HtmlReportOptions {
  // The most of a document's first part, and of its last part, the page shows (bytes),
  // and the most of all documents' text together: the page stays a few megabytes
  // whatever the reports carry, with at least minimumShown bytes of each part.
  size_t sourceShowLimit = 256 * 1024;
  size_t pageSourceBudget = 4 * 1024 * 1024;
  size_t minimumShown = 8 * 1024;
};

// The page for the reports of every file, in order. Never throws on a report of an
// unexpected shape: what is missing is left out.
std::string renderHtmlReport(const std::vector<nlohmann::ordered_json>& fileReports,
                             const HtmlReportOptions& options = HtmlReportOptions());

}  // namespace cli
