// StringBuffer operations. Searches go through memchr/memmem so that scanning a
// megabyte document stays linear; edits that touch many places build the result in
// one pass instead of erasing and inserting in place.
#include "support/StringBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "support/DataBuffer.h"
#include "support/ExtPtrArray.h"

namespace {

std::string_view sv(const char* text) { return text ? std::string_view(text) : std::string_view(); }

bool isWs(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool equalNoCase(const char* a, const char* b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

// First case-insensitive occurrence of needle in hay at or after from. Candidate starts are
// found with memchr for both cases of the first byte, so the scan stays near-linear.
size_t findNoCase(std::string_view hay, std::string_view needle, size_t from) {
  constexpr size_t npos = StringBuffer::npos;
  if (needle.empty()) return from <= hay.size() ? from : npos;
  if (hay.size() < needle.size() || from > hay.size() - needle.size()) return npos;
  const size_t last = hay.size() - needle.size();  // last possible start
  const char* base = hay.data();
  auto scan = [&](char c, size_t pos) -> size_t {
    if (pos > last) return npos;
    const void* p = std::memchr(base + pos, c, last - pos + 1);
    return p ? static_cast<size_t>(static_cast<const char*>(p) - base) : npos;
  };
  const char lo = asciiLower(needle[0]);
  const char up = (lo >= 'a' && lo <= 'z') ? static_cast<char>(lo - 32) : lo;
  size_t nextLo = scan(lo, from);
  size_t nextUp = up == lo ? nextLo : scan(up, from);
  while (true) {
    const size_t cand = std::min(nextLo, nextUp);
    if (cand == npos) return npos;
    if (equalNoCase(base + cand + 1, needle.data() + 1, needle.size() - 1)) return cand;
    if (cand == nextLo) nextLo = scan(lo, cand + 1);
    if (cand == nextUp) nextUp = up == lo ? nextLo : scan(up, cand + 1);
  }
}

// Appends one piece; false when it could not be stored (out of memory).
bool pushPiece(ExtPtrArraySb& out, std::string_view piece) {
  const int before = out.getSize();
  out.appendString(piece);
  return out.getSize() == before + 1;
}

}  // namespace

// ---------------------------------------------------------------- free functions

const char* btStrStr(const char* haystack, const char* needle) {
  if (!haystack || !needle) return nullptr;
  return std::strstr(haystack, needle);
}

const char* btStrChr(const char* text, int byte) {
  if (!text) return nullptr;
  return std::strchr(text, byte);
}

size_t btStrLen(const char* text) { return text ? std::strlen(text) : 0; }

int btStrNCmp(const char* a, const char* b, size_t n) { return std::strncmp(a ? a : "", b ? b : "", n); }

size_t btFind(std::string_view haystack, std::string_view needle, size_t from) {
  if (from > haystack.size()) return StringBuffer::npos;
  if (needle.empty()) return from;
  const void* p = memmem(haystack.data() + from, haystack.size() - from, needle.data(), needle.size());
  return p ? static_cast<size_t>(static_cast<const char*>(p) - haystack.data()) : StringBuffer::npos;
}

// ---------------------------------------------------------------- construction and access

StringBuffer::StringBuffer(const char* text) {
  if (text) m_s = text;
}

StringBuffer::StringBuffer(std::string_view text) : m_s(text) {}

const char* StringBuffer::pCharAt(size_t i) const {
  // The index equal to the size yields the terminating NUL, so that a pointer to "just
  // after a match at the end" is still a valid empty string.
  return i <= m_s.size() ? m_s.c_str() + i : nullptr;
}

std::string_view StringBuffer::substr(size_t pos, size_t len) const {
  if (pos >= m_s.size()) return {};
  return std::string_view(m_s).substr(pos, len);
}

void StringBuffer::setString(const char* text) {
  if (text) {
    setString(std::string_view(text));
  } else {
    m_s.clear();
  }
}

void StringBuffer::takeSb(StringBuffer& other) {
  if (&other == this) return;
  m_s = std::move(other.m_s);
  other.m_s.clear();
}

void StringBuffer::takeFromDb(DataBuffer& db) {
  try {
    m_s.assign(reinterpret_cast<const char*>(db.getData2()), db.getSize());
    db.clear();
  } catch (const std::bad_alloc&) {
  }
}

// ---------------------------------------------------------------- append / prepend

bool StringBuffer::append(std::string_view text) {
  try {
    m_s.append(text.data(), text.size());
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool StringBuffer::append(const char* text) { return append(sv(text)); }
bool StringBuffer::append(const StringBuffer& sb) { return append(sb.view()); }
bool StringBuffer::append(int value) { return append(std::string_view(std::to_string(value))); }
bool StringBuffer::appendUint32(uint32_t value) { return append(std::string_view(std::to_string(value))); }
bool StringBuffer::appendInt64(int64_t value) {
  return append(std::string_view(std::to_string(static_cast<long long>(value))));
}
bool StringBuffer::appendChar(char c) { return append(std::string_view(&c, 1)); }

bool StringBuffer::appendN(const char* p, size_t n) {
  if (!p) return n == 0;
  return append(std::string_view(p, n));
}

bool StringBuffer::append2(const char* a, const char* b) {
  const size_t old = m_s.size();
  if (append(a) && append(b)) return true;
  m_s.resize(old);
  return false;
}

bool StringBuffer::append3(const char* a, const char* b, const char* c) {
  const size_t old = m_s.size();
  if (append(a) && append(b) && append(c)) return true;
  m_s.resize(old);
  return false;
}

bool StringBuffer::prepend(const char* text) { return insertAt(sv(text), 0); }

// ---------------------------------------------------------------- comparisons

bool StringBuffer::equals(const char* text) const { return view() == sv(text); }

bool StringBuffer::beginsWith(const char* text) const {
  const std::string_view t = sv(text);
  return m_s.size() >= t.size() && std::memcmp(m_s.data(), t.data(), t.size()) == 0;
}

bool StringBuffer::endsWith(const char* text) const {
  const std::string_view t = sv(text);
  return m_s.size() >= t.size() && std::memcmp(m_s.data() + m_s.size() - t.size(), t.data(), t.size()) == 0;
}

bool StringBuffer::containsSubstring(const char* text) const { return find(sv(text)) != npos; }

bool StringBuffer::containsSubstringNoCase(const char* text) const { return findNoCase(view(), sv(text), 0) != npos; }

// ---------------------------------------------------------------- search

const char* StringBuffer::findSubstr(const char* text) const {
  const size_t i = find(sv(text));
  return i == npos ? nullptr : m_s.c_str() + i;
}

long long StringBuffer::indexOf(const char* text) const {
  const size_t i = find(sv(text));
  return i == npos ? -1 : static_cast<long long>(i);
}

size_t StringBuffer::find(std::string_view needle, size_t from) const { return btFind(view(), needle, from); }

size_t StringBuffer::findChar(char c, size_t from) const {
  if (from >= m_s.size()) return npos;
  const void* p = std::memchr(m_s.data() + from, c, m_s.size() - from);
  return p ? static_cast<size_t>(static_cast<const char*>(p) - m_s.data()) : npos;
}

size_t StringBuffer::rfind(std::string_view needle, size_t before) const {
  // Last occurrence starting strictly before `before` (npos: anywhere).
  if (before == npos) return m_s.rfind(needle.data(), npos, needle.size());
  if (before == 0) return npos;
  return m_s.rfind(needle.data(), before - 1, needle.size());
}

// ---------------------------------------------------------------- edits

int StringBuffer::replaceAllOccurances(const char* from, const char* to) {
  const std::string_view f = sv(from), t = sv(to);
  if (f.empty()) return 0;
  size_t hit = find(f);
  if (hit == npos) return 0;
  try {
    std::string out;
    out.reserve(t.size() > f.size() ? m_s.size() + (t.size() - f.size()) * 4 : m_s.size());
    int count = 0;
    size_t pos = 0;
    // Copy the text between matches and the replacement; the search resumes after the
    // matched text in the original, so a replacement is never looked at again.
    while (hit != npos) {
      out.append(m_s, pos, hit - pos);
      out.append(t.data(), t.size());
      ++count;
      pos = hit + f.size();
      hit = find(f, pos);
    }
    out.append(m_s, pos, npos);
    m_s.swap(out);
    return count;
  } catch (const std::exception&) {
    return 0;
  }
}

bool StringBuffer::replaceFirstOccurance(const char* from, const char* to, bool ignoreCase) {
  const std::string_view f = sv(from), t = sv(to);
  if (f.empty()) return false;
  const size_t hit = ignoreCase ? findNoCase(view(), f, 0) : find(f);
  if (hit == npos) return false;
  try {
    m_s.replace(hit, f.size(), t.data(), t.size());
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void StringBuffer::replaceCharUtf8(char from, char to) { std::replace(m_s.begin(), m_s.end(), from, to); }

void StringBuffer::replaceChar5(const char* set, char c) {
  if (!set) return;
  const size_t n = strnlen(set, 5);
  for (char& ch : m_s)
    if (std::memchr(set, ch, n)) ch = c;
}

void StringBuffer::removeCharOccurances(char c) { m_s.erase(std::remove(m_s.begin(), m_s.end(), c), m_s.end()); }

void StringBuffer::removeChunk(size_t start, size_t length) {
  if (start >= m_s.size()) return;
  m_s.erase(start, length);
}

bool StringBuffer::insertAt(const StringBuffer& sb, size_t index) { return insertAt(sb.view(), index); }

bool StringBuffer::insertAt(std::string_view text, size_t index) {
  if (index > m_s.size()) return false;
  try {
    m_s.insert(index, text.data(), text.size());
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void StringBuffer::shorten(size_t n) { m_s.resize(n >= m_s.size() ? 0 : m_s.size() - n); }

void StringBuffer::trim2() {
  size_t b = 0, e = m_s.size();
  while (b < e && isWs(m_s[b])) ++b;
  while (e > b && isWs(m_s[e - 1])) --e;
  if (b == 0 && e == m_s.size()) return;
  m_s.erase(e);
  m_s.erase(0, b);
}

void StringBuffer::trimInsideSpaces() {
  // Leading and trailing runs are left as they are; only runs between two other bytes shrink.
  size_t b = 0, e = m_s.size();
  while (b < e && isWs(m_s[b])) ++b;
  while (e > b && isWs(m_s[e - 1])) --e;
  size_t w = b;
  for (size_t r = b; r < e;) {
    if (isWs(m_s[r])) {
      while (r < e && isWs(m_s[r])) ++r;
      m_s[w++] = ' ';
    } else {
      m_s[w++] = m_s[r++];
    }
  }
  if (w != e) m_s.erase(w, e - w);
}

void StringBuffer::toLowerCase() {
  for (char& c : m_s) c = asciiLower(c);
}

void StringBuffer::toLF() {
  if (findChar('\r') == npos) return;
  size_t w = 0;
  for (size_t r = 0; r < m_s.size(); ++r) {
    if (m_s[r] == '\r') {
      m_s[w++] = '\n';
      if (r + 1 < m_s.size() && m_s[r + 1] == '\n') ++r;
    } else {
      m_s[w++] = m_s[r];
    }
  }
  m_s.resize(w);
}

void StringBuffer::toCRLF() {
  toLF();
  size_t lines = 0;
  for (size_t i = findChar('\n'); i != npos; i = findChar('\n', i + 1)) ++lines;
  if (lines == 0) return;
  try {
    std::string out;
    out.reserve(m_s.size() + lines);
    for (char c : m_s) {
      if (c == '\n') out += '\r';
      out += c;
    }
    m_s.swap(out);
  } catch (const std::exception&) {
  }
}

// ---------------------------------------------------------------- delimited spans

bool StringBuffer::getDelimited(const char* begin, const char* end, bool includeMarkers, StringBuffer& out) const {
  const std::string_view b = sv(begin), e = sv(end);
  const size_t i = find(b);
  if (i == npos) return false;
  const size_t j = find(e, i + b.size());
  if (j == npos) return false;
  const size_t from = includeMarkers ? i : i + b.size();
  const size_t to = includeMarkers ? j + e.size() : j;
  try {
    out.m_s.assign(m_s, from, to - from);
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

bool StringBuffer::removeDelimited(const char* begin, const char* end, bool includeMarkers, bool firstOnly) {
  return removeDelimitedIfContains(begin, end, nullptr, includeMarkers, firstOnly);
}

bool StringBuffer::removeDelimitedIfContains(const char* begin, const char* end, const char* required,
                                             bool includeMarkers, bool firstOnly) {
  const std::string_view b = sv(begin), e = sv(end), req = sv(required);
  if (b.empty() || e.empty()) return false;
  bool removed = false;
  size_t from = 0;
  while (true) {
    const size_t i = find(b, from);
    if (i == npos) break;
    const size_t j = find(e, i + b.size());
    if (j == npos) break;
    const size_t innerStart = i + b.size();
    if (!req.empty() && btFind(std::string_view(m_s).substr(innerStart, j - innerStart), req) == npos) {
      from = j + e.size();  // this span stays; look at the next one
      continue;
    }
    const size_t cutStart = includeMarkers ? i : innerStart;
    const size_t cutEnd = includeMarkers ? j + e.size() : j;
    m_s.erase(cutStart, cutEnd - cutStart);
    removed = true;
    if (firstOnly) break;
    from = includeMarkers ? cutStart : cutStart + e.size();
  }
  return removed;
}

void StringBuffer::removeBefore(const char* marker, bool removeMarkerToo) {
  const std::string_view m = sv(marker);
  const size_t i = find(m);
  if (i == npos) return;
  m_s.erase(0, removeMarkerToo ? i + m.size() : i);
}

void StringBuffer::chopAtSubstr(const char* marker, bool keepMarker) {
  const std::string_view m = sv(marker);
  const size_t i = find(m);
  if (i == npos) return;
  m_s.resize(keepMarker ? i + m.size() : i);
}

// ---------------------------------------------------------------- splitting and matching

bool StringBuffer::split(ExtPtrArraySb& out, char sep, bool trim, bool dropEmpty) const {
  try {
    size_t start = 0;
    while (true) {
      const size_t hit = findChar(sep, start);
      const size_t end = hit == npos ? m_s.size() : hit;
      size_t b = start, e = end;
      if (trim) {
        while (b < e && isWs(m_s[b])) ++b;
        while (e > b && isWs(m_s[e - 1])) --e;
      }
      if (!(dropEmpty && b == e) && !pushPiece(out, std::string_view(m_s).substr(b, e - b))) return false;
      if (hit == npos) break;
      start = hit + 1;
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool StringBuffer::tokenize(ExtPtrArraySb& out, const char* delims) const {
  const std::string_view d = sv(delims);
  try {
    size_t start = 0;
    for (size_t i = 0; i < m_s.size(); ++i) {
      if (d.find(m_s[i]) == std::string_view::npos) continue;
      if (i > start && !pushPiece(out, std::string_view(m_s).substr(start, i - start))) return false;
      if (!pushPiece(out, std::string_view(m_s).substr(i, 1))) return false;
      start = i + 1;
    }
    return start >= m_s.size() || pushPiece(out, std::string_view(m_s).substr(start));
  } catch (const std::exception&) {
    return false;
  }
}

bool StringBuffer::matches(const char* pattern, bool caseSensitive) const {
  // Greedy two-pointer wildcard match: on a mismatch, return to the last '*' and let it
  // absorb one more byte. Worst case O(text * pattern), never exponential.
  const std::string_view p = sv(pattern);
  const std::string_view s = view();
  auto same = [caseSensitive](char a, char b) { return caseSensitive ? a == b : asciiLower(a) == asciiLower(b); };
  size_t si = 0, pi = 0;
  size_t star = npos, starSi = 0;
  while (si < s.size()) {
    if (pi < p.size() && p[pi] == '*') {
      star = pi++;
      starSi = si;
    } else if (pi < p.size() && same(p[pi], s[si])) {
      ++pi;
      ++si;
    } else if (star != npos) {
      pi = star + 1;
      si = ++starSi;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == '*') ++pi;
  return pi == p.size();
}

bool StringBuffer::isHexidecimal() const {
  if (m_s.empty()) return false;  // nothing to read as a hex number
  for (char c : m_s) {
    const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    if (!hex) return false;
  }
  return true;
}
