#include "snapshot/NetlinkLibrary.h"

#include <dlfcn.h>
#include <libmnl/libmnl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "snapshot/Live.h"

namespace Snapshot {

namespace {

constexpr const char* kSoname = "libmnl.so.0";

struct Library {
  void* handle = nullptr;
  std::string failure;

  Library() {
    handle = dlopen(kSoname, RTLD_NOW | RTLD_LOCAL);
    if (!handle) failure = dlerror();
  }
};

const Library& library() {
  static const Library lib;
  return lib;
}

// The library's own function of that name. Every caller has opened the library first
// (requireNetlinkLibrary, or a socket opened through it); one that has not is a program error.
template <class F>
F* entry(const char* name) {
  const Library& lib = library();
  void* f = lib.handle ? dlsym(lib.handle, name) : nullptr;
  if (!f) {
    std::fprintf(stderr, "%% Internal error: %s lacks %s: %s\n", kSoname, name,
                 lib.handle ? "no such function" : lib.failure.c_str());
    std::abort();
  }
  return reinterpret_cast<F*>(f);
}

}  // namespace

void requireNetlinkLibrary() {
  const Library& lib = library();
  if (!lib.handle)
    throw LiveError(std::string("cannot load the netlink library ") + kSoname + ": " + lib.failure);
}

}  // namespace Snapshot

// The functions the live source calls, each forwarding to the library's own, found once. The
// declarations are the library's header's: a signature that differs does not compile.

void* mnl_attr_get_payload(const struct nlattr* attr) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_get_payload)>("mnl_attr_get_payload");
  return f(attr);
}

uint16_t mnl_attr_get_payload_len(const struct nlattr* attr) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_attr_get_payload_len)>("mnl_attr_get_payload_len");
  return f(attr);
}

uint16_t mnl_attr_get_type(const struct nlattr* attr) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_get_type)>("mnl_attr_get_type");
  return f(attr);
}

uint16_t mnl_attr_get_u16(const struct nlattr* attr) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_get_u16)>("mnl_attr_get_u16");
  return f(attr);
}

uint32_t mnl_attr_get_u32(const struct nlattr* attr) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_get_u32)>("mnl_attr_get_u32");
  return f(attr);
}

int mnl_attr_parse(const struct nlmsghdr* nlh, unsigned int offset, mnl_attr_cb_t cb, void* data) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_parse)>("mnl_attr_parse");
  return f(nlh, offset, cb, data);
}

int mnl_attr_parse_nested(const struct nlattr* attr, mnl_attr_cb_t cb, void* data) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_attr_parse_nested)>("mnl_attr_parse_nested");
  return f(attr, cb, data);
}

int mnl_attr_parse_payload(const void* payload, size_t payload_len, mnl_attr_cb_t cb, void* data) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_attr_parse_payload)>("mnl_attr_parse_payload");
  return f(payload, payload_len, cb, data);
}

void mnl_attr_put_u32(struct nlmsghdr* nlh, uint16_t type, uint32_t data) {
  static auto* const f = Snapshot::entry<decltype(::mnl_attr_put_u32)>("mnl_attr_put_u32");
  return f(nlh, type, data);
}

int mnl_cb_run(const void* buf, size_t numbytes, unsigned int seq, unsigned int portid,
               mnl_cb_t cb_data, void* data) {
  static auto* const f = Snapshot::entry<decltype(::mnl_cb_run)>("mnl_cb_run");
  return f(buf, numbytes, seq, portid, cb_data, data);
}

int mnl_cb_run2(const void* buf, size_t numbytes, unsigned int seq, unsigned int portid,
                mnl_cb_t cb_data, void* data, mnl_cb_t* cb_ctl_array,
                unsigned int cb_ctl_array_len) {
  static auto* const f = Snapshot::entry<decltype(::mnl_cb_run2)>("mnl_cb_run2");
  return f(buf, numbytes, seq, portid, cb_data, data, cb_ctl_array, cb_ctl_array_len);
}

void* mnl_nlmsg_get_payload(const struct nlmsghdr* nlh) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_nlmsg_get_payload)>("mnl_nlmsg_get_payload");
  return f(nlh);
}

void* mnl_nlmsg_put_extra_header(struct nlmsghdr* nlh, size_t size) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_nlmsg_put_extra_header)>("mnl_nlmsg_put_extra_header");
  return f(nlh, size);
}

struct nlmsghdr* mnl_nlmsg_put_header(void* buf) {
  static auto* const f = Snapshot::entry<decltype(::mnl_nlmsg_put_header)>("mnl_nlmsg_put_header");
  return f(buf);
}

size_t mnl_nlmsg_size(size_t len) {
  static auto* const f = Snapshot::entry<decltype(::mnl_nlmsg_size)>("mnl_nlmsg_size");
  return f(len);
}

int mnl_socket_bind(struct mnl_socket* nl, unsigned int groups, pid_t pid) {
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_bind)>("mnl_socket_bind");
  return f(nl, groups, pid);
}

int mnl_socket_close(struct mnl_socket* nl) {
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_close)>("mnl_socket_close");
  return f(nl);
}

int mnl_socket_get_fd(const struct mnl_socket* nl) {
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_get_fd)>("mnl_socket_get_fd");
  return f(nl);
}

unsigned int mnl_socket_get_portid(const struct mnl_socket* nl) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_socket_get_portid)>("mnl_socket_get_portid");
  return f(nl);
}

ssize_t mnl_socket_recvfrom(const struct mnl_socket* nl, void* buf, size_t siz) {
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_recvfrom)>("mnl_socket_recvfrom");
  return f(nl, buf, siz);
}

ssize_t mnl_socket_sendto(const struct mnl_socket* nl, const void* req, size_t siz) {
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_sendto)>("mnl_socket_sendto");
  return f(nl, req, siz);
}

int mnl_socket_setsockopt(const struct mnl_socket* nl, int type, void* buf, socklen_t len) {
  static auto* const f =
      Snapshot::entry<decltype(::mnl_socket_setsockopt)>("mnl_socket_setsockopt");
  return f(nl, type, buf, len);
}

// Opening a socket opens the library first; without it there is no socket, and errno says a
// library is missing (the callers report errno).
struct mnl_socket* mnl_socket_open(int bus) {
  if (!Snapshot::library().handle) {
    errno = ELIBACC;
    return nullptr;
  }
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_open)>("mnl_socket_open");
  return f(bus);
}

struct mnl_socket* mnl_socket_open2(int bus, int flags) {
  if (!Snapshot::library().handle) {
    errno = ELIBACC;
    return nullptr;
  }
  static auto* const f = Snapshot::entry<decltype(::mnl_socket_open2)>("mnl_socket_open2");
  return f(bus, flags);
}
