// The netlink layer on hand-made buffers: attributes and messages whose lengths lie (shorter
// than their header, longer than the bytes there, bytes left over), the kernel's answers a
// dump or a request ends with, and messages built and read back. Each buffer is allocated to
// its exact length, so that a read past it is caught by the sanitizer build. The socket is
// tried against the kernel's own answers (no privilege needed: it only reads).
#include "snapshot/Netlink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace nl = Snapshot::netlink;

// ---- crafting bytes ----

// Appends the raw bytes of `v`.
template <class T>
void raw(std::string& out, const T& v) {
  out.append(reinterpret_cast<const char*>(&v), sizeof v);
}

void pad(std::string& out) {
  out.append(nl::align(out.size()) - out.size(), '\0');
}

// An attribute whose header says `len` (its true length when -1), then its payload, padded.
void attr(std::string& out, std::uint16_t type, std::string_view payload, int len = -1) {
  nlattr a{};
  a.nla_type = type;
  a.nla_len = static_cast<std::uint16_t>(len >= 0 ? len : int(sizeof a + payload.size()));
  raw(out, a);
  out.append(payload);
  pad(out);
}

std::string u32(std::uint32_t v) {
  return std::string(reinterpret_cast<const char*>(&v), sizeof v);
}

struct Msg {
  std::uint16_t type = RTM_NEWLINK;
  std::uint16_t flags = NLM_F_MULTI;
  std::uint32_t seq = 7;
  std::uint32_t pid = 42;
  std::string payload;
  int len = -1;  // what the header says; the true length when -1
};

void message(std::string& out, const Msg& m) {
  nlmsghdr h{};
  h.nlmsg_len = static_cast<std::uint32_t>(m.len >= 0 ? m.len : int(sizeof h + m.payload.size()));
  h.nlmsg_type = m.type;
  h.nlmsg_flags = m.flags;
  h.nlmsg_seq = m.seq;
  h.nlmsg_pid = m.pid;
  raw(out, h);
  out.append(m.payload);
  pad(out);
}

// A message of `type` without payload.
Msg bare(std::uint16_t type, std::uint16_t flags) {
  Msg m;
  m.type = type;
  m.flags = flags;
  return m;
}

Msg errorMsg(int error) {
  nlmsgerr e{};
  e.error = error;
  Msg m = bare(NLMSG_ERROR, 0);
  raw(m.payload, e);
  return m;
}

Msg doneMsg(int status) {
  Msg m = bare(NLMSG_DONE, NLM_F_MULTI);
  raw(m.payload, status);
  return m;
}

// A data message whose family header carries `tag` (read back as ifi_index).
Msg data(int tag) {
  ifinfomsg ifi{};
  ifi.ifi_index = tag;
  Msg m;
  raw(m.payload, ifi);
  return m;
}

// The bytes in a buffer of exactly their length.
struct Exact {
  std::unique_ptr<char[]> bytes;
  std::size_t size;
  explicit Exact(const std::string& s) : bytes(new char[s.size() ? s.size() : 1]), size(s.size()) {
    std::memcpy(bytes.get(), s.data(), s.size());
  }
  const nlmsghdr* header() const { return reinterpret_cast<const nlmsghdr*>(bytes.get()); }
};

// The types of the attributes a walk of `bytes` hands on, and whether it found them whole.
struct Walk {
  std::vector<int> types;
  bool whole;
};
Walk walk(const std::string& bytes) {
  Exact e(bytes);
  Walk w;
  w.whole = nl::forEachAttr(e.bytes.get(), e.size,
                            [&](const nlattr* a) { w.types.push_back(nl::typeOf(a)); });
  return w;
}

// ---- attributes ----

TEST(NetlinkAttributes, TheWalkHandsOnWholeAttributesAndStopsAtTheFirstThatLies) {
  std::string good;
  attr(good, 1, "abcde");  // 9 bytes, padded to 12
  attr(good, 2, u32(5));
  attr(good, 3, "");
  EXPECT_EQ(walk(good).types, (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(walk(good).whole);
  EXPECT_TRUE(walk("").whole);

  // The last attribute's padding left out: still whole.
  std::string unpadded;
  attr(unpadded, 1, u32(1));
  attr(unpadded, 2, "xyz");
  unpadded.resize(unpadded.size() - 1);
  EXPECT_EQ(walk(unpadded).types, (std::vector<int>{1, 2}));
  EXPECT_TRUE(walk(unpadded).whole);

  // Shorter than its own header (0 would walk in place for ever; 2 would overlap the next).
  for (int len : {0, 2, 3}) {
    std::string shortAttr;
    attr(shortAttr, 1, u32(1));
    attr(shortAttr, 2, u32(2), len);
    attr(shortAttr, 3, u32(3));
    const Walk w = walk(shortAttr);
    EXPECT_EQ(w.types, (std::vector<int>{1})) << "nla_len " << len;
    EXPECT_FALSE(w.whole);
  }

  // Longer than the bytes left: not handed on, its payload never read.
  std::string longAttr;
  attr(longAttr, 1, u32(1));
  attr(longAttr, 2, u32(2), 200);
  EXPECT_EQ(walk(longAttr).types, (std::vector<int>{1}));
  EXPECT_FALSE(walk(longAttr).whole);
  std::string longLast;
  attr(longLast, 1, "abc");
  longLast.resize(longLast.size() - 1);  // 7 bytes, the header saying 7
  longLast[0] = 8;
  EXPECT_TRUE(walk(longLast).types.empty());

  // Bytes too few for a header after the last attribute, and a lone partial header.
  for (std::size_t extra : {1u, 2u, 3u}) {
    std::string tail;
    attr(tail, 1, u32(1));
    tail.append(extra, '\0');
    EXPECT_EQ(walk(tail).types, (std::vector<int>{1}));
    EXPECT_FALSE(walk(tail).whole) << extra << " bytes left over";
  }
}

TEST(NetlinkAttributes, AMessagesAttributesFollowItsFamilyHeaderWithinItsOwnLength) {
  Msg m;
  ifinfomsg ifi{};
  raw(m.payload, ifi);
  attr(m.payload, IFLA_IFNAME, std::string("eth0\0", 5));
  attr(m.payload, IFLA_MTU, u32(1500));
  std::string bytes;
  message(bytes, m);
  // A second message right after: its bytes are no attributes of the first.
  message(bytes, data(9));
  Exact e(bytes);
  nl::Attributes<IFLA_MAX> a;
  EXPECT_TRUE(a.parse(e.header(), sizeof(ifinfomsg)));
  EXPECT_EQ(nl::stringOf(a[IFLA_IFNAME]), "eth0");
  std::uint32_t mtu = 0;
  EXPECT_TRUE(nl::readU32(a[IFLA_MTU], mtu));
  EXPECT_EQ(mtu, 1500u);
  int count = 0;
  nl::forEachAttr(e.header(), sizeof(ifinfomsg), [&](const nlattr*) { ++count; });
  EXPECT_EQ(count, 2);

  // A message too short for its family header has no attributes, and is said to be wrong.
  Msg shortMsg;
  shortMsg.payload = "abcd";
  std::string s;
  message(s, shortMsg);
  Exact es(s);
  count = 0;
  EXPECT_FALSE(nl::forEachAttr(es.header(), sizeof(ifinfomsg), [&](const nlattr*) { ++count; }));
  EXPECT_EQ(count, 0);
  EXPECT_EQ(nl::familyHeaderOf<ifinfomsg>(es.header()), nullptr);
  EXPECT_NE(nl::familyHeaderOf<ifinfomsg>(e.header()), nullptr);
}

TEST(NetlinkAttributes, NestedAttributesAreALevelOfTheirOwn) {
  std::string inner;
  attr(inner, IFLA_INFO_KIND, std::string("vrf\0", 4));
  std::string vrf;
  attr(vrf, IFLA_VRF_TABLE, u32(1001));
  attr(inner, IFLA_INFO_DATA | NLA_F_NESTED, vrf);
  attr(inner, 200, u32(1));  // above the table's types: passed over
  std::string outer;
  attr(outer, IFLA_MTU, u32(9000));
  attr(outer, IFLA_LINKINFO | NLA_F_NESTED, inner);
  Exact e(outer);

  nl::Attributes<IFLA_MAX> link;
  ASSERT_TRUE(link.parsePayload(e.bytes.get(), e.size));
  ASSERT_NE(link[IFLA_LINKINFO], nullptr);
  EXPECT_TRUE(nl::validate(link[IFLA_LINKINFO], nl::Kind::nested));
  nl::Attributes<IFLA_INFO_MAX> info;
  EXPECT_TRUE(info.parseNested(link[IFLA_LINKINFO]));
  EXPECT_EQ(nl::stringOf(info[IFLA_INFO_KIND]), "vrf");
  nl::Attributes<IFLA_VRF_MAX> vrfData;
  EXPECT_TRUE(vrfData.parseNested(info[IFLA_INFO_DATA]));
  std::uint32_t table = 0;
  EXPECT_TRUE(nl::readU32(vrfData[IFLA_VRF_TABLE], table));
  EXPECT_EQ(table, 1001u);
  EXPECT_EQ(info[200], nullptr);
  EXPECT_TRUE(info.parseNested(nullptr));

  // An inner attribute running past its nest (though not past the buffer) ends the nest.
  std::string lying;
  attr(lying, IFLA_INFO_KIND, std::string("vrf\0", 4));
  attr(lying, IFLA_INFO_DATA, u32(1), 40);
  std::string outer2;
  attr(outer2, IFLA_LINKINFO, lying);
  attr(outer2, IFLA_MTU, std::string(64, '\0'));
  Exact e2(outer2);
  const auto* nest = reinterpret_cast<const nlattr*>(e2.bytes.get());
  EXPECT_FALSE(nl::validate(nest, nl::Kind::nested));
  nl::Attributes<IFLA_INFO_MAX> partial;
  EXPECT_FALSE(partial.parseNested(nest));
  EXPECT_NE(partial[IFLA_INFO_KIND], nullptr);
  EXPECT_EQ(partial[IFLA_INFO_DATA], nullptr);
}

// One attribute of `payload`, for validate() and the readers.
struct One {
  Exact bytes;
  explicit One(std::string_view payload) : bytes(make(payload)) {}
  static std::string make(std::string_view payload) {
    std::string s;
    attr(s, 1, payload);
    s.resize(sizeof(nlattr) + payload.size());  // no padding: nothing past the payload
    return s;
  }
  const nlattr* get() const { return reinterpret_cast<const nlattr*>(bytes.bytes.get()); }
};

TEST(NetlinkAttributes, ValidationAndReadersCheckThePayloadsLength) {
  struct Case {
    nl::Kind kind;
    std::size_t width;
  };
  for (const Case c : {Case{nl::Kind::u8, 1}, Case{nl::Kind::u16, 2}, Case{nl::Kind::u32, 4},
                       Case{nl::Kind::u64, 8}}) {
    EXPECT_TRUE(nl::validate(One(std::string(c.width, '\1')).get(), c.kind)) << c.width;
    EXPECT_TRUE(nl::validate(One(std::string(c.width + 4, '\1')).get(), c.kind)) << c.width;
    EXPECT_FALSE(nl::validate(One(std::string(c.width - 1, '\1')).get(), c.kind)) << c.width;
  }
  EXPECT_TRUE(nl::validate(One("").get(), nl::Kind::flag));
  EXPECT_FALSE(nl::validate(One("x").get(), nl::Kind::flag));
  EXPECT_TRUE(nl::validate(One(std::string("up\0", 3)).get(), nl::Kind::nulString));
  EXPECT_FALSE(nl::validate(One("up").get(), nl::Kind::nulString));
  EXPECT_FALSE(nl::validate(One("").get(), nl::Kind::nulString));
  EXPECT_TRUE(nl::validate(One("up").get(), nl::Kind::string));
  EXPECT_TRUE(nl::validate(One("").get(), nl::Kind::nested));
  EXPECT_FALSE(nl::validate(One("ab").get(), nl::Kind::nested));

  // The readers: the value when the payload holds it, false and the value kept when not.
  std::uint8_t v8 = 9;
  EXPECT_TRUE(nl::readU8(One("\x05").get(), v8));
  EXPECT_EQ(v8, 5);
  std::uint16_t v16 = 9;
  EXPECT_FALSE(nl::readU16(One("\x05").get(), v16));
  EXPECT_EQ(v16, 9);
  EXPECT_TRUE(nl::readU16(One(std::string("\x01\x02", 2)).get(), v16));
  EXPECT_EQ(v16, 0x0201);
  std::uint32_t v32 = 9;
  EXPECT_FALSE(nl::readU32(One("abc").get(), v32));
  EXPECT_FALSE(nl::readU32(nullptr, v32));
  EXPECT_EQ(v32, 9u);
  std::uint64_t v64 = 9;
  EXPECT_FALSE(nl::readU64(One("1234567").get(), v64));
  EXPECT_TRUE(nl::readU64(One(std::string(8, '\0')).get(), v64));
  EXPECT_EQ(v64, 0u);
  // A string without its NUL ends with its payload; one with a NUL early ends there.
  EXPECT_EQ(nl::stringOf(One("eth0").get()), "eth0");
  EXPECT_EQ(nl::stringOf(One(std::string("ab\0cd", 5)).get()), "ab");
  EXPECT_EQ(nl::stringOf(nullptr), "");
}

// ---- building ----

TEST(NetlinkMessage, AttributesAreAlignedPaddedWithZerosAndNestsCoverTheirContent) {
  alignas(nlmsghdr) char room[256];
  std::memset(room, 0xAA, sizeof room);  // what a reused buffer holds
  nl::Message m(room, RTM_NEWROUTE, NLM_F_REQUEST | NLM_F_CREATE, 5);
  auto* rtm = m.familyHeader<rtmsg>();
  ASSERT_NE(rtm, nullptr);
  EXPECT_EQ(reinterpret_cast<char*>(rtm), room + nl::kHeaderLen);
  EXPECT_EQ(rtm->rtm_family, 0);
  rtm->rtm_family = AF_INET;
  ASSERT_TRUE(m.putU32(RTA_TABLE, 1001));
  ASSERT_TRUE(m.putString(IFLA_IFNAME, "eth1"));  // 5 bytes: 3 of padding
  nlattr* nest = m.nestStart(RTA_ENCAP);
  ASSERT_NE(nest, nullptr);
  ASSERT_TRUE(m.putU16(1, 0x1234));  // 2 bytes: 2 of padding
  ASSERT_TRUE(m.put(2, "abc", 3));
  m.nestEnd(nest);
  ASSERT_TRUE(m.putU32(RTA_PRIORITY, 20));

  const nlmsghdr* h = m.header();
  EXPECT_EQ(h->nlmsg_type, RTM_NEWROUTE);
  EXPECT_EQ(h->nlmsg_flags, NLM_F_REQUEST | NLM_F_CREATE);
  EXPECT_EQ(h->nlmsg_seq, 5u);
  EXPECT_EQ(h->nlmsg_pid, 0u);
  // header 16, rtmsg 12, table 8, name 12, nest 4 + 8 + 8, priority 8
  EXPECT_EQ(m.size(), 76u);
  EXPECT_TRUE(m.fits());
  EXPECT_EQ(std::string(room + 16 + 12 + 8 + 4, 8), std::string("eth1\0\0\0\0", 8));
  EXPECT_EQ(nest->nla_len, 20);
  EXPECT_EQ(nest->nla_type, RTA_ENCAP | NLA_F_NESTED);
  EXPECT_EQ(std::string(room + 16 + 12 + 8 + 12 + 4 + 4 + 2, 2), std::string(2, '\0'));

  // Read back through the walk.
  nl::Attributes<RTA_MAX> a;
  EXPECT_TRUE(a.parse(h, sizeof(rtmsg)));
  std::uint32_t table = 0, priority = 0;
  EXPECT_TRUE(nl::readU32(a[RTA_TABLE], table));
  EXPECT_TRUE(nl::readU32(a[RTA_PRIORITY], priority));
  EXPECT_EQ(table, 1001u);
  EXPECT_EQ(priority, 20u);
  EXPECT_TRUE(nl::validate(a[IFLA_IFNAME], nl::Kind::nulString));
  nl::Attributes<2> inner;
  EXPECT_TRUE(inner.parseNested(a[RTA_ENCAP]));
  std::uint16_t v16 = 0;
  EXPECT_TRUE(nl::readU16(inner[1], v16));
  EXPECT_EQ(v16, 0x1234);
  EXPECT_EQ(nl::stringOf(inner[2]), "abc");
}

TEST(NetlinkMessage, WhatDoesNotFitIsNotWrittenAndTheMessageIsNotSent) {
  alignas(nlmsghdr) char room[40];
  std::memset(room, 0xAA, sizeof room);
  nl::Message m(std::span<char>(room, 36), RTM_GETLINK, NLM_F_REQUEST);
  ASSERT_NE(m.familyHeader<ifinfomsg>(), nullptr);  // 32 bytes
  EXPECT_TRUE(m.fits());
  EXPECT_FALSE(m.putU32(IFLA_MTU, 1));  // 8 more: no room
  EXPECT_FALSE(m.fits());
  EXPECT_EQ(m.size(), 32u);
  EXPECT_EQ(static_cast<unsigned char>(room[32]), 0xAA);
  EXPECT_EQ(static_cast<unsigned char>(room[36]), 0xAA);
  EXPECT_EQ(m.nestStart(IFLA_LINKINFO), nullptr);
  EXPECT_EQ(m.reserve(1), nullptr);

  nl::Socket s;
  ASSERT_TRUE(s.open(NETLINK_ROUTE, SOCK_CLOEXEC));
  errno = 0;
  EXPECT_EQ(nl::send(s, m), -1);
  EXPECT_EQ(errno, EMSGSIZE);

  // A header whose length a caller set beyond the room: nothing goes after it.
  alignas(nlmsghdr) char room2[64];
  nl::Message over(room2, RTM_GETLINK, NLM_F_REQUEST);
  over.header()->nlmsg_len = 1000;
  EXPECT_FALSE(over.putU32(IFLA_MTU, 1));
  EXPECT_EQ(over.reserve(4), nullptr);

  // A room too small for the header: nothing is written to it.
  char tiny[8];
  std::memset(tiny, 0xAA, sizeof tiny);
  nl::Message none(tiny, RTM_GETLINK, NLM_F_REQUEST);
  EXPECT_FALSE(none.fits());
  EXPECT_EQ(static_cast<unsigned char>(tiny[0]), 0xAA);
}

// ---- the walk over the kernel's answer ----

struct Ran {
  nl::Status status;
  int error;  // errno when failed
  std::vector<int> tags;
};

Ran runOver(const std::string& bytes, std::uint32_t seq = 7, std::uint32_t portid = 42) {
  Exact e(bytes);
  Ran r{};
  errno = 0;
  r.status = nl::run(e.bytes.get(), e.size, seq, portid, [&](const nlmsghdr* m) {
    const auto* ifi = nl::familyHeaderOf<ifinfomsg>(m);
    r.tags.push_back(ifi ? ifi->ifi_index : -1);
  });
  r.error = r.status == nl::Status::failed ? errno : 0;
  return r;
}

std::string buffer(std::initializer_list<Msg> msgs) {
  std::string out;
  for (const Msg& m : msgs)
    message(out, m);
  return out;
}

TEST(NetlinkRun, ADumpIsEveryDataMessageUntilItsDone) {
  Ran r = runOver(buffer({data(1), data(2), data(3)}));
  EXPECT_EQ(r.status, nl::Status::more);
  EXPECT_EQ(r.tags, (std::vector<int>{1, 2, 3}));

  r = runOver(buffer({data(1), data(2), doneMsg(0), data(3)}));
  EXPECT_EQ(r.status, nl::Status::done);
  EXPECT_EQ(r.tags, (std::vector<int>{1, 2}));

  // NLMSG_DONE without a status, as an older kernel sends it.
  Msg doneBare = bare(NLMSG_DONE, NLM_F_MULTI);
  EXPECT_EQ(runOver(buffer({data(1), doneBare})).status, nl::Status::done);

  // The control messages that are no answer, and the reserved types, are passed over.
  Msg noop = bare(NLMSG_NOOP, 0);
  Msg overrun = bare(NLMSG_OVERRUN, 0);
  Msg reserved = bare(NLMSG_MIN_TYPE - 1, 0);
  r = runOver(buffer({noop, data(1), overrun, reserved, data(2)}));
  EXPECT_EQ(r.status, nl::Status::more);
  EXPECT_EQ(r.tags, (std::vector<int>{1, 2}));

  // The last message's padding left out.
  Msg odd = data(4);
  odd.payload += "x";
  std::string unpadded = buffer({data(1), odd});
  unpadded.resize(unpadded.size() - 3);
  r = runOver(unpadded);
  EXPECT_EQ(r.status, nl::Status::more);
  EXPECT_EQ(r.tags, (std::vector<int>{1, 4}));

  EXPECT_EQ(runOver("").status, nl::Status::more);
}

TEST(NetlinkRun, ErrorsAcknowledgementsAndAFailedDumpEndTheAnswer) {
  Ran r = runOver(buffer({data(1), errorMsg(-ENOENT), data(2)}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, ENOENT);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  r = runOver(buffer({errorMsg(0), data(2)}));
  EXPECT_EQ(r.status, nl::Status::done);
  EXPECT_TRUE(r.tags.empty());

  // An error message too short for its error.
  Msg cut = errorMsg(-EPERM);
  cut.payload.resize(2);
  r = runOver(buffer({cut}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EBADMSG);

  // A dump that failed after it began: the error in its NLMSG_DONE.
  r = runOver(buffer({data(1), doneMsg(-EOPNOTSUPP)}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EOPNOTSUPP);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  // An error no errno is: a protocol fault, not an overflow.
  for (const Msg& m : {errorMsg(INT_MIN), doneMsg(INT_MIN)}) {
    r = runOver(buffer({m}));
    EXPECT_EQ(r.status, nl::Status::failed);
    EXPECT_EQ(r.error, EPROTO);
  }
}

TEST(NetlinkRun, MessagesOfAnotherRequestPortOrAChangedDumpAreErrors) {
  Msg otherSeq = data(2);
  otherSeq.seq = 8;
  Ran r = runOver(buffer({data(1), otherSeq, data(3)}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EPROTO);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  Msg otherPort = data(2);
  otherPort.pid = 43;
  r = runOver(buffer({data(1), otherPort}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, ESRCH);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  // Sequence and port 0 on either side are not checked (the kernel's notifications).
  Msg notification = data(2);
  notification.seq = 0;
  notification.pid = 0;
  r = runOver(buffer({data(1), notification}));
  EXPECT_EQ(r.status, nl::Status::more);
  EXPECT_EQ(r.tags, (std::vector<int>{1, 2}));
  r = runOver(buffer({otherSeq, otherPort}), 0, 0);
  EXPECT_EQ(r.status, nl::Status::more);
  EXPECT_EQ(r.tags, (std::vector<int>{2, 2}));

  // A dump that changed while the kernel made it: that message is not handed on.
  Msg changed = data(2);
  changed.flags |= NLM_F_DUMP_INTR;
  r = runOver(buffer({data(1), changed, doneMsg(0)}));
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EINTR);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));
}

TEST(NetlinkRun, BytesThatAreNoWholeMessageAreAnErrorAndAreNotRead) {
  // The last message cut short: its header says more than the buffer holds.
  std::string cut = buffer({data(1), data(2)});
  cut.resize(cut.size() - 4);
  Ran r = runOver(cut);
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EBADMSG);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  // A header shorter than itself (0 would not move on).
  for (int len : {0, 8, 15}) {
    Msg lying = data(2);
    lying.len = len;
    r = runOver(buffer({data(1), lying, data(3)}));
    EXPECT_EQ(r.status, nl::Status::failed) << "nlmsg_len " << len;
    EXPECT_EQ(r.error, EBADMSG);
    EXPECT_EQ(r.tags, (std::vector<int>{1}));
  }

  // Bytes too few for a header after the last message.
  std::string tail = buffer({data(1)});
  tail.append(12, '\0');
  r = runOver(tail);
  EXPECT_EQ(r.status, nl::Status::failed);
  EXPECT_EQ(r.error, EBADMSG);
  EXPECT_EQ(r.tags, (std::vector<int>{1}));

  // An error stops the walk before the bad bytes count.
  std::string errorThenJunk = buffer({errorMsg(-EEXIST)});
  errorThenJunk.append(3, '\0');
  r = runOver(errorThenJunk);
  EXPECT_EQ(r.error, EEXIST);
}

TEST(NetlinkRun, AnExceptionOfTheCallerLeavesTheWalk) {
  const std::string bytes = buffer({data(1), data(2)});
  Exact e(bytes);
  int seen = 0;
  EXPECT_THROW(nl::run(e.bytes.get(), e.size, 7, 42,
                       [&](const nlmsghdr*) {
                         ++seen;
                         throw std::runtime_error("stop");
                       }),
               std::runtime_error);
  EXPECT_EQ(seen, 1);
}

// ---- the socket, against the kernel ----

TEST(NetlinkSocket, ADumpOfTheLinksEndsDoneAndARefusalCarriesTheKernelsErrno) {
  nl::Socket s;
  ASSERT_TRUE(s.open(NETLINK_ROUTE, SOCK_CLOEXEC)) << std::strerror(errno);
  EXPECT_EQ(::fcntl(s.fd(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(s.setOption(NETLINK_GET_STRICT_CHK, 1), 0);
  ASSERT_TRUE(s.bind()) << std::strerror(errno);
  ASSERT_NE(s.portid(), 0u);

  alignas(nlmsghdr) char room[64];
  nl::Message dump(room, RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, 1);
  dump.familyHeader<ifinfomsg>()->ifi_family = AF_UNSPEC;
  ASSERT_EQ(nl::send(s, dump), static_cast<ssize_t>(dump.size()));
  std::vector<char> buf(64 * 1024);
  bool loopback = false;
  nl::Status status = nl::Status::more;
  while (status == nl::Status::more) {
    const ssize_t n = s.receive(buf.data(), buf.size());
    ASSERT_GT(n, 0) << std::strerror(errno);
    status =
        nl::run(buf.data(), static_cast<std::size_t>(n), 1, s.portid(), [&](const nlmsghdr* m) {
          nl::Attributes<IFLA_MAX> a;
          a.parse(m, sizeof(ifinfomsg));
          if (nl::stringOf(a[IFLA_IFNAME]) == "lo") loopback = true;
        });
  }
  EXPECT_EQ(status, nl::Status::done);
  EXPECT_TRUE(loopback);

  // A link that is not there, asked for with an acknowledgement.
  nl::Message get(room, RTM_GETLINK, NLM_F_REQUEST | NLM_F_ACK, 2);
  get.familyHeader<ifinfomsg>()->ifi_index = 0x7ffffff0;
  ASSERT_GT(nl::send(s, get), 0);
  const ssize_t n = s.receive(buf.data(), buf.size());
  ASSERT_GT(n, 0);
  errno = 0;
  EXPECT_EQ(nl::run(buf.data(), static_cast<std::size_t>(n), 2, s.portid(), [](const nlmsghdr*) {}),
            nl::Status::failed);
  EXPECT_EQ(errno, ENODEV);

  // An answer larger than the buffer is an error, not a message cut short.
  nl::Message again(room, RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, 3);
  again.familyHeader<ifinfomsg>()->ifi_family = AF_UNSPEC;
  ASSERT_GT(nl::send(s, again), 0);
  char small[sizeof(nlmsghdr)];
  errno = 0;
  EXPECT_EQ(s.receive(small, sizeof small), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(NetlinkSocket, TheSocketIsClosedWithItsLastOwner) {
  int fd = -1;
  {
    nl::Socket a;
    ASSERT_TRUE(a.open(NETLINK_ROUTE, SOCK_CLOEXEC));
    fd = a.fd();
    nl::Socket b(std::move(a));
    EXPECT_FALSE(a.isOpen());
    EXPECT_EQ(b.fd(), fd);
    nl::Socket c;
    c = std::move(b);
    EXPECT_EQ(c.fd(), fd);
    EXPECT_NE(::fcntl(fd, F_GETFD), -1);
  }
  errno = 0;
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
