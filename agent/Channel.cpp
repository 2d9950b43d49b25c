#include "agent/Channel.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "agent/Store.h"
#include "platform/mox/Exception.h"

namespace Agent {

namespace {

constexpr std::string_view kRequestMagic = "rova-request 1\n";
constexpr std::string_view kReplyMagic = "rova-reply 1\n";
// The largest reply a reader takes: a clear command's few lines, with room to spare.
constexpr std::uint32_t kMaxReplyBytes = 64u << 20;

std::string socketErrno() {
  return std::strerror(errno);
}

std::string frame(std::string_view text) {
  const auto n = static_cast<std::uint32_t>(text.size());
  std::string f;
  f.reserve(4 + text.size());
  f.push_back(char(n >> 24));
  f.push_back(char(n >> 16));
  f.push_back(char(n >> 8));
  f.push_back(char(n));
  f.append(text);
  return f;
}

std::uint32_t frameLength(std::string_view head) {
  const auto b = [&](std::size_t i) { return std::uint32_t(static_cast<unsigned char>(head[i])); };
  return b(0) << 24 | b(1) << 16 | b(2) << 8 | b(3);
}

// The next line of `text` (without its newline), taken off it; nullopt when no newline is left.
std::optional<std::string_view> takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

template <class N>
bool numberOf(std::string_view w, N& n) {
  const auto r = std::from_chars(w.data(), w.data() + w.size(), n);
  return !w.empty() && r.ec == std::errc() && r.ptr == w.data() + w.size();
}

void checkField(std::string_view field) {
  if (field.find('\n') != std::string_view::npos)
    throw ChannelError("a line sent to the agent cannot hold a newline");
}

void setNonBlocking(int fd) {
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  std::memcpy(a.sun_path, path.data(), std::min(path.size(), sizeof a.sun_path - 1));
  return a;
}

}  // namespace

std::string socketPathOf(const std::string& agentName) {
  // The store's name checks the agent's name; the socket sits beside the store.
  shmNameOf(agentName);
  return "/dev/shm/rova-changes." + agentName;
}

// ---- the texts ----

std::string encodeRequest(const Request& request) {
  std::string text(kRequestMagic);
  switch (request.kind) {
    case Request::Kind::lines:
      text += "lines\n";
      break;
    case Request::Kind::commit:
      checkField(request.session);
      text += "commit " + request.session + "\n";
      break;
    case Request::Kind::command:
      text += "command\n";
      break;
  }
  for (const RequestLine& l : request.lines) {
    checkField(l.mode);
    checkField(l.line);
    if (!l.mode.empty()) text += "in " + l.mode + "\n";
    text += "line " + l.line + "\n";
  }
  return text;
}

std::optional<Request> decodeRequest(std::string_view text, std::string* why) {
  const auto refuse = [why](const char* what) -> std::optional<Request> {
    if (why) *why = what;
    return std::nullopt;
  };
  if (!startsWith(text, kRequestMagic)) return refuse("not a change request");
  text.remove_prefix(kRequestMagic.size());
  Request r;
  const auto kind = takeLine(text);
  if (!kind) return refuse("no kind of request");
  if (*kind == "lines") {
    r.kind = Request::Kind::lines;
  } else if (*kind == "command") {
    r.kind = Request::Kind::command;
  } else if (startsWith(*kind, "commit ") && kind->size() > 7) {
    r.kind = Request::Kind::commit;
    r.session = std::string(kind->substr(7));
  } else {
    return refuse("an unknown kind of request");
  }
  std::string mode;
  while (!text.empty()) {
    const auto line = takeLine(text);
    if (!line) return refuse("a line without its end");
    if (startsWith(*line, "in ")) {
      mode = std::string(line->substr(3));
    } else if (startsWith(*line, "line ")) {
      r.lines.push_back({std::move(mode), std::string(line->substr(5))});
      mode.clear();
    } else {
      return refuse("a line of an unknown kind");
    }
  }
  if (!mode.empty()) return refuse("a mode without its line");
  if (r.lines.empty()) return refuse("no line");
  if (r.kind == Request::Kind::command && (r.lines.size() != 1 || !r.lines[0].mode.empty()))
    return refuse("a command request holds one command");
  return r;
}

std::string encodeReply(const Reply& reply) {
  std::string text(kReplyMagic);
  text += "status " + std::to_string(reply.status) + "\n";
  text += "out " + std::to_string(reply.out.size()) + "\n" + reply.out;
  text += "err " + std::to_string(reply.err.size()) + "\n" + reply.err;
  return text;
}

std::optional<Reply> decodeReply(std::string_view text) {
  if (!startsWith(text, kReplyMagic)) return std::nullopt;
  text.remove_prefix(kReplyMagic.size());
  Reply r;
  const auto status = takeLine(text);
  if (!status || !startsWith(*status, "status ") || !numberOf(status->substr(7), r.status))
    return std::nullopt;
  for (std::string* part : {&r.out, &r.err}) {
    const auto head = takeLine(text);
    const std::string_view name = part == &r.out ? "out " : "err ";
    std::size_t n = 0;
    if (!head || !startsWith(*head, name) || !numberOf(head->substr(4), n) || n > text.size())
      return std::nullopt;
    part->assign(text.substr(0, n));
    text.remove_prefix(n);
  }
  if (!text.empty()) return std::nullopt;
  return r;
}

// ---- the agent's side ----

ChangeServer::ChangeServer(int fd, std::string path, Handler handler, Log log)
    : fd_(fd), path_(std::move(path)), handler_(std::move(handler)), log_(std::move(log)) {}

std::unique_ptr<ChangeServer> ChangeServer::open(const std::string& agentName, Handler handler,
                                                 Log log) {
  const std::string path = socketPathOf(agentName);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) throw ChannelError("cannot make the change socket: " + socketErrno());
  // The caller holds the name: a socket found there is one a dead agent of the name left.
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode) || ::unlink(path.c_str()) != 0) {
      const std::string why = S_ISSOCK(st.st_mode) ? socketErrno() : "not a socket";
      ::close(fd);
      throw ChannelError("cannot remove " + path + ", left by an agent that died: " + why);
    }
    if (log) log("removed the change socket left by an agent that died");
  }
  const sockaddr_un a = addressOf(path);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0 ||
      ::chmod(path.c_str(), 0666) != 0 || ::listen(fd, 16) != 0) {
    const std::string why = socketErrno();
    ::close(fd);
    ::unlink(path.c_str());
    throw ChannelError("cannot make the change socket " + path + ": " + why);
  }
  return std::unique_ptr<ChangeServer>(
      new ChangeServer(fd, path, std::move(handler), std::move(log)));
}

ChangeServer::~ChangeServer() {
  unlink();
  for (Client& c : clients_)
    ::close(c.fd);
  ::close(fd_);
}

void ChangeServer::unlink() {
  if (path_.empty()) return;
  ::unlink(path_.c_str());
  path_.clear();
}

void ChangeServer::pollFds(std::vector<pollfd>& fds) const {
  fds.push_back({fd_, POLLIN, 0});
  for (const Client& c : clients_)
    fds.push_back({c.fd, short(c.answered ? POLLOUT : POLLIN), 0});
}

void ChangeServer::answer(Client& c, const std::string& reply) {
  c.out = frame(reply);
  c.sent = 0;
  c.answered = true;
  c.in.clear();
  c.in.shrink_to_fit();
}

// Reads what the client sent so far; a whole request is answered at once.
void ChangeServer::serve(Client& c) {
  char buf[16384];
  while (!c.answered) {
    const ssize_t n = ::recv(c.fd, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (n <= 0) {
      // Gone before its request was whole: nothing to answer.
      c.out.clear();
      c.answered = true;
      c.sent = 0;
      return;
    }
    c.in.append(buf, static_cast<std::size_t>(n));
    if (c.in.size() < 4) continue;
    const std::uint32_t length = frameLength(c.in);
    if (length > kMaxRequestBytes) {
      answer(c, encodeReply({1, "", "% The request is too large for the state agent\n"}));
      break;
    }
    if (c.in.size() < 4 + std::size_t(length)) continue;
    if (c.in.size() > 4 + std::size_t(length)) {
      answer(c, encodeReply({2, "", "% A malformed request: more than one\n"}));
      break;
    }
    std::string reply;
    try {
      reply = handler_(std::string_view(c.in).substr(4), c.peer);
    } catch (const std::exception& e) {
      if (log_) log_(std::string("a request failed: ") + e.what());
      reply = encodeReply({70, "", std::string("% Internal error: ") + e.what() + "\n"});
    }
    answer(c, reply);
  }
  // The answer goes out as far as the socket takes it now; the rest when it is writable.
  while (c.sent < c.out.size()) {
    const ssize_t n = ::send(c.fd, c.out.data() + c.sent, c.out.size() - c.sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (n <= 0) {
      c.out.clear();
      c.sent = 0;
      return;
    }
    c.sent += static_cast<std::size_t>(n);
  }
}

void ChangeServer::process() {
  const auto now = std::chrono::steady_clock::now();
  for (;;) {
    const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      break;
    }
    ucred cred{};
    socklen_t len = sizeof cred;
    // Without the sender's credentials nobody can say who may change: not served.
    if (clients_.size() >= kMaxClients ||
        ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
      ::close(fd);
      continue;
    }
    clients_.push_back({fd, {cred.uid, cred.gid, cred.pid}, {}, {}, 0, false, now});
  }
  for (Client& c : clients_)
    serve(c);
  // Done (answered whole, or gone) or too slow: dropped.
  std::erase_if(clients_, [&](Client& c) {
    const bool done = c.answered && c.sent == c.out.size();
    if (done || now - c.since > idle) {
      ::close(c.fd);
      return true;
    }
    return false;
  });
}

// ---- a reader's side ----

Reply sendRequest(const std::string& agentName, pid_t agentPid, std::string_view request,
                  const std::function<bool()>& alive) {
  const std::string path = socketPathOf(agentName);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw ChannelError(socketErrno());
  struct Close {
    int fd;
    ~Close() { ::close(fd); }
  } close{fd};
  const sockaddr_un a = addressOf(path);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) {
    if (errno == ENOENT || errno == ECONNREFUSED)
      throw ChannelError("it takes no changes (no one listens on " + path + ")");
    throw ChannelError(path + ": " + socketErrno());
  }
  ucred cred{};
  socklen_t len = sizeof cred;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0 || cred.pid != agentPid)
    throw ChannelError("the socket " + path + " is not the agent's");
  setNonBlocking(fd);
  const std::string out = frame(request);
  std::size_t sent = 0;
  std::string in;
  for (;;) {
    const bool sending = sent < out.size();
    pollfd p{fd, short(sending ? POLLOUT : POLLIN), 0};
    const int ready = ::poll(&p, 1, 500);
    if (ready < 0 && errno != EINTR) throw ChannelError(socketErrno());
    if (ready <= 0) {
      if (alive && !alive()) throw ChannelError("it ended before it answered");
      continue;
    }
    if (sending) {
      const ssize_t n = ::send(fd, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
      if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      if (n <= 0) throw ChannelError("it closed the connection before it answered");
      sent += static_cast<std::size_t>(n);
      continue;
    }
    char buf[16384];
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (n <= 0) throw ChannelError("it closed the connection before it answered");
    in.append(buf, static_cast<std::size_t>(n));
    if (in.size() >= 4 && frameLength(in) > kMaxReplyBytes)
      throw ChannelError("its answer is too large");
    if (in.size() >= 4 && in.size() >= 4 + std::size_t(frameLength(in))) break;
  }
  auto reply = decodeReply(std::string_view(in).substr(4, frameLength(in)));
  if (!reply) throw ChannelError("its answer cannot be read");
  return *reply;
}

}  // namespace Agent
