#include "dsig/SystemCertsHolder.h"

#include <new>

#include "crypto/SystemCerts.h"

// A store that cannot be allocated leaves the holder without one; every lookup then
// finds nothing, which the key resolution treats as "no certificate".
SystemCertsHolder::SystemCertsHolder() : m_systemCerts(new (std::nothrow) SystemCerts()) {}

SystemCertsHolder::~SystemCertsHolder() = default;
