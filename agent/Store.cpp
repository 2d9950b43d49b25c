#include "agent/Store.h"

#include "platform/plexa/IntfId.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <string_view>
#include <thread>
#include <type_traits>

#include "platform/brine/Table.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace Agent {

// The first page of the store. Fields a reader reads while the agent may write them are
// atomic; the rest are written once before `ready`.
struct StoreHeader {
  char magic[8];
  std::uint32_t version;
  std::uint32_t headerBytes;
  std::atomic<std::uint64_t> ready;
  std::int64_t pid;
  std::uint64_t size;
  std::atomic<std::uint64_t> allocated;  // the allocation cursor
  std::atomic<std::uint64_t> generation;
  // The catalog: a region of text, published under catalogSeq as the tables' regions are.
  std::atomic<std::uint64_t> catalogSeq;
  std::atomic<std::uint64_t> catalogAt;
  std::atomic<std::uint64_t> catalogBytes;
  char name[72];
  char source[1024];
};

namespace {

constexpr char kMagic[8] = {'r', 'o', 'v', 'a', 's', 't', 'o', 'r'};
// Changes whenever a record, a table header or this header changes shape.
constexpr std::uint32_t kVersion = 3;
constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kFirstRegion = kPage;

std::string errnoText() {
  return std::strerror(errno);
}

constexpr std::string_view kSpace = " \t\r\v\f";

// The next word of `words`, which loses it and the blanks before it.
std::string_view nextWord(std::string_view& words) {
  const std::size_t from = std::min(words.size(), words.find_first_not_of(kSpace));
  words.remove_prefix(from);
  const std::size_t to = std::min(words.size(), words.find_first_of(kSpace));
  const std::string_view word = words.substr(0, to);
  words.remove_prefix(to);
  return word;
}

// A decimal number; 0 for anything else, as a failed stream read leaves it.
template <class T>
T numberOf(std::string_view word) {
  T value{};
  if (std::from_chars(word.data(), word.data() + word.size(), value).ptr !=
      word.data() + word.size())
    value = T{};
  return value;
}

std::uint64_t pageUp(std::uint64_t n) {
  return (n + kPage - 1) & ~(kPage - 1);
}

// ---- the table types a store holds, by type name ----

using Factory = Mox::Ptr<Mox::Entity> (*)();

template <class R>
Mox::Ptr<Mox::Entity> makeTable() {
  return Mox::makePtr<R>();
}

const std::map<std::string_view, Factory>& tableTypes() {
  static const std::map<std::string_view, Factory> types = [] {
    std::map<std::string_view, Factory> t;
    Snapshot::layout::forEachEntity([&](const auto& entity) {
      using R = typename std::remove_cvref_t<decltype(entity)>::Record;
      if constexpr (std::is_base_of_v<Brine::SharedStorable, R>) t[R::kTypeName] = &makeTable<R>;
    });
    // The tunnel tables of the directory "tunnel/tables", by protocol.
    t[Tunnel::TunnelTable::SrTunnelTable::kTypeName] =
        &makeTable<Tunnel::TunnelTable::SrTunnelTable>;
    t[Tunnel::TunnelTable::StaticTunnelTable::kTypeName] =
        &makeTable<Tunnel::TunnelTable::StaticTunnelTable>;
    t[Tunnel::TunnelTable::LdpTunnelTable::kTypeName] =
        &makeTable<Tunnel::TunnelTable::LdpTunnelTable>;
    t[Tunnel::TunnelTable::BgpLuTunnelTable::kTypeName] =
        &makeTable<Tunnel::TunnelTable::BgpLuTunnelTable>;
    return t;
  }();
  return types;
}

Brine::SharedStorable* storable(const Mox::Ptr<Mox::Entity>& e) {
  return dynamic_cast<Brine::SharedStorable*>(e.get());
}

// Calls f(path, entity) for every table of the state; a directory's tables as "dir/name".
template <class F>
void forEachTable(const Statum::EntityManager& em, F&& f) {
  for (const auto& [path, entity] : em.entities()) {
    if (storable(entity)) {
      f(path, entity);
    } else if (auto* dir = dynamic_cast<Mox::Dir*>(entity.get())) {
      for (const auto& [name, e] : dir->entries()) {
        if (storable(e)) f(path + "/" + name.stringValue(), e);
      }
    }
  }
}

// The tables that grow with the routes: the catalog's text leaves them empty. Every other table
// is as small as the configuration and goes into the text whole too, since the document ties
// its records to the small entities (a nexthop group's id, a VRF's id); a reader then reads
// all of them from the store all the same.
bool growsWithRoutes(const std::string& path) {
  namespace layout = Snapshot::layout;
  const layout::EntityInfo* const tables[] = {
      &layout::fibRoute,           &layout::fibFec,
      &layout::fib6Route,          &layout::fib6Fec,
      &layout::kernelUnprogrammed, &layout::kernelUnprogrammed6};
  for (const layout::EntityInfo* e : tables) {
    const std::string leaf = "/" + std::string(e->path);
    if (path.size() > leaf.size() && path.rfind("vrf/", 0) == 0 &&
        path.compare(path.size() - leaf.size(), leaf.size(), leaf) == 0)
      return true;
  }
  return false;
}

// Tables that nothing else in the document refers to, and that grow with the network rather
// than the configuration (tunnels, neighbours): the text leaves them empty too, so that a
// reader's attach does not parse records it then reads from the store.
bool readOnlyFromStore(const std::string& path) {
  namespace layout = Snapshot::layout;
  const layout::EntityInfo* const tables[] = {&layout::tunnelFib, &layout::evpnVxlan,
                                              &layout::arpStatus};
  for (const layout::EntityInfo* e : tables) {
    if (path == e->path) return true;
  }
  return false;
}

Mox::Ptr<Mox::Entity> emptyTableLike(const Mox::Ptr<Mox::Entity>& table) {
  return tableTypes().at(table->typeName())();
}

// The state with the route tables empty: what the catalog carries as text.
Mox::Ptr<Statum::EntityManager> withoutTables(const Statum::EntityManager& em) {
  auto shell = Mox::makePtr<Statum::EntityManager>();
  for (const auto& [path, entity] : em.entities()) {
    if (storable(entity) && (growsWithRoutes(path) || readOnlyFromStore(path))) {
      shell->entityIs(path, emptyTableLike(entity));
    } else if (auto* dir = dynamic_cast<const Mox::Dir*>(entity.get());
               dir && path == Snapshot::layout::tunnelTables.path) {
      // The tunnel tables, each present (the protocol runs) and empty.
      auto tables = Mox::makePtr<Mox::Dir>();
      for (const auto& [name, e] : dir->entries())
        tables->entityIs(name, storable(e) ? emptyTableLike(e) : e);
      shell->entityIs(path, tables);
    } else {
      shell->entityIs(path, entity);
    }
  }
  return shell;
}

void copyName(char* to, std::size_t room, const std::string& from) {
  std::memset(to, 0, room);
  std::memcpy(to, from.data(), std::min(room - 1, from.size()));
}

}  // namespace

std::string shmNameOf(const std::string& agentName) {
  const bool ok = !agentName.empty() && agentName.size() <= 64 && agentName[0] != '.' &&
                  agentName.find_first_not_of(
                      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                      "0123456789-_.") == std::string::npos;
  if (!ok) {
    throw StoreError("invalid agent name " + Mox::shownWord(agentName) +
                     ": up to 64 letters, digits, '-', '_' or '.'");
  }
  return "/rova-agent." + agentName;
}

pid_t storeAgentPid(const std::string& agentName) {
  const int fd = ::shm_open(shmNameOf(agentName).c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return 0;
  StoreHeader h;
  const bool read = ::pread(fd, &h, sizeof h, 0) == static_cast<ssize_t>(sizeof h);
  ::close(fd);
  return read && std::memcmp(h.magic, kMagic, sizeof kMagic) == 0 ? static_cast<pid_t>(h.pid) : 0;
}

// ---- the agent's side ----

Store::Store(int fd, char* base, std::uint64_t size, std::string shmName, Options options)
    : TableArena(base, size, true),
      fd_(fd),
      shmName_(std::move(shmName)),
      options_(std::move(options)) {}

StoreHeader& Store::header() const {
  return *reinterpret_cast<StoreHeader*>(writableBase());
}

std::shared_ptr<Store> Store::create(const Options& options, const std::string& source,
                                     bool* reclaimed) {
  const std::string shm = shmNameOf(options.name);
  if (reclaimed) *reclaimed = false;
  int fd = -1;
  // Whoever creates the object takes its lock at once; an object found without a running
  // agent is one whose agent died: removed and made again. An object still of size zero is
  // one another agent is just creating, so it is given a moment before it counts as left over.
  for (int attempt = 0; fd < 0; ++attempt) {
    if (attempt == 200) throw StoreError("cannot take the store " + shm + ": it keeps changing");
    fd = ::shm_open(shm.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, options.mode);
    if (fd >= 0) {
      bool locked = false;
      for (int i = 0; i < 100 && !locked; ++i) {
        locked = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (!locked) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      if (!locked) {
        ::close(fd);
        throw StoreError("cannot lock the store " + shm);
      }
      break;
    }
    if (errno != EEXIST) throw StoreError("cannot create the store " + shm + ": " + errnoText());
    const int old = ::shm_open(shm.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (old < 0) {
      if (errno == ENOENT) continue;
      throw StoreError("cannot open the store " + shm + ": " + errnoText());
    }
    if (::flock(old, LOCK_EX | LOCK_NB) != 0) {
      ::close(old);
      const pid_t pid = storeAgentPid(options.name);
      throw AgentRunning("an agent named " + Mox::shownWord(options.name) + " is running" +
                         (pid ? " (pid " + std::to_string(pid) + ")" : std::string()));
    }
    struct stat st {};
    const bool starting = ::fstat(old, &st) == 0 && st.st_size == 0 && attempt < 100;
    if (!starting) {
      ::shm_unlink(shm.c_str());
      if (reclaimed) *reclaimed = true;
    }
    ::close(old);
    if (starting) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  // The mode asked for, whatever the umask.
  if (::fchmod(fd, options.mode) != 0 ||
      ::ftruncate(fd, static_cast<off_t>(options.reserve)) != 0) {
    const std::string why = errnoText();
    ::shm_unlink(shm.c_str());
    ::close(fd);
    throw StoreError("cannot size the store " + shm + ": " + why);
  }
  void* base = ::mmap(nullptr, options.reserve, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) {
    const std::string why = errnoText();
    ::shm_unlink(shm.c_str());
    ::close(fd);
    throw StoreError("cannot map the store " + shm + ": " + why);
  }
  std::shared_ptr<Store> store(
      new Store(fd, static_cast<char*>(base), options.reserve, shm, options));
  StoreHeader& h = store->header();
  std::memcpy(h.magic, kMagic, sizeof kMagic);
  h.version = kVersion;
  h.headerBytes = sizeof(StoreHeader);
  h.pid = ::getpid();
  h.size = options.reserve;
  h.allocated.store(kFirstRegion, std::memory_order_relaxed);
  copyName(h.name, sizeof h.name, options.name);
  copyName(h.source, sizeof h.source, source);
  return store;
}

Store::~Store() {
  unlink();
  ::munmap(writableBase(), mapSize());
  ::close(fd_);
}

void Store::unlink() {
  if (shmName_.empty()) return;
  ::shm_unlink(shmName_.c_str());
  shmName_.clear();
}

std::uint64_t Store::allocate(std::uint64_t bytes) {
  // Whole pages, so that a region given back can be freed without touching its neighbours.
  const std::uint64_t n = pageUp(std::max<std::uint64_t>(bytes, 1));
  StoreHeader& h = header();
  const std::uint64_t at = h.allocated.load(std::memory_order_relaxed);
  if (n > mapSize() - at) throw std::bad_alloc();
  h.allocated.store(at + n, std::memory_order_relaxed);
  return at;
}

void Store::retire(std::uint64_t offset, std::uint64_t bytes) {
  retired_.push_back({offset, pageUp(bytes), std::chrono::steady_clock::now()});
}

void Store::reclaim() {
  const auto now = std::chrono::steady_clock::now();
  while (!retired_.empty() && now - retired_.front().at >= options_.grace) {
    const Retired r = retired_.front();
    retired_.pop_front();
    // A hole reads as zeros: to a reader that still looks there, a region of missing
    // records, which its layout check then sends to the new region.
    ::fallocate(fd_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(r.offset),
                static_cast<off_t>(r.bytes));
  }
}

void Store::tableChanged() {
  header().generation.fetch_add(1, std::memory_order_release);
}

std::uint64_t Store::generation() const {
  return header().generation.load(std::memory_order_acquire);
}

std::uint64_t Store::allocated() const {
  return header().allocated.load(std::memory_order_relaxed);
}

// Table headers are small: packed many to a page.
std::uint64_t Store::tableHeader() {
  if (headersLeft_ == 0) {
    headersAt_ = allocate(kPage);
    headersLeft_ = kPage / sizeof(Brine::SharedTableHeader);
  }
  --headersLeft_;
  const std::uint64_t at = headersAt_;
  headersAt_ += sizeof(Brine::SharedTableHeader);
  return at;
}

// The catalog: a line per table, the counts the loader makes from the routes, then the small
// entities as the state document.
//   table <header offset> <type name> <path>
//   unprogrammed <IPv4 routes> <IPv6 routes> <VRF>
//   state
//   {...}
void Store::publish(const Statum::EntityManager& em) {
  std::string text = "rova-catalog 1\n";
  // A table already in the store keeps its header.
  forEachTable(em, [&](const std::string& path, const Mox::Ptr<Mox::Entity>& e) {
    Brine::SharedStorable* t = storable(e);
    if (!t->shared()) t->sharedStorageIs(shared_from_this(), tableHeader());
    text +=
        "table " + std::to_string(t->sharedHeaderAt()) + " " + e->typeName() + " " + path + "\n";
  });
  // What the loader counted from the routes, which the text leaves out.
  for (const std::string& vrf : Snapshot::layout::vrfNames(em)) {
    auto hw = Snapshot::layout::find(em, Snapshot::layout::hwVrfStatus, vrf);
    if (!hw) continue;
    text += "unprogrammed " + std::to_string(hw->unprogrammedRouteCount()) + " " +
            std::to_string(hw->unprogrammedRoute6Count()) + " " + vrf + "\n";
  }
  // The names of no known form the records may hold, whatever tables they are in.
  for (const std::string& name : Plexa::IntfId::internedNames())
    text += "interface " + name + "\n";
  text += "state\n";
  text += Snapshot::write(*withoutTables(em));
  orderTables(em);
  // Unchanged: readers keep the catalog they have (the tables' own generations say what the
  // records did).
  if (catalogBytes_ && text == catalogText_) return;

  const std::uint64_t at = allocate(text.size());
  std::memcpy(writableBase() + at, text.data(), text.size());
  StoreHeader& h = header();
  const std::uint64_t seq = h.catalogSeq.load(std::memory_order_relaxed);
  h.catalogSeq.store(seq + 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  h.catalogAt.store(at, std::memory_order_relaxed);
  h.catalogBytes.store(text.size(), std::memory_order_relaxed);
  h.catalogSeq.store(seq + 2, std::memory_order_release);
  if (catalogBytes_) retire(catalogAt_, catalogBytes_);
  catalogAt_ = at;
  catalogBytes_ = text.size();
  catalogText_ = std::move(text);
  h.generation.fetch_add(1, std::memory_order_release);
  h.ready.store(1, std::memory_order_release);
}

std::size_t Store::orderTables(const Statum::EntityManager& em) {
  std::size_t made = 0;
  forEachTable(em, [&](const std::string&, const Mox::Ptr<Mox::Entity>& e) {
    Brine::SharedStorable* t = storable(e);
    if (t->shared()) made += t->sharedOrderRefresh();
  });
  return made;
}

bool Store::ordersStale(const Statum::EntityManager& em) const {
  bool stale = false;
  forEachTable(em, [&](const std::string&, const Mox::Ptr<Mox::Entity>& e) {
    stale = stale || storable(e)->sharedOrderStale();
  });
  return stale;
}

// ---- a reader's side ----

Attachment::Attachment(int fd, char* base, std::uint64_t size, std::string name)
    : TableArena(base, size, false), fd_(fd), name_(std::move(name)) {}

Attachment::~Attachment() {
  ::munmap(const_cast<char*>(base()), mapSize());
  ::close(fd_);
}

const StoreHeader& Attachment::header() const {
  return *reinterpret_cast<const StoreHeader*>(base());
}

std::shared_ptr<Attachment> Attachment::open(const std::string& name) {
  const std::string shm = shmNameOf(name);
  const std::string agent = "the state agent " + Mox::shownWord(name);
  const int fd = ::shm_open(shm.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) {
    if (errno == ENOENT) throw StoreError(agent + " is not running");
    if (errno == EACCES) throw StoreError("cannot read the store of " + agent + ": " + errnoText());
    throw StoreError("cannot open the store of " + agent + ": " + errnoText());
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || static_cast<std::uint64_t>(st.st_size) < kFirstRegion) {
    ::close(fd);
    throw StoreError(agent + " is starting or has ended; try again");
  }
  const std::uint64_t size = static_cast<std::uint64_t>(st.st_size);
  void* base = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (base == MAP_FAILED) {
    const std::string why = errnoText();
    ::close(fd);
    throw StoreError("cannot map the store of " + agent + ": " + why);
  }
  std::shared_ptr<Attachment> a(new Attachment(fd, static_cast<char*>(base), size, name));
  const StoreHeader& h = a->header();
  if (std::memcmp(h.magic, kMagic, sizeof kMagic) != 0 || h.version != kVersion ||
      h.headerBytes != sizeof(StoreHeader) || h.size != size) {
    throw StoreError("the store of " + agent + " is of another version of rova");
  }
  if (!a->agentRunning()) throw StoreError(agent + " has ended");
  for (int i = 0; i < 1000 && h.ready.load(std::memory_order_acquire) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (h.ready.load(std::memory_order_acquire) == 0) throw StoreError(agent + " is not ready");
  return a;
}

bool Attachment::agentRunning() const {
  if (::flock(fd_, LOCK_SH | LOCK_NB) == 0) {
    ::flock(fd_, LOCK_UN);
    return false;
  }
  return errno == EWOULDBLOCK;
}

std::string Attachment::source() const {
  const char* s = header().source;
  return std::string(s, strnlen(s, sizeof header().source));
}

std::uint64_t Attachment::generation() const {
  return header().generation.load(std::memory_order_acquire);
}

std::uint64_t Attachment::catalogPublished() const {
  return header().catalogSeq.load(std::memory_order_acquire) / 2;
}

pid_t Attachment::agentPid() const {
  return static_cast<pid_t>(header().pid);
}

std::uint64_t Attachment::allocate(std::uint64_t) {
  throw std::logic_error("a reader does not allocate in the store");
}

void Attachment::retire(std::uint64_t, std::uint64_t) {
  throw std::logic_error("a reader does not free regions of the store");
}

Mox::Ptr<Statum::EntityManager> Attachment::current() {
  if (!current_ || header().catalogSeq.load(std::memory_order_acquire) != currentSeq_) {
    current_ = entities();
    currentSeq_ = readSeq_;
  }
  return current_;
}

void Attachment::willRead(std::uint64_t offset, std::uint64_t bytes) const {
#ifdef MADV_POPULATE_READ
  // A page fault costs far more than mapping the same page among many in one call, and a
  // listing reads a million routes' records in prefix order, a page fault every few routes.
  const std::uint64_t from = offset & ~(kPage - 1);
  if (bytes == 0 || offset > mapSize() || bytes > mapSize() - offset) return;
  const std::uint64_t to = pageUp(offset + bytes);
  // Only a hint: a kernel without it, or a region given back meanwhile, changes nothing.
  (void)::madvise(const_cast<char*>(base()) + from, to - from, MADV_POPULATE_READ);
#else
  (void)offset;
  (void)bytes;
#endif
}

Mox::Ptr<Statum::EntityManager> Attachment::entities() {
  const StoreHeader& h = header();
  std::string text;
  bool whole = false;
  for (int tries = 0; tries < 1000 && !whole; ++tries) {
    const std::uint64_t seq = h.catalogSeq.load(std::memory_order_acquire);
    if (seq & 1) continue;
    const std::uint64_t at = h.catalogAt.load(std::memory_order_relaxed);
    const std::uint64_t bytes = h.catalogBytes.load(std::memory_order_relaxed);
    if (at < kFirstRegion || at > mapSize() || bytes > mapSize() - at) continue;
    text.assign(base() + at, bytes);
    std::atomic_thread_fence(std::memory_order_acquire);
    whole = h.catalogSeq.load(std::memory_order_relaxed) == seq;
    readSeq_ = seq;
  }
  if (!whole)
    throw StoreError("the catalog of the state agent " + Mox::shownWord(name_) + " kept changing");
  const std::size_t state = text.find("\nstate\n");
  if (text.rfind("rova-catalog 1\n", 0) != 0 || state == std::string::npos)
    throw StoreError("the catalog of the state agent " + Mox::shownWord(name_) + " is unreadable");
  Mox::Ptr<Statum::EntityManager> em = Snapshot::load(std::string_view(text).substr(state + 7));
  // Read with views rather than string streams: a reader that attaches for one command would
  // otherwise build the stream library's locale for these few lines.
  std::string_view lines = std::string_view(text).substr(0, state + 1);
  lines.remove_prefix(lines.find('\n') + 1);
  std::shared_ptr<Brine::TableArena> self = shared_from_this();
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
    std::string_view words = line;
    const std::string_view kind = nextWord(words);
    if (kind == "interface") {
      Plexa::IntfId{std::string(nextWord(words))};
      continue;
    }
    if (kind == "unprogrammed") {
      const auto v4 = numberOf<std::uint32_t>(nextWord(words));
      const auto v6 = numberOf<std::uint32_t>(nextWord(words));
      const std::string vrf(words.substr(std::min(words.size(), words.find_first_not_of(kSpace))));
      auto it = em->entities().find(Snapshot::layout::pathOf(Snapshot::layout::hwVrfStatus, vrf));
      if (it == em->entities().end()) continue;
      if (auto* hw = dynamic_cast<Routing::Hardware::VrfStatus*>(it->second.get())) {
        hw->unprogrammedRouteCountIs(v4);
        hw->unprogrammedRoute6CountIs(v6);
      }
      continue;
    }
    const auto at = numberOf<std::uint64_t>(nextWord(words));
    const std::string type(nextWord(words));
    const std::string path(nextWord(words));
    auto maker = tableTypes().find(type);
    if (kind != "table" || maker == tableTypes().end() || path.empty())
      throw StoreError("the catalog of the state agent " + Mox::shownWord(name_) +
                       " names an unknown table: " + Mox::shownWord(line));
    Mox::Ptr<Mox::Entity> table = maker->second();
    storable(table)->sharedStorageIs(self, at);
    // A table of a directory ("tunnel/tables/sr") goes into that directory.
    const std::size_t slash = path.rfind('/');
    auto dirIt = slash == std::string::npos ? em->entities().end()
                                            : em->entities().find(path.substr(0, slash));
    if (dirIt != em->entities().end()) {
      if (auto* dir = dynamic_cast<Mox::Dir*>(dirIt->second.get())) {
        dir->entityIs(Mox::String8(path.substr(slash + 1)), table);
        continue;
      }
    }
    em->entityIs(path, table);
  }
  return em;
}

}  // namespace Agent
