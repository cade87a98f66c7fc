#include "cli/HtmlLog.h"

#include <unordered_set>
#include <vector>

#include "cli/HtmlText.h"

namespace cli::html {

namespace {

using Json = nlohmann::ordered_json;

const Json* entriesOf(const Json& node) { return array(node, "entries"); }

bool isContext(const Json& e) { return e.is_object() && e.contains("context"); }

bool isError(const Json& e) { return e.is_object() && e.contains("error"); }

bool isFailedResult(const Json& e) { return e.is_object() && text(e, "result") == "failed"; }

bool hasSteps(const Json& e) {
  const Json* inner = isContext(e) ? entriesOf(e) : nullptr;
  return inner && !inner->empty();
}

// The branch to open: the contexts down to the entry that ended verification, and the
// step that entry reports on.
struct FailingBranch {
  std::unordered_set<const Json*> open;
  const Json* cause = nullptr;
};

// The last entry that matches, depth first, with the contexts above it (the verifier's
// last error is the one that decided the outcome).
template <class Match>
bool findLast(const Json& entries, const Match& match, FailingBranch& branch) {
  for (size_t i = entries.size(); i-- > 0;) {
    const Json& e = entries[i];
    if (match(e)) {
      branch.cause = &e;
      // An error is logged right after the step that failed, as "Failed to verify reference
      // digest" after the context that computed the digests: open that step too, and in it
      // its last step, and so on while they log something (the digests compared are in the
      // last step of the reference check that logs anything).
      for (const Json* step = i > 0 ? &entries[i - 1] : nullptr; step && hasSteps(*step);) {
        branch.open.insert(step);
        const Json& inner = *entriesOf(*step);
        step = nullptr;
        for (size_t k = inner.size(); k-- > 0 && !step;)
          if (isContext(inner[k])) step = &inner[k];
      }
      return true;
    }
    if (hasSteps(e) && findLast(*entriesOf(e), match, branch)) {
      branch.open.insert(&e);
      return true;
    }
  }
  return false;
}

std::string valueText(const Json& v) { return v.is_string() ? v.get<std::string>() : v.dump(); }

void appendLine(std::string& out, const Json& e, bool cause) {
  std::string cls = "ln";
  std::string body;
  if (isContext(e)) {  // a step that logged nothing
    cls += " ctx-empty";
    appendEscaped(body, text(e, "context"));
  } else if (isError(e)) {
    cls += " err";
    appendEscaped(body, text(e, "error"));
  } else if (e.is_object() && e.contains("key")) {
    cls += " kv";
    body += "<span class=\"k\">";
    appendEscaped(body, text(e, "key"));
    body += "</span> <span class=\"v\">";
    if (e.contains("value")) appendEscaped(body, valueText(e["value"]));
    body += "</span>";
  } else if (e.is_object() && e.contains("result")) {
    cls += isFailedResult(e) ? " result failed" : " result";
    appendEscaped(body, "result: " + text(e, "result"));
  } else if (e.is_object() && e.contains("info")) {
    cls += " info";
    appendEscaped(body, text(e, "info"));
  } else {
    appendEscaped(body, valueText(e));
  }
  if (cause) cls += " cause";
  out += "<div class=\"" + cls + "\">" + body + "</div>";
}

// Renders the entries; returns whether they hold an error or a failed result.
bool appendEntries(std::string& out, const Json& entries, const FailingBranch& branch) {
  bool anyError = false;
  for (const Json& e : entries) {
    if (!hasSteps(e)) {
      anyError = anyError || isError(e) || isFailedResult(e);
      appendLine(out, e, &e == branch.cause);
      continue;
    }
    std::string children;
    const bool innerError = appendEntries(children, *entriesOf(e), branch);
    anyError = anyError || innerError;
    out += branch.open.count(&e) ? "<details class=\"ctx failing\" open>"
           : innerError          ? "<details class=\"ctx has-error\">"
                                 : "<details class=\"ctx\">";
    out += "<summary>";
    appendEscaped(out, text(e, "context"));
    out += "</summary><div class=\"entries\">" + children + "</div></details>";
  }
  return anyError;
}

}  // namespace

void appendLogTree(std::string& out, const nlohmann::ordered_json& log, bool failed) {
  if (log.is_string()) {
    out += "<pre class=\"log-text\">";
    appendEscaped(out, log.get<std::string>());
    out += "</pre>";
    return;
  }
  const Json* entries = entriesOf(log);
  if (!entries) {
    out += "<p class=\"note\">The report carries no log.</p>";
    return;
  }
  FailingBranch branch;
  if (failed && !findLast(*entries, isError, branch)) {
    branch = FailingBranch();
    findLast(*entries, isFailedResult, branch);
  }
  out += "<div class=\"log-tree\">";
  appendEntries(out, *entries, branch);
  out += "</div>";
}

}  // namespace cli::html
