#include "snapshot/StateLayout.h"

namespace Snapshot::layout {

namespace {

constexpr std::string_view kVrfPrefix = "vrf/";

}  // namespace

std::string pathOf(const EntityInfo& entity, std::string_view vrf) {
  if (entity.scope == Scope::device) return std::string(entity.path);
  std::string p(kVrfPrefix);
  p.append(vrf).append("/").append(entity.path);
  return p;
}

void publish(Statum::EntityManager& em, const DeviceTables& tables) {
  tables.forEach([&](const EntityInfo& entity, const auto& table) {
    em.entityIs(std::string(entity.path), table);
  });
}

void publish(Statum::EntityManager& em, std::string_view vrf, const VrfTables& tables) {
  tables.forEach([&](const EntityInfo& entity, const auto& table) {
    em.entityIs(pathOf(entity, vrf), table);
  });
}

// Every VRF has its IPv4 route table, so the route tables name the VRFs.
std::vector<std::string> vrfNames(const Statum::EntityManager& em) {
  std::vector<std::string> names;
  const std::string leaf = "/" + std::string(fibRoute.path);
  for (const auto& [path, entity] : em.entities()) {
    if (path.rfind(kVrfPrefix, 0) != 0 || path.size() <= leaf.size() + kVrfPrefix.size()) continue;
    if (path.compare(path.size() - leaf.size(), leaf.size(), leaf) != 0) continue;
    names.push_back(path.substr(kVrfPrefix.size(), path.size() - kVrfPrefix.size() - leaf.size()));
  }
  return names;
}

bool hasVrf(const Statum::EntityManager& em, std::string_view vrf) {
  return em.entities().count(pathOf(fibRoute, vrf)) > 0;
}

}  // namespace Snapshot::layout
