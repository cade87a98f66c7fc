// SystemCertsHolder: owns the certificate store that key lookups search.
#pragma once

#include <memory>

class SystemCerts;

class SystemCertsHolder {
 public:
  SystemCertsHolder();
  virtual ~SystemCertsHolder();
  SystemCertsHolder(const SystemCertsHolder&) = delete;
  SystemCertsHolder& operator=(const SystemCertsHolder&) = delete;

  // The store (null only if it could not be created).
  SystemCerts* systemCerts() const { return m_systemCerts.get(); }

 private:
  std::unique_ptr<SystemCerts> m_systemCerts;
};
