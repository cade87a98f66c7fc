#include "cli/HtmlReport.h"

#include <algorithm>

#include "cli/HtmlPageAssets.h"
#include "cli/HtmlSignature.h"
#include "cli/HtmlSource.h"
#include "cli/HtmlText.h"
#include "crypto/_btHash.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/StringBuffer.h"

namespace cli {

namespace {

using namespace html;

constexpr int kSha256 = 7;

std::string signatureAnchor(size_t file, size_t sig) { return "f" + std::to_string(file) + "-s" + std::to_string(sig); }

// Only the page's own script may run and nothing may be fetched: should any text ever
// slip through unescaped, the browser still refuses to run or load it.
std::string contentSecurityPolicy() {
  const std::string_view script = pageScript();
  DataBuffer digest;
  StringBuffer b64;
  if (_btHash::doHash(script.data(), script.size(), kSha256, digest))
    ContentCoding::encodeBase64(digest.getData2(), digest.getSize(), b64);
  std::string policy = "default-src 'none'; style-src 'unsafe-inline'; img-src data:; script-src ";
  policy += b64.getSize() ? "'sha256-" + std::string(b64.getString()) + "'" : "'none'";
  return policy;
}

void appendContents(std::string& out, const std::vector<nlohmann::ordered_json>& reports) {
  out += "<ol class=\"toc\">";
  for (size_t f = 0; f < reports.size(); ++f) {
    out += "<li><a href=\"#f" + std::to_string(f) + "\">";
    appendEscaped(out, text(reports[f], "file"));
    out += "</a> ";
    if (const nlohmann::ordered_json* sigs = array(reports[f], "signatures")) {
      for (size_t s = 0; s < sigs->size(); ++s) {
        const std::string verdict = verdictOf((*sigs)[s]);
        out += "<a class=\"chip " + verdict + "\" href=\"#" + signatureAnchor(f, s) + "\">" + std::to_string(s) + ": " +
               verdict + "</a>";
      }
    }
    if (!text(reports[f], "error").empty()) out += "<span class=\"chip invalid\">error</span>";
    out += "</li>";
  }
  out += "</ol>";
}

// The list as one comma-separated text ("none" when empty or absent).
std::string joined(const nlohmann::ordered_json* list) {
  std::string all;
  if (list)
    for (const nlohmann::ordered_json& item : *list) {
      if (!all.empty()) all += ", ";
      all += item.is_string() ? item.get<std::string>() : item.dump();
    }
  return all.empty() ? "none" : all;
}

void appendFileFacts(std::string& out, const nlohmann::ordered_json& report) {
  const nlohmann::ordered_json* family = object(report, "family");
  const std::string recognised = family ? text(*family, "recognised") : std::string();
  out += "<dl class=\"file-facts\"><dt>Document family</dt><dd>";
  appendEscaped(out, recognised.empty() ? "none recognised" : recognised);
  out += "</dd><dt>Family options</dt><dd><code>";
  appendEscaped(out, joined(family ? array(*family, "options") : nullptr));
  out += "</code></dd>";
  const nlohmann::ordered_json* suggested = family ? array(*family, "suggested") : nullptr;
  if (suggested && !suggested->empty()) {
    out += "<dt>The family needs</dt><dd><code>";
    appendEscaped(out, joined(suggested));
    out += "</code></dd>";
  }
  out += "<dt>Options given</dt><dd><code>";
  appendEscaped(out, joined(array(report, "options")));
  out += "</code></dd></dl>";
}

void appendFile(std::string& out, const nlohmann::ordered_json& report, size_t index,
                const HtmlReportOptions& options) {
  out += "<section class=\"file\" id=\"f" + std::to_string(index) + "\"><h2>";
  appendEscaped(out, text(report, "file"));
  out += "</h2>";
  const std::string error = text(report, "error");
  if (!error.empty()) {
    out += "<div class=\"banner invalid\" data-verdict=\"error\"><span class=\"verdict\">Not verified</span><p>";
    appendEscaped(out, error);
    out += "</p></div>";
  }
  appendFileFacts(out, report);
  appendWarnings(out, report);
  int tint = 0;
  if (const nlohmann::ordered_json* sigs = array(report, "signatures")) {
    for (size_t s = 0; s < sigs->size(); ++s) {
      appendSignature(out, (*sigs)[s], signatureAnchor(index, s), tint);
      if (const nlohmann::ordered_json* refs = array((*sigs)[s], "references")) tint += static_cast<int>(refs->size());
    }
  }
  if (error.empty()) appendSourceView(out, report, options.sourceShowLimit);
  out += "</section>";
}

}  // namespace

std::string renderHtmlReport(const std::vector<nlohmann::ordered_json>& fileReports, const HtmlReportOptions& options) {
  std::string out;
  out +=
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
      contentSecurityPolicy() +
      "\">"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"><title>Signature report";
  if (fileReports.size() == 1) {
    out += ": ";
    appendEscaped(out, text(fileReports[0], "file"));
  }
  out += "</title><style>";
  out += pageStyle();
  out += "</style></head><body><header><h1>Signature validation report</h1><p class=\"meta\">";
  appendEscaped(out, fileReports.empty() ? std::string() : text(fileReports[0], "tool"));
  out += " &middot; " + std::to_string(fileReports.size()) + (fileReports.size() == 1 ? " file" : " files") + "</p>";
  appendContents(out, fileReports);
  out +=
      "<div class=\"toolbar\"><input id=\"log-filter\" type=\"search\" placeholder=\"Filter log lines\" "
      "aria-label=\"Filter log lines\"><span id=\"filter-count\"></span><button type=\"button\" data-open=\"failing\">"
      "Failing branches</button><button type=\"button\" data-open=\"all\">Open all</button><button type=\"button\" "
      "data-open=\"none\">Close all</button></div></header><main>";
  HtmlReportOptions perFile = options;
  if (!fileReports.empty())
    perFile.sourceShowLimit = std::min(
        options.sourceShowLimit, std::max(options.minimumShown, options.pageSourceBudget / (2 * fileReports.size())));
  for (size_t f = 0; f < fileReports.size(); ++f) appendFile(out, fileReports[f], f, perFile);
  out += "</main><script>";
  out += pageScript();
  out += "</script></body></html>\n";
  return out;
}

}  // namespace cli
