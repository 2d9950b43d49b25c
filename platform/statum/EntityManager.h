#pragma once
// The state database: entities mounted by path. Readers mount by path and expected type and get
// a read-only handle; loaders write entities in with entityIs.

#include <map>
#include <string>
#include <string_view>

#include "platform/mox/Exception.h"
#include "platform/mox/Ptr.h"

namespace Statum {

class EntityManager : public Mox::Entity {
  MOX_ENTITY("Statum::EntityManager")

 public:
  // The entity at `path`, which must be of type `typeName`. A missing path or another type
  // raises Mox::RangeException naming both.
  Mox::Ptr<Mox::Entity const> mount(std::string_view path, std::string_view typeName) const;
  template <class T>
  Mox::Ptr<T const> mount(std::string_view path) const {
    return Mox::Ptr<T const>(static_cast<T const*>(mount(path, T::kTypeName).get()));
  }
  // The entity at `path` if it is there and of type T; empty otherwise.
  template <class T>
  Mox::Ptr<T const> find(std::string_view path) const {
    auto it = entity_.find(std::string(path));
    if (it == entity_.end()) return nullptr;
    return Mox::Ptr<T const>(dynamic_cast<T const*>(it->second.get()));
  }

  // Writes an entity at `path`; the entity learns its path.
  void entityIs(const std::string& path, Mox::Ptr<Mox::Entity> e);
  const std::map<std::string, Mox::Ptr<Mox::Entity>>& entities() const { return entity_; }

 private:
  std::map<std::string, Mox::Ptr<Mox::Entity>> entity_;
};

}  // namespace Statum
