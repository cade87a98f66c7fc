// Reference counting for shared objects (trees, handles, keys) and the guards and
// arrays that own references. This is the one place that deletes by hand.
#pragma once

#include <vector>

class RefCountedObject {
 public:
  RefCountedObject() = default;
  RefCountedObject(const RefCountedObject&) = delete;
  RefCountedObject& operator=(const RefCountedObject&) = delete;

  void incRefCount() { ++m_refCount; }
  // Drops one reference; destroys the object when none is left.
  void decRefCount() {
    if (--m_refCount == 0) delete this;
  }
  int getRefCount() const { return m_refCount; }

 protected:
  virtual ~RefCountedObject() = default;

 private:
  int m_refCount = 1;  // the creator's reference
};

// Holds at most one reference and releases it at the end of the scope.
class RefCountedObjectOwner {
 public:
  RefCountedObjectOwner() = default;
  explicit RefCountedObjectOwner(RefCountedObject* obj) : m_obj(obj) {}
  ~RefCountedObjectOwner() { release(); }
  RefCountedObjectOwner(const RefCountedObjectOwner&) = delete;
  RefCountedObjectOwner& operator=(const RefCountedObjectOwner&) = delete;

  void hold(RefCountedObject* obj) {
    release();
    m_obj = obj;
  }
  RefCountedObject* get() const { return m_obj; }
  RefCountedObject* take() {
    RefCountedObject* o = m_obj;
    m_obj = nullptr;
    return o;
  }
  void release() {
    if (m_obj) m_obj->decRefCount();
    m_obj = nullptr;
  }

 private:
  RefCountedObject* m_obj = nullptr;
};

// The same guard for a public object the verifier made for its own use.
using _clsOwner = RefCountedObjectOwner;

// Typed convenience guard: RcPtr<ClsXml> p(node); p->... ; released at scope end.
template <class T>
class RcPtr {
 public:
  RcPtr() = default;
  explicit RcPtr(T* obj) : m_obj(obj) {}
  ~RcPtr() { reset(); }
  RcPtr(const RcPtr&) = delete;
  RcPtr& operator=(const RcPtr&) = delete;
  RcPtr(RcPtr&& o) noexcept : m_obj(o.release()) {}
  RcPtr& operator=(RcPtr&& o) noexcept {
    if (this != &o) reset(o.release());
    return *this;
  }
  T* get() const { return m_obj; }
  T* operator->() const { return m_obj; }
  T& operator*() const { return *m_obj; }
  explicit operator bool() const { return m_obj != nullptr; }
  T* release() {
    T* o = m_obj;
    m_obj = nullptr;
    return o;
  }
  void reset(T* obj = nullptr) {
    if (m_obj) m_obj->decRefCount();
    m_obj = obj;
  }

 private:
  T* m_obj = nullptr;
};

// Ordered array owning one reference per element.
class ExtPtrArrayRc {
 public:
  ExtPtrArrayRc() = default;
  ~ExtPtrArrayRc() { removeAllObjects(); }
  ExtPtrArrayRc(const ExtPtrArrayRc&) = delete;
  ExtPtrArrayRc& operator=(const ExtPtrArrayRc&) = delete;

  int getSize() const { return static_cast<int>(m_items.size()); }
  // Borrowed pointer, or null for an empty slot or an index outside the array.
  RefCountedObject* elementAt(int i) const {
    return (i >= 0 && i < getSize()) ? m_items[static_cast<size_t>(i)] : nullptr;
  }
  // Takes over the caller's reference.
  void appendRefCounted(RefCountedObject* obj) { m_items.push_back(obj); }
  // Puts obj at slot i (growing with empty slots) and returns what was there; the
  // returned reference passes to the caller.
  RefCountedObject* replaceRefCountedAt(int i, RefCountedObject* obj) {
    if (i < 0) return obj;
    if (static_cast<size_t>(i) >= m_items.size()) m_items.resize(static_cast<size_t>(i) + 1, nullptr);
    RefCountedObject* old = m_items[static_cast<size_t>(i)];
    m_items[static_cast<size_t>(i)] = obj;
    return old;
  }
  // Removes slot i (later slots move down); its reference passes to the caller.
  RefCountedObject* removeRefCountedAt(int i) {
    if (i < 0 || i >= getSize()) return nullptr;
    RefCountedObject* o = m_items[static_cast<size_t>(i)];
    m_items.erase(m_items.begin() + i);
    return o;
  }
  void removeAllObjects() {
    std::vector<RefCountedObject*> items;
    items.swap(m_items);
    for (RefCountedObject* o : items)
      if (o) o->decRefCount();
  }

 private:
  std::vector<RefCountedObject*> m_items;
};
