#pragma once
// The device state the front end shows: loaded once (from --state, the built-in example, or
// the running kernel with --live) and handed to the library as registry values, entity by entity,
// from its state paths.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/Store.h"
#include "lib/registry/TypeRegistry.h"
#include "lib/registry/Value.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/Live.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace cli {

class DeviceState {
 public:
  // The state of this process; empty until load().
  static DeviceState& instance();

  // Loads a snapshot file ("-": standard input), or the built-in example when `path` is
  // empty. Throws
  // Snapshot::LoadError; the state in use does not change then. `sections` says what a
  // one-shot command reads; a state loaded without some tables cannot be saved.
  void load(const std::string& path, Snapshot::Sections sections = {});
  // Shows a state loaded elsewhere (the Python module keeps one per rova.State); `filePath`
  // is where `write` saves it, empty when it has no file of its own. `live`: the kernel's own
  // state, read by readLive(). `attached`: the agent's store the state's tables read, when
  // they do.
  void adopt(Mox::Ptr<Statum::EntityManager> em, std::string source, std::string filePath,
             bool live = false, std::shared_ptr<Agent::Attachment> attached = nullptr);
  // The state in use, shared with whoever else holds it.
  const Mox::Ptr<Statum::EntityManager>& entityManager() const { return em_; }
  // Reads the routing state of the kernel this process runs on, the tables `scope` names.
  // Throws Snapshot::LiveError.
  void loadLive(const Snapshot::LiveScope& scope = {});
  // The state is the kernel's own: there is no configuration to change.
  bool live() const { return live_; }
  // Reads the tables the agent `name` publishes, in place. Throws Agent::StoreError.
  void attach(const std::string& name);
  // The agent's store the tables read; null unless attached.
  const std::shared_ptr<Agent::Attachment>& attached() const { return attached_; }
  // Raises Mox::UnavailableException when the state is attached and its agent has ended.
  void checkAgent() const;
  // An attached state whose agent published since it was read is read again (the small
  // entities; the tables are read in place anyway).
  void refreshAttached();

  const Statum::EntityManager& entities() const { return *em_; }
  // Puts `em` in place of the state's tables and hands back the ones it held; the state's
  // file, source and saved flag stay. A configuration session judges its candidate on a copy
  // this way.
  void swapEntities(Mox::Ptr<Statum::EntityManager>& em) {
    std::swap(em_, em);
    std::swap(unsaved_, swappedUnsaved_);
  }
  const std::string& source() const { return source_; }
  // The file the state was loaded from; empty for the built-in example.
  const std::string& filePath() const { return filePath_; }

  // A command that changes the state says so; `unsaved` tells whether a change was made since
  // the state was loaded or last saved to its own file.
  void changed() { unsaved_ = true; }
  bool unsaved() const { return unsaved_; }
  // Writes the state to `path` (empty: the file it came from) with Snapshot::save, in the form
  // of the document it was loaded from (read again from its file, unless that changed since
  // it was read or last saved; standard input is not kept). Saving over
  // the file the state came from is refused when the file changed since it was loaded or
  // last saved by this process (another session wrote it). Throws Snapshot::SaveError;
  // Mox::RangeException when there is no file to write to.
  void save(const std::string& path);
  std::string hostname() const;

  // A device-wide entity, as a registry value; None when the state has none.
  template <class R>
  Rova::Value at(const Snapshot::layout::Entity<R, Snapshot::layout::Scope::device>& e) const {
    return entityAt(e);
  }
  // A per-VRF entity of `vrf`.
  template <class R>
  Rova::Value atVrf(std::string_view vrf,
                    const Snapshot::layout::Entity<R, Snapshot::layout::Scope::vrf>& e) const {
    return entityAt(e, vrf);
  }
  // Either kind, for a table of entities: a per-VRF one is that of `vrf`.
  Rova::Value entityAt(const Snapshot::layout::EntityInfo& e, std::string_view vrf = {}) const;
  // The state database itself, as a registry value, for library objects that mount their own
  // tables from it.
  Rova::Value entityManagerValue() const;

  bool hasVrf(std::string_view vrf) const;
  // The VRFs the state describes: "default" first, then by name.
  std::vector<std::string> vrfNames() const;
  // The status of the named interface; None when the state has no such interface.
  Rova::Value intfStatus(std::string_view name) const;

 private:
  Mox::Ptr<Statum::EntityManager> em_;
  std::shared_ptr<Agent::Attachment> attached_;
  std::string source_;
  bool live_ = false;
  std::string filePath_;
  bool unsaved_ = false;
  bool swappedUnsaved_ = false;
  Snapshot::Sections sections_;  // what the state holds of its document
  Snapshot::FileStamp stamp_;    // the state's own file as it was read or last written
  bool builtIn_ = false;         // loaded from the built-in example, whose text a write keeps

  void use(Mox::Ptr<Statum::EntityManager> em, std::string source);
};

// The state of this process and the library's types, as the commands' files reach them.
inline DeviceState& state() {
  return DeviceState::instance();
}
inline const Rova::TypeRegistry& registry() {
  return Rova::TypeRegistry::instance();
}

}  // namespace cli
