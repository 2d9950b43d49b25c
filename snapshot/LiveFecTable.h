#pragma once
// The live source's FECs: routes that share next hops share one FEC, found by the vias' bytes,
// as the forwarding agent's FECs are shared. Used by LiveBuilder.cpp alone.

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/mox/Ptr.h"
#include "snapshot/KernelRecords.h"

namespace Snapshot::live {

namespace k = kernel;
using Mox::Ptr;

// A next hop as a route uses it: the kernel's next hop and the weight it has in the route.
struct Hop {
  const k::Nexthop* nexthop;
  std::uint16_t weight;
};

// ---- FECs ----

// One FEC table of a VRF, with the map that finds a FEC by its vias.
template <class Fam>
class FecTable {
 public:
  explicit FecTable(Ptr<typename Fam::ForwardingStatus> t)
      : table(std::move(t)), fec_(std::make_unique<typename Fam::Fec>()) {}

  Ptr<typename Fam::ForwardingStatus> table;

  // The scratch FEC that callers fill before intern().
  typename Fam::Fec& scratch() {
    fec_->fecId = {};
    fec_->backupViaIndexValue = 0;
    fec_->via.clear();
    return *fec_;
  }

  // The FEC holding the scratch FEC's vias, made when there is none yet.
  Brine::Fib::FecId intern() {
    key_.clear();
    for (const auto& via : fec_->via) {
      append(via.hop);
      append(via.intfId.value());
      append(via.labelValue);
      append(via.weight);
      append(via.tunnelIdValue);
    }
    auto it = byVias_.find(std::string_view(key_));
    if (it != byVias_.end()) return it->second;
    const Brine::Fib::FecId id(Fam::kAdjType, next_++);
    fec_->fecId = id;
    table->recordIs(*fec_);
    auto added = byVias_.emplace(key_, id).first;
    uses_.emplace(id.value(), Use{0, &added->first});
    made_.push_back(id);
    return id;
  }

  // ---- what uses each FEC, for a follower that removes the FECs no route uses ----

  // A route record names the FEC, or no longer does. With `removeUnused`, a FEC that no
  // route names any more leaves the table; true when one did.
  void acquire(Brine::Fib::FecId id) {
    if (auto it = uses_.find(id.value()); it != uses_.end()) ++it->second.refs;
  }
  bool release(Brine::Fib::FecId id, bool removeUnused) {
    auto it = uses_.find(id.value());
    if (it == uses_.end() || it->second.refs == 0) return false;
    if (--it->second.refs > 0 || !removeUnused) return false;
    remove(it);
    return true;
  }
  // Removes the FECs made since the last call that no route names (a route that lost to a
  // better one of its prefix made one); true when it removed any.
  bool removeUnusedMade() {
    bool removed = false;
    for (const Brine::Fib::FecId id : made_) {
      auto it = uses_.find(id.value());
      if (it != uses_.end() && it->second.refs == 0) {
        remove(it);
        removed = true;
      }
    }
    made_.clear();
    return removed;
  }
  void forgetMade() { made_.clear(); }
  std::size_t size() const { return uses_.size(); }

  // Reads a FEC's vias into the scratch FEC, after those already there.
  void appendVias(Brine::Fib::FecId id) {
    const auto record = std::make_unique<typename Fam::Fec>(table->lookup(id));
    for (const auto& via : record->via) {
      if (fec_->via.size() >= Fam::Fec::kMaxVias) break;
      if (std::find(fec_->via.begin(), fec_->via.end(), via) == fec_->via.end())
        fec_->via.push(via);
    }
  }

 private:
  template <class T>
  void append(const T& v) {
    if constexpr (std::is_same_v<T, Plexa::Ip6Addr>) {
      key_.append(reinterpret_cast<const char*>(v.bytes().data()), 16);
    } else if constexpr (std::is_same_v<T, Plexa::IpAddr>) {
      append(v.value());
    } else {
      char bytes[sizeof(T)];
      std::memcpy(bytes, &v, sizeof(T));
      key_.append(bytes, sizeof(T));
    }
  }

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
      return std::hash<std::string_view>()(s);
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return a == b; }
  };

  struct Use {
    std::uint32_t refs;
    const std::string* key;  // in byVias_
  };
  void remove(typename std::unordered_map<std::uint64_t, Use>::iterator it) {
    table->recordDel(Brine::Fib::FecId(it->first));
    byVias_.erase(byVias_.find(std::string_view(*it->second.key)));
    uses_.erase(it);
  }

  std::unique_ptr<typename Fam::Fec> fec_;
  std::string key_;
  std::unordered_map<std::string, Brine::Fib::FecId, Hash, Equal> byVias_;
  std::unordered_map<std::uint64_t, Use> uses_;
  std::vector<Brine::Fib::FecId> made_;
  std::uint64_t next_ = 1;
};

}  // namespace Snapshot::live
