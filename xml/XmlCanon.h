// XmlCanon: Canonical XML 1.0 and Exclusive XML Canonicalization 1.0, with or without
// comments, of a whole document or of one element of it, written in one streaming pass
// over the project's XML scanner (no tree is built).
//
// What is canonicalized (xmlCanonicalize):
//  - fragmentId null or empty, or "xpointer(/)": the whole document. Comments are kept
//    when withComments is set.
//  - fragmentId "xpointer(id('X'))" (single or double quotes): the element identified by X,
//    comments kept when withComments is set.
//  - any other fragmentId X not starting with "xpointer": the element identified by X.
//    This is the bare-name form of a same-document reference ("#X"), which by the
//    XML-Signature dereferencing rules yields the element without its comments, so
//    comments are dropped even with withComments (use the xpointer form to keep them).
//  - ebicsMode, or a fragmentId starting with "xpointer" that contains "authenticate" and
//    "true": the elements carrying an attribute named authenticate (any prefix) whose
//    value is "true", outermost ones only, in document order. With ebicsMode only the
//    ebicsIndex-th of them (0-based) is written, and the call fails when there is no such
//    element (which is how a caller looping over the index learns that it is done);
//    ebicsCount counts the authenticated elements met during the call. Without
//    ebicsMode all of them are written one after the other.
//  - startOffset > 0: the element whose start tag begins ('<') at that byte offset.
//
// An element is identified by X when it carries an attribute whose local name is "Id",
// "ID" or "id" (any prefix or none, e.g. wsu:Id or xml:id), or an attribute the DTD
// declares of type ID, with the value X; the first such element in document order wins.
//
// A selected element is canonicalized as a document subset: it gets the namespace
// context it inherits. Inclusive: every namespace in scope is declared on it, and the
// xml:* attributes of its ancestors (nearest first) that it does not carry itself are
// added to it. Exclusive: only the namespaces it and its descendants visibly use, plus
// the inclusivePrefixes ("#default" = the default namespace).
//
// The output is APPENDED to out. On failure (the text is not well-formed, the element is
// not found) the call returns false with the reason in the log, and out is left as it was
// before the call.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

#include "support/ExtPtrArray.h"
#include "support/StringBuffer.h"

class LogBase;

class XmlCanon {
 public:
  XmlCanon() = default;
  XmlCanon(const XmlCanon&) = delete;
  XmlCanon& operator=(const XmlCanon&) = delete;
  ~XmlCanon() = default;

  int canonMethod = 1;  // 1 = Canonical XML 1.0 (inclusive), 2 = exclusive
  bool withComments = false;
  ExtPtrArraySb inclusivePrefixes;  // exclusive only: prefixes rendered as by inclusive c14n
  // Reproduce the attribute order of canonicalizers that sort attributes by their
  // qualified name as written (see collectAttributes in XmlCanonWriter.cpp).
  bool emulateAttrSortBug = false;
  bool ebicsMode = false;
  int ebicsIndex = 0;
  int ebicsCount = 0;
  // Set by the SignedInfo canonicalization of the verifier. Both values of both flags are
  // accepted; neither changes the canonical output.
  bool canonFlagSignedInfo = false;
  bool canonFlagNonSkXml = true;
  // Canonicalize the text as if this byte range had been cut out of it. The range must
  // hold whole elements (from a start tag's '<' to just past an end tag).
  size_t cutStart = 0;
  size_t cutLength = 0;
  // When set, the canonical form goes to this function piece by piece instead of being
  // appended to out (which then stays as it was). A failed call may already have passed
  // pieces to it.
  std::function<void(std::string_view)> outputSink;

  bool xmlCanonicalize(const StringBuffer& xml, const char* fragmentId, size_t startOffset, StringBuffer& out,
                       LogBase& log);
};
