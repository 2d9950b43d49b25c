#pragma once
// The netlink layer the live source and the agent talk to the kernel with: a socket, messages
// built into a buffer of the caller's, the walk over a buffer of messages the kernel sent and
// over a message's attributes. It is the kernel's netlink ABI (linux/netlink.h) and nothing
// more; what a message or an attribute means is its caller's.
//
// Everything read is checked against the bytes that are there: a message or an attribute
// whose length runs past its buffer, or is shorter than its own header, ends the walk, and
// nothing is read beyond it.

#if defined(__linux__)

#include <linux/netlink.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace Snapshot::netlink {

// Messages and attributes start on 4-byte boundaries (NLMSG_ALIGNTO, NLA_ALIGNTO).
constexpr std::size_t align(std::size_t n) {
  return (n + 3) & ~std::size_t{3};
}
constexpr std::size_t kHeaderLen = align(sizeof(nlmsghdr));
constexpr std::size_t kAttrHeaderLen = align(sizeof(nlattr));

// ---- the socket ----

// A netlink socket, closed with its object. Each call returns what the system call does, and
// leaves its error in errno.
class Socket {
 public:
  Socket() = default;
  ~Socket();
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Opens a socket of netlink protocol `protocol` (NETLINK_ROUTE), with `flags` among
  // SOCK_CLOEXEC and SOCK_NONBLOCK; false when it cannot be.
  bool open(int protocol, int flags);
  bool isOpen() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  // Binds to the multicast `groups` (a bit mask of the first 32) and port `portid`, 0 for one
  // the kernel chooses; portid() is then the port the kernel gave. False when it cannot be.
  bool bind(std::uint32_t groups = 0, std::uint32_t portid = 0);
  std::uint32_t portid() const { return portid_; }

  // setsockopt at SOL_NETLINK (NETLINK_ADD_MEMBERSHIP, NETLINK_GET_STRICT_CHK, ...): 0, or -1.
  int setOption(int option, int value);

  // Sends `len` bytes to the kernel: the bytes sent, or -1.
  ssize_t send(const void* data, std::size_t len);
  // Receives one datagram into `buffer`: its length, or -1. A datagram larger than the buffer
  // is an error (ENOSPC) rather than a message cut short.
  ssize_t receive(void* buffer, std::size_t size);

  void close();

 private:
  int fd_ = -1;
  std::uint32_t portid_ = 0;
};

// ---- building a message ----

// A message built in `room`, a buffer of the caller's (4-byte aligned) that outlives it. What
// does not fit is not written: the message then no longer fits(), and send() refuses it.
class Message {
 public:
  Message(std::span<char> room, std::uint16_t type, std::uint16_t flags, std::uint32_t seq = 0);

  nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(room_.data()); }
  const nlmsghdr* header() const { return reinterpret_cast<const nlmsghdr*>(room_.data()); }
  std::size_t size() const { return header()->nlmsg_len; }
  bool fits() const { return fits_; }

  // The message's family header (ifinfomsg, rtmsg, ...), zeroed; nullptr when there is no
  // room. It comes right after the netlink header, before any attribute.
  template <class T>
  T* familyHeader() {
    return static_cast<T*>(reserve(sizeof(T)));
  }
  // `len` zeroed bytes at the end of the message, padded to the alignment; nullptr when
  // there is no room.
  void* reserve(std::size_t len);
  // Where the next byte of the message goes.
  char* tail() { return room_.data() + align(size()); }

  // Attributes: false when there is no room for one.
  bool put(std::uint16_t type, const void* data, std::size_t len);
  bool putU16(std::uint16_t type, std::uint16_t value) { return put(type, &value, sizeof value); }
  bool putU32(std::uint16_t type, std::uint32_t value) { return put(type, &value, sizeof value); }
  // A string with its terminating NUL.
  bool putString(std::uint16_t type, std::string_view value);

  // A nested attribute: what is put between nestStart and nestEnd is its payload. nestStart
  // returns nullptr when there is no room (nestEnd then does nothing).
  nlattr* nestStart(std::uint16_t type);
  void nestEnd(nlattr* nest);

 private:
  std::span<char> room_;
  bool fits_ = true;
};

// Sends a message; one that did not fit its room is not sent (-1, EMSGSIZE).
ssize_t send(Socket& socket, const Message& message);

// ---- reading attributes ----

inline std::uint16_t typeOf(const nlattr* a) {
  return a->nla_type & NLA_TYPE_MASK;
}
inline const void* payloadOf(const nlattr* a) {
  return reinterpret_cast<const char*>(a) + kAttrHeaderLen;
}
inline std::size_t payloadLength(const nlattr* a) {
  return a->nla_len - kAttrHeaderLen;
}
// A message's payload: what follows the netlink header.
inline const void* payloadOf(const nlmsghdr* m) {
  return reinterpret_cast<const char*>(m) + kHeaderLen;
}
inline std::size_t payloadLength(const nlmsghdr* m) {
  return m->nlmsg_len - kHeaderLen;
}
// A message's family header, or nullptr when the message is too short to hold one.
template <class T>
const T* familyHeaderOf(const nlmsghdr* m) {
  return m->nlmsg_len >= kHeaderLen + sizeof(T) ? static_cast<const T*>(payloadOf(m)) : nullptr;
}

// What an attribute's payload must be for validate().
enum class Kind {
  u8,
  u16,
  u32,
  u64,
  flag,       // no payload
  string,     // any bytes, a NUL ending them early
  nulString,  // ends with its NUL
  nested,     // attributes, every one whole
};

// Whether `a`'s payload is of `kind`. An integer is at least as long as its width (the kernel
// reads the first bytes of a longer one).
bool validate(const nlattr* a, Kind kind);

// The readers: false when `a` is absent or its payload shorter than the value.
bool readU8(const nlattr* a, std::uint8_t& out);
bool readU16(const nlattr* a, std::uint16_t& out);
bool readU32(const nlattr* a, std::uint32_t& out);
bool readU64(const nlattr* a, std::uint64_t& out);
// The payload up to its first NUL; empty when `a` is absent.
std::string_view stringOf(const nlattr* a);

// Calls `f` with each attribute of `len` bytes at `data`, in order. True when they are all
// whole and fill the bytes to their end; false at the first that is not (one shorter than its
// header, or longer than the bytes left, or bytes too few for a header left over): the walk
// stops there, and `f` has seen the attributes before it.
template <class F>
bool forEachAttr(const void* data, std::size_t len, F&& f) {
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    if (len < sizeof(nlattr)) return false;
    const auto* a = reinterpret_cast<const nlattr*>(p);
    if (a->nla_len < sizeof(nlattr) || a->nla_len > len) return false;
    f(a);
    const std::size_t step = align(a->nla_len);
    // The last attribute's padding may be left out.
    if (step >= len) return true;
    p += step;
    len -= step;
  }
  return true;
}
// The attributes of message `m` after its family header of `headerLen` bytes. A message too
// short for its header has none (false).
template <class F>
bool forEachAttr(const nlmsghdr* m, std::size_t headerLen, F&& f) {
  const std::size_t offset = kHeaderLen + align(headerLen);
  if (m->nlmsg_len < offset) return m->nlmsg_len >= kHeaderLen + headerLen;
  return forEachAttr(reinterpret_cast<const char*>(m) + offset, m->nlmsg_len - offset, f);
}
// The attributes nested in `nest`.
template <class F>
bool forEachNested(const nlattr* nest, F&& f) {
  return forEachAttr(payloadOf(nest), payloadLength(nest), f);
}

// The attributes of one level by type, the last of a type kept; types above Max are
// passed over. The parsers return what forEachAttr does.
template <int Max>
class Attributes {
 public:
  bool parse(const nlmsghdr* m, std::size_t headerLen) {
    return forEachAttr(m, headerLen, [this](const nlattr* a) { keep(a); });
  }
  // Nothing when `nest` is absent.
  bool parseNested(const nlattr* nest) {
    return !nest || forEachNested(nest, [this](const nlattr* a) { keep(a); });
  }
  bool parsePayload(const void* data, std::size_t len) {
    return forEachAttr(data, len, [this](const nlattr* a) { keep(a); });
  }
  const nlattr* operator[](int type) const {
    return type >= 0 && type <= Max ? at_[type] : nullptr;
  }

 private:
  void keep(const nlattr* a) {
    if (typeOf(a) <= Max) at_[typeOf(a)] = a;
  }
  const nlattr* at_[Max + 1] = {};
};

// ---- reading messages ----

// Calls `f` with each message of the `len` bytes at `data`, in order, while it returns true.
// True when the messages are all whole and fill the bytes to their end (or `f` stopped);
// false at the first that is not.
template <class F>
bool forEachMessage(const void* data, std::size_t len, F&& f) {
  const char* p = static_cast<const char*>(data);
  while (len > 0) {
    if (len < sizeof(nlmsghdr)) return false;
    const auto* m = reinterpret_cast<const nlmsghdr*>(p);
    if (m->nlmsg_len < sizeof(nlmsghdr) || m->nlmsg_len > len) return false;
    if (!f(m)) return true;
    const std::size_t step = align(m->nlmsg_len);
    if (step >= len) return true;
    p += step;
    len -= step;
  }
  return true;
}

// What one buffer of the kernel's answer came to.
enum class Status {
  more,    // every message taken; the answer goes on in the next buffer
  done,    // the answer is complete: NLMSG_DONE, or an acknowledgement without error
  failed,  // errno says why
};

// Runs over a buffer of the kernel's answer to the request of sequence number `seq` on port
// `portid` (0 for either: not checked, as for notifications), handing each data message to
// `onData` (void(const nlmsghdr*); an exception it throws leaves the walk). Stops with
//  - done at NLMSG_DONE or at an NLMSG_ERROR carrying 0 (an acknowledgement);
//  - failed, errno set, at:
//    an NLMSG_ERROR carrying an error (its errno), or too short for one (EBADMSG);
//    an NLMSG_DONE carrying a negative status (a dump that failed after it began: its errno);
//    a message of another port (ESRCH) or sequence (EPROTO);
//    a message marked NLM_F_DUMP_INTR, the dump having changed while it was made (EINTR);
//    bytes that are no whole message (EBADMSG).
// NLMSG_NOOP, NLMSG_OVERRUN and the other reserved types below NLMSG_MIN_TYPE are passed
// over. The messages before the one it stops at have been handed on.
template <class OnData>
Status run(const void* data, std::size_t len, std::uint32_t seq, std::uint32_t portid,
           OnData&& onData);

// ---- internals ----

namespace detail {
// What a control message (type below NLMSG_MIN_TYPE) comes to; `more` to go on.
Status control(const nlmsghdr* m);
// Whether `m` belongs to the answer; errno set when not.
bool belongs(const nlmsghdr* m, std::uint32_t seq, std::uint32_t portid);
}  // namespace detail

template <class OnData>
Status run(const void* data, std::size_t len, std::uint32_t seq, std::uint32_t portid,
           OnData&& onData) {
  Status status = Status::more;
  const bool whole = forEachMessage(data, len, [&](const nlmsghdr* m) {
    if (!detail::belongs(m, seq, portid)) {
      status = Status::failed;
    } else if (m->nlmsg_type >= NLMSG_MIN_TYPE) {
      onData(m);
    } else {
      status = detail::control(m);
    }
    return status == Status::more;
  });
  if (!whole && status == Status::more) {
    errno = EBADMSG;
    return Status::failed;
  }
  return status;
}

}  // namespace Snapshot::netlink

#endif
