#pragma once
// The state agent's change channel: a unix stream socket beside the store on which an attached
// rova sends the configuration lines and `clear` commands typed in it, for the agent to apply.
//
// Every message, either way, is a frame: a 4-byte big-endian length, then that many bytes of
// text. One request per connection: the client sends one frame, the agent answers with one
// frame and closes. docs/agent.md describes the texts.
//
//   auto server = Agent::ChangeServer::open("default", handler);   // the agent
//   pollfds: server->pollFds(fds); ... server->process();           // in its poll loop
//   Agent::Reply r = Agent::sendRequest("default", pid, request);   // a reader

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// The socket of the agent `agentName`: "/dev/shm/rova-changes.NAME".
std::string socketPathOf(const std::string& agentName);

// The largest request the agent reads; a longer one is refused unread.
constexpr std::uint32_t kMaxRequestBytes = 1u << 20;

// ---- the texts ----

// One line of a request: the line that entered the sub-mode it was typed in (empty: typed in
// configuration mode itself, or a command of the command table) and the line.
struct RequestLine {
  std::string mode;
  std::string line;
};

struct Request {
  enum class Kind {
    lines,    // configuration lines, applied in order
    commit,   // a session's candidate, applied whole or not at all
    command,  // one command of the command table that changes the state (clear, write)
  };
  Kind kind = Kind::lines;
  std::string session;  // commit: the session's name, which its messages give
  std::vector<RequestLine> lines;
};

// What the agent answers: the status and the text the command wrote, as it would have locally.
struct Reply {
  int status = 0;
  std::string out;
  std::string err;
};

std::string encodeRequest(const Request& request);
// Nullopt for a text that is not a request; `why` says what is wrong.
std::optional<Request> decodeRequest(std::string_view text, std::string* why = nullptr);
std::string encodeReply(const Reply& reply);
std::optional<Reply> decodeReply(std::string_view text);

// ---- the agent's side ----

// Who sent a request, as the kernel tells it (SO_PEERCRED, taken when the client connected).
struct Peer {
  uid_t uid = 0;
  gid_t gid = 0;
  pid_t pid = 0;
};

class ChannelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The listening socket and its clients, served without ever blocking: the agent polls the
// descriptors pollFds() gives beside its own and calls process() after each poll. A client is
// held in a bounded buffer until its request is whole; one that sends more than
// kMaxRequestBytes, or takes longer than `idle` to send its request or read its answer, is
// dropped.
class ChangeServer {
 public:
  // Takes the request's text and who sent it; returns the reply's text.
  using Handler = std::function<std::string(std::string_view request, const Peer& peer)>;
  using Log = std::function<void(const std::string&)>;
  // Makes the socket (mode 0666: every user who can read the store may ask; the agent decides
  // who may change), removing one an agent of the name left behind. Call it only holding the
  // name (the store's lock). Throws ChannelError.
  static std::unique_ptr<ChangeServer> open(const std::string& agentName, Handler handler,
                                            Log log = nullptr);
  ~ChangeServer();
  ChangeServer(const ChangeServer&) = delete;
  ChangeServer& operator=(const ChangeServer&) = delete;

  // Appends the descriptors to poll.
  void pollFds(std::vector<pollfd>& fds) const;
  // Accepts, reads, answers and drops what is ready; never waits.
  void process();
  // Removes the socket's name; the destructor does it too.
  void unlink();
  const std::string& path() const { return path_; }
  std::size_t clients() const { return clients_.size(); }

  static constexpr std::size_t kMaxClients = 64;
  std::chrono::milliseconds idle{10000};

 private:
  struct Client {
    int fd;
    Peer peer;
    std::string in;
    std::string out;
    std::size_t sent = 0;
    bool answered = false;
    std::chrono::steady_clock::time_point since;
  };
  ChangeServer(int fd, std::string path, Handler handler, Log log);
  void serve(Client& c);
  void answer(Client& c, const std::string& reply);

  int fd_;
  std::string path_;
  Handler handler_;
  Log log_;
  std::vector<Client> clients_;
};

// ---- a reader's side ----

// Sends one request to the agent `agentName` whose pid is `agentPid` and waits for its reply.
// The socket must belong to that process (SO_PEERCRED), so that a socket someone else put in
// its place is never told the lines. `alive` is asked every half second while the reply is
// awaited, and at once when a signal interrupts the wait: when it says the agent ended, the
// wait ends (it may throw, to stop waiting for another reason). Throws ChannelError saying why the
// request was not answered ("it takes no changes (...)").
Reply sendRequest(const std::string& agentName, pid_t agentPid, std::string_view request,
                  const std::function<bool()>& alive);

}  // namespace Agent
