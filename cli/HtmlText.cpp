#include "cli/HtmlText.h"

namespace cli::html {

void appendEscaped(std::string& out, std::string_view text) {
  size_t plain = 0;  // start of the run of characters that need no replacement
  for (size_t i = 0; i < text.size(); ++i) {
    const char* ref = nullptr;
    switch (text[i]) {
      case '&': ref = "&amp;"; break;
      case '<': ref = "&lt;"; break;
      case '>': ref = "&gt;"; break;
      case '"': ref = "&quot;"; break;
      case '\'': ref = "&#39;"; break;
      default: continue;
    }
    out.append(text.data() + plain, i - plain);
    out.append(ref);
    plain = i + 1;
  }
  out.append(text.data() + plain, text.size() - plain);
}

std::string escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendEscaped(out, text);
  return out;
}

std::string text(const nlohmann::ordered_json& j, const char* key) {
  if (!j.is_object()) return std::string();
  const auto it = j.find(key);
  if (it == j.end() || it->is_null() || it->is_structured()) return std::string();
  if (it->is_string()) return it->get<std::string>();
  return it->dump();
}

const nlohmann::ordered_json* object(const nlohmann::ordered_json& j, const char* key) {
  if (!j.is_object()) return nullptr;
  const auto it = j.find(key);
  return it != j.end() && it->is_object() ? &*it : nullptr;
}

const nlohmann::ordered_json* array(const nlohmann::ordered_json& j, const char* key) {
  if (!j.is_object()) return nullptr;
  const auto it = j.find(key);
  return it != j.end() && it->is_array() ? &*it : nullptr;
}

long long offset(const nlohmann::ordered_json& j, const char* key) {
  if (!j.is_object()) return -1;
  const auto it = j.find(key);
  if (it == j.end() || !it->is_number_integer()) return -1;
  const long long v = it->get<long long>();
  return v < 0 ? -1 : v;
}

bool flag(const nlohmann::ordered_json& j, const char* key) {
  if (!j.is_object()) return false;
  const auto it = j.find(key);
  return it != j.end() && it->is_boolean() && it->get<bool>();
}

std::string algorithmName(const std::string& uri) {
  // Identifiers whose fragment or last segment says little by itself.
  static const struct {
    const char* uri;
    const char* name;
  } kNames[] = {
      {"http://www.w3.org/TR/1999/REC-xpath-19991116", "xpath"},
      {"http://www.w3.org/TR/1999/REC-xslt-19991116", "xslt"},
      {"http://www.w3.org/TR/2001/REC-xml-c14n-20010315", "c14n"},
      {"http://www.w3.org/TR/2001/REC-xml-c14n-20010315#WithComments", "c14n-with-comments"},
      {"http://www.w3.org/2006/12/xml-c14n11#WithComments", "xml-c14n11-with-comments"},
      {"http://www.w3.org/2001/10/xml-exc-c14n#WithComments", "xml-exc-c14n-with-comments"},
  };
  for (const auto& known : kNames)
    if (uri == known.uri) return known.name;
  const size_t hash = uri.rfind('#');
  if (hash != std::string::npos && hash + 1 < uri.size()) return uri.substr(hash + 1);
  std::string path = hash == std::string::npos ? uri : uri.substr(0, hash);
  while (!path.empty() && path.back() == '/') path.pop_back();
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash + 1 >= path.size()) return uri;
  return path.substr(slash + 1);
}

}  // namespace cli::html
