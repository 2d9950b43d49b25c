#pragma once
// The state agent's store: every table of a device's state in one POSIX shared-memory object,
// written by the one agent of its name and mapped read-only by every reader.
//
// The object ("/dev/shm/rova-agent.NAME") is reserved large and sparse, so that a reader maps
// it once and never has to follow it as it grows; only the pages written take memory. It
// begins with a StoreHeader; the tables' records and indexes are regions at offsets in it
// (Brine::SharedTableHeader), and the catalog region names each table's path, type and header,
// and holds the small entities (interfaces, IP configuration, ...) as the state document's
// text. The agent holds an exclusive flock on the object for its whole life: a reader that can
// take a shared lock knows the agent is gone.
//
//   auto store = Agent::Store::create({.name = "default"}, "state.json");  // the agent
//   store->publish(em);                        // the tables move in; writes go there from now
//   auto attached = Agent::Attachment::open("default");                   // a reader
//   Mox::Ptr<Statum::EntityManager> em = attached->entities();

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/brine/SharedTable.h"
#include "platform/mox/Ptr.h"
#include "platform/statum/EntityManager.h"

namespace Agent {

// A store that cannot be made or attached: what was tried and why, ready for the user.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
// An agent of that name is running.
class AgentRunning : public StoreError {
 public:
  using StoreError::StoreError;
};

// The shared-memory object's name for an agent name; refuses a name that is empty, longer
// than 64 bytes or holds anything but letters, digits, '-', '_' and '.'.
std::string shmNameOf(const std::string& agentName);

struct StoreHeader;

// The pid of the agent that made the store of `agentName`, running or not; 0 when there is
// no such store or it cannot be read.
pid_t storeAgentPid(const std::string& agentName);

// The agent's side: creates the store, writes it, removes it when destroyed.
class Store : public Brine::TableArena, public std::enable_shared_from_this<Store> {
 public:
  struct Options {
    std::string name = "default";
    mode_t mode = 0640;  // who may read: the agent's user and group
    std::uint64_t reserve = std::uint64_t(64) << 30;
    // How long a region given back stays readable before its pages are freed.
    std::chrono::milliseconds grace{2000};
  };
  // Takes the name: refuses with AgentRunning when its agent runs; a store left by an agent
  // that died is removed first (`reclaimed` says so).
  static std::shared_ptr<Store> create(const Options& options, const std::string& source,
                                       bool* reclaimed = nullptr);
  ~Store() override;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Moves every table of `em` into the store and publishes the catalog, unless it would read
  // as it does; later writes to those tables go to the store. Call again after adding or
  // removing entities, or changing the small ones.
  void publish(const Statum::EntityManager& em);
  // Makes again the listing order of every table of `em` written since its order was made
  // (publish() does it too); returns how many it made. A live agent calls it once its tables
  // are quiet, not for every change: an attached listing follows a current order as it prints,
  // and sorts for itself while there is none.
  std::size_t orderTables(const Statum::EntityManager& em);
  // Whether a table of `em` was written since its order was made.
  bool ordersStale(const Statum::EntityManager& em) const;
  // Frees the pages of regions given back longer than the grace period ago.
  void reclaim();
  // Removes the object's name: readers still mapping it keep reading, and see the agent gone.
  // The destructor does it too.
  void unlink();

  std::uint64_t allocate(std::uint64_t bytes) override;
  void retire(std::uint64_t offset, std::uint64_t bytes) override;
  void tableChanged() override;

  std::uint64_t generation() const;
  const std::string& shmName() const { return shmName_; }
  // Bytes allocated so far (regions given back included).
  std::uint64_t allocated() const;

 private:
  Store(int fd, char* base, std::uint64_t size, std::string shmName, Options options);
  StoreHeader& header() const;
  std::uint64_t tableHeader();

  int fd_;
  std::string shmName_;
  Options options_;
  std::uint64_t headersAt_ = 0, headersLeft_ = 0;
  struct Retired {
    std::uint64_t offset, bytes;
    std::chrono::steady_clock::time_point at;
  };
  std::deque<Retired> retired_;
  std::uint64_t catalogAt_ = 0, catalogBytes_ = 0;
  std::string catalogText_;  // what the catalog region holds
};

// A reader's side: the store of a running agent, mapped read-only.
class Attachment : public Brine::TableArena, public std::enable_shared_from_this<Attachment> {
 public:
  // Refuses with StoreError when there is no such agent, it is not running, or the store
  // cannot be read (permissions, another format).
  static std::shared_ptr<Attachment> open(const std::string& name);
  ~Attachment() override;
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;

  // A state database whose tables read the store in place; its small entities are the
  // catalog's copy of the moment of the call.
  Mox::Ptr<Statum::EntityManager> entities();
  // The state database of the catalog published last: the one made before when the agent has
  // not published since, else a new one (entities()).
  Mox::Ptr<Statum::EntityManager> current();

  // False once the agent has ended (or died); the mapping stays readable.
  bool agentRunning() const;
  const std::string& name() const { return name_; }
  std::string source() const;
  std::uint64_t generation() const;
  // How many times the agent has published the catalog.
  std::uint64_t catalogPublished() const;
  pid_t agentPid() const;

  std::uint64_t allocate(std::uint64_t) override;
  void retire(std::uint64_t, std::uint64_t) override;
  void willRead(std::uint64_t offset, std::uint64_t bytes) const override;

 private:
  Attachment(int fd, char* base, std::uint64_t size, std::string name);
  const StoreHeader& header() const;
  int fd_;
  std::string name_;
  Mox::Ptr<Statum::EntityManager> current_;
  std::uint64_t currentSeq_ = 0;  // the catalog's sequence when current_ was made
  std::uint64_t readSeq_ = 0;     // that of the catalog entities() read last
};

}  // namespace Agent
