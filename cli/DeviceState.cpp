#include "cli/DeviceState.h"

#include "cli/CommandActions.h"

#include <algorithm>
#include <stdexcept>

#include "platform/mox/ActivityLock.h"
#include "platform/plexa/IntfId.h"
#include "platform/state/Interface.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/Live.h"
#include "snapshot/Snapshot.h"

namespace cli {

namespace layout = Snapshot::layout;

DeviceState& DeviceState::instance() {
  static DeviceState state;
  return state;
}

void DeviceState::load(const std::string& path, Snapshot::Sections sections) {
  // Taken before the file is read: a change made while it loads makes the stamp out of date,
  // so that a later save refuses rather than overwrites it.
  const Snapshot::FileStamp stamp =
      path.empty() || path == "-" ? Snapshot::FileStamp() : Snapshot::stampOf(path);
  auto em = path.empty() ? Snapshot::load(Snapshot::embeddedExample(), sections)
                         : Snapshot::loadFile(path, sections);
  use(std::move(em), path.empty() ? "built-in example" : path == "-" ? "standard input" : path);
  sections_ = sections;
  attached_ = nullptr;
  live_ = false;
  // Standard input is read once; there is no file to write back to.
  filePath_ = path == "-" ? std::string() : path;
  stamp_ = stamp;
  builtIn_ = path.empty();
  // Only a state with its route tables may change (it is saved whole).
  if (sections.isAll()) prepareStaticRouteFibs();
}

void DeviceState::adopt(Mox::Ptr<Statum::EntityManager> em, std::string source,
                        std::string filePath, bool live,
                        std::shared_ptr<Agent::Attachment> attached) {
  if (em_ != em || filePath != filePath_) stamp_ = {};
  const bool other = em_ != em;
  if (other) use(std::move(em), std::move(source));
  attached_ = std::move(attached);
  live_ = live;
  builtIn_ = false;
  sections_ = {};
  filePath_ = std::move(filePath);
  if (other && !live_ && !attached_) prepareStaticRouteFibs();
}

void DeviceState::attach(const std::string& name) {
  auto attachment = Agent::Attachment::open(name);
  use(attachment->current(), "agent " + Mox::shownWord(name));
  attached_ = std::move(attachment);
  live_ = false;
  builtIn_ = false;
  sections_ = {};
  filePath_.clear();
  stamp_ = {};
}

void DeviceState::checkAgent() const {
  if (attached_ && !attached_->agentRunning()) {
    throw Mox::UnavailableException("The state agent " + Mox::shownWord(attached_->name()) +
                                    " has ended; its state is no longer current");
  }
}

void DeviceState::refreshAttached() {
  if (!attached_) return;
  auto em = attached_->current();
  if (em != em_) use(std::move(em), source_);
}

void DeviceState::loadLive(const Snapshot::LiveScope& scope) {
  use(Snapshot::readLive(scope), "live");
  attached_ = nullptr;
  live_ = true;
  builtIn_ = false;
  filePath_.clear();
  stamp_ = {};
}

void DeviceState::use(Mox::Ptr<Statum::EntityManager> em, std::string source) {
  // A long walk of attached tables stops when their agent ends, at its next yield.
  Mox::ActivityLock::instance().yieldCheckIs([this] { checkAgent(); });
  em_ = std::move(em);
  source_ = std::move(source);
  unsaved_ = false;
  sections_ = Snapshot::Sections::all();
  // Value texts name state entities by path ("Ptr('Ip::Config', 'ip/config')"): they read
  // back as the entities of this state.
  Mox::ptrResolverIs([this](std::string_view type, std::string_view at) -> Mox::Ptr<Mox::Entity> {
    auto it = em_->entities().find(std::string(at));
    if (it == em_->entities().end() || type != it->second->typeName()) return nullptr;
    return it->second;
  });
}

void DeviceState::save(const std::string& path) {
  // A command that saves declares that it reads everything; a state without its route tables
  // written out would lose them.
  if (!sections_.isAll())
    throw std::logic_error("a state loaded without its route tables cannot be saved");
  const std::string target = path.empty() ? filePath_ : path;
  if (target.empty()) {
    throw Mox::RangeException("The state has no file of its own (" + source_ +
                              "); give one: write FILE");
  }
  // The state's own file, by its name or another (a link), must be as the state found it.
  const bool own = target == filePath_ || stamp_.sameFile(Snapshot::stampOf(target));
  // The document the state came from, read again now rather than kept since the load (a
  // full table's text is as large as its tables): the new text keeps its form.
  const std::string original = !filePath_.empty() ? Snapshot::documentText(filePath_, stamp_)
                               : builtIn_         ? std::string(Snapshot::embeddedExample())
                                                  : std::string();
  const Snapshot::FileStamp written =
      Snapshot::save(*em_, target, own ? &stamp_ : nullptr, original);
  if (own) stamp_ = written;
  if (target == filePath_) unsaved_ = false;
}

std::string DeviceState::hostname() const {
  auto device = layout::find(*em_, layout::device);
  return device ? device->hostname().stringValue() : std::string();
}

Rova::Value DeviceState::entityAt(const layout::EntityInfo& e, std::string_view vrf) const {
  auto it = em_->entities().find(layout::pathOf(e, vrf));
  if (it == em_->entities().end()) return Rova::Value();
  return Rova::Value(it->second);
}

Rova::Value DeviceState::entityManagerValue() const {
  return Rova::toValue(em_);
}

bool DeviceState::hasVrf(std::string_view vrf) const {
  return layout::hasVrf(*em_, vrf);
}

std::vector<std::string> DeviceState::vrfNames() const {
  std::vector<std::string> names = layout::vrfNames(*em_);
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    if ((a == "default") != (b == "default")) return a == "default";
    return a < b;
  });
  return names;
}

Rova::Value DeviceState::intfStatus(std::string_view name) const {
  auto all = layout::find(*em_, layout::intfStatus);
  if (!all) return Rova::Value();
  auto status = all->intfStatus(Plexa::IntfId(name));
  return status ? Rova::toValue(status) : Rova::Value();
}

}  // namespace cli
