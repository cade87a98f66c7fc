// The document source of one file's report as HTML: the text each reference covered
// tinted in the reference's colour, the parts its transforms removed struck through, and
// each signature's own element marked. Only the text the report carries is shown (a large
// document arrives as its first and last part), within a cap that keeps the page small.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cli::html {

// A byte range [start, end) of the loaded document that the report says something about.
struct SourceRegion {
  enum class Kind { Covered, Removed, Signature };
  Kind kind = Kind::Covered;
  long long start = 0;
  long long end = 0;
  int reference = -1;  // the reference's running number in the file (its tint); -1 for a signature
  int signature = 0;   // index of the signature in the report
  std::string label;   // "signature 0, reference 1 (#props)" and the like
};

// Every region of the file's report, references numbered across its signatures in order.
std::vector<SourceRegion> sourceRegions(const nlohmann::ordered_json& fileReport);

// Number of tint colours the page's style defines; references beyond reuse them in turn.
constexpr int kTintCount = 12;

// Appends the legend and the source view (a note instead when the report has no source).
// showLimit caps each shown part (head, tail) in bytes.
void appendSourceView(std::string& out, const nlohmann::ordered_json& fileReport, size_t showLimit);

}  // namespace cli::html
