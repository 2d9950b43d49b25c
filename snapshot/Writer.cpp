// The snapshot writer: the loaded state written back in the documented format, so that
// loading the text gives the same state. Everything the loader derives (interface and IP
// status, the VRFs' hardware counts, kernel-unprogrammed prefixes) is written as the document
// key it came from. Tables are written in their own order, which after a load is the
// document's order; hash maps are sorted first, so the same state gives the same text.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/rendr/JsonText.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/Refs.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace Snapshot {

namespace {

// JSON written straight into one buffer, two blanks of indent per level. Members and elements
// are separated as they come, so callers only say what to write.
class Json {
 public:
  std::string take() {
    text_ += '\n';
    return std::move(text_);
  }

  Json& openObject() { return open('{'); }
  Json& openArray() { return open('['); }
  Json& close() {
    const bool empty = first_.back();
    first_.pop_back();
    const char closing = closers_.back();
    closers_.pop_back();
    if (!empty) newline();
    text_ += closing;
    return *this;
  }
  // Starts a member; its value follows.
  Json& key(std::string_view k) {
    element();
    quoted(k);
    text_ += ": ";
    pendingValue_ = true;
    return *this;
  }
  Json& string(std::string_view s) {
    element();
    quoted(s);
    return *this;
  }
  Json& number(std::uint64_t n) {
    element();
    char buf[24];
    text_.append(buf, std::to_chars(buf, buf + sizeof buf, n).ptr);
    return *this;
  }
  Json& boolean(bool b) {
    element();
    text_ += b ? "true" : "false";
    return *this;
  }
  Json& null() {
    element();
    text_ += "null";
    return *this;
  }

  Json& member(std::string_view k, std::string_view v) { return key(k).string(v); }
  Json& member(std::string_view k, const std::string& v) { return key(k).string(v); }
  Json& member(std::string_view k, const char* v) { return key(k).string(v); }
  Json& member(std::string_view k, std::uint64_t v) { return key(k).number(v); }
  Json& memberBool(std::string_view k, bool v) { return key(k).boolean(v); }

 private:
  // A JSON string, escaped as the printer escapes one.
  void quoted(std::string_view s) { rendr::detail::appendJsonString(text_, s); }

  Json& open(char c) {
    element();
    text_ += c;
    closers_.push_back(c == '{' ? '}' : ']');
    first_.push_back(true);
    return *this;
  }
  // Before a member or an element: the separator and the line it goes on. A value after its
  // key stays on the key's line.
  void element() {
    if (pendingValue_) {
      pendingValue_ = false;
      return;
    }
    if (first_.empty()) return;
    if (!first_.back()) text_ += ',';
    first_.back() = false;
    newline();
  }
  void newline() {
    text_ += '\n';
    text_.append(2 * first_.size(), ' ');
  }

  std::string text_;
  std::vector<char> closers_;
  std::vector<bool> first_;
  bool pendingValue_ = false;
};

class Writer {
 public:
  explicit Writer(const Statum::EntityManager& em) : em_(em) {}
  std::string run();

 private:
  void hardware();
  void staticRouteDefaults();
  void vrfs();
  void vrf(const std::string& name);
  template <class Fam, class NameOf>
  void family(const std::string& vrf, NameOf nameOf);
  template <class Fec>
  void fec(const Fec& fec);
  void staticRoutes(const std::string& vrf);
  void staticRoute(const Routing::Route& route);
  void interfaces();
  void neighbors();
  void tunnels();
  void tunnelVias(const Tunnel::TunnelTable::TunnelViaArray& vias);
  template <class Table>
  void tunnelTable(const char* name);
  void srTePolicies();
  void nexthopGroups();
  void flexCounters();
  void counterRows(const char* key,
                   const layout::Entity<FlexCounters::CounterTable, layout::Scope::device>& table);
  void routeDistinguishers();

  template <class V>
  void text(std::string_view k, const V& v) {
    json_.member(k, v.stringValue());
  }

  const Statum::EntityManager& em_;
  Json json_;
};

std::string Writer::run() {
  json_.openObject();
  json_.member("version", std::uint64_t(kFormatVersion));
  if (auto device = layout::find(em_, layout::device))
    json_.member("hostname", device->hostname().stringValue());
  hardware();
  staticRouteDefaults();
  vrfs();
  interfaces();
  neighbors();
  tunnels();
  srTePolicies();
  nexthopGroups();
  flexCounters();
  routeDistinguishers();
  json_.close();
  return json_.take();
}

void Writer::hardware() {
  auto hw = layout::find(em_, layout::routingHw);
  if (!hw) return;
  json_.key("hardware").openObject();
  json_.member("fecWeightLimit", hw->fecWeightLimit());
  json_.member("maxEcmp", hw->maxEcmp());
  json_.member("nexthopGroupMaxSize", hw->nexthopGroupMaxSize());
  json_.close();
}

void Writer::staticRouteDefaults() {
  auto d = layout::find(em_, layout::staticRouteDefaults);
  if (!d) return;
  json_.key("staticRouteDefaults").openObject();
  json_.member("preference", d->preference());
  json_.member("tag", d->tag());
  json_.member("name", d->name().stringValue());
  json_.close();
}

void Writer::vrfs() {
  json_.key("vrfs").openObject();
  for (const std::string& name : layout::vrfNames(em_))
    vrf(name);
  json_.close();
}

void Writer::vrf(const std::string& name) {
  json_.key(name).openObject();
  if (auto ids = layout::find(em_, layout::vrfIdMap)) {
    for (const auto& entry : *ids) {
      if (entry.vrfName().stringValue() == name) json_.member("id", entry.vrfId);
    }
  }
  if (auto c = layout::find(em_, layout::routingConfig, name))
    json_.memberBool("routingEnabled", c->routingEnabled());
  if (auto c = layout::find(em_, layout::routing6Config, name))
    json_.memberBool("routing6Enabled", c->routingEnabled());
  staticRoutes(name);
  json_.key("ipv4").openObject();
  family<Routing::V4>(name, [](auto t) { return Routing::Fib::routeTypeName(t); });
  json_.close();
  json_.key("ipv6").openObject();
  family<Routing::V6>(name, [](auto t) { return Routing6::Fib::routeTypeName(t); });
  json_.close();
  json_.close();
}

template <class Fam, class NameOf>
void Writer::family(const std::string& vrf, NameOf nameOf) {
  using Entities = layout::FamilyEntities<Fam>;
  auto notInKernel = layout::find(em_, Entities::kernelUnprogrammed, vrf);
  json_.key("routes").openArray();
  if (auto table = layout::find(em_, Entities::routes, vrf)) {
    for (const auto& route : *table) {
      json_.openObject();
      text("prefix", route.prefix);
      json_.member("type", nameOf(route.routeType));
      if (route.fecId.value() != 0) json_.member("fec", fecRefText(route.fecId));
      json_.member("preference", std::uint64_t(route.preference));
      if (route.metric != 0) json_.member("metric", route.metric);
      if (!route.hardwareProgrammed) json_.memberBool("hardwareProgrammed", false);
      if (notInKernel && notInKernel->contains(Plexa::IpGenPrefix(route.prefix)))
        json_.memberBool("kernelProgrammed", false);
      json_.close();
    }
  }
  json_.close();
  json_.key("fecs").openArray();
  if (auto table = layout::find(em_, Entities::fecs, vrf)) {
    // A FEC holds room for 512 vias: copied out one at a time, not all at once.
    for (auto it = table->begin(); it != table->end(); ++it)
      fec(*it);
  }
  json_.close();
}

template <class Fec>
void Writer::fec(const Fec& fec) {
  json_.openObject();
  json_.member("id", fecRefText(fec.fecId));
  if (fec.backupViaIndexValue != 0) json_.member("backupIndex", fec.backupViaIndexValue);
  json_.key("vias").openArray();
  for (const auto& via : fec.via) {
    json_.openObject();
    if (!via.hop.isZero()) text("nexthop", via.hop);
    if (via.tunnelIdValue != 0) {
      json_.member("tunnel", tunnelRefText(Tunnel::TunnelTable::TunnelId(via.tunnelIdValue)));
    } else if (via.intfId.isValid()) {
      text("interface", via.intfId);
    }
    if (via.weight != 1) json_.member("weight", via.weight);
    if (via.labelValue != Plexa::MplsLabel::kNoLabel) json_.member("label", via.labelValue);
    json_.close();
  }
  json_.close();
  json_.close();
}

void Writer::staticRoutes(const std::string& vrf) {
  std::vector<Mox::Ptr<Routing::Route>> routes;
  for (const auto& entity : {layout::routingConfig, layout::routing6Config}) {
    if (auto config = layout::find(em_, entity, vrf)) {
      for (const auto& [key, route] : config->route())
        routes.push_back(route);
    }
  }
  std::sort(routes.begin(), routes.end(),
            [](const auto& a, const auto& b) { return a->key() < b->key(); });
  json_.key("staticRoutes").openArray();
  for (const auto& route : routes)
    staticRoute(*route);
  json_.close();
}

void Writer::staticRoute(const Routing::Route& route) {
  // A forward route without vias forwards nothing, and the format has no way to hold one.
  if (route.routeType() == Routing::RouteType::forward && route.vias() == 0) return;
  json_.openObject();
  text("prefix", route.prefix());
  json_.member("preference", std::uint64_t(route.preference()));
  json_.member("type", Routing::routeTypeName(route.routeType()));
  if (route.tag() != 0) json_.member("tag", route.tag());
  if (route.dynamic()) json_.memberBool("dynamic", true);
  if (!route.persistent()) json_.memberBool("persistent", false);
  switch (route.routeType()) {
    case Routing::RouteType::drop:
      if (!route.dropNextHopName().empty())
        json_.member("name", route.dropNextHopName().stringValue());
      break;
    case Routing::RouteType::nexthopGroup:
      json_.member("nexthopGroup", route.nexthopGroupName().stringValue());
      break;
    default:
      json_.key("vias").openArray();
      for (const Routing::Via& via : route.via()) {
        json_.openObject();
        if (via.hop()) text("nexthop", via.hop());
        if (via.intfId().isValid()) text("interface", via.intfId());
        if (!via.mplsLabel().isNoLabel()) json_.member("label", via.mplsLabel().value());
        if (via.vtepAddr()) {
          text("vtep", via.vtepAddr());
          json_.member("vni", std::uint64_t(via.vni().value()));
          if (via.routerMac() != Plexa::EthAddr()) text("routerMac", via.routerMac());
        }
        if (const bool* track = route.viaTrackBfd().find(via); track && *track)
          json_.memberBool("trackBfd", true);
        if (const Mox::String8* name = route.viaNextHopName().find(via); name && !name->empty())
          json_.member("name", name->stringValue());
        json_.close();
      }
      json_.close();
      break;
  }
  json_.close();
}

void Writer::interfaces() {
  auto config = layout::find(em_, layout::intfConfig);
  auto status = layout::find(em_, layout::intfStatus);
  auto ip = layout::find(em_, layout::ipConfig);
  auto ip6 = layout::find(em_, layout::ip6Config);
  json_.key("interfaces").openArray();
  if (config) {
    for (const auto& [id, intf] : config->intfConfig()) {
      json_.openObject();
      text("name", id);
      if (intf->vrf().stringValue().empty()) {
        json_.key("vrf").null();
      } else if (!intf->vrf().isDefault()) {
        json_.member("vrf", intf->vrf().stringValue());
      }
      if (!intf->description().empty())
        json_.member("description", intf->description().stringValue());
      if (status) {
        if (const auto* st = status->intfStatus().find(id); st && *st && !(*st)->operUp())
          json_.memberBool("operUp", false);
      }
      if (!intf->enabled()) json_.memberBool("enabled", false);
      if (const auto* c = ip ? ip->intfConfig().find(id) : nullptr; c && *c) {
        const Ip::IpIntfConfig& a = **c;
        json_.key("ipv4").openObject();
        if (a.addrWithMask() != Plexa::IpAddrWithMask()) text("primary", a.addrWithMask());
        json_.key("secondaries").openArray();
        for (const auto& s : a.secondaryWithMask())
          json_.string(s.stringValue());
        json_.close();
        if (a.virtualAddrWithMask() != Plexa::IpAddrWithMask())
          text("virtualPrimary", a.virtualAddrWithMask());
        json_.key("virtualSecondaries").openArray();
        for (const auto& s : a.virtualSecondaryWithMask())
          json_.string(s.stringValue());
        json_.close();
        json_.close();
      }
      if (const auto* c = ip6 ? ip6->intf().find(id) : nullptr; c && *c) {
        json_.key("ipv6").openArray();
        for (const auto& [addr, info] : (*c)->addr())
          json_.string(addr.stringValue());
        json_.close();
      }
      json_.close();
    }
  }
  json_.close();
}

void Writer::neighbors() {
  auto arp = layout::find(em_, layout::arpStatus);
  auto ids = layout::find(em_, layout::vrfIdMap);
  json_.key("neighbors").openArray();
  if (arp) {
    for (const auto& entry : *arp) {
      json_.openObject();
      if (entry.arpKey.vrfId != Vrf::VrfIdMap::kDefaultVrfId && ids)
        json_.member("vrf", ids->vrfName(entry.arpKey.vrfId).stringValue());
      text("address", entry.arpKey.addr);
      text("interface", entry.arpKey.intfId);
      text("mac", entry.ethAddr);
      json_.close();
    }
  }
  json_.close();
}

void Writer::tunnelVias(const Tunnel::TunnelTable::TunnelViaArray& vias) {
  json_.key("vias").openArray();
  for (const auto& via : vias) {
    json_.openObject();
    if (!via.nexthop.isZero()) text("nexthop", via.nexthop);
    if (Plexa::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intfId)) {
      json_.member("tunnel", tunnelRefText(Tunnel::TunnelTable::TunnelId(
                                 Plexa::DynamicTunnelIntfId::tunnelId(via.intfId))));
    } else if (via.intfId.isValid()) {
      text("interface", via.intfId);
    }
    if (!via.labelOp.empty()) text("labels", via.labelOp);
    json_.close();
  }
  json_.close();
}

template <class Table>
void Writer::tunnelTable(const char* name) {
  auto dir = layout::find(em_, layout::tunnelTables);
  auto table = dir ? dir->entity<Table>(name) : nullptr;
  if (!table) return;  // the protocol does not run: no key at all
  json_.key(name).openArray();
  for (const auto& entry : *table) {
    json_.openObject();
    json_.member("tunnel", tunnelRefText(entry.tunnelId));
    text("endpoint", entry.endpoint);
    tunnelVias(entry.via);
    json_.close();
  }
  json_.close();
}

void Writer::tunnels() {
  using namespace Tunnel::TunnelTable;
  json_.key("tunnels").openObject();
  json_.key("fib").openArray();
  if (auto fib = layout::find(em_, layout::tunnelFib)) {
    for (const auto& entry : *fib) {
      json_.openObject();
      json_.member("tunnel", tunnelRefText(entry.tunnelId));
      tunnelVias(entry.tunnelVia);
      json_.close();
    }
  }
  json_.close();
  tunnelTable<SrTunnelTable>("sr");
  tunnelTable<StaticTunnelTable>("static");
  tunnelTable<LdpTunnelTable>("ldp");
  tunnelTable<BgpLuTunnelTable>("bgpLu");
  json_.key("evpnVxlan").openArray();
  if (auto evpn = layout::find(em_, layout::evpnVxlan)) {
    for (const auto& entry : *evpn) {
      json_.openObject();
      text("interface", entry.intfId);
      text("vtep", entry.vtepAddr);
      json_.member("vni", std::uint64_t(entry.vni.value()));
      if (entry.routerMac != Plexa::EthAddr()) text("routerMac", entry.routerMac);
      json_.close();
    }
  }
  json_.close();
  json_.close();
}

void Writer::srTePolicies() {
  json_.key("srTePolicies").openArray();
  if (auto policies = layout::find(em_, layout::srTePolicy)) {
    for (const auto& entry : *policies) {
      json_.openObject();
      json_.member("fec", fecRefText(entry.fecId));
      text("endpoint", entry.policyKey.endpoint);
      json_.member("color", entry.policyKey.color);
      json_.close();
    }
  }
  json_.close();
}

void Writer::nexthopGroups() {
  auto config = layout::find(em_, layout::nhgConfig);
  auto ids = layout::find(em_, layout::nhgEntryStatus);
  auto hw = layout::find(em_, layout::nhgHwStatus);
  json_.key("nexthopGroups").openArray();
  if (config) {
    for (const auto& [name, group] : config->nexthopGroup()) {
      const std::uint64_t id =
          ids ? ids->lookup(NexthopGroup::NexthopGroupEntryKey(name.view())).nhgId : 0;
      json_.openObject();
      json_.member("name", name.stringValue());
      json_.member("id", id);
      json_.member("type", Routing::NexthopGroup::moxEnumName(group->type()));
      if (group->size() != 0) json_.member("size", group->size());
      json_.member("ttl", std::uint64_t(group->ttl()));
      if (!group->source().isZero()) text("source", group->source());
      json_.key("entries").openArray();
      for (const auto& [index, entry] : group->entry()) {
        json_.openObject();
        text("destination", entry.destination());
        if (!entry.mplsLabels().empty()) text("labels", entry.mplsLabels());
        json_.close();
      }
      json_.close();
      json_.key("programmedInVrfs").openArray();
      if (hw) {
        for (const auto& [vrf, status] : hw->vrf()) {
          if (status && status->nexthopGroup().contains(id)) json_.string(vrf.stringValue());
        }
      }
      json_.close();
      json_.close();
    }
  }
  json_.close();
}

void Writer::counterRows(
    const char* key,
    const layout::Entity<FlexCounters::CounterTable, layout::Scope::device>& entity) {
  json_.key(key).openArray();
  if (auto table = layout::find(em_, entity)) {
    for (const auto& row : *table) {
      json_.openObject();
      json_.member("index", row.counterKey.counterIndex);
      json_.member("chipMask", row.counterKey.chipMask);
      json_.member("packets", row.packets);
      json_.member("bytes", row.bytes);
      json_.close();
    }
  }
  json_.close();
}

void Writer::flexCounters() {
  json_.key("flexCounters").openObject();
  counterRows("counters", layout::counterTable);
  counterRows("snapshot", layout::snapshotCounterTable);
  json_.key("entryKeys").openArray();
  if (auto keys = layout::find(em_, layout::counterKeyTable)) {
    for (const auto& rec : *keys) {
      json_.openObject();
      json_.member("nexthopGroupId", rec.entry.nhgId);
      json_.member("entry", std::uint64_t(rec.entry.entryIndex));
      json_.member("counterIndex", rec.info.counterIndex);
      json_.member("chipMask", rec.info.chipMask);
      json_.close();
    }
  }
  json_.close();
  json_.close();
}

void Writer::routeDistinguishers() {
  json_.key("routeDistinguisherInputs").openObject();
  if (auto dir = layout::find(em_, layout::rdInputDir)) {
    for (const auto& [inputName, entity] : dir->entries()) {
      auto input = Mox::ptrCast<Ip::RouteDistinguisherInput>(entity);
      if (!input) continue;
      std::vector<std::pair<std::string, std::string>> rds;
      for (const auto& [vrf, rd] : input->routeDistinguisher())
        rds.emplace_back(vrf.stringValue(), rd.stringValue());
      std::sort(rds.begin(), rds.end());
      json_.key(inputName.view()).openObject();
      for (const auto& [vrf, rd] : rds)
        json_.member(vrf, rd);
      json_.close();
    }
  }
  json_.close();
}

std::string reason(int err) {
  return std::strerror(err);
}

// A file descriptor closed on every way out.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  // Closes now, so that an error of the close itself is seen.
  int release() {
    const int r = ::close(fd_);
    fd_ = -1;
    return r;
  }

 private:
  int fd_;
};

std::string directoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

FileStamp stampOf(const struct stat& st) {
  FileStamp s;
  s.known = true;
  s.device = st.st_dev;
  s.inode = st.st_ino;
  s.size = st.st_size;
  s.modifiedSeconds = st.st_mtim.tv_sec;
  s.modifiedNanoseconds = st.st_mtim.tv_nsec;
  return s;
}

constexpr const char* kChangedSinceLoaded =
    "the file changed since the state was loaded from it (another session or program wrote "
    "it); load it again, or write to another file";

// The most one write() call hands the kernel, so that a signal is seen soon on a large state.
constexpr std::size_t kWriteChunk = 1 << 20;

// The file a save replaces. A symbolic link is written through to the file it leads to, so
// that the link stays a link and the file it names gets the new state; a link to nothing yet
// leads to the file it names. Anything but a regular file (a directory, a FIFO, a device:
// /dev/stdin, /dev/null) is refused, and so is a file with other names (hard links): a
// replacement would give this name a new file and leave the others with the old state.
std::string fileToReplace(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) throw SaveError(path, reason(EISDIR));
    if (!S_ISREG(st.st_mode))
      throw SaveError(path, "not a regular file (a state is saved only to a regular file)");
    if (st.st_nlink > 1) {
      throw SaveError(path,
                      "the file has other names (hard links), which would keep the old "
                      "state; write to a file of its own");
    }
    char* real = ::realpath(path.c_str(), nullptr);
    if (!real) throw SaveError(path, reason(errno));
    std::string resolved(real);
    std::free(real);
    return resolved;
  }
  if (errno != ENOENT) throw SaveError(path, reason(errno));
  // Nothing there yet: a new file, or a dangling link to follow to the name it holds.
  std::string at = path;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat link {};
    if (::lstat(at.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return at;
    std::string to(static_cast<std::size_t>(link.st_size > 0 ? link.st_size : 4096), '\0');
    const ssize_t n = ::readlink(at.c_str(), to.data(), to.size());
    if (n < 0) throw SaveError(path, reason(errno));
    to.resize(static_cast<std::size_t>(n));
    at = to.starts_with('/') ? to : directoryOf(at) + "/" + to;
  }
  throw SaveError(path, reason(ELOOP));
}

// SIGINT, SIGTERM and SIGHUP wait while a temporary file exists, so that none ends the process
// with the file left behind; a save asks between writes whether one came, and gives up if so.
// The signals act as usual once the file is gone and the old mask is back.
class StopSignalsHeld {
 public:
  StopSignalsHeld() {
    sigset_t stop;
    sigemptyset(&stop);
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&stop, sig);
    pthread_sigmask(SIG_BLOCK, &stop, &previous_);
  }
  ~StopSignalsHeld() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  StopSignalsHeld(const StopSignalsHeld&) = delete;
  StopSignalsHeld& operator=(const StopSignalsHeld&) = delete;

  void stopIfSignalled(const std::string& path) const {
    sigset_t pending;
    if (sigpending(&pending) != 0) return;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
      // One the caller held already is the caller's to handle.
      if (sigismember(&pending, sig) == 1 && sigismember(&previous_, sig) != 1)
        throw SaveError(path, "interrupted");
    }
  }

 private:
  sigset_t previous_;
};

}  // namespace

SaveError::SaveError(std::string path, std::string reason)
    : Mox::Exception(path + ": " + reason), path_(std::move(path)), reason_(std::move(reason)) {}

std::string write(const Statum::EntityManager& em) {
  return Writer(em).run();
}

FileStamp stampOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
  return stampOf(st);
}

FileStamp save(const Statum::EntityManager& em, const std::string& path, const FileStamp* loaded) {
  const std::string text = write(em);
  const std::string target = fileToReplace(path);
  const auto unchanged = [&] {
    if (!loaded || !loaded->known) return;
    const FileStamp now = stampOf(target);
    if (now.known && now != *loaded) throw SaveError(path, kChangedSinceLoaded);
  };
  unchanged();

  // The new text goes to a file beside the old one and replaces it in one rename: a crash or
  // a full disk leaves either the old file or the new one, never half of either.
  const StopSignalsHeld held;
  std::string temp = target + ".XXXXXX";
  Fd fd(::mkstemp(temp.data()));
  if (fd.get() < 0) throw SaveError(path, reason(errno));
  bool renamed = false;
  struct Cleanup {
    const std::string& temp;
    const bool& renamed;
    ~Cleanup() {
      if (!renamed) ::unlink(temp.c_str());
    }
  } cleanup{temp, renamed};

  // Keep the old file's owner, group and permissions; mkstemp made the new one ours and
  // private. Giving a file away needs privilege: without it the file is the writer's, as any
  // editor's would be. The mode goes last, since a change of owner clears set-id bits.
  struct stat old {};
  mode_t mode = 0644;
  if (::stat(target.c_str(), &old) == 0) {
    mode = old.st_mode & 07777;
    if (::fchown(fd.get(), old.st_uid, old.st_gid) != 0) {
      if (::fchown(fd.get(), static_cast<uid_t>(-1), old.st_gid) != 0 && errno != EPERM)
        throw SaveError(path, reason(errno));
    }
  }
  if (::fchmod(fd.get(), mode) != 0) throw SaveError(path, reason(errno));

  std::string_view rest = text;
  while (!rest.empty()) {
    held.stopIfSignalled(path);
    const ssize_t n = ::write(fd.get(), rest.data(), std::min(rest.size(), kWriteChunk));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw SaveError(path, reason(errno));
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
  if (::fsync(fd.get()) != 0) throw SaveError(path, reason(errno));
  struct stat written {};
  if (::fstat(fd.get(), &written) != 0) throw SaveError(path, reason(errno));
  if (fd.release() != 0) throw SaveError(path, reason(errno));
  held.stopIfSignalled(path);
  unchanged();
  if (::rename(temp.c_str(), target.c_str()) != 0) throw SaveError(path, reason(errno));
  renamed = true;
  // The rename itself is durable once the directory is.
  Fd dir(::open(directoryOf(target).c_str(), O_RDONLY | O_DIRECTORY));
  if (dir.get() >= 0) ::fsync(dir.get());
  return stampOf(written);
}

}  // namespace Snapshot
