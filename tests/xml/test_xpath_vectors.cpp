// XPath evaluation and node-set canonicalization, driven by the cases of
// data/xpath.txt (expression + document -> nodes, value, canonical form or error), and
// by the node-set outputs recorded beside two interop signatures of the shared corpus.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "VectorFile.h"
#include "xml/NodeSetTransforms.h"
#include "xml/XPathEval.h"

namespace {

using namespace xml;

std::string describe(const XPathDocument& doc, uint32_t i) {
  const XPathNode& n = doc.node(i);
  switch (n.kind) {
    case XPathNodeKind::Root: return "/";
    case XPathNodeKind::Element: return n.name;
    case XPathNodeKind::Attribute: return "@" + n.name + "=" + n.value;
    case XPathNodeKind::Namespace: return "xmlns:" + n.name + "=" + n.value;
    case XPathNodeKind::Text: return "text:" + n.value;
    case XPathNodeKind::Comment: return "comment:" + n.value;
    default: return "pi:" + n.name;
  }
}

std::map<std::string, std::string> namespacesOf(const std::string& spec) {
  std::map<std::string, std::string> out;
  std::istringstream in(spec);
  std::string binding;
  while (in >> binding) out[binding.substr(0, binding.find('='))] = binding.substr(binding.find('=') + 1);
  return out;
}

NodeSetCanonOptions canonOptions(const std::string& spec) {
  NodeSetCanonOptions o;
  std::istringstream in(spec);
  std::string word;
  while (in >> word) {
    if (word == "inclusive11") o.method = NodeSetCanonMethod::Inclusive11;
    if (word == "exclusive") o.method = NodeSetCanonMethod::Exclusive;
    if (word == "comments") o.comments = true;
    if (word.rfind("prefixes=", 0) == 0) {
      std::istringstream list(word.substr(9));
      std::string p;
      while (std::getline(list, p, ',')) o.inclusivePrefixes.push_back(p == "#default" ? "" : p);
    }
  }
  return o;
}

// Runs one case; the outcome as text: the canonical form, the nodes (one per line), the
// value, or "error: ..." with the evaluator's message.
std::string run(const vectors::Case& c) {
  auto field = [&](const char* k) { return c.get(k); };
  NodeSetState state;
  std::string error;
  if (!state.load(field("doc"), error)) return "error: " + error;
  const size_t steps = field("steps").empty() ? XPathEvaluator::kDefaultMaxSteps : std::stoul(field("steps"));
  const auto prefixes = namespacesOf(field("ns"));

  if (!field("eval").empty()) {
    XPathExpression expr;
    if (!expr.compile(field("eval"), error)) return "error: " + error;
    XPathEvaluator ev(state.document());
    ev.setNamespaces(prefixes);
    ev.setMaxSteps(steps);
    NodeList nodes;
    if (ev.evaluateNodeSet(expr, 0, nodes)) {
      std::string out;
      for (uint32_t n : nodes) out += (out.empty() ? "" : "\n") + describe(state.document(), n);
      return out;
    }
    std::string value;
    XPathEvaluator again(state.document());
    again.setNamespaces(prefixes);
    again.setMaxSteps(steps);
    if (ev.error().find("does not give a node-set") == std::string::npos) return "error: " + ev.error();
    if (!again.evaluateString(expr, 0, value)) return "error: " + again.error();
    return value;
  }

  if (!state.selectByUri(field("uri"), error)) return "error: " + error;
  if (!field("xpath").empty()) {
    XPathFilterExpr f;
    f.expression = field("xpath");
    f.namespaces = prefixes;
    if (!state.applyXPath(f, steps, error)) return "error: " + error;
  }
  if (c.has("filter")) {
    std::vector<XPathFilterExpr> filters;
    for (const std::string& spec : c.all("filter")) {
      XPathFilterExpr f;
      f.filter = spec.substr(0, spec.find(' '));
      f.expression = spec.substr(spec.find(' ') + 1);
      f.namespaces = prefixes;
      filters.push_back(f);
    }
    if (!state.applyFilter2(filters, steps, error)) return "error: " + error;
  }
  std::string out;
  state.canonicalize(canonOptions(field("canon")), out);
  return out;
}

}  // namespace

TEST(XPathVectors, CasesOfTheVectorFile) {
  const auto cases = vectors::read(
      testsupport::sourceDir() + "/tests/xml/data/xpath.txt",
      {"doc", "ns", "uri", "xpath", "filter", "eval", "canon", "steps", "expect", "error"});
  ASSERT_GT(cases.size(), 20u);
  for (const vectors::Case& c : cases) {
    SCOPED_TRACE(c.where());
    const std::string got = run(c);
    if (c.has("error")) {
      EXPECT_EQ(got.rfind("error: ", 0), 0u) << got;
      EXPECT_NE(got.find(c.get("error")), std::string::npos) << got;
    } else {
      EXPECT_EQ(got, c.get("expect"));
    }
  }
}

// The interop signatures whose references select nodes with XPath and XPath Filter 2.0
// come with the canonical form of each reference (file i for the i-th reference): the
// transforms are read from the signature itself and applied to the document.
TEST(XPathVectors, RecordedNodeSetOutputsOfInteropSignatures) {
  REQUIRE_CORPUS();
  const struct {
    const char* document;
    const char* outputPrefix;
    int references;
  } sets[] = {
      {"merlin-c14n-three/signature.xml", "merlin-c14n-three/c14n-", 27},
      {"merlin-xpath-filter2-three/sign-spec.xml", "merlin-xpath-filter2-three/sign-spec-c14n-", 2},
      {"merlin-xpath-filter2-three/sign-xfdl.xml", "merlin-xpath-filter2-three/sign-xfdl-c14n-", 1},
  };
  const std::string dir = testsupport::corpusDir() + "/interop/xmlsec/";
  for (const auto& set : sets) {
    const std::string text = testsupport::readFile(dir + set.document);
    NodeSetState probe;
    std::string error;
    ASSERT_TRUE(probe.load(text, error)) << error;
    const XPathDocument& d = probe.document();
    auto attr = [&](uint32_t e, const char* name) {
      for (uint32_t a = d.node(e).firstAttribute; a < d.node(e).firstAttribute + d.node(e).numAttributes; ++a)
        if (d.node(a).name == name) return d.node(a).value;
      return std::string();
    };
    int index = 0;
    for (uint32_t r = 0; r < d.size(); ++r) {
      if (d.node(r).kind != XPathNodeKind::Element || d.node(r).localName() != "Reference") continue;
      SCOPED_TRACE(std::string(set.document) + " reference " + std::to_string(index));
      NodeSetState state;
      ASSERT_TRUE(state.load(text, error));
      std::string uri = attr(r, "URI");
      ASSERT_TRUE(state.selectByUri(uri.empty() ? uri : uri.substr(1), error)) << error;
      NodeSetCanonOptions canon;
      for (uint32_t t = r; t < d.node(r).subtreeEnd; ++t) {
        if (d.node(t).kind != XPathNodeKind::Element || d.node(t).localName() != "Transform") continue;
        const std::string algorithm = attr(t, "Algorithm");
        std::vector<XPathFilterExpr> exprs;
        for (uint32_t x = t + 1; x < d.node(t).subtreeEnd; ++x) {
          if (d.node(x).kind != XPathNodeKind::Element) continue;
          if (d.node(x).localName() == "XPath")
            exprs.push_back({d.stringValue(x), state.namespacesAt(x), state.hereNodeOf(x), attr(x, "Filter")});
          if (d.node(x).localName() == "InclusiveNamespaces") {
            std::istringstream list(attr(x, "PrefixList"));
            std::string p;
            while (list >> p) canon.inclusivePrefixes.push_back(p == "#default" ? "" : p);
          }
        }
        if (algorithm == "http://www.w3.org/TR/1999/REC-xpath-19991116") {
          ASSERT_TRUE(state.applyXPath(exprs.at(0), XPathEvaluator::kDefaultMaxSteps, error)) << error;
        } else if (algorithm == "http://www.w3.org/2002/06/xmldsig-filter2") {
          ASSERT_TRUE(state.applyFilter2(exprs, XPathEvaluator::kDefaultMaxSteps, error)) << error;
        } else if (algorithm == "http://www.w3.org/2000/09/xmldsig#enveloped-signature") {
          for (uint32_t s = r; s != UINT32_MAX; s = d.node(s).parent)
            if (d.node(s).localName() == "Signature") state.removeSubtree(s);
        } else if (algorithm == "http://www.w3.org/2001/10/xml-exc-c14n#") {
          canon.method = NodeSetCanonMethod::Exclusive;
        }
      }
      std::string out;
      state.canonicalize(canon, out);
      EXPECT_EQ(out, testsupport::readFile(dir + set.outputPrefix + std::to_string(index) + ".txt"));
      ++index;
    }
    EXPECT_EQ(index, set.references);
  }
}
