// XmlCanon where a case needs code (its vectors are in data/canon.txt): the output
// buffer on failure, cut spans with output handed to a sink, very many attributes.
#include <string>

#include "XmlTestHelpers.h"

using xmltest::canonicalize;

// A failed call leaves the output as it was; a successful one appends to it (the error
// texts themselves are cases of data/canon.txt).
TEST(XmlCanon, FailureLeavesOutputAsItWasAndSuccessAppends) {
  XmlCanon canon;
  _btLogger log;
  StringBuffer out("kept|");
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<a>\n<b></a>"), nullptr, 0, out, log));
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<r/>"), "nope", 0, out, log));
  EXPECT_EQ(out.str(), "kept|");
  EXPECT_TRUE(canon.xmlCanonicalize(StringBuffer("<r/>"), nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|<r></r>");
}

// A cut-out span is written as if it had been removed from the text, and output handed
// to a sink in pieces is the same as output appended in one piece.
TEST(XmlCanon, CutSpanAndPiecewiseOutputMatchTheCutText) {
  std::string body;
  for (int i = 0; body.size() < 300 * 1024; ++i)
    body += "<p:i n=\"" + std::to_string(i) + "\" xmlns:q=\"urn:q\">t &amp; &#x3C; \r\n</p:i>";
  const std::string cut = "<Signature xmlns=\"urn:sig\" xml:lang=\"x\"><!--c--><v>1</v></Signature>";
  const std::string head = "<r xmlns:p=\"urn:p\" xmlns=\"urn:d\">text ";
  const std::string tail = body + "</r>";
  const std::string whole = head + cut + tail;
  const std::string removed = head + tail;

  for (const int method : {1, 2}) {
    XmlCanon expected;
    expected.canonMethod = method;
    StringBuffer want;
    LogNull log;
    ASSERT_TRUE(expected.xmlCanonicalize(StringBuffer(removed), nullptr, 0, want, log));

    XmlCanon canon;
    canon.canonMethod = method;
    canon.cutStart = head.size();
    canon.cutLength = cut.size();
    std::string pieces;
    int calls = 0;
    canon.outputSink = [&](std::string_view piece) {
      pieces.append(piece);
      ++calls;
    };
    StringBuffer untouched("kept");
    ASSERT_TRUE(canon.xmlCanonicalize(StringBuffer(whole), nullptr, 0, untouched, log));
    EXPECT_EQ(pieces, want.str()) << method;
    EXPECT_GT(calls, 2);
    EXPECT_EQ(untouched.str(), "kept");
  }
}

TEST(XmlCanon, ThousandsOfNamespacesAndAttributesAreSorted) {
  // Many namespaces and attributes within the scanner's limits are sorted and written.
  std::string many = "<r";
  for (int i = 12000; i > 0; --i) {
    const std::string n = std::to_string(i);
    many += " xmlns:p" + n + "=\"urn:" + n + "\" p" + n + ":a=\"v\" a" + n + "=\"v\"";
  }
  many += "/>";
  for (int method : {1, 2}) {
    const std::string out = canonicalize(many, nullptr, {method});
    const std::string head = "<r xmlns:p1=\"urn:1\" xmlns:p10=\"urn:10\" xmlns:p100=\"urn:100\"";
    EXPECT_EQ(out.substr(0, head.size()), head);
    EXPECT_NE(out.find("xmlns:p9999=\"urn:9999\" a1=\"v\" a10=\"v\" a100=\"v\""), std::string::npos);
    EXPECT_NE(out.find("a9999=\"v\" p1:a=\"v\" p10:a=\"v\""), std::string::npos);
  }
}
