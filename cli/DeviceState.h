#pragma once
// The device state the front end shows: loaded once (from --state or the built-in example)
// and handed to the library as registry values, entity by entity, from its state paths.

#include <string>
#include <string_view>
#include <vector>

#include "lib/registry/Value.h"
#include "platform/statum/EntityManager.h"

namespace cli {

class DeviceState {
 public:
  // The state of this process; empty until load().
  static DeviceState& instance();

  // Loads a snapshot file ("-": standard input), or the built-in example when `path` is
  // empty. Throws
  // Snapshot::LoadError; the state in use does not change then.
  void load(const std::string& path);

  const Statum::EntityManager& entities() const { return *em_; }
  const std::string& source() const { return source_; }
  std::string hostname() const;

  // The entity at a device-wide path, as a registry value; None when there is none.
  Rova::Value at(std::string_view path) const;
  // The entity at a per-VRF path ("vrf/<vrf>/<leaf>").
  Rova::Value atVrf(std::string_view vrf, std::string_view leaf) const;

  bool hasVrf(std::string_view vrf) const;
  // The VRFs the state describes: "default" first, then by name.
  std::vector<std::string> vrfNames() const;
  // The status of the named interface; None when the state has no such interface.
  Rova::Value intfStatus(std::string_view name) const;

 private:
  Mox::Ptr<Statum::EntityManager> em_;
  std::string source_;
};

}  // namespace cli
