#include "snapshot/Netlink.h"

#if defined(__linux__)

#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <utility>

namespace Snapshot::netlink {

// ---- the socket ----

Socket::~Socket() {
  close();
}

Socket::Socket(Socket&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), portid_(std::exchange(other.portid_, 0)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
    portid_ = std::exchange(other.portid_, 0);
  }
  return *this;
}

void Socket::close() {
  if (fd_ >= 0) {
    // The error of close is kept from the caller's errno, which may be the reason it closes.
    const int saved = errno;
    ::close(fd_);
    errno = saved;
  }
  fd_ = -1;
  portid_ = 0;
}

bool Socket::open(int protocol, int flags) {
  close();
  fd_ = ::socket(AF_NETLINK, SOCK_RAW | flags, protocol);
  return fd_ >= 0;
}

bool Socket::bind(std::uint32_t groups, std::uint32_t portid) {
  sockaddr_nl addr = {};
  addr.nl_family = AF_NETLINK;
  addr.nl_groups = groups;
  addr.nl_pid = portid;
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0) return false;
  socklen_t len = sizeof addr;
  if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return false;
  if (len != sizeof addr || addr.nl_family != AF_NETLINK) {
    errno = EINVAL;
    return false;
  }
  portid_ = addr.nl_pid;
  return true;
}

int Socket::setOption(int option, int value) {
  return ::setsockopt(fd_, SOL_NETLINK, option, &value, sizeof value);
}

ssize_t Socket::send(const void* data, std::size_t len) {
  sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  return ::sendto(fd_, data, len, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
}

ssize_t Socket::receive(void* buffer, std::size_t size) {
  sockaddr_nl from = {};
  iovec iov = {buffer, size};
  msghdr msg = {};
  msg.msg_name = &from;
  msg.msg_namelen = sizeof from;
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  const ssize_t n = ::recvmsg(fd_, &msg, 0);
  if (n < 0) return n;
  if (msg.msg_flags & MSG_TRUNC) {
    errno = ENOSPC;
    return -1;
  }
  if (msg.msg_namelen != sizeof from) {
    errno = EINVAL;
    return -1;
  }
  return n;
}

ssize_t send(Socket& socket, const Message& message) {
  if (!message.fits()) {
    errno = EMSGSIZE;
    return -1;
  }
  return socket.send(message.header(), message.size());
}

// ---- building a message ----

Message::Message(std::span<char> room, std::uint16_t type, std::uint16_t flags, std::uint32_t seq)
    : room_(room) {
  // Too small for even the header: a message of nothing that does not fit.
  thread_local char none[kHeaderLen];
  if (room_.size() < kHeaderLen) {
    room_ = std::span<char>(none, sizeof none);
    fits_ = false;
  }
  std::memset(room_.data(), 0, kHeaderLen);
  nlmsghdr* h = header();
  h->nlmsg_len = kHeaderLen;
  h->nlmsg_type = type;
  h->nlmsg_flags = flags;
  h->nlmsg_seq = seq;
}

void* Message::reserve(std::size_t len) {
  const std::size_t at = align(size());
  if (!fits_ || at > room_.size() || len > room_.size() || align(len) > room_.size() - at ||
      at + align(len) > UINT32_MAX) {
    fits_ = false;
    return nullptr;
  }
  char* p = room_.data() + at;
  std::memset(p, 0, align(len));
  header()->nlmsg_len = static_cast<std::uint32_t>(at + align(len));
  return p;
}

bool Message::put(std::uint16_t type, const void* data, std::size_t len) {
  if (len > UINT16_MAX - kAttrHeaderLen) {
    fits_ = false;
    return false;
  }
  auto* a = static_cast<nlattr*>(reserve(kAttrHeaderLen + len));
  if (!a) return false;
  a->nla_type = type;
  a->nla_len = static_cast<std::uint16_t>(kAttrHeaderLen + len);
  if (len > 0) std::memcpy(a + 1, data, len);
  return true;
}

bool Message::putString(std::uint16_t type, std::string_view value) {
  if (value.size() >= UINT16_MAX - kAttrHeaderLen) {
    fits_ = false;
    return false;
  }
  auto* a = static_cast<nlattr*>(reserve(kAttrHeaderLen + value.size() + 1));
  if (!a) return false;
  a->nla_type = type;
  a->nla_len = static_cast<std::uint16_t>(kAttrHeaderLen + value.size() + 1);
  std::memcpy(a + 1, value.data(), value.size());  // the NUL is reserve's zero
  return true;
}

nlattr* Message::nestStart(std::uint16_t type) {
  auto* a = static_cast<nlattr*>(reserve(kAttrHeaderLen));
  if (!a) return nullptr;
  a->nla_type = type | NLA_F_NESTED;
  a->nla_len = kAttrHeaderLen;
  return a;
}

void Message::nestEnd(nlattr* nest) {
  if (!nest) return;
  const std::size_t len = static_cast<std::size_t>(tail() - reinterpret_cast<char*>(nest));
  // A nest longer than an attribute can say is no attribute: the message does not fit.
  if (len > UINT16_MAX) {
    fits_ = false;
    return;
  }
  nest->nla_len = static_cast<std::uint16_t>(len);
}

// ---- reading attributes ----

bool validate(const nlattr* a, Kind kind) {
  const std::size_t len = payloadLength(a);
  const auto* p = static_cast<const char*>(payloadOf(a));
  switch (kind) {
    case Kind::u8:
      return len >= sizeof(std::uint8_t);
    case Kind::u16:
      return len >= sizeof(std::uint16_t);
    case Kind::u32:
      return len >= sizeof(std::uint32_t);
    case Kind::u64:
      return len >= sizeof(std::uint64_t);
    case Kind::flag:
      return len == 0;
    case Kind::string:
      return true;
    case Kind::nulString:
      return len > 0 && p[len - 1] == '\0';
    case Kind::nested:
      return forEachNested(a, [](const nlattr*) {});
  }
  return false;
}

namespace {
template <class T>
bool readValue(const nlattr* a, T& out) {
  if (!a || payloadLength(a) < sizeof(T)) return false;
  std::memcpy(&out, payloadOf(a), sizeof out);
  return true;
}
}  // namespace

bool readU8(const nlattr* a, std::uint8_t& out) {
  return readValue(a, out);
}
bool readU16(const nlattr* a, std::uint16_t& out) {
  return readValue(a, out);
}
bool readU32(const nlattr* a, std::uint32_t& out) {
  return readValue(a, out);
}
bool readU64(const nlattr* a, std::uint64_t& out) {
  return readValue(a, out);
}

std::string_view stringOf(const nlattr* a) {
  if (!a) return {};
  const auto* p = static_cast<const char*>(payloadOf(a));
  return std::string_view(p, strnlen(p, payloadLength(a)));
}

// ---- reading messages ----

namespace detail {

bool belongs(const nlmsghdr* m, std::uint32_t seq, std::uint32_t portid) {
  // The kernel's own messages (port 0) and notifications (sequence 0) are not checked.
  if (portid != 0 && m->nlmsg_pid != 0 && m->nlmsg_pid != portid) {
    errno = ESRCH;
    return false;
  }
  if (seq != 0 && m->nlmsg_seq != 0 && m->nlmsg_seq != seq) {
    errno = EPROTO;
    return false;
  }
  if (m->nlmsg_flags & NLM_F_DUMP_INTR) {
    errno = EINTR;
    return false;
  }
  return true;
}

// The errno of an error the kernel sends negated (a positive one is taken as it is). No errno
// is as large as INT_MIN's negation: that is no error the kernel could send.
static int errnoOf(int kernelError) {
  if (kernelError == INT_MIN) return EPROTO;
  return kernelError < 0 ? -kernelError : kernelError;
}

Status control(const nlmsghdr* m) {
  switch (m->nlmsg_type) {
    case NLMSG_ERROR: {
      const auto* e = familyHeaderOf<nlmsgerr>(m);
      if (!e) {
        errno = EBADMSG;
        return Status::failed;
      }
      if (e->error == 0) return Status::done;
      errno = errnoOf(e->error);
      return Status::failed;
    }
    case NLMSG_DONE: {
      // A dump that failed after it began says so in its NLMSG_DONE.
      int status = 0;
      if (payloadLength(m) >= sizeof status) std::memcpy(&status, payloadOf(m), sizeof status);
      if (status < 0) {
        errno = errnoOf(status);
        return Status::failed;
      }
      return Status::done;
    }
    default:
      // NLMSG_NOOP, NLMSG_OVERRUN (never sent: a lost message shows as ENOBUFS on receive)
      // and the types reserved below NLMSG_MIN_TYPE.
      return Status::more;
  }
}

}  // namespace detail

}  // namespace Snapshot::netlink

#endif
