// ClsJsonObject: a small public JSON object (options for time-stamp requests and the like).
#pragma once

#include <memory>
#include <string>

#include "support/RefCountedObject.h"

class XString;

class ClsJsonObject : public RefCountedObject {
 public:
  static ClsJsonObject* createNewCls();
  ClsJsonObject();

  // Replaces the contents with the parsed text; false (contents unchanged) when the text
  // is not a JSON object.
  bool Load(const char* jsonText);
  std::string Emit() const;

  bool HasMember(const char* name) const;
  // Member values; the defaults are returned when the member is absent or of another type.
  std::string stringOf(const char* name, const char* defaultValue = "") const;
  bool boolOf(const char* name, bool defaultValue = false) const;
  long long intOf(const char* name, long long defaultValue = 0) const;

  bool UpdateString(const char* name, const char* value);
  bool UpdateBool(const char* name, bool value);
  bool UpdateInt(const char* name, long long value);

 protected:
  ~ClsJsonObject() override;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
