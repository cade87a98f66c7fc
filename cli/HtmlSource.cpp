#include "cli/HtmlSource.h"

#include <algorithm>
#include <string_view>

#include "cli/HtmlText.h"

namespace cli::html {

namespace {

using Kind = SourceRegion::Kind;

std::string referenceLabel(int sig, const nlohmann::ordered_json& ref) {
  std::string label = "signature " + std::to_string(sig) + ", reference " + text(ref, "index");
  const std::string uri = text(ref, "uri");
  label += uri.empty() ? " (whole document)" : " (" + uri + ")";
  return label;
}

// The reference's coverage and removals; a whole-document reference covers [0, size).
void addReferenceRegions(std::vector<SourceRegion>& regions, const nlohmann::ordered_json& ref, int sig, int number,
                         long long documentSize) {
  const nlohmann::ordered_json* coverage = object(ref, "coverage");
  if (!coverage) return;
  const std::string label = referenceLabel(sig, ref);
  const std::string kind = text(*coverage, "kind");
  SourceRegion covered{Kind::Covered, -1, -1, number, sig, label};
  if (kind == "document" && documentSize > 0) {
    covered.start = 0;
    covered.end = documentSize;
  } else if (const nlohmann::ordered_json* element = object(*coverage, "element")) {
    covered.start = offset(*element, "start");
    covered.end = offset(*element, "end");
  }
  if (covered.start >= 0 && covered.end > covered.start) regions.push_back(covered);
  if (const nlohmann::ordered_json* removed = array(*coverage, "removed")) {
    for (const nlohmann::ordered_json& r : *removed) {
      SourceRegion cut{
          Kind::Removed, offset(r, "start"), offset(r, "end"), number, sig, label + ": removed by " + text(r, "by")};
      if (cut.start >= 0 && cut.end > cut.start) regions.push_back(cut);
    }
  }
}

// Whether the segment [a, b) lies inside the region; segments never straddle a region's
// edge, since every edge is a segment boundary.
bool inside(const SourceRegion& r, long long a, long long b) { return r.start <= a && b <= r.end; }

// The regions, with each reference's removals at hand so that styling a segment takes
// time in proportion to the regions, not their square.
struct RegionIndex {
  explicit RegionIndex(const std::vector<SourceRegion>& all) : regions(all) {
    for (const SourceRegion& r : regions) {
      if (r.kind != Kind::Removed) continue;
      if (static_cast<size_t>(r.reference) >= removedBy.size()) removedBy.resize(r.reference + 1);
      removedBy[r.reference].push_back(&r);
    }
  }
  bool removedHere(int reference, long long a, long long b) const {
    if (reference < 0 || static_cast<size_t>(reference) >= removedBy.size()) return false;
    for (const SourceRegion* cut : removedBy[reference])
      if (inside(*cut, a, b)) return true;
    return false;
  }
  const std::vector<SourceRegion>& regions;
  std::vector<std::vector<const SourceRegion*>> removedBy;
};

// The classes and tooltip of one segment: tinted by the innermost reference that signed
// it (covered and not removed by that reference's transforms), struck through when some
// reference's transforms removed it and no reference signed it, marked inside a signature.
struct SegmentStyle {
  std::string classes;
  std::string title;
};

SegmentStyle styleOf(const RegionIndex& index, long long a, long long b) {
  const SourceRegion* innermost = nullptr;
  bool removed = false, signature = false;
  std::string title;
  for (const SourceRegion& r : index.regions) {
    if (!inside(r, a, b)) continue;
    if (r.kind != Kind::Covered) {
      (r.kind == Kind::Signature ? signature : removed) = true;
      title += r.label + "\n";
      continue;
    }
    if (index.removedHere(r.reference, a, b)) continue;
    title += "signed by " + r.label + "\n";
    if (!innermost || r.end - r.start < innermost->end - innermost->start) innermost = &r;
  }
  SegmentStyle style;
  if (innermost) style.classes = "t" + std::to_string(innermost->reference % kTintCount);
  if (removed && !innermost) style.classes += style.classes.empty() ? "rm" : " rm";
  if (signature) style.classes += style.classes.empty() ? "sg" : " sg";
  if (!title.empty()) title.pop_back();
  style.title = std::move(title);
  return style;
}

// Renders the shown text [base, base + text.size()) of the document cut at every region edge.
void appendSegments(std::string& out, const RegionIndex& index, long long base, std::string_view shown) {
  const std::vector<SourceRegion>& regions = index.regions;
  const long long limit = base + static_cast<long long>(shown.size());
  std::vector<long long> cuts{base, limit};
  for (const SourceRegion& r : regions) {
    if (r.start > base && r.start < limit) cuts.push_back(r.start);
    if (r.end > base && r.end < limit) cuts.push_back(r.end);
  }
  std::sort(cuts.begin(), cuts.end());
  cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
  for (size_t i = 0; i + 1 < cuts.size(); ++i) {
    const long long a = cuts[i], b = cuts[i + 1];
    for (const SourceRegion& r : regions) {
      if (r.kind == Kind::Signature && r.start == a)
        out += "<span class=\"sig-mark\">signature " + std::to_string(r.signature) + "</span>";
    }
    const std::string_view piece = shown.substr(static_cast<size_t>(a - base), static_cast<size_t>(b - a));
    const SegmentStyle style = styleOf(index, a, b);
    if (style.classes.empty()) {
      appendEscaped(out, piece);
      continue;
    }
    out += "<span class=\"" + style.classes + "\" title=\"";
    appendEscaped(out, style.title);
    out += "\">";
    appendEscaped(out, piece);
    out += "</span>";
  }
}

// The start of the UTF-8 character at or before i (after i when forward), so that a cut
// never splits a character.
size_t characterStart(std::string_view s, size_t i, bool forward) {
  const auto continuation = [&](size_t k) { return (static_cast<unsigned char>(s[k]) & 0xC0) == 0x80; };
  if (forward) {
    while (i < s.size() && continuation(i)) ++i;
  } else {
    while (i > 0 && i < s.size() && continuation(i)) --i;
  }
  return i;
}

void appendLegend(std::string& out, const std::vector<SourceRegion>& regions) {
  out += "<ul class=\"legend\">";
  for (const SourceRegion& r : regions) {
    if (r.kind != Kind::Covered) continue;
    out += "<li><span class=\"swatch t" + std::to_string(r.reference % kTintCount) + "\"></span>";
    appendEscaped(out, r.label);
    out += " <span class=\"span\">bytes " + std::to_string(r.start) + "&ndash;" + std::to_string(r.end) +
           "</span></li>";
  }
  out +=
      "<li><span class=\"swatch rm\">abc</span>removed by a reference&#39;s transforms, not signed</li>"
      "<li><span class=\"swatch sg\">abc</span>a signature&#39;s own element</li></ul>";
}

}  // namespace

std::vector<SourceRegion> sourceRegions(const nlohmann::ordered_json& fileReport) {
  std::vector<SourceRegion> regions;
  const nlohmann::ordered_json* source = object(fileReport, "source");
  const long long size = source ? offset(*source, "size") : -1;
  const nlohmann::ordered_json* signatures = array(fileReport, "signatures");
  if (!signatures) return regions;
  int number = 0;
  for (const nlohmann::ordered_json& sig : *signatures) {
    const int sigIndex = static_cast<int>(std::max(0LL, offset(sig, "index")));
    if (const nlohmann::ordered_json* refs = array(sig, "references"))
      for (const nlohmann::ordered_json& ref : *refs) addReferenceRegions(regions, ref, sigIndex, number++, size);
    if (const nlohmann::ordered_json* span = object(sig, "signatureSpan")) {
      SourceRegion own{Kind::Signature,
                       offset(*span, "start"),
                       offset(*span, "end"),
                       -1,
                       sigIndex,
                       "signature " + std::to_string(sigIndex) + " (its own element)"};
      if (own.start >= 0 && own.end > own.start) regions.push_back(own);
    }
  }
  return regions;
}

void appendSourceView(std::string& out, const nlohmann::ordered_json& fileReport, size_t showLimit) {
  out += "<section class=\"source\"><h3>Document source</h3>";
  const nlohmann::ordered_json* source = object(fileReport, "source");
  if (!source || !source->contains("head") || !(*source)["head"].is_string()) {
    out += "<p class=\"note\">The report carries no document text.</p></section>";
    return;
  }
  const std::vector<SourceRegion> regions = sourceRegions(fileReport);
  const bool anyCoverage = std::any_of(regions.begin(), regions.end(),
                                       [](const SourceRegion& r) { return r.kind == Kind::Covered; });
  if (anyCoverage) appendLegend(out, regions);
  else out += "<p class=\"note\">The report says nothing about what the references covered: nothing is tinted.</p>";

  // The text shown: the first showLimit bytes, and the last showLimit bytes of what
  // follows them (the report's tail, or the rest of a head too long to show whole).
  const std::string& headText = (*source)["head"].get_ref<const std::string&>();
  const std::string_view first = std::string_view(headText).substr(0, characterStart(headText, showLimit, false));
  std::string_view last;
  long long lastStart = static_cast<long long>(first.size());
  const auto tail = source->find("tail");
  if (tail != source->end() && tail->is_string() && offset(*source, "tailStart") >= 0) {
    last = tail->get_ref<const std::string&>();
    lastStart = offset(*source, "tailStart");
  } else {
    last = std::string_view(headText).substr(first.size());
  }
  const long long firstEnd = static_cast<long long>(first.size());
  size_t skip = last.size() > showLimit ? last.size() - showLimit : 0;
  if (lastStart + static_cast<long long>(skip) < firstEnd)  // a tail repeating part of the head
    skip = static_cast<size_t>(std::min<long long>(firstEnd - lastStart, static_cast<long long>(last.size())));
  skip = characterStart(last, skip, true);
  last = last.substr(skip);
  lastStart += static_cast<long long>(skip);
  const long long size = offset(*source, "size");
  const long long total = size >= 0 ? size : lastStart + static_cast<long long>(last.size());

  const RegionIndex index(regions);
  out += "<pre class=\"document\">";
  appendSegments(out, index, 0, first);
  out += "</pre>";
  const long long gapEnd = last.empty() ? total : lastStart;
  if (gapEnd > firstEnd)
    out += "<p class=\"note gap\">&hellip; " + std::to_string(gapEnd - firstEnd) +
           " bytes not shown (the document has " + std::to_string(total) +
           " bytes; only its first and last parts are shown) &hellip;</p>";
  if (!last.empty()) {
    out += "<pre class=\"document\">";
    appendSegments(out, index, lastStart, last);
    out += "</pre>";
  }
  out += "</section>";
}

}  // namespace cli::html
