#include "platform/statum/EntityManager.h"

namespace Statum {

Mox::Ptr<Mox::Entity const> EntityManager::mount(std::string_view path,
                                                 std::string_view typeName) const {
  auto it = entity_.find(std::string(path));
  if (it == entity_.end()) {
    throw Mox::RangeException("no entity at '" + std::string(path) + "'");
  }
  if (typeName != it->second->typeName()) {
    throw Mox::RangeException("entity at '" + std::string(path) + "' is a " +
                              it->second->typeName() + ", not a " + std::string(typeName));
  }
  return it->second;
}

void EntityManager::entityIs(const std::string& path, Mox::Ptr<Mox::Entity> e) {
  e->pathIs(path);
  entity_[path] = std::move(e);
}

}  // namespace Statum
