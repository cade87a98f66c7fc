// The parsed form of an XPath expression, shared by the parser and the evaluator.
#pragma once

#include <string>
#include <vector>

#include "xml/XPathEval.h"

namespace xml {

enum class XPathAxis {
  Ancestor,
  AncestorOrSelf,
  Attribute,
  Child,
  Descendant,
  DescendantOrSelf,
  Following,
  FollowingSibling,
  Namespace,
  Parent,
  Preceding,
  PrecedingSibling,
  Self
};

enum class XPathTest { Name, AnyName, PrefixAny, Node, Text, Comment, PI };

struct XPathStep {
  XPathAxis axis = XPathAxis::Child;
  XPathTest test = XPathTest::Node;
  std::string prefix;  // Name, PrefixAny
  std::string local;   // Name; PI: the target literal ("" = any)
  std::vector<int> predicates;
};

enum class XPathOp {
  Or,
  And,
  Eq,
  Ne,
  Lt,
  Le,
  Gt,
  Ge,
  Add,
  Sub,
  Mul,
  Div,
  Mod,
  Neg,
  Union,
  Literal,
  Number,
  Call,
  Path,  // [filter expression with predicates] then steps; absolute when it starts at the root
};

struct XPathExprNode {
  XPathOp op = XPathOp::Literal;
  std::vector<int> args;  // operands; Call: arguments
  std::string text;       // Literal value; Call: function name
  double number = 0;
  // Path
  int filter = -1;  // primary expression, or -1 for a location path
  std::vector<int> filterPredicates;
  bool absolute = false;
  std::vector<XPathStep> steps;
};

struct XPathCompiled {
  std::vector<XPathExprNode> nodes;
  int root = -1;
};

}  // namespace xml
