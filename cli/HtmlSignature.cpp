#include "cli/HtmlSignature.h"

#include <cstring>

#include "cli/HtmlLog.h"
#include "cli/HtmlSource.h"
#include "cli/HtmlText.h"

namespace cli::html {

namespace {

// What a sub-indication means, for someone who has to explain a rejected document.
const char* subIndicationWords(const std::string& code) {
  static const struct {
    const char* code;
    const char* words;
  } kWords[] = {
      {"HASH_FAILURE", "Signed content was changed after signing: a reference's digest does not match."},
      {"SIG_CRYPTO_FAILURE", "The signature value does not match the signed information with the signer's key."},
      {"NO_SIGNING_CERTIFICATE_FOUND", "No key or certificate was found to check the signature with."},
      {"SIGNED_DATA_NOT_FOUND", "Data the signature covers could not be found (a missing element or external file)."},
      {"FORMAT_FAILURE", "The signature is malformed, or uses a form or algorithm that is not supported."},
      {"CHAIN_CONSTRAINTS_FAILURE", "The signer's certificate does not chain to a trusted authority as required."},
      {"NO_CERTIFICATE_CHAIN_FOUND", "No chain from the signer's certificate to a trusted authority was found."},
      {"CERTIFICATE_CHAIN_GENERAL_FAILURE", "The signer's certificate chain could not be checked."},
      {"CRYPTO_CONSTRAINTS_FAILURE", "An algorithm or key size used is not accepted."},
      {"SIG_CONSTRAINTS_FAILURE", "The signature does not meet the constraints it was checked against."},
      {"REVOKED", "The signer's certificate was revoked."},
      {"REVOKED_NO_POE", "The signer's certificate was revoked."},
      {"EXPIRED", "The signer's certificate had expired."},
      {"OUT_OF_BOUNDS_NO_POE", "The signer's certificate was not valid at the validation time."},
      {"NOT_YET_VALID", "The signer's certificate was not yet valid."},
      {"TRY_LATER", "Not enough information is available yet; try again later."},
      {"GENERIC", "The signature could not be validated."},
  };
  for (const auto& w : kWords)
    if (code == w.code) return w.words;
  return nullptr;
}

void appendRow(std::string& out, const char* term, const std::string& value, const char* cls = nullptr) {
  if (value.empty()) return;
  out += "<dt>";
  out += term;
  out += cls ? std::string("</dt><dd class=\"") + cls + "\">" : std::string("</dt><dd>");
  appendEscaped(out, value);
  out += "</dd>";
}

void appendYesNo(std::string& out, const char* term, bool yes) {
  out += "<dt>";
  out += term;
  out += yes ? "</dt><dd class=\"yes\">yes</dd>" : "</dt><dd class=\"no\">no</dd>";
}

// An algorithm as its short name with the full identifier beneath.
void appendAlgorithm(std::string& out, const char* term, const std::string& uri) {
  if (uri.empty()) return;
  out += "<dt>";
  out += term;
  out += "</dt><dd>";
  appendEscaped(out, algorithmName(uri));
  out += " <span class=\"uri\">";
  appendEscaped(out, uri);
  out += "</span></dd>";
}

void appendBanner(std::string& out, const nlohmann::ordered_json& sig) {
  const std::string verdict = verdictOf(sig);
  const std::string sub = text(sig, "subIndication");
  out += "<div class=\"banner " + verdict + "\" data-verdict=\"" + verdict + "\"><span class=\"verdict\">";
  out += verdict == "valid" ? "Valid signature" : verdict == "invalid" ? "Invalid signature" : "Indeterminate";
  out += "</span><span class=\"indication\">";
  appendEscaped(out, text(sig, "indication"));
  if (!sub.empty()) appendEscaped(out, " / " + sub);
  out += "</span>";
  if (const char* words = subIndicationWords(sub)) {
    out += "<p class=\"sub-indication\">";
    out += words;  // a fixed text of this program
    out += "</p>";
  }
  const std::string reason = text(sig, "reason"), failure = text(sig, "failure");
  if (!reason.empty() || !failure.empty()) {
    out += "<p class=\"reason\">";
    appendEscaped(out, reason.empty() ? failure : failure.empty() ? reason : reason + " (" + failure + ")");
    out += "</p>";
  }
  out += "</div>";
}

void appendSigner(std::string& out, const nlohmann::ordered_json& sig) {
  out += "<section class=\"signer\"><h4>Signer</h4>";
  const nlohmann::ordered_json* signer = object(sig, "signer");
  if (!signer) {
    out += "<p class=\"note\">No signer certificate identified.</p></section>";
    return;
  }
  out += "<dl>";
  appendRow(out, "Subject", text(*signer, "subject"), "subject");
  appendRow(out, "Issuer", text(*signer, "issuer"));
  appendRow(out, "Serial", text(*signer, "serial"));
  const std::string from = text(*signer, "notBefore"), to = text(*signer, "notAfter");
  if (!from.empty() || !to.empty()) appendRow(out, "Valid", from + " to " + to);
  const std::string keyType = text(*signer, "keyType"), keyBits = text(*signer, "keyBits");
  appendRow(out, "Key", keyBits.empty() ? keyType : keyType + " " + keyBits + " bits");
  appendRow(out, "SHA-256", text(*signer, "sha256"), "digest");
  appendRow(out, "Key from", text(*signer, "source"));
  appendYesNo(out, "Pinned", flag(*signer, "pinned"));
  out += "</dl></section>";
}

void appendTrust(std::string& out, const nlohmann::ordered_json& sig) {
  out += "<section class=\"trust\"><h4>Trust</h4>";
  const nlohmann::ordered_json* trust = object(sig, "trust");
  if (!trust || !flag(*trust, "checked")) {
    out += "<p class=\"note\">The signer's chain was not checked (no trust anchors given).</p></section>";
    return;
  }
  out += "<dl>";
  appendYesNo(out, "Trusted", flag(*trust, "trusted"));
  appendRow(out, "Why not", text(*trust, "error"));
  const std::string when = text(*trust, "validationTime"), whence = text(*trust, "validationTimeSource");
  appendRow(out, "Checked at", whence.empty() ? when : when + " (" + whence + ")");
  if (const nlohmann::ordered_json* chain = array(*trust, "chain"); chain && !chain->empty()) {
    out += "<dt>Chain</dt><dd><ol class=\"chain\">";
    for (const nlohmann::ordered_json& c : *chain) {
      out += "<li>";
      appendEscaped(out, c.is_string() ? c.get<std::string>() : c.dump());
      out += "</li>";
    }
    out += "</ol></dd>";
  }
  out += "</dl></section>";
}

void appendAlgorithmsAndTimes(std::string& out, const nlohmann::ordered_json& sig) {
  out += "<section class=\"algorithms\"><h4>Algorithms and times</h4><dl>";
  if (const nlohmann::ordered_json* alg = object(sig, "algorithms")) {
    appendAlgorithm(out, "Canonicalization", text(*alg, "canonicalization"));
    appendAlgorithm(out, "Signature", text(*alg, "signature"));
    if (const nlohmann::ordered_json* digests = array(*alg, "digests"))
      for (const nlohmann::ordered_json& d : *digests)
        appendAlgorithm(out, "Digest", d.is_string() ? d.get<std::string>() : "");
  }
  appendRow(out, "Signature Id", text(sig, "id"));
  appendRow(out, "Signing time", text(sig, "signingTime"));
  if (const nlohmann::ordered_json* ts = object(sig, "timestamp")) {
    appendRow(out, "Time-stamp", text(*ts, "time"));
    appendRow(out, "Time-stamp by", text(*ts, "authority"));
    appendYesNo(out, "Time-stamp verified", flag(*ts, "verified"));
    appendRow(out, "Time-stamp error", text(*ts, "error"));
  } else {
    appendRow(out, "Time-stamp", "none");
  }
  out += "</dl></section>";
}

// Where a reference pointed: the element (path, Id, namespace), the whole document or
// external data, and what its transforms cut out.
void appendCoverage(std::string& out, const nlohmann::ordered_json& ref) {
  const nlohmann::ordered_json* coverage = object(ref, "coverage");
  if (!coverage) {
    out += "<span class=\"note\">not reported</span>";
    return;
  }
  const std::string kind = text(*coverage, "kind");
  if (const nlohmann::ordered_json* element = object(*coverage, "element")) {
    out += "<code class=\"path\">";
    appendEscaped(out, text(*element, "path"));
    out += "</code>";
    const std::string id = text(*element, "id"), ns = text(*element, "namespace");
    if (!id.empty()) {
      out += "<br>Id <code>";
      appendEscaped(out, id);
      out += "</code>";
    }
    if (!ns.empty()) {
      out += "<br><span class=\"uri\">";
      appendEscaped(out, ns);
      out += "</span>";
    }
  } else if (const nlohmann::ordered_json* ext = object(*coverage, "external")) {
    out += "external data from ";
    appendEscaped(out, text(*ext, "source"));
    const std::string file = text(*ext, "file");
    if (!file.empty()) {
      out += " <code>";
      appendEscaped(out, file);
      out += "</code>";
    }
  } else {
    appendEscaped(out, kind == "document" ? "the whole document" : kind.empty() ? "nothing" : kind);
  }
  const nlohmann::ordered_json* removed = array(*coverage, "removed");
  if (!removed || removed->empty()) return;
  out += "<div class=\"removed\">removed:<ul>";
  for (const nlohmann::ordered_json& r : *removed) {
    out += "<li><code>";
    appendEscaped(out, text(r, "path"));
    out += "</code> by ";
    appendEscaped(out, text(r, "by"));
    out += "</li>";
  }
  out += "</ul></div>";
}

void appendReference(std::string& out, const nlohmann::ordered_json& ref, int tint) {
  const std::string status = text(ref, "status");
  const std::string calculated = text(ref, "calculatedDigest"), stored = text(ref, "storedDigest");
  const bool differ = !calculated.empty() && !stored.empty() && calculated != stored;
  const bool failed = status != "valid" && status != "not-checked";
  out += "<tr class=\"ref";
  out += failed ? " failed\"" : "\"";
  out += " data-status=\"";
  appendEscaped(out, status);
  out += "\"><td>";
  if (object(ref, "coverage"))  // its tint in the source view
    out += "<span class=\"swatch t" + std::to_string(tint % kTintCount) + "\"></span>";
  appendEscaped(out, text(ref, "index"));
  out += "</td><td><code>";
  const std::string uri = text(ref, "uri");
  appendEscaped(out, uri.empty() && !flag(ref, "external") ? "\"\" (whole document)" : uri);
  out += "</code></td><td>";
  appendCoverage(out, ref);
  out += "</td><td>";
  if (const nlohmann::ordered_json* transforms = array(ref, "transforms")) {
    for (const nlohmann::ordered_json& t : *transforms) {
      const std::string uriText = t.is_string() ? t.get<std::string>() : t.dump();
      out += "<div title=\"";
      appendEscaped(out, uriText);
      out += "\">";
      appendEscaped(out, algorithmName(uriText));
      out += "</div>";
    }
  }
  out += "</td><td>";
  appendEscaped(out, algorithmName(text(ref, "digestMethod")));
  out += differ ? "</td><td class=\"digest mismatch calculated\">" : "</td><td class=\"digest calculated\">";
  appendEscaped(out, calculated.empty() ? "-" : calculated);
  out += "</td><td class=\"digest stored\">";
  appendEscaped(out, stored);
  out += "</td><td class=\"status\">";
  appendEscaped(out, status);
  out += "</td></tr>";
}

void appendReferences(std::string& out, const nlohmann::ordered_json& sig, int firstTint) {
  const nlohmann::ordered_json* refs = array(sig, "references");
  if (!refs || refs->empty()) return;
  out +=
      "<section class=\"references\"><h4>References</h4><table class=\"refs\"><thead><tr><th>#</th><th>URI</th>"
      "<th>Covers</th><th>Transforms</th><th>Digest</th><th>Calculated</th><th>Stored</th><th>Status</th>"
      "</tr></thead><tbody>";
  int tint = firstTint;
  for (const nlohmann::ordered_json& ref : *refs) appendReference(out, ref, tint++);
  out += "</tbody></table></section>";
}

}  // namespace

std::string verdictOf(const nlohmann::ordered_json& sig) {
  const std::string v = text(sig, "verdict");
  return v == "valid" || v == "invalid" ? v : "indeterminate";
}

void appendWarnings(std::string& out, const nlohmann::ordered_json& holder) {
  const nlohmann::ordered_json* warnings = array(holder, "warnings");
  if (!warnings || warnings->empty()) return;
  out += "<section class=\"warnings\"><h4>Warnings</h4><ul>";
  for (const nlohmann::ordered_json& w : *warnings) {
    out += "<li>";
    if (w.is_object()) {
      out += "<span class=\"code\">";
      appendEscaped(out, text(w, "code"));
      out += "</span> ";
      appendEscaped(out, text(w, "text"));
    } else {
      appendEscaped(out, w.is_string() ? w.get<std::string>() : w.dump());
    }
    out += "</li>";
  }
  out += "</ul></section>";
}

void appendSignature(std::string& out, const nlohmann::ordered_json& sig, const std::string& anchor, int firstTint) {
  out += "<article class=\"signature\" id=\"";
  appendEscaped(out, anchor);
  out += "\"><h3>Signature ";
  appendEscaped(out, text(sig, "index"));
  out += "</h3>";
  appendBanner(out, sig);
  out += "<div class=\"facts\">";
  appendSigner(out, sig);
  appendTrust(out, sig);
  appendAlgorithmsAndTimes(out, sig);
  out += "</div>";
  appendReferences(out, sig, firstTint);
  appendWarnings(out, sig);
  out += "<section class=\"log\"><h4>Verifier&#39;s log</h4>";
  const auto log = sig.is_object() ? sig.find("log") : sig.end();
  appendLogTree(out, log != sig.end() ? *log : nlohmann::ordered_json(), verdictOf(sig) != "valid");
  out += "</section></article>";
}

}  // namespace cli::html
