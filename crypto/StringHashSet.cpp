#include "crypto/StringHashSet.h"

#include "support/StringBuffer.h"

void StringHashSet::add(const StringBuffer& key) { m_set.insert(key.str()); }

bool StringHashSet::contains(const StringBuffer& key) const { return m_set.count(key.str()) != 0; }
