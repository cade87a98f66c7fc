#include "xml/XPathEval.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "xml/XPathAst.h"

namespace xml {

namespace {

struct Value {
  enum Type { Nodes, Boolean, Number, String } type = Boolean;
  NodeList nodes;
  bool boolean = false;
  double number = 0;
  std::string string;
};

struct Context {
  uint32_t node;
  size_t position;
  size_t size;
};

NodeList unite(const NodeList& a, const NodeList& b) {
  NodeList out;
  out.reserve(a.size() + b.size());
  std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
  return out;
}

bool isReverse(XPathAxis a) {
  return a == XPathAxis::Ancestor || a == XPathAxis::AncestorOrSelf || a == XPathAxis::Preceding ||
         a == XPathAxis::PrecedingSibling;
}

double toNumber(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r' || s[b] == '\n')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r' || s[e - 1] == '\n')) --e;
  size_t i = b;
  if (i < e && s[i] == '-') ++i;
  bool digits = false, dot = false;
  for (size_t k = i; k < e; ++k) {
    if (s[k] >= '0' && s[k] <= '9') {
      digits = true;
    } else if (s[k] == '.' && !dot) {
      dot = true;
    } else {
      return std::numeric_limits<double>::quiet_NaN();
    }
  }
  if (!digits) return std::numeric_limits<double>::quiet_NaN();
  return std::strtod(s.substr(b, e - b).c_str(), nullptr);
}

std::string numberToString(double d) {
  if (std::isnan(d)) return "NaN";
  if (std::isinf(d)) return d > 0 ? "Infinity" : "-Infinity";
  if (d == 0) return "0";
  if (d == std::floor(d) && std::fabs(d) < 1e15) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.0f", d);
    return buf;
  }
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15f", d);
  std::string s(buf);
  while (!s.empty() && s.back() == '0') s.pop_back();
  if (!s.empty() && s.back() == '.') s.pop_back();
  return s;
}

}  // namespace

// One evaluation: the evaluator's settings, the compiled expression and the step count.
struct XPathMachine {
  XPathEvaluator& ev;
  const XPathCompiled& ex;
  const XPathDocument& doc;

  bool fail(const std::string& what) {
    if (ev.m_error.empty()) ev.m_error = what;
    return false;
  }
  bool tick(size_t n = 1) {
    ev.m_steps += n;
    return ev.m_steps <= ev.m_maxSteps ||
           fail("XPath evaluation stopped: more than " + std::to_string(ev.m_maxSteps) + " steps");
  }

  bool resolve(const std::string& prefix, std::string& uri) {
    if (prefix == "xml") {
      uri = "http://www.w3.org/XML/1998/namespace";
      return true;
    }
    auto it = ev.m_prefixes.find(prefix);
    if (it == ev.m_prefixes.end()) return fail("XPath prefix '" + prefix + "' is not bound");
    uri = it->second;
    return true;
  }

  std::string stringOf(const Value& v) {
    switch (v.type) {
      case Value::Nodes: return v.nodes.empty() ? std::string() : doc.stringValue(v.nodes.front());
      case Value::Boolean: return v.boolean ? "true" : "false";
      case Value::Number: return numberToString(v.number);
      default: return v.string;
    }
  }
  double numberOf(const Value& v) {
    switch (v.type) {
      case Value::Boolean: return v.boolean ? 1 : 0;
      case Value::Number: return v.number;
      default: return toNumber(stringOf(v));
    }
  }
  static bool booleanOf(const Value& v) {
    switch (v.type) {
      case Value::Nodes: return !v.nodes.empty();
      case Value::Boolean: return v.boolean;
      case Value::Number: return v.number != 0 && !std::isnan(v.number);
      default: return !v.string.empty();
    }
  }

  // ---- node tests and axes ----
  bool matches(const XPathStep& s, uint32_t i, const std::string& uri) {
    const XPathNode& n = doc.node(i);
    const XPathNodeKind principal = s.axis == XPathAxis::Attribute   ? XPathNodeKind::Attribute
                                    : s.axis == XPathAxis::Namespace ? XPathNodeKind::Namespace
                                                                     : XPathNodeKind::Element;
    switch (s.test) {
      case XPathTest::Node: return true;
      case XPathTest::Text: return n.kind == XPathNodeKind::Text;
      case XPathTest::Comment: return n.kind == XPathNodeKind::Comment;
      case XPathTest::PI: return n.kind == XPathNodeKind::PI && (s.local.empty() || n.name == s.local);
      case XPathTest::AnyName: return n.kind == principal;
      case XPathTest::PrefixAny: return n.kind == principal && principal != XPathNodeKind::Namespace && n.uri == uri;
      case XPathTest::Name:
        if (n.kind != principal) return false;
        if (principal == XPathNodeKind::Namespace) return s.prefix.empty() && n.name == s.local;
        return n.localName() == s.local && n.uri == uri;
    }
    return false;
  }

  static bool isChildKind(const XPathNode& n) {
    return n.kind != XPathNodeKind::Attribute && n.kind != XPathNodeKind::Namespace;
  }

  // Nodes of the axis from i, in the axis's order (reverse axes nearest first).
  bool axisNodes(XPathAxis axis, uint32_t i, NodeList& out) {
    out.clear();
    const XPathNode& n = doc.node(i);
    const bool self = axis == XPathAxis::AncestorOrSelf || axis == XPathAxis::DescendantOrSelf ||
                      axis == XPathAxis::Self;
    if (self) out.push_back(i);
    switch (axis) {
      case XPathAxis::Self: break;
      case XPathAxis::Child:
        for (uint32_t c = n.firstChild; c != UINT32_MAX; c = doc.node(c).nextSibling) out.push_back(c);
        break;
      case XPathAxis::Descendant:
      case XPathAxis::DescendantOrSelf:
        if (n.kind == XPathNodeKind::Root || n.kind == XPathNodeKind::Element)
          for (uint32_t k = i + 1; k < n.subtreeEnd; ++k)
            if (isChildKind(doc.node(k))) out.push_back(k);
        break;
      case XPathAxis::Parent:
        if (n.parent != UINT32_MAX) out.push_back(n.parent);
        break;
      case XPathAxis::Ancestor:
      case XPathAxis::AncestorOrSelf:
        for (uint32_t p = n.parent; p != UINT32_MAX; p = doc.node(p).parent) out.push_back(p);
        break;
      case XPathAxis::FollowingSibling:
        if (isChildKind(n))
          for (uint32_t c = n.nextSibling; c != UINT32_MAX; c = doc.node(c).nextSibling) out.push_back(c);
        break;
      case XPathAxis::PrecedingSibling:
        if (isChildKind(n))
          for (uint32_t c = n.prevSibling; c != UINT32_MAX; c = doc.node(c).prevSibling) out.push_back(c);
        break;
      case XPathAxis::Following: {
        const uint32_t from = isChildKind(n) ? n.subtreeEnd : i + 1;
        for (uint32_t k = from; k < doc.size(); ++k)
          if (isChildKind(doc.node(k))) out.push_back(k);
        break;
      }
      case XPathAxis::Preceding: {
        // Everything before i that is not an ancestor; walked backwards, nearest first.
        uint32_t ancestor = n.parent;
        for (uint32_t k = i; k-- > 0;) {
          if (k == ancestor) {
            ancestor = doc.node(k).parent;
            continue;
          }
          if (isChildKind(doc.node(k))) out.push_back(k);
        }
        break;
      }
      case XPathAxis::Attribute:
        if (n.kind == XPathNodeKind::Element)
          for (uint32_t k = n.firstAttribute; k < n.firstAttribute + n.numAttributes; ++k) out.push_back(k);
        break;
      case XPathAxis::Namespace:
        if (n.kind == XPathNodeKind::Element)
          for (uint32_t k = n.firstNamespace; k < n.firstNamespace + n.numNamespaces; ++k) out.push_back(k);
        break;
    }
    return tick(out.size() + 1);
  }

  // Keeps the nodes (in axis order) for which every predicate holds, each predicate seeing
  // the positions left by the one before.
  bool applyPredicates(const std::vector<int>& predicates, NodeList& nodes) {
    for (int p : predicates) {
      NodeList kept;
      for (size_t k = 0; k < nodes.size(); ++k) {
        Value v;
        if (!eval(p, Context{nodes[k], k + 1, nodes.size()}, v)) return false;
        const bool keep = v.type == Value::Number ? v.number == static_cast<double>(k + 1) : booleanOf(v);
        if (keep) kept.push_back(nodes[k]);
      }
      nodes.swap(kept);
    }
    return true;
  }

  bool applyStep(const XPathStep& s, const NodeList& from, NodeList& result) {
    std::string uri;
    if ((s.test == XPathTest::Name && !s.prefix.empty()) || s.test == XPathTest::PrefixAny)
      if (!resolve(s.prefix, uri)) return false;
    result.clear();
    NodeList axis, selected;
    bool sorted = true;
    for (uint32_t i : from) {
      if (!axisNodes(s.axis, i, axis)) return false;
      selected.clear();
      for (uint32_t k : axis)
        if (matches(s, k, uri)) selected.push_back(k);
      if (!applyPredicates(s.predicates, selected)) return false;
      if (isReverse(s.axis)) std::reverse(selected.begin(), selected.end());
      if (!result.empty() && !selected.empty() && selected.front() <= result.back()) sorted = false;
      result.insert(result.end(), selected.begin(), selected.end());
    }
    if (!sorted) {
      std::sort(result.begin(), result.end());
      result.erase(std::unique(result.begin(), result.end()), result.end());
    }
    return tick(result.size());
  }

  bool evalPath(const XPathExprNode& e, const Context& c, Value& out) {
    NodeList current;
    if (e.filter >= 0) {
      Value base;
      if (!eval(e.filter, c, base)) return false;
      if (base.type != Value::Nodes) return fail("a path or predicate is applied to a value that is not a node-set");
      current = std::move(base.nodes);
      if (!applyPredicates(e.filterPredicates, current)) return false;
    } else if (e.absolute) {
      current.push_back(0);
    } else {
      current.push_back(c.node);
    }
    NodeList next;
    for (const XPathStep& s : e.steps) {
      if (!applyStep(s, current, next)) return false;
      current.swap(next);
    }
    out.type = Value::Nodes;
    out.nodes = std::move(current);
    return true;
  }

  bool compare(XPathOp op, const Value& a, const Value& b) {
    auto numCmp = [op](double x, double y) {
      switch (op) {
        case XPathOp::Eq: return x == y;
        case XPathOp::Ne: return x != y;
        case XPathOp::Lt: return x < y;
        case XPathOp::Le: return x <= y;
        case XPathOp::Gt: return x > y;
        default: return x >= y;
      }
    };
    const bool equality = op == XPathOp::Eq || op == XPathOp::Ne;
    auto strCmp = [&](const std::string& x, const std::string& y) {
      if (equality) return (x == y) == (op == XPathOp::Eq);
      return numCmp(toNumber(x), toNumber(y));
    };
    if (a.type == Value::Nodes && b.type == Value::Nodes) {
      std::vector<std::string> right;
      for (uint32_t n : b.nodes) right.push_back(doc.stringValue(n));
      for (uint32_t n : a.nodes) {
        const std::string left = doc.stringValue(n);
        for (const std::string& r : right)
          if (strCmp(left, r)) return true;
      }
      return false;
    }
    if (a.type == Value::Nodes || b.type == Value::Nodes) {
      const bool nodesLeft = a.type == Value::Nodes;
      const Value& set = nodesLeft ? a : b;
      const Value& other = nodesLeft ? b : a;
      if (other.type == Value::Boolean) {
        const bool x = booleanOf(set);
        return nodesLeft ? numCmp(x, other.boolean) : numCmp(other.boolean, x);
      }
      for (uint32_t n : set.nodes) {
        const std::string s = doc.stringValue(n);
        bool hit;
        if (other.type == Value::Number) {
          hit = nodesLeft ? numCmp(toNumber(s), other.number) : numCmp(other.number, toNumber(s));
        } else {
          hit = nodesLeft ? strCmp(s, other.string) : strCmp(other.string, s);
        }
        if (hit) return true;
      }
      return false;
    }
    if (equality) {
      if (a.type == Value::Boolean || b.type == Value::Boolean) return numCmp(booleanOf(a), booleanOf(b));
      if (a.type == Value::Number || b.type == Value::Number) return numCmp(numberOf(a), numberOf(b));
      return strCmp(stringOf(a), stringOf(b));
    }
    return numCmp(numberOf(a), numberOf(b));
  }

  bool eval(int index, const Context& c, Value& out) {
    if (!tick()) return false;
    const XPathExprNode& e = ex.nodes[index];
    switch (e.op) {
      case XPathOp::Literal:
        out.type = Value::String;
        out.string = e.text;
        return true;
      case XPathOp::Number:
        out.type = Value::Number;
        out.number = e.number;
        return true;
      case XPathOp::Path: return evalPath(e, c, out);
      case XPathOp::Call: return call(e, c, out);
      case XPathOp::Or:
      case XPathOp::And: {
        Value a;
        if (!eval(e.args[0], c, a)) return false;
        const bool left = booleanOf(a);
        out.type = Value::Boolean;
        if (left == (e.op == XPathOp::Or)) {
          out.boolean = left;
          return true;
        }
        Value b;
        if (!eval(e.args[1], c, b)) return false;
        out.boolean = booleanOf(b);
        return true;
      }
      case XPathOp::Neg: {
        Value a;
        if (!eval(e.args[0], c, a)) return false;
        out.type = Value::Number;
        out.number = -numberOf(a);
        return true;
      }
      default: break;
    }
    Value a, b;
    if (!eval(e.args[0], c, a) || !eval(e.args[1], c, b)) return false;
    switch (e.op) {
      case XPathOp::Union:
        if (a.type != Value::Nodes || b.type != Value::Nodes) return fail("'|' needs node-sets on both sides");
        out.type = Value::Nodes;
        out.nodes = unite(a.nodes, b.nodes);
        return tick(out.nodes.size());
      case XPathOp::Eq:
      case XPathOp::Ne:
      case XPathOp::Lt:
      case XPathOp::Le:
      case XPathOp::Gt:
      case XPathOp::Ge:
        out.type = Value::Boolean;
        out.boolean = compare(e.op, a, b);
        return true;
      default: {
        const double x = numberOf(a), y = numberOf(b);
        out.type = Value::Number;
        out.number = e.op == XPathOp::Add   ? x + y
                     : e.op == XPathOp::Sub ? x - y
                     : e.op == XPathOp::Mul ? x * y
                     : e.op == XPathOp::Div ? x / y
                                            : std::fmod(x, y);
        return true;
      }
    }
  }

  // ---- the function library ----
  bool call(const XPathExprNode& e, const Context& c, Value& out) {
    const std::string& f = e.text;
    std::vector<Value> args(e.args.size());
    for (size_t k = 0; k < e.args.size(); ++k)
      if (!eval(e.args[k], c, args[k])) return false;
    auto arity = [&](size_t lo, size_t hi) {
      return (args.size() >= lo && args.size() <= hi) || fail("wrong number of arguments to " + f + "()");
    };
    auto str = [&](std::string s) {
      out.type = Value::String;
      out.string = std::move(s);
      return true;
    };
    auto num = [&](double d) {
      out.type = Value::Number;
      out.number = d;
      return true;
    };
    auto boolean = [&](bool b) {
      out.type = Value::Boolean;
      out.boolean = b;
      return true;
    };
    // The node a name function reads: its argument's first node, else the context node.
    auto nameNode = [&](uint32_t& node) {
      if (!arity(0, 1)) return false;
      node = c.node;
      if (!args.empty()) {
        if (args[0].type != Value::Nodes) return fail(f + "() needs a node-set");
        node = args[0].nodes.empty() ? UINT32_MAX : args[0].nodes.front();
      }
      return true;
    };
    auto stringArg = [&](size_t k) { return k < args.size() ? stringOf(args[k]) : doc.stringValue(c.node); };

    if (f == "last") return arity(0, 0) && num(static_cast<double>(c.size));
    if (f == "position") return arity(0, 0) && num(static_cast<double>(c.position));
    if (f == "count") {
      if (!arity(1, 1)) return false;
      if (args[0].type != Value::Nodes) return fail("count() needs a node-set");
      return num(static_cast<double>(args[0].nodes.size()));
    }
    if (f == "here") {
      if (!arity(0, 0)) return false;
      if (ev.m_here == UINT32_MAX) return fail("here() has no node: the expression is not part of this document");
      out.type = Value::Nodes;
      out.nodes = {ev.m_here};
      return true;
    }
    if (f == "id") {
      if (!arity(1, 1)) return false;
      std::string ids;
      if (args[0].type == Value::Nodes) {
        for (uint32_t n : args[0].nodes) ids += doc.stringValue(n) + " ";
      } else {
        ids = stringOf(args[0]);
      }
      out.type = Value::Nodes;
      size_t p = 0;
      while (p < ids.size()) {
        while (p < ids.size() && (ids[p] == ' ' || ids[p] == '\t' || ids[p] == '\r' || ids[p] == '\n')) ++p;
        size_t q = p;
        while (q < ids.size() && !(ids[q] == ' ' || ids[q] == '\t' || ids[q] == '\r' || ids[q] == '\n')) ++q;
        if (q > p) {
          if (!tick(doc.size())) return false;
          const uint32_t el = doc.elementById(std::string_view(ids).substr(p, q - p));
          if (el != UINT32_MAX) out.nodes.push_back(el);
        }
        p = q;
      }
      std::sort(out.nodes.begin(), out.nodes.end());
      out.nodes.erase(std::unique(out.nodes.begin(), out.nodes.end()), out.nodes.end());
      return true;
    }
    if (f == "local-name" || f == "name" || f == "namespace-uri") {
      uint32_t n;
      if (!nameNode(n)) return false;
      if (n == UINT32_MAX) return str("");
      const XPathNode& node = doc.node(n);
      if (f == "namespace-uri") return str(node.uri);
      const bool named = node.kind == XPathNodeKind::Element || node.kind == XPathNodeKind::Attribute;
      if (f == "name")
        return str(named || node.kind == XPathNodeKind::Namespace || node.kind == XPathNodeKind::PI ? node.name
                                                                                                    : std::string());
      if (named) return str(std::string(node.localName()));
      return str(node.kind == XPathNodeKind::Namespace || node.kind == XPathNodeKind::PI ? node.name : std::string());
    }
    if (f == "string") return arity(0, 1) && str(stringArg(0));
    if (f == "concat") {
      if (args.size() < 2) return fail("concat() needs at least two arguments");
      std::string s;
      for (const Value& v : args) s += stringOf(v);
      return str(std::move(s));
    }
    if (f == "starts-with" || f == "contains" || f == "substring-before" || f == "substring-after") {
      if (!arity(2, 2)) return false;
      const std::string a = stringOf(args[0]), b = stringOf(args[1]);
      const size_t at = a.find(b);
      if (f == "starts-with") return boolean(a.compare(0, b.size(), b) == 0);
      if (f == "contains") return boolean(at != std::string::npos);
      if (at == std::string::npos) return str("");
      return str(f == "substring-before" ? a.substr(0, at) : a.substr(at + b.size()));
    }
    if (f == "substring") {
      if (!arity(2, 3)) return false;
      const std::string s = stringOf(args[0]);
      // Positions count characters (not UTF-8 continuation bytes), rounded as XPath says.
      std::vector<size_t> starts;
      for (size_t k = 0; k < s.size(); ++k)
        if ((static_cast<unsigned char>(s[k]) & 0xC0) != 0x80) starts.push_back(k);
      const double from = std::round(numberOf(args[1]));
      const double to = args.size() == 3 ? from + std::round(numberOf(args[2]))
                                         : std::numeric_limits<double>::infinity();
      std::string r;
      for (size_t k = 0; k < starts.size(); ++k) {
        const double pos = static_cast<double>(k + 1);
        if (pos >= from && pos < to) {
          const size_t end = k + 1 < starts.size() ? starts[k + 1] : s.size();
          r.append(s, starts[k], end - starts[k]);
        }
      }
      return str(std::move(r));
    }
    if (f == "string-length") {
      if (!arity(0, 1)) return false;
      const std::string s = stringArg(0);
      size_t chars = 0;
      for (char ch : s) chars += (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
      return num(static_cast<double>(chars));
    }
    if (f == "normalize-space") {
      if (!arity(0, 1)) return false;
      const std::string s = stringArg(0);
      std::string r;
      bool space = false;
      for (char ch : s) {
        if (ch == ' ' || ch == '\t' || ch == '\r' || ch == '\n') {
          space = !r.empty();
        } else {
          if (space) r += ' ';
          space = false;
          r += ch;
        }
      }
      return str(std::move(r));
    }
    if (f == "translate") {
      if (!arity(3, 3)) return false;
      const std::string s = stringOf(args[0]), from = stringOf(args[1]), to = stringOf(args[2]);
      std::string r;
      for (char ch : s) {
        const size_t at = from.find(ch);
        if (at == std::string::npos) r += ch;
        else if (at < to.size()) r += to[at];
      }
      return str(std::move(r));
    }
    if (f == "boolean") return arity(1, 1) && boolean(booleanOf(args[0]));
    if (f == "not") return arity(1, 1) && boolean(!booleanOf(args[0]));
    if (f == "true") return arity(0, 0) && boolean(true);
    if (f == "false") return arity(0, 0) && boolean(false);
    if (f == "lang") {
      if (!arity(1, 1)) return false;
      const std::string want = stringOf(args[0]);
      for (uint32_t n = c.node; n != UINT32_MAX; n = doc.node(n).parent) {
        const XPathNode& node = doc.node(n);
        if (node.kind != XPathNodeKind::Element) continue;
        for (uint32_t k = node.firstAttribute; k < node.firstAttribute + node.numAttributes; ++k) {
          if (doc.node(k).name != "xml:lang") continue;
          const std::string& have = doc.node(k).value;
          auto lower = [](std::string s) {
            for (char& ch : s) ch = static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch + 32 : ch);
            return s;
          };
          const std::string h = lower(have), w = lower(want);
          return boolean(h == w || (h.size() > w.size() && h.compare(0, w.size(), w) == 0 && h[w.size()] == '-'));
        }
      }
      return boolean(false);
    }
    if (f == "number") {
      if (!arity(0, 1)) return false;
      return num(args.empty() ? toNumber(doc.stringValue(c.node)) : numberOf(args[0]));
    }
    if (f == "sum") {
      if (!arity(1, 1)) return false;
      if (args[0].type != Value::Nodes) return fail("sum() needs a node-set");
      double total = 0;
      for (uint32_t n : args[0].nodes) total += toNumber(doc.stringValue(n));
      return num(total);
    }
    if (f == "floor") return arity(1, 1) && num(std::floor(numberOf(args[0])));
    if (f == "ceiling") return arity(1, 1) && num(std::ceil(numberOf(args[0])));
    if (f == "round") return arity(1, 1) && num(std::floor(numberOf(args[0]) + 0.5));
    return fail("unknown XPath function " + f + "()");
  }
};

namespace {

template <typename Fn>
bool run(const XPathExpression& expr, std::string& error, Fn&& fn) {
  error.clear();
  if (!expr.compiled()) {
    error = "no compiled expression";
    return false;
  }
  return fn();
}

}  // namespace

bool XPathEvaluator::evaluateBoolean(const XPathExpression& expr, uint32_t contextNode, bool& result) {
  return run(expr, m_error, [&] {
    XPathMachine m{*this, *expr.compiled(), m_doc};
    Value v;
    if (!m.eval(expr.compiled()->root, Context{contextNode, 1, 1}, v)) return false;
    result = XPathMachine::booleanOf(v);
    return true;
  });
}

bool XPathEvaluator::evaluateNodeSet(const XPathExpression& expr, uint32_t contextNode, NodeList& result) {
  return run(expr, m_error, [&] {
    XPathMachine m{*this, *expr.compiled(), m_doc};
    Value v;
    if (!m.eval(expr.compiled()->root, Context{contextNode, 1, 1}, v)) return false;
    if (v.type != Value::Nodes) return m.fail("the expression does not give a node-set");
    result = std::move(v.nodes);
    return true;
  });
}

bool XPathEvaluator::evaluateString(const XPathExpression& expr, uint32_t contextNode, std::string& result) {
  return run(expr, m_error, [&] {
    XPathMachine m{*this, *expr.compiled(), m_doc};
    Value v;
    if (!m.eval(expr.compiled()->root, Context{contextNode, 1, 1}, v)) return false;
    result = m.stringOf(v);
    return true;
  });
}

}  // namespace xml
