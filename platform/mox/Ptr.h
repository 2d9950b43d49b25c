#pragma once
// Counted handles. Entities (objects with identity: state records, command objects) derive
// from Entity and are held by Ptr<T>; Ptr<T const> is the read-only handle. The count is
// atomic so that handles may cross threads.

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <string>
#include <utility>

namespace Mox {

class Entity : public boost::intrusive_ref_counter<Entity, boost::thread_safe_counter> {
 public:
  virtual ~Entity() = default;
  // The registered type name ("Ip::Config"); every concrete entity names itself.
  virtual const char* typeName() const = 0;
  // Where the entity was mounted in the state ("ip/config"); empty when it was not.
  const std::string& path() const { return path_; }
  void pathIs(std::string path) { path_ = std::move(path); }

 private:
  std::string path_;
};

template <class T>
using Ptr = boost::intrusive_ptr<T>;

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Mox

// Gives an entity class its registered name.
#define MOX_ENTITY(QualifiedName)                         \
 public:                                                  \
  static constexpr const char* kTypeName = QualifiedName; \
  const char* typeName() const override {                 \
    return kTypeName;                                     \
  }                                                       \
                                                          \
 private:
