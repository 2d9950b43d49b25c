#include "agent/KernelStatics.h"

#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/lwtunnel.h>
#include <linux/mpls.h>
#include <linux/mpls_iptunnel.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "platform/plexa/VrfName.h"
#include "snapshot/Netlink.h"
#include "snapshot/StateLayout.h"

namespace Agent {

namespace {

namespace layout = Snapshot::layout;

std::string keyOf(const std::string& vrf, const Routing::RouteKey& key) {
  return vrf + " " + key.prefix().stringValue() + " " + std::to_string(key.preference());
}

// How a message names a route: "10.99.0.0/16 (preference 1, VRF default)".
std::string routeName(const std::string& key) {
  const auto first = key.find(' ');
  const auto last = key.rfind(' ');
  return key.substr(first + 1, last - first - 1) + " (preference " + key.substr(last + 1) +
         ", VRF " + key.substr(0, first) + ")";
}

namespace nl = Snapshot::netlink;

void putAddress(nl::Message& m, std::uint16_t type, const Plexa::IpGenAddr& a) {
  m.put(type, a.bytes().data(), a.isV4() ? 4 : 16);
}

}  // namespace

// One netlink socket for requests, their acknowledgements carrying the kernel's reason.
struct KernelStatics::Netlink {
  nl::Socket socket;
  unsigned seq = 0;
  std::vector<char> buffer = std::vector<char>(64 * 1024);

  Netlink() {
    if (!socket.open(NETLINK_ROUTE, SOCK_CLOEXEC))
      throw std::runtime_error(std::string("cannot open a netlink socket: ") +
                               std::strerror(errno));
    // The kernel then says why it refused, beyond the error number.
    socket.setOption(NETLINK_EXT_ACK, 1);
    socket.setOption(NETLINK_GET_STRICT_CHK, 1);
    if (!socket.bind())
      throw std::runtime_error(std::string("cannot bind a netlink socket: ") +
                               std::strerror(errno));
  }

  // The kernel's reason in an error acknowledgement, as `ip` prints it.
  static std::string reasonOf(const nlmsghdr* m, int error) {
    std::string text = std::strerror(error);
    const auto* e = nl::familyHeaderOf<nlmsgerr>(m);
    if (!e || !(m->nlmsg_flags & NLM_F_ACK_TLVS)) return text;
    // The attributes follow the request the acknowledgement echoes, whole unless capped.
    std::size_t offset = sizeof *e;
    if (!(m->nlmsg_flags & NLM_F_CAPPED) && e->msg.nlmsg_len > sizeof(nlmsghdr))
      offset += e->msg.nlmsg_len - sizeof(nlmsghdr);
    std::string message;
    nl::forEachAttr(m, offset, [&](const nlattr* attr) {
      if (nl::typeOf(attr) == NLMSGERR_ATTR_MSG && nl::validate(attr, nl::Kind::nulString))
        message = nl::stringOf(attr);
    });
    return message.empty() ? text : message + " (" + text + ")";
  }

  // Sends a request that is answered with an acknowledgement; 0 when it was done, else the
  // error number, with the kernel's reason in `why`.
  int request(nl::Message& req, std::string* why) {
    nlmsghdr* nlh = req.header();
    nlh->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
    nlh->nlmsg_seq = ++seq;
    if (nl::send(socket, req) < 0) {
      if (why) *why = std::strerror(errno);
      return errno;
    }
    for (;;) {
      const ssize_t n = socket.receive(buffer.data(), buffer.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        if (why) *why = std::strerror(errno);
        return errno;
      }
      // Messages of an earlier request (the rest of a dump left early) are passed over.
      int answer = -1;
      nl::forEachMessage(buffer.data(), static_cast<std::size_t>(n), [&](const nlmsghdr* m) {
        if (m->nlmsg_seq != nlh->nlmsg_seq || m->nlmsg_type != NLMSG_ERROR) return true;
        const auto* e = nl::familyHeaderOf<nlmsgerr>(m);
        answer = !e ? EBADMSG : e->error < 0 ? -e->error : e->error;
        if (answer != 0 && why) *why = e ? reasonOf(m, answer) : std::strerror(answer);
        return false;
      });
      if (answer >= 0) return answer;
    }
  }

  // A dump: every message of the answer to `decode`.
  template <class Decode>
  void dump(nl::Message& req, Decode&& decode) {
    nlmsghdr* nlh = req.header();
    nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    nlh->nlmsg_seq = ++seq;
    if (nl::send(socket, req) < 0) return;
    for (;;) {
      const ssize_t n = socket.receive(buffer.data(), buffer.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      if (nl::run(buffer.data(), static_cast<std::size_t>(n), nlh->nlmsg_seq, socket.portid(),
                  decode) != nl::Status::more)
        return;
    }
  }

  // The routing table of the VRF device `name`; 0 when there is no such VRF device.
  std::uint32_t vrfTable(const std::string& name) {
    alignas(nlmsghdr) char room[512];
    nl::Message req(room, RTM_GETLINK, NLM_F_REQUEST, ++seq);
    if (auto* ifi = req.familyHeader<ifinfomsg>()) ifi->ifi_family = AF_UNSPEC;
    req.putString(IFLA_IFNAME, name);
    if (nl::send(socket, req) < 0) return 0;
    const ssize_t n = socket.receive(buffer.data(), buffer.size());
    if (n <= 0) return 0;
    std::uint32_t table = 0;
    // The answer is the first message.
    nl::forEachMessage(buffer.data(), static_cast<std::size_t>(n), [&](const nlmsghdr* m) {
      if (m->nlmsg_type != RTM_NEWLINK) return false;
      nl::Attributes<IFLA_MAX> link;
      link.parse(m, sizeof(ifinfomsg));
      nl::Attributes<IFLA_INFO_MAX> info;
      info.parseNested(link[IFLA_LINKINFO]);
      if (nl::stringOf(info[IFLA_INFO_KIND]) != "vrf") return false;
      nl::Attributes<IFLA_VRF_MAX> vrf;
      vrf.parseNested(info[IFLA_INFO_DATA]);
      nl::readU32(vrf[IFLA_VRF_TABLE], table);
      return false;
    });
    return table;
  }

  // Adds (RTM_NEWROUTE, a new route only) or removes (RTM_DELROUTE) `r` as a route of the
  // static protocol. IPv6 keeps each next hop as a route of its own, and takes no multipath
  // of interfaces alone: there each hop is one request, all or none added.
  int route(std::uint16_t type, const KernelRoute& r, std::string* why) {
    const bool add = type == RTM_NEWROUTE;
    if (r.family != AF_INET6 || r.hops.size() <= 1)
      return one(type, r, add ? NLM_F_CREATE | NLM_F_EXCL : 0, why);
    KernelRoute single = r;
    int failed = 0;
    for (std::size_t i = 0; i < r.hops.size(); ++i) {
      single.hops.assign(1, r.hops[i]);
      const int error = one(type, single,
                            !add     ? 0
                            : i == 0 ? NLM_F_CREATE | NLM_F_EXCL
                                     : NLM_F_CREATE | NLM_F_APPEND,
                            why);
      if (add && error != 0) {
        for (std::size_t j = 0; j < i; ++j) {
          single.hops.assign(1, r.hops[j]);
          one(RTM_DELROUTE, single, 0, nullptr);
        }
        return error;
      }
      if (error != 0 && failed == 0) failed = error;
    }
    return failed;
  }

  int one(std::uint16_t type, const KernelRoute& r, std::uint16_t flags, std::string* why) {
    // Room for the header, and for each hop a gateway and a label.
    std::vector<char> room(1024 + 64 * r.hops.size());
    nl::Message req(room, type, flags);
    auto* rtm = req.familyHeader<rtmsg>();
    if (!rtm) return EMSGSIZE;
    rtm->rtm_family = r.family;
    rtm->rtm_dst_len = r.prefixLen;
    rtm->rtm_protocol = RTPROT_STATIC;
    rtm->rtm_type = r.type;
    // A route through a link without a gateway reaches its destination on that link.
    const bool onLink =
        r.type == RTN_UNICAST && r.nhid == 0 && r.hops.size() == 1 && r.hops[0].gateway.isZero();
    rtm->rtm_scope = onLink ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE;
    rtm->rtm_table =
        static_cast<std::uint8_t>(r.table < 256 ? r.table : std::uint32_t{RT_TABLE_UNSPEC});
    req.putU32(RTA_TABLE, r.table);
    putAddress(req, RTA_DST, r.destination);
    req.putU32(RTA_PRIORITY, r.metric);
    if (r.nhid != 0) req.putU32(RTA_NH_ID, r.nhid);
    const auto putHop = [&](const KernelRoute::Hop& h) {
      if (!h.gateway.isZero()) {
        if ((h.gateway.isV4() ? AF_INET : AF_INET6) == r.family) {
          putAddress(req, RTA_GATEWAY, h.gateway);
        } else {
          // A gateway of the other family (an IPv4 route over an IPv6 next hop).
          struct {
            __kernel_sa_family_t family;
            std::uint8_t bytes[16];
          } via{};
          via.family = h.gateway.isV4() ? AF_INET : AF_INET6;
          std::memcpy(via.bytes, h.gateway.bytes().data(), h.gateway.isV4() ? 4 : 16);
          req.put(RTA_VIA, &via, sizeof via.family + (h.gateway.isV4() ? 4 : 16));
        }
      }
      if (h.label >= 0) {
        req.putU16(RTA_ENCAP_TYPE, LWTUNNEL_ENCAP_MPLS);
        nlattr* encap = req.nestStart(RTA_ENCAP);
        const std::uint32_t entry = htonl(
            static_cast<std::uint32_t>(h.label) << MPLS_LS_LABEL_SHIFT | 1u << MPLS_LS_S_SHIFT);
        req.put(MPLS_IPTUNNEL_DST, &entry, sizeof entry);
        req.nestEnd(encap);
      }
    };
    if (r.hops.size() == 1) {
      if (r.hops[0].ifindex != 0) req.putU32(RTA_OIF, r.hops[0].ifindex);
      putHop(r.hops[0]);
    } else if (r.hops.size() > 1) {
      nlattr* multipath = req.nestStart(RTA_MULTIPATH);
      for (const KernelRoute::Hop& h : r.hops) {
        auto* rtnh = static_cast<rtnexthop*>(req.reserve(sizeof(rtnexthop)));
        if (!rtnh) break;
        rtnh->rtnh_ifindex = static_cast<int>(h.ifindex);
        putHop(h);
        rtnh->rtnh_len = static_cast<unsigned short>(req.tail() - reinterpret_cast<char*>(rtnh));
      }
      req.nestEnd(multipath);
    }
    return request(req, why);
  }

  // The kernel's routes of the static protocol, by family, table, destination and metric.
  using Present = std::set<std::tuple<std::uint8_t, std::uint32_t, std::string, std::uint32_t>>;
  static Present::value_type presentKey(const KernelRoute& r) {
    return {r.family, r.table,
            r.destination.stringValue() + "/" + std::to_string(unsigned(r.prefixLen)), r.metric};
  }
  Present staticRoutes() {
    Present present;
    for (std::uint8_t family : {AF_INET, AF_INET6}) {
      alignas(nlmsghdr) char room[256];
      nl::Message req(room, RTM_GETROUTE, 0);
      auto* rtm = req.familyHeader<rtmsg>();
      rtm->rtm_family = family;
      rtm->rtm_protocol = RTPROT_STATIC;
      dump(req, [&](const nlmsghdr* m) {
        if (m->nlmsg_type != RTM_NEWROUTE) return;
        const auto* got = nl::familyHeaderOf<rtmsg>(m);
        if (!got || got->rtm_protocol != RTPROT_STATIC) return;
        KernelRoute k;
        k.family = got->rtm_family;
        k.prefixLen = got->rtm_dst_len;
        k.table = got->rtm_table;
        k.destination = Plexa::IpGenAddr::fromString(family == AF_INET ? "0.0.0.0" : "::");
        nl::forEachAttr(m, sizeof(rtmsg), [&](const nlattr* attr) {
          const auto len = nl::payloadLength(attr);
          switch (nl::typeOf(attr)) {
            case RTA_TABLE:
              nl::readU32(attr, k.table);
              break;
            case RTA_PRIORITY:
              nl::readU32(attr, k.metric);
              break;
            case RTA_DST: {
              char text[INET6_ADDRSTRLEN] = {};
              if ((len == 4 || len == 16) &&
                  inet_ntop(len == 4 ? AF_INET : AF_INET6, nl::payloadOf(attr), text, sizeof text))
                k.destination = Plexa::IpGenAddr::fromString(text);
              break;
            }
            default:
              break;
          }
        });
        present.insert(presentKey(k));
      });
    }
    return present;
  }
};

KernelStatics::KernelStatics(std::string file, Log log)
    : file_(std::move(file)), log_(std::move(log)), nl_(std::make_unique<Netlink>()) {}

KernelStatics::~KernelStatics() = default;

void KernelStatics::keepIn(Statum::EntityManager& em) {
  for (const std::string& vrf : layout::vrfNames(em)) {
    for (const bool v6 : {false, true}) {
      const auto it = em.entities().find(
          layout::pathOf(v6 ? layout::routing6Config : layout::routingConfig, vrf));
      if (it == em.entities().end()) continue;
      auto now = Mox::ptrCast<Routing::ConfigGen>(it->second);
      if (!now) continue;
      Mox::Ptr<Routing::ConfigGen>& kept = config_[vrf + (v6 ? " 6" : " 4")];
      if (kept == now) continue;
      // A new entity (the follower read the kernel again): it gets the configured routes.
      if (kept) {
        now->routeDelAll();
        for (const auto& [key, route] : kept->route())
          now->routeIs(key, route);
      }
      kept = now;
    }
  }
}

std::variant<KernelRoute, std::string> KernelStatics::kernelRouteOf(const std::string& vrf,
                                                                    const Routing::Route& route) {
  KernelRoute r;
  const Plexa::IpGenPrefix& prefix = route.key().prefix();
  r.family = prefix.af() == Plexa::AddressFamily::ipv6 ? AF_INET6 : AF_INET;
  r.destination = prefix.address();
  r.prefixLen = static_cast<std::uint8_t>(prefix.len());
  r.metric = route.key().preference();
  if (vrf == L3::VrfName::kDefault) {
    r.table = RT_TABLE_MAIN;
  } else {
    r.table = nl_->vrfTable(vrf);
    if (r.table == 0) return "the kernel has no VRF device named '" + vrf + "'";
  }
  switch (route.routeType()) {
    case Routing::RouteType::drop:
      r.type = RTN_BLACKHOLE;
      return r;
    case Routing::RouteType::nexthopGroup: {
      // A live state names each nexthop object nhidN.
      const std::string name = route.nexthopGroupName().stringValue();
      std::uint32_t id = 0;
      const char* digits = name.c_str() + 4;
      const auto [end, ec] = std::from_chars(digits, name.c_str() + name.size(), id);
      if (name.rfind("nhid", 0) != 0 || ec != std::errc() || *end != '\0' || id == 0)
        return "the kernel holds nexthop groups as nexthop objects, named nhidN here; '" + name +
               "' is none";
      r.type = RTN_UNICAST;
      r.nhid = id;
      return r;
    }
    default:
      break;
  }
  r.type = RTN_UNICAST;
  for (const Routing::Via& via : route.via()) {
    if (via.vtepAddr()) return std::string("the kernel holds no VXLAN via");
    KernelRoute::Hop hop;
    hop.gateway = via.hop();
    if (via.intfId().isValid()) {
      const std::string name = via.intfId().stringValue();
      hop.ifindex = ::if_nametoindex(name.c_str());
      if (hop.ifindex == 0) return "the kernel has no interface named '" + name + "'";
    }
    if (!via.mplsLabel().isNoLabel()) hop.label = via.mplsLabel().value();
    r.hops.push_back(hop);
  }
  if (r.hops.empty()) return std::string("the route has no via");
  return r;
}

std::vector<std::string> KernelStatics::apply(bool retrying) {
  std::map<std::string, std::variant<KernelRoute, std::string>> wanted;
  for (const auto& [name, config] : config_) {
    const std::string vrf = name.substr(0, name.rfind(' '));
    for (const auto& [key, route] : config->route()) {
      if (route && !route->dynamic()) wanted.emplace(keyOf(vrf, key), kernelRouteOf(vrf, *route));
    }
  }
  // What went, or changed, leaves the kernel first: only as it was put there.
  for (auto it = programmed_.begin(); it != programmed_.end();) {
    const auto w = wanted.find(it->first);
    if (w != wanted.end() && std::get_if<KernelRoute>(&w->second) &&
        std::get<KernelRoute>(w->second) == it->second) {
      ++it;
      continue;
    }
    std::string why;
    const int error = nl_->route(RTM_DELROUTE, it->second, &why);
    if (error != 0 && error != ESRCH && log_)
      log_("could not remove " + routeName(it->first) + " from the kernel: " + why);
    it = programmed_.erase(it);
  }
  std::erase_if(notProgrammed_, [&](const auto& n) { return !wanted.count(n.first); });
  std::erase_if(tried_, [&](const auto& n) { return !wanted.count(n.first); });

  std::vector<std::string> refused;
  for (const auto& [key, want] : wanted) {
    if (programmed_.count(key)) continue;
    const auto last = tried_.find(key);
    // A route refused as it is now is tried again only when links or addresses changed.
    if (!retrying && last != tried_.end() && last->second == want) continue;
    tried_[key] = want;
    std::string why;
    if (const auto* reason = std::get_if<std::string>(&want)) {
      why = *reason;
    } else {
      const KernelRoute& r = std::get<KernelRoute>(want);
      int error = nl_->route(RTM_NEWROUTE, r, &why);
      // The same route left by an agent before this one: put there again, as it is now.
      if (error == EEXIST && nl_->route(RTM_DELROUTE, r, nullptr) == 0)
        error = nl_->route(RTM_NEWROUTE, r, &why);
      if (error == 0) {
        programmed_[key] = r;
        notProgrammed_.erase(key);
        tried_.erase(key);
        continue;
      }
      why = "the kernel refused it: " + why;
    }
    const auto before = notProgrammed_.find(key);
    const bool news = before == notProgrammed_.end() || before->second != why || !retrying;
    notProgrammed_[key] = why;
    if (news)
      refused.push_back("% " + routeName(key) + " is configured but not programmed: " + why);
  }
  return refused;
}

std::vector<std::string> KernelStatics::program() {
  return apply(false);
}

void KernelStatics::dropMissing() {
  if (programmed_.empty()) return;
  const Netlink::Present present = nl_->staticRoutes();
  for (auto it = programmed_.begin(); it != programmed_.end();) {
    if (present.count(Netlink::presentKey(it->second))) {
      ++it;
      continue;
    }
    // The kernel took it away (its link went down): it goes back in when it can.
    notProgrammed_[it->first] = "the kernel removed it";
    it = programmed_.erase(it);
  }
}

std::vector<std::string> KernelStatics::retry() {
  dropMissing();
  return apply(true);
}

std::string KernelStatics::load() const {
  std::ifstream in(file_);
  if (!in) {
    if (errno == ENOENT) return {};
    throw std::runtime_error("cannot read the static configuration " + file_ + ": " +
                             std::strerror(errno));
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad())
    throw std::runtime_error("cannot read the static configuration " + file_ + ": " +
                             std::strerror(errno));
  return text.str();
}

void KernelStatics::save(const std::string& text) const {
  const auto fail = [&](const std::string& what) {
    throw std::runtime_error("cannot write the static configuration " + file_ + ": " + what + ": " +
                             std::strerror(errno));
  };
  const std::filesystem::path path(file_);
  if (path.has_parent_path()) {
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
  }
  // A new file beside the old one, renamed over it: a reader, or an agent that starts after a
  // crash, finds the old text or the new, never half of one.
  const std::string temporary = file_ + ".new";
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  if (fd < 0) fail("cannot create " + temporary);
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int saved = errno;
      ::close(fd);
      ::unlink(temporary.c_str());
      errno = saved;
      fail("cannot write " + temporary);
    }
    done += static_cast<std::size_t>(n);
  }
  if (::fsync(fd) != 0 || ::close(fd) != 0) {
    const int saved = errno;
    ::unlink(temporary.c_str());
    errno = saved;
    fail("cannot write " + temporary);
  }
  if (::rename(temporary.c_str(), file_.c_str()) != 0) {
    const int saved = errno;
    ::unlink(temporary.c_str());
    errno = saved;
    fail("cannot rename " + temporary);
  }
}

}  // namespace Agent
