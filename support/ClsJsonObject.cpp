#include "support/ClsJsonObject.h"

#include <new>
#include <nlohmann/json.hpp>

struct ClsJsonObject::Impl {
  nlohmann::json doc = nlohmann::json::object();
};

ClsJsonObject* ClsJsonObject::createNewCls() {
  try {
    return new (std::nothrow) ClsJsonObject();
  } catch (...) {
    return nullptr;
  }
}

ClsJsonObject::ClsJsonObject() : m_impl(std::make_unique<Impl>()) {}
ClsJsonObject::~ClsJsonObject() = default;

bool ClsJsonObject::Load(const char* jsonText) {
  if (!jsonText) return false;
  nlohmann::json parsed = nlohmann::json::parse(jsonText, nullptr, /*allow_exceptions=*/false);
  if (!parsed.is_object()) return false;
  m_impl->doc = std::move(parsed);
  return true;
}

std::string ClsJsonObject::Emit() const {
  return m_impl->doc.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool ClsJsonObject::HasMember(const char* name) const { return name && m_impl->doc.contains(name); }

std::string ClsJsonObject::stringOf(const char* name, const char* defaultValue) const {
  if (!name) return defaultValue;
  auto it = m_impl->doc.find(name);
  if (it == m_impl->doc.end() || !it->is_string()) return defaultValue;
  return it->get<std::string>();
}

bool ClsJsonObject::boolOf(const char* name, bool defaultValue) const {
  if (!name) return defaultValue;
  auto it = m_impl->doc.find(name);
  if (it == m_impl->doc.end() || !it->is_boolean()) return defaultValue;
  return it->get<bool>();
}

long long ClsJsonObject::intOf(const char* name, long long defaultValue) const {
  if (!name) return defaultValue;
  auto it = m_impl->doc.find(name);
  if (it == m_impl->doc.end() || !it->is_number_integer()) return defaultValue;
  return it->get<long long>();
}

bool ClsJsonObject::UpdateString(const char* name, const char* value) {
  if (!name || !value) return false;
  m_impl->doc[name] = value;
  return true;
}

bool ClsJsonObject::UpdateBool(const char* name, bool value) {
  if (!name) return false;
  m_impl->doc[name] = value;
  return true;
}

bool ClsJsonObject::UpdateInt(const char* name, long long value) {
  if (!name) return false;
  m_impl->doc[name] = value;
  return true;
}
