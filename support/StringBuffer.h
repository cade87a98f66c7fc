// StringBuffer: the growable 8-bit text buffer that carries XML text, digests in
// base64 and every other string inside the verifier. It holds any bytes except NUL,
// is always readable as a NUL-terminated string, and searches with memchr/memmem so
// that scanning megabyte documents stays linear.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class DataBuffer;
class ExtPtrArraySb;

class StringBuffer {
 public:
  static constexpr size_t npos = static_cast<size_t>(-1);

  StringBuffer() = default;
  explicit StringBuffer(const char* text);
  explicit StringBuffer(std::string_view text);
  StringBuffer(const StringBuffer&) = default;
  StringBuffer(StringBuffer&&) noexcept = default;
  StringBuffer& operator=(const StringBuffer&) = default;
  StringBuffer& operator=(StringBuffer&&) noexcept = default;
  ~StringBuffer() = default;

  // --- access ---
  const char* getString() const { return m_s.c_str(); }
  size_t getSize() const { return m_s.size(); }
  bool isEmpty() const { return m_s.empty(); }
  std::string_view view() const { return m_s; }
  const std::string& str() const { return m_s; }
  // Pointer to the byte at index i, or null when i is past the end (valid until the next change).
  // The index equal to the size gives the terminating NUL.
  const char* pCharAt(size_t i) const;
  char charAt(size_t i) const { return i < m_s.size() ? m_s[i] : '\0'; }
  std::string_view substr(size_t pos, size_t len = npos) const;

  // --- replace whole contents ---
  void clear() { m_s.clear(); }
  void setString(const char* text);
  void setString(const StringBuffer& sb) { m_s = sb.m_s; }
  void setString(std::string_view text) { m_s.assign(text.data(), text.size()); }
  void takeSb(StringBuffer& other);  // moves other's bytes here, leaving it empty
  void takeFromDb(DataBuffer& db);   // moves the bytes of db here, leaving it empty
  void takeString(std::string&& text) noexcept { m_s = std::move(text); }
  void reserve(size_t n) { m_s.reserve(n); }

  // --- append / prepend (false only when memory is exhausted) ---
  bool append(const char* text);
  bool append(const StringBuffer& sb);
  bool append(std::string_view text);
  bool append(int value);
  bool appendUint32(uint32_t value);
  bool appendInt64(int64_t value);
  bool appendChar(char c);
  bool appendN(const char* p, size_t n);
  bool append2(const char* a, const char* b);
  bool append3(const char* a, const char* b, const char* c);
  bool prepend(const char* text);

  // --- comparisons (exact, byte-wise) ---
  bool equals(const char* text) const;
  bool equals(const StringBuffer& sb) const { return m_s == sb.m_s; }
  bool beginsWith(const char* text) const;
  bool endsWith(const char* text) const;
  bool containsSubstring(const char* text) const;
  bool containsSubstringNoCase(const char* text) const;  // folds ASCII letters only

  // --- search ---
  const char* findSubstr(const char* text) const;  // pointer into the contents, or null
  long long indexOf(const char* text) const;       // byte index or -1
  // Byte index of the first occurrence at or after `from`, or npos.
  size_t find(std::string_view needle, size_t from = 0) const;
  size_t findChar(char c, size_t from = 0) const;
  // Byte index of the last occurrence starting strictly before `before` (npos: anywhere), or npos.
  size_t rfind(std::string_view needle, size_t before = npos) const;

  // --- edits ---
  // Replaces every non-overlapping occurrence left to right; replacements are never rescanned.
  // Returns the number of replacements.
  int replaceAllOccurances(const char* from, const char* to);
  // Replaces the first occurrence (found ignoring ASCII case when flag is true); true if found.
  bool replaceFirstOccurance(const char* from, const char* to, bool flag);
  void replaceCharUtf8(char from, char to);
  // Replaces every byte found in the first five bytes of `set` with c.
  void replaceChar5(const char* set, char c);
  void removeCharOccurances(char c);
  void removeChunk(size_t start, size_t length);
  // False (no change) when index is beyond the end.
  bool insertAt(const StringBuffer& sb, size_t index);
  bool insertAt(std::string_view text, size_t index);
  void shorten(size_t n);
  void trim2();             // strips leading and trailing space, TAB, CR, LF
  void trimInsideSpaces();  // collapses each inner run of white space to one space (ends untouched)
  void toLowerCase();
  void toLF();
  void toCRLF();

  // --- delimited spans ---
  // getDelimited: the first `begin` and the first `end` after it; out is replaced with the text
  // between (markers included when includeMarkers); false and out unchanged if either is missing.
  // removeDelimited / removeDelimitedIfContains: delete the span from a `begin` to the following
  // `end` (markers included when includeMarkers); the IfContains form skips spans whose inner text
  // lacks `required`. The last flag true removes only the first such span, false every one.
  // True when something was removed.
  bool getDelimited(const char* begin, const char* end, bool includeMarkers, StringBuffer& out) const;
  bool removeDelimited(const char* begin, const char* end, bool includeMarkers, bool flag);
  bool removeDelimitedIfContains(const char* begin, const char* end, const char* required, bool includeMarkers,
                                 bool flag);
  void removeBefore(const char* marker, bool removeMarkerToo);
  void chopAtSubstr(const char* marker, bool keepMarker);

  // --- splitting and matching ---
  // Splits at every `sep`; with trim the pieces lose surrounding white space, with
  // dropEmpty empty pieces are left out. Appends to out.
  bool split(ExtPtrArraySb& out, char sep, bool trim, bool dropEmpty) const;
  // Splits at every byte of `delims`; each delimiter is a piece of its own and empty
  // pieces are dropped: "a::b[c]" with ":[]" gives a : : b [ c ].
  bool tokenize(ExtPtrArraySb& out, const char* delims) const;
  // Whole-contents wildcard match where '*' matches any run of bytes.
  bool matches(const char* pattern, bool caseSensitive) const;
  bool isHexidecimal() const;  // every byte 0-9a-fA-F; false when empty (no number to read)

  // Direct access for code that builds text in bulk.
  std::string& raw() { return m_s; }

 private:
  std::string m_s;
};

// Free functions on NUL-terminated text.
const char* btStrStr(const char* haystack, const char* needle);
const char* btStrChr(const char* text, int byte);
size_t btStrLen(const char* text);
int btStrNCmp(const char* a, const char* b, size_t n);
// memmem-style search in a byte range; returns npos-style SIZE_MAX when absent.
size_t btFind(std::string_view haystack, std::string_view needle, size_t from = 0);
