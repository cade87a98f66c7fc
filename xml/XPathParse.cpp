// XPath 1.0 expression parser: tokens with the lexical disambiguation rules (an operator
// name or '*' is an operator only after a token that can end an operand), then recursive
// descent over the grammar's precedence levels.
#include <cstdlib>
#include <utility>

#include "xml/XPathAst.h"

namespace xml {

namespace {

enum class Tok {
  End,
  Number,
  Literal,
  Name,
  Star,
  PrefixStar,
  Op,
  Slash,
  DSlash,
  LParen,
  RParen,
  LBracket,
  RBracket,
  Dot,
  DDot,
  At,
  Comma,
  DColon,
  Pipe,
  Dollar
};

struct Token {
  Tok type = Tok::End;
  std::string text;  // Name: qualified name; PrefixStar: the prefix; Op: the operator
  double number = 0;
  size_t pos = 0;
};

bool isNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}
bool isNameChar(char c) { return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

bool tokenize(std::string_view s, std::vector<Token>& out, std::string& error) {
  size_t i = 0;
  auto operandEnded = [&]() {
    if (out.empty()) return false;
    const Token& t = out.back();
    switch (t.type) {
      case Tok::At:
      case Tok::DColon:
      case Tok::LParen:
      case Tok::LBracket:
      case Tok::Comma:
      case Tok::Op:
      case Tok::Slash:
      case Tok::DSlash:
      case Tok::Pipe: return false;
      default: return true;
    }
  };
  while (i < s.size()) {
    const char c = s[i];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      ++i;
      continue;
    }
    Token t;
    t.pos = i;
    auto two = [&](const char* p) { return s.compare(i, 2, p) == 0; };
    if (c == '"' || c == '\'') {
      const size_t close = s.find(c, i + 1);
      if (close == std::string_view::npos) {
        error = "unterminated string literal at position " + std::to_string(i);
        return false;
      }
      t.type = Tok::Literal;
      t.text = std::string(s.substr(i + 1, close - i - 1));
      i = close + 1;
    } else if ((c >= '0' && c <= '9') || (c == '.' && i + 1 < s.size() && s[i + 1] >= '0' && s[i + 1] <= '9')) {
      size_t j = i;
      while (j < s.size() && ((s[j] >= '0' && s[j] <= '9') || s[j] == '.')) ++j;
      t.type = Tok::Number;
      t.number = std::strtod(std::string(s.substr(i, j - i)).c_str(), nullptr);
      i = j;
    } else if (two("//")) {
      t.type = Tok::DSlash, i += 2;
    } else if (two("::")) {
      t.type = Tok::DColon, i += 2;
    } else if (two("..")) {
      t.type = Tok::DDot, i += 2;
    } else if (two("!=") || two("<=") || two(">=")) {
      t.type = Tok::Op, t.text = std::string(s.substr(i, 2)), i += 2;
    } else if (c == '=' || c == '<' || c == '>' || c == '+' || c == '-') {
      t.type = Tok::Op, t.text = std::string(1, c), ++i;
    } else if (c == '*') {
      if (operandEnded()) t.type = Tok::Op, t.text = "*";
      else t.type = Tok::Star;
      ++i;
    } else if (c == '/') {
      t.type = Tok::Slash, ++i;
    } else if (c == '(') {
      t.type = Tok::LParen, ++i;
    } else if (c == ')') {
      t.type = Tok::RParen, ++i;
    } else if (c == '[') {
      t.type = Tok::LBracket, ++i;
    } else if (c == ']') {
      t.type = Tok::RBracket, ++i;
    } else if (c == '.') {
      t.type = Tok::Dot, ++i;
    } else if (c == '@') {
      t.type = Tok::At, ++i;
    } else if (c == ',') {
      t.type = Tok::Comma, ++i;
    } else if (c == '|') {
      t.type = Tok::Pipe, ++i;
    } else if (c == '$') {
      t.type = Tok::Dollar, ++i;
    } else if (isNameStart(c)) {
      size_t j = i;
      while (j < s.size() && isNameChar(s[j])) ++j;
      std::string name(s.substr(i, j - i));
      if (j + 1 < s.size() && s[j] == ':' && s[j + 1] != ':') {
        if (s[j + 1] == '*') {
          t.type = Tok::PrefixStar;
          t.text = name;
          i = j + 2;
          out.push_back(std::move(t));
          continue;
        }
        size_t k = j + 1;
        if (k < s.size() && isNameStart(s[k])) {
          while (k < s.size() && isNameChar(s[k])) ++k;
          name = std::string(s.substr(i, k - i));
          j = k;
        }
      }
      if (operandEnded() && (name == "and" || name == "or" || name == "mod" || name == "div")) t.type = Tok::Op;
      else t.type = Tok::Name;
      t.text = std::move(name);
      i = j;
    } else {
      error = std::string("unexpected character '") + c + "' at position " + std::to_string(i);
      return false;
    }
    out.push_back(std::move(t));
  }
  Token end;
  end.pos = s.size();
  out.push_back(end);
  return true;
}

bool axisByName(const std::string& name, XPathAxis& axis) {
  static const std::pair<const char*, XPathAxis> kAxes[] = {{"ancestor", XPathAxis::Ancestor},
                                                            {"ancestor-or-self", XPathAxis::AncestorOrSelf},
                                                            {"attribute", XPathAxis::Attribute},
                                                            {"child", XPathAxis::Child},
                                                            {"descendant", XPathAxis::Descendant},
                                                            {"descendant-or-self", XPathAxis::DescendantOrSelf},
                                                            {"following", XPathAxis::Following},
                                                            {"following-sibling", XPathAxis::FollowingSibling},
                                                            {"namespace", XPathAxis::Namespace},
                                                            {"parent", XPathAxis::Parent},
                                                            {"preceding", XPathAxis::Preceding},
                                                            {"preceding-sibling", XPathAxis::PrecedingSibling},
                                                            {"self", XPathAxis::Self}};
  for (const auto& a : kAxes)
    if (name == a.first) {
      axis = a.second;
      return true;
    }
  return false;
}

bool isNodeType(const std::string& name) {
  return name == "node" || name == "text" || name == "comment" || name == "processing-instruction";
}

class Parser {
 public:
  Parser(std::vector<Token> tokens, XPathCompiled& out) : m_t(std::move(tokens)), m_out(out) {}

  bool parse(std::string& error) {
    int root = -1;
    if (!orExpr(root)) {
      error = m_error;
      return false;
    }
    if (peek().type != Tok::End) {
      error = "unexpected token at position " + std::to_string(peek().pos);
      return false;
    }
    m_out.root = root;
    return true;
  }

 private:
  const Token& peek(size_t k = 0) const { return m_t[std::min(m_i + k, m_t.size() - 1)]; }
  bool isOp(const char* op) const { return peek().type == Tok::Op && peek().text == op; }
  bool fail(const std::string& what) {
    if (m_error.empty()) m_error = what + " at position " + std::to_string(peek().pos);
    return false;
  }
  int add(XPathExprNode n) {
    m_out.nodes.push_back(std::move(n));
    return static_cast<int>(m_out.nodes.size() - 1);
  }
  int binary(XPathOp op, int a, int b) {
    XPathExprNode n;
    n.op = op;
    n.args = {a, b};
    return add(std::move(n));
  }
  bool guard() { return ++m_depth < 200 || fail("expression nested too deeply"); }

  bool orExpr(int& out) {
    if (!guard() || !andExpr(out)) return false;
    while (isOp("or")) {
      ++m_i;
      int rhs;
      if (!andExpr(rhs)) return false;
      out = binary(XPathOp::Or, out, rhs);
    }
    --m_depth;
    return true;
  }
  bool andExpr(int& out) {
    if (!equalityExpr(out)) return false;
    while (isOp("and")) {
      ++m_i;
      int rhs;
      if (!equalityExpr(rhs)) return false;
      out = binary(XPathOp::And, out, rhs);
    }
    return true;
  }
  bool equalityExpr(int& out) {
    if (!relationalExpr(out)) return false;
    while (isOp("=") || isOp("!=")) {
      const XPathOp op = isOp("=") ? XPathOp::Eq : XPathOp::Ne;
      ++m_i;
      int rhs;
      if (!relationalExpr(rhs)) return false;
      out = binary(op, out, rhs);
    }
    return true;
  }
  bool relationalExpr(int& out) {
    if (!additiveExpr(out)) return false;
    while (isOp("<") || isOp(">") || isOp("<=") || isOp(">=")) {
      const std::string o = peek().text;
      const XPathOp op = o == "<" ? XPathOp::Lt : o == ">" ? XPathOp::Gt : o == "<=" ? XPathOp::Le : XPathOp::Ge;
      ++m_i;
      int rhs;
      if (!additiveExpr(rhs)) return false;
      out = binary(op, out, rhs);
    }
    return true;
  }
  bool additiveExpr(int& out) {
    if (!multiplicativeExpr(out)) return false;
    while (isOp("+") || isOp("-")) {
      const XPathOp op = isOp("+") ? XPathOp::Add : XPathOp::Sub;
      ++m_i;
      int rhs;
      if (!multiplicativeExpr(rhs)) return false;
      out = binary(op, out, rhs);
    }
    return true;
  }
  bool multiplicativeExpr(int& out) {
    if (!unaryExpr(out)) return false;
    while (isOp("*") || isOp("div") || isOp("mod")) {
      const XPathOp op = isOp("*") ? XPathOp::Mul : isOp("div") ? XPathOp::Div : XPathOp::Mod;
      ++m_i;
      int rhs;
      if (!unaryExpr(rhs)) return false;
      out = binary(op, out, rhs);
    }
    return true;
  }
  bool unaryExpr(int& out) {
    if (isOp("-")) {
      ++m_i;
      int operand;
      if (!guard() || !unaryExpr(operand)) return false;
      --m_depth;
      XPathExprNode n;
      n.op = XPathOp::Neg;
      n.args = {operand};
      out = add(std::move(n));
      return true;
    }
    if (!pathExpr(out)) return false;
    while (peek().type == Tok::Pipe) {
      ++m_i;
      int rhs;
      if (!pathExpr(rhs)) return false;
      out = binary(XPathOp::Union, out, rhs);
    }
    return true;
  }

  bool startsPrimary() const {
    const Token& t = peek();
    if (t.type == Tok::LParen || t.type == Tok::Literal || t.type == Tok::Number || t.type == Tok::Dollar) return true;
    return t.type == Tok::Name && peek(1).type == Tok::LParen && !isNodeType(t.text);
  }

  bool pathExpr(int& out) {
    XPathExprNode path;
    path.op = XPathOp::Path;
    if (startsPrimary()) {
      if (!primaryExpr(path.filter)) return false;
      while (peek().type == Tok::LBracket) {
        int pred;
        if (!predicate(pred)) return false;
        path.filterPredicates.push_back(pred);
      }
      if (peek().type != Tok::Slash && peek().type != Tok::DSlash) {
        if (path.filterPredicates.empty()) {
          out = path.filter;  // a plain primary expression
          return true;
        }
        out = add(std::move(path));
        return true;
      }
    } else if (peek().type == Tok::Slash) {
      path.absolute = true;
      ++m_i;
      if (!startsStep()) {  // "/" alone: the root
        out = add(std::move(path));
        return true;
      }
      if (!step(path.steps)) return false;
    } else if (peek().type == Tok::DSlash) {
      path.absolute = true;
    } else if (!step(path.steps)) {
      return false;
    }
    while (peek().type == Tok::Slash || peek().type == Tok::DSlash) {
      if (peek().type == Tok::DSlash) {
        XPathStep any;
        any.axis = XPathAxis::DescendantOrSelf;
        path.steps.push_back(any);
      }
      ++m_i;
      if (!step(path.steps)) return false;
    }
    out = add(std::move(path));
    return true;
  }

  bool startsStep() const {
    switch (peek().type) {
      case Tok::Name:
      case Tok::Star:
      case Tok::PrefixStar:
      case Tok::Dot:
      case Tok::DDot:
      case Tok::At: return true;
      default: return false;
    }
  }

  bool step(std::vector<XPathStep>& steps) {
    XPathStep s;
    if (peek().type == Tok::Dot || peek().type == Tok::DDot) {
      s.axis = peek().type == Tok::Dot ? XPathAxis::Self : XPathAxis::Parent;
      ++m_i;
      steps.push_back(std::move(s));
      return true;
    }
    if (peek().type == Tok::At) {
      s.axis = XPathAxis::Attribute;
      ++m_i;
    } else if (peek().type == Tok::Name && peek(1).type == Tok::DColon) {
      if (!axisByName(peek().text, s.axis)) return fail("unknown axis '" + peek().text + "'");
      m_i += 2;
    }
    const Token& t = peek();
    if (t.type == Tok::Star) {
      s.test = XPathTest::AnyName;
      ++m_i;
    } else if (t.type == Tok::PrefixStar) {
      s.test = XPathTest::PrefixAny;
      s.prefix = t.text;
      ++m_i;
    } else if (t.type == Tok::Name && peek(1).type == Tok::LParen && isNodeType(t.text)) {
      s.test = t.text == "node"      ? XPathTest::Node
               : t.text == "text"    ? XPathTest::Text
               : t.text == "comment" ? XPathTest::Comment
                                     : XPathTest::PI;
      m_i += 2;
      if (s.test == XPathTest::PI && peek().type == Tok::Literal) {
        s.local = peek().text;
        ++m_i;
      }
      if (peek().type != Tok::RParen) return fail("expected ')'");
      ++m_i;
    } else if (t.type == Tok::Name) {
      s.test = XPathTest::Name;
      const size_t colon = t.text.find(':');
      if (colon != std::string::npos) {
        s.prefix = t.text.substr(0, colon);
        s.local = t.text.substr(colon + 1);
      } else {
        s.local = t.text;
      }
      ++m_i;
    } else {
      return fail("expected a node test");
    }
    while (peek().type == Tok::LBracket) {
      int pred;
      if (!predicate(pred)) return false;
      s.predicates.push_back(pred);
    }
    steps.push_back(std::move(s));
    return true;
  }

  bool predicate(int& out) {
    ++m_i;  // '['
    if (!orExpr(out)) return false;
    if (peek().type != Tok::RBracket) return fail("expected ']'");
    ++m_i;
    return true;
  }

  bool primaryExpr(int& out) {
    const Token& t = peek();
    XPathExprNode n;
    switch (t.type) {
      case Tok::LParen:
        ++m_i;
        if (!orExpr(out)) return false;
        if (peek().type != Tok::RParen) return fail("expected ')'");
        ++m_i;
        return true;
      case Tok::Literal:
        n.op = XPathOp::Literal;
        n.text = t.text;
        ++m_i;
        out = add(std::move(n));
        return true;
      case Tok::Number:
        n.op = XPathOp::Number;
        n.number = t.number;
        ++m_i;
        out = add(std::move(n));
        return true;
      case Tok::Dollar: return fail("variables are not supported");
      default: break;
    }
    n.op = XPathOp::Call;
    n.text = t.text;
    m_i += 2;  // name '('
    if (peek().type != Tok::RParen) {
      for (;;) {
        int arg;
        if (!orExpr(arg)) return false;
        n.args.push_back(arg);
        if (peek().type == Tok::Comma) {
          ++m_i;
          continue;
        }
        break;
      }
    }
    if (peek().type != Tok::RParen) return fail("expected ')'");
    ++m_i;
    out = add(std::move(n));
    return true;
  }

  std::vector<Token> m_t;
  size_t m_i = 0;
  int m_depth = 0;
  XPathCompiled& m_out;
  std::string m_error;
};

}  // namespace

XPathExpression::XPathExpression() = default;
XPathExpression::~XPathExpression() = default;
XPathExpression::XPathExpression(XPathExpression&&) noexcept = default;
XPathExpression& XPathExpression::operator=(XPathExpression&&) noexcept = default;

bool XPathExpression::compile(std::string_view text, std::string& error) {
  m_compiled.reset();
  std::vector<Token> tokens;
  if (!tokenize(text, tokens, error)) return false;
  auto compiled = std::make_unique<XPathCompiled>();
  Parser parser(std::move(tokens), *compiled);
  if (!parser.parse(error)) return false;
  m_compiled = std::move(compiled);
  return true;
}

}  // namespace xml
