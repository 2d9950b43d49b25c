#pragma once
// A directory of entities by name. Lookup by type yields an empty handle when the entry is
// missing or is of another type, so callers treat both the same way.

#include <map>
#include <string>

#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"

namespace Mox {

class Dir : public Entity {
  MOX_ENTITY("Mox::Dir")

 public:
  using Entries = std::map<String8, Ptr<Entity>>;

  void entityIs(const String8& name, Ptr<Entity> e) { entity_[name] = std::move(e); }
  bool entityDel(const String8& name) { return entity_.erase(name) > 0; }
  Ptr<Entity const> entity(const String8& name) const {
    auto it = entity_.find(name);
    return it == entity_.end() ? nullptr : Ptr<Entity const>(it->second);
  }
  template <class T>
  Ptr<T const> entity(const String8& name) const {
    auto it = entity_.find(name);
    if (it == entity_.end()) return nullptr;
    return Ptr<T const>(dynamic_cast<T const*>(it->second.get()));
  }
  // Entries in name order.
  const Entries& entries() const { return entity_; }
  std::size_t size() const { return entity_.size(); }

 private:
  Entries entity_;
};

}  // namespace Mox
