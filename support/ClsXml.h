// ClsXml: a handle on one element of a parsed XML tree. Handles are reference counted;
// each keeps its whole tree alive, so a handle taken before a reload still reads the
// old tree. Lookups take tag paths:
//   "tag"          an element whose tag text is exactly that (prefix included)
//   "*:local"      that local name with any prefix or none
//   "a|b|c"        a path of direct children, first match at each step
//   "step[i]"      the match whose index among the matching children is the handle's I
// Attribute names given to the searches follow the same "*:" rule; getAttrValue and
// getChildAttrValue take exact names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"

class LogBase;
class XString;
class ExtPtrArrayRc;

namespace xml {
class XmlTree;
struct XmlNode;
}  // namespace xml

class ClsXml : public RefCountedObject {
 public:
  // A new empty tree with its root handle (one reference); null only when out of memory.
  static ClsXml* createNewCls();

  // Parses text and makes this handle the root element of the new tree (the previous
  // tree stays alive for other handles). False, with the located reason in the log,
  // when the text is not well-formed. The flag is accepted with either value.
  bool loadXml(const StringBuffer& text, bool flag, LogBase& log);
  // As loadXml, without copying the text: the tree shares it with the caller and keeps
  // it alive while any handle on the tree lives. The caller must not modify it.
  bool loadXmlShared(std::shared_ptr<const std::string> text, LogBase& log);
  // As loadXml, reading the caller's text where it is, without a copy. Internal contract:
  // the caller keeps `text` alive and unchanged until the last handle on the tree is
  // released, and therefore never hands a handle of this tree to code that could keep it
  // longer (it gives out handleOwningText() instead).
  bool loadXmlBorrowed(const StringBuffer& text, LogBase& log);
  // A new handle on this element that does not depend on borrowed text: a handle of the
  // same tree when the tree owns or shares its text, else a handle on the same element of
  // a new tree parsed from a copy of the text. Null when empty or out of memory.
  ClsXml* handleOwningText();

  // Appends a new handle on every element named Signature (any prefix) of the
  // XML-Signature namespace, plus every element whose direct children include a
  // SignedInfo and a SignatureValue of that namespace (e.g. EBICS AuthSignature),
  // in document order.
  bool findSignatures(ExtPtrArrayRc& out, LogBase& log);

  // --- lookups: new handles (caller releases) or null ---
  ClsXml* getChildWithTagUtf8(const char* path);
  ClsXml* findChild(const char* path) { return getChildWithTagUtf8(path); }
  ClsXml* getNthChildWithTagUtf8(const char* tag, int n, LogBase& log);
  int numChildrenHavingTagUtf8(const char* tag, LogBase& log);
  void put_I(int i) { m_i = i; }
  int get_I() const { return m_i; }
  // Appends the text content of the element the path names; false (out unchanged) if none.
  bool getChildContentUtf8(const char* path, StringBuffer& out, bool flag);
  bool getChildAttrValue(const char* path, const char* attr, StringBuffer& out);
  bool getAttrValue(const char* attr, StringBuffer& out);
  bool HasAttribute(const char* name);
  int get_NumAttributes();
  bool getAttributeName(int i, StringBuffer& out);
  bool getAttributeValue(int i, StringBuffer& out);

  // Text content of this element (character data and CDATA of direct text children,
  // references expanded).
  void get_Content(XString& out);
  bool getContentSb(StringBuffer& out);
  bool getTag(StringBuffer& out);           // qualified tag as written
  bool getTagNamespace(StringBuffer& out);  // prefix of the tag ("" when unprefixed)
  std::string_view tagView() const;
  std::string_view localNameView() const;

  // The element and its subtree as XML text, exactly as it stands in the loaded text.
  bool getXml(bool flag, StringBuffer& out, LogBase& log);
  bool GetXml(XString& out);

  int get_NumChildren();
  ClsXml* GetChild(int i);
  ClsXml* getChild(int i) { return GetChild(i); }
  bool getChild2(int i);  // moves this handle to its i-th child element
  ClsXml* getParent();

  ClsXml* searchForTag(ClsXml* after, const char* path);
  // As searchForTag, for the next element that matches any one of the tag patterns, so
  // that one walk serves several names.
  ClsXml* searchForAnyTag(ClsXml* after, std::initializer_list<const char*> tags);
  ClsXml* searchForAttribute(ClsXml* after, const char* tag, const char* attr, bool flag, const char* valuePattern);

  // Byte span of this element in the text it was parsed from ([start, end)).
  size_t sourceStart() const;
  size_t sourceEnd() const;
  bool isEmptyHandle() const { return m_node == nullptr; }
  // The tree and node behind the handle, for code that reads the structure directly
  // (null when empty). Valid while the handle lives.
  const xml::XmlTree* tree() const { return m_tree.get(); }
  const xml::XmlNode* node() const { return m_node; }
  // A new handle on the element with this document-order index of the same tree, or null.
  ClsXml* handleOnNode(uint32_t index);

 protected:
  ~ClsXml() override;

 private:
  ClsXml(std::shared_ptr<xml::XmlTree> tree, xml::XmlNode* node);
  // A new handle on node of tree (one reference); null when out of memory.
  static ClsXml* createNewCls(const std::shared_ptr<xml::XmlTree>& tree, xml::XmlNode* node);
  // Builds a new tree with parse(tree, error) and makes this handle its root.
  template <typename Parse>
  bool load(Parse&& parse, LogBase& log);
  xml::XmlNode* resolvePath(std::string_view path) const;
  // The node index range [begin, end) of this element's subtree, or of what follows
  // `after` in it; false when there is nothing to walk.
  bool searchRange(const ClsXml* after, uint32_t& begin, uint32_t& end) const;
  xml::XmlNode* searchFrom(const ClsXml* after, std::string_view tag, const char* attr, const char* valuePattern) const;
  std::shared_ptr<xml::XmlTree> m_tree;
  xml::XmlNode* m_node = nullptr;
  int m_i = 0;
};
