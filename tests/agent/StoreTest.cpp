// The store under its one writer: readers in another process copy only whole records, find
// what the writer wrote through every growth, and end every walk, whatever the writer does.

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <string>

#include "agent/Store.h"
#include "platform/brine/Table.h"
#include "platform/plexa/Prefix.h"

namespace {

// A record that knows whether it is whole: every check word is made from the id and version.
// Large, so that copying one takes long enough for the writer to meet it half-way.
constexpr int kChecks = 256;
struct ChurnRecord {
  std::uint32_t id = 0;
  std::uint32_t version = 0;
  std::uint64_t check[kChecks] = {};
  std::uint32_t key() const { return id; }

  static ChurnRecord make(std::uint32_t id, std::uint32_t version) {
    ChurnRecord r;
    r.id = id;
    r.version = version;
    for (int i = 0; i < kChecks; ++i)
      r.check[i] = mix(id, version, i);
    return r;
  }
  bool whole() const {
    for (int i = 0; i < kChecks; ++i) {
      if (check[i] != mix(id, version, i)) return false;
    }
    return id != 0;
  }
  bool empty() const {
    static const ChurnRecord none{};
    return std::memcmp(this, &none, sizeof none) == 0;
  }
  static std::uint64_t mix(std::uint32_t id, std::uint32_t version, int i) {
    return (std::uint64_t(id) * 0x9e3779b97f4a7c15ull) ^ (std::uint64_t(version) << 20) ^
           (0x5bd1e995ull * std::uint64_t(i + 1));
  }
};

class ChurnTable : public Brine::Table<std::uint32_t, ChurnRecord> {
  MOX_ENTITY("Test::ChurnTable")
};

// The same, keyed by an IPv4 prefix: a table whose writer keeps a listing order for readers.
struct PrefixRecord {
  Plexa::Prefix prefix;
  std::uint32_t id = 0;
  std::uint32_t version = 0;
  std::uint64_t check[16] = {};
  Plexa::Prefix key() const { return prefix; }

  static PrefixRecord make(std::uint32_t id, std::uint32_t version) {
    PrefixRecord r;
    r.prefix = prefixOf(id);
    r.id = id;
    r.version = version;
    for (int i = 0; i < 16; ++i)
      r.check[i] = ChurnRecord::mix(id, version, i);
    return r;
  }
  // Ids spread over the address space and the lengths, so that store order is not key order.
  static Plexa::Prefix prefixOf(std::uint32_t id) {
    return Plexa::Prefix(Plexa::IpAddr(id * 2654435761u), 8 + int(id % 25));
  }
  bool whole() const {
    for (int i = 0; i < 16; ++i) {
      if (check[i] != ChurnRecord::mix(id, version, i)) return false;
    }
    return prefix == prefixOf(id);
  }
};

class PrefixTable : public Brine::Table<Plexa::Prefix, PrefixRecord> {
  MOX_ENTITY("Test::PrefixTable")
};

// Records the writers below never delete (they may rewrite them): every one of them written
// before a walk begins is in the table throughout the walk, which must hand it out once.
bool kept(std::uint32_t id) {
  return id > 8 && id % 3 == 0;
}

class Store : public testing::Test {
 protected:
  void TearDown() override { ::shm_unlink(Agent::shmNameOf(name_).c_str()); }
  std::shared_ptr<Agent::Store> create(std::chrono::milliseconds grace = std::chrono::seconds(2)) {
    Agent::Store::Options options;
    options.name = name_;
    options.grace = grace;
    auto store = Agent::Store::create(options, "test");
    store->publish(Statum::EntityManager());
    return store;
  }
  // A header for one table, in a page of its own.
  static std::uint64_t tableHeader(Agent::Store& store) { return store.allocate(64); }

  std::string name_ = "test-store-" + std::to_string(::getpid());
};

TEST_F(Store, ReadersFindEveryRecordThroughGrowthAndDeletes) {
  auto store = create();
  auto writer = Mox::makePtr<ChurnTable>();
  for (std::uint32_t id = 1; id <= 100; ++id)
    writer->recordIs(ChurnRecord::make(id, 0));
  const std::uint64_t at = tableHeader(*store);
  // The records written before the move are in the store too.
  writer->sharedStorageIs(store, at);
  auto reader = Mox::makePtr<ChurnTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);

  for (std::uint32_t id = 101; id <= 10000; ++id)
    writer->recordIs(ChurnRecord::make(id, 0));
  for (std::uint32_t id = 1; id <= 10000; id += 2)
    ASSERT_TRUE(writer->recordDel(id));
  for (std::uint32_t id = 2; id <= 10000; id += 4)
    writer->recordIs(ChurnRecord::make(id, 7));
  EXPECT_FALSE(writer->recordDel(1));

  EXPECT_EQ(reader->size(), 5000u);
  for (std::uint32_t id = 1; id <= 10001; ++id) {
    const ChurnRecord r = reader->lookup(id);
    if (id % 2 == 1 || id > 10000) {
      ASSERT_TRUE(r.empty()) << id;
    } else {
      ASSERT_TRUE(r.whole() && r.id == id && r.version == (id % 4 == 2 ? 7u : 0u)) << id;
    }
  }
  std::vector<bool> seen(10001);
  std::size_t walked = 0;
  for (const ChurnRecord& r : *reader) {
    ASSERT_TRUE(r.whole());
    ASSERT_FALSE(seen[r.id]) << r.id;
    seen[r.id] = true;
    ++walked;
  }
  EXPECT_EQ(walked, 5000u);
  EXPECT_EQ(reader->corruptionReports(), 0u);

  // A loader's bulk path: appended records, a duplicate refused with all after it.
  writer->recordDelAll();
  EXPECT_EQ(reader->size(), 0u);
  for (std::uint32_t id : {5u, 6u, 5u, 9u})
    writer->recordAppend(ChurnRecord::make(id, 1));
  const auto dup = writer->indexAppended();
  ASSERT_TRUE(dup);
  EXPECT_EQ(dup->position, 2u);
  EXPECT_EQ(dup->key, 5u);
  EXPECT_EQ(reader->size(), 2u);
  EXPECT_TRUE(reader->lookup(6).whole());
  EXPECT_TRUE(reader->lookup(9).empty());
}

// The order a writer keeps for its readers is the records' key order, each word naming the
// place of the record it stands for; it is handed out only while it is that of the table's
// current writes, and made again on request.
TEST_F(Store, TheListingOrderIsKeyOrderAndOnlyWhileTheTableIsUnchanged) {
  auto store = create();
  auto writer = Mox::makePtr<PrefixTable>();
  for (std::uint32_t id = 1; id <= 3000; ++id)
    writer->recordIs(PrefixRecord::make(id, 0));
  const std::uint64_t at = tableHeader(*store);
  writer->sharedStorageIs(store, at);
  auto reader = Mox::makePtr<PrefixTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);
  std::vector<std::uint64_t> words;
  EXPECT_TRUE(writer->sharedOrderStale());
  EXPECT_FALSE(reader->orderNow(words));  // none made yet

  // Holes and records written after the move: the order skips the one, places the other.
  for (std::uint32_t id = 1; id <= 3000; id += 7)
    writer->recordDel(PrefixRecord::prefixOf(id));
  for (std::uint32_t id = 3001; id <= 3100; ++id)
    writer->recordIs(PrefixRecord::make(id, 1));
  const auto inOrder = [&] {
    std::vector<std::uint64_t> keys;
    for (auto it = reader->begin(); it != reader->end(); ++it)
      keys.push_back(orderKey((*it).prefix));
    std::sort(keys.begin(), keys.end());
    return keys;
  };
  const auto checkOrder = [&] {
    ASSERT_TRUE(reader->orderNow(words));
    std::vector<std::uint64_t> keys;
    for (std::uint64_t w : words) {
      const PrefixRecord r = reader->at(w & ((1u << Brine::kOrderPlaceBits) - 1));
      ASSERT_EQ(orderKey(r.prefix), w >> Brine::kOrderPlaceBits) << "a word names its record";
      keys.push_back(w >> Brine::kOrderPlaceBits);
    }
    EXPECT_EQ(keys, inOrder());
  };
  EXPECT_TRUE(writer->sharedOrderRefresh());
  EXPECT_FALSE(writer->sharedOrderRefresh());  // current: not made again
  EXPECT_FALSE(writer->sharedOrderStale());
  checkOrder();

  // Any write makes it stale: a reader sorts for itself until it is made again.
  for (const auto& write : std::vector<std::function<void()>>{
           [&] { writer->recordIs(PrefixRecord::make(5000, 0)); },
           [&] { writer->recordIs(PrefixRecord::make(3001, 2)); },
           [&] { writer->recordDel(PrefixRecord::prefixOf(3002)); }}) {
    write();
    EXPECT_TRUE(writer->sharedOrderStale());
    EXPECT_FALSE(reader->orderNow(words));
    EXPECT_TRUE(words.empty());
    EXPECT_TRUE(writer->sharedOrderRefresh());
    checkOrder();
  }
  // A table emptied keeps no order worth reading.
  writer->recordDelAll();
  EXPECT_FALSE(reader->orderNow(words));
  EXPECT_FALSE(writer->sharedOrderStale());
}

// A whole-table reader reads the order a piece at a time where the writer keeps it. The writer
// replaces it between pieces (deleting and adding keys before and after the reader's place,
// the old region given back at once), and at last leaves its counter odd, as a writer that
// died while it published would: the reader hands out words in key order, no key twice, with
// every key present from the opening to the end, whatever it read them from; a table that
// goes away ends the reading.
TEST_F(Store, AnOrderReadInPiecesGoesOnInTheOrderThatReplacedIt) {
  auto store = create(std::chrono::milliseconds(0));
  auto writer = Mox::makePtr<PrefixTable>();
  for (std::uint32_t id = 1; id <= 3000; ++id)
    writer->recordIs(PrefixRecord::make(id, 0));
  const std::uint64_t at = tableHeader(*store);
  writer->sharedStorageIs(store, at);
  ASSERT_TRUE(writer->sharedOrderRefresh());
  auto reader = Mox::makePtr<PrefixTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);
  auto* header = reinterpret_cast<Brine::SharedTableHeader*>(store->writableBase() + at);
  constexpr unsigned kBits = Brine::kOrderPlaceBits;
  const auto keysNow = [&] {
    std::set<std::uint64_t> keys;
    for (auto it = reader->begin(); it != reader->end(); ++it)
      keys.insert(orderKey((*it).prefix));
    return keys;
  };

  for (const bool dies : {false, true}) {
    SCOPED_TRACE(dies ? "the writer dies while it publishes" : "the writer replaces the order");
    ASSERT_TRUE(writer->sharedOrderRefresh() || !writer->sharedOrderStale());
    PrefixTable::OrderReader order(*reader);
    ASSERT_TRUE(order.open());
    std::set<std::uint64_t> throughout = keysNow();
    EXPECT_EQ(order.count(), throughout.size());
    std::mt19937 random(dies ? 11 : 7);
    std::vector<std::uint64_t> keys;
    std::uint64_t piece[97], last = 0;
    for (int step = 0;; ++step) {
      const std::size_t n = order.read(keys.empty() ? nullptr : &last, piece);
      if (n == 0) break;
      for (std::size_t i = 0; i < n; ++i)
        keys.push_back(piece[i] >> kBits);
      last = piece[n - 1];
      if (step % 3 != 1) continue;
      for (int k = 0; k < 40; ++k) {
        const Plexa::Prefix gone = PrefixRecord::prefixOf(1 + random() % 3000);
        writer->recordDel(gone);
        throughout.erase(orderKey(gone));
        writer->recordIs(PrefixRecord::make(3001 + random() % 3000, 1));
      }
      if (dies && step == 4) {
        header->orderSeq.fetch_add(1);
      } else if (!dies || step < 4) {
        ASSERT_TRUE(writer->sharedOrderRefresh());
        store->reclaim();
      }
    }
    EXPECT_TRUE(std::adjacent_find(keys.begin(), keys.end(), std::greater_equal<>()) == keys.end())
        << "a key twice or out of order";
    std::size_t missing = 0;
    for (std::uint64_t key : throughout)
      missing += !std::binary_search(keys.begin(), keys.end(), key);
    EXPECT_EQ(missing, 0u) << "of " << throughout.size() << " keys present throughout";
    if (dies) header->orderSeq.fetch_add(1);
  }
  // Started again after a word, by its key.
  PrefixTable::OrderReader order(*reader);
  ASSERT_TRUE(writer->sharedOrderRefresh());
  ASSERT_TRUE(order.open());
  std::vector<std::uint64_t> words;
  ASSERT_TRUE(reader->orderNow(words));
  ASSERT_GT(words.size(), 100u);
  std::uint64_t piece[5];
  ASSERT_EQ(order.read(&words[40], piece), 5u);
  EXPECT_TRUE(std::equal(piece, piece + 5, words.begin() + 41));
  ASSERT_EQ(order.read(nullptr, piece), 5u);
  EXPECT_TRUE(std::equal(piece, piece + 5, words.begin()));
  // The table goes away, its regions given back at once: the reading ends there, rather than
  // going on in pages that read as zeros.
  writer.reset();
  store->reclaim();
  EXPECT_EQ(order.read(&piece[4], piece), 0u);
}

// A reader learns which key lengths the table may hold, so that a longest-match lookup probes
// (and touches the pages of) only those: every length written, before or after the move into
// the store, and still after its keys went (a superset is safe, a missing length is not).
TEST_F(Store, AReaderProbesOnlyKeyLengthsTheWriterMarked) {
  auto store = create();
  auto writer = Mox::makePtr<PrefixTable>();
  writer->recordIs(PrefixRecord::make(25, 0));  // a /8
  const std::uint64_t at = tableHeader(*store);
  writer->sharedStorageIs(store, at);
  writer->recordIs(PrefixRecord::make(16, 0));  // a /24
  writer->recordIs(PrefixRecord::make(24, 0));  // a /32
  auto reader = Mox::makePtr<PrefixTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);
  const auto marked = [&] {
    std::vector<int> lengths;
    for (int len = 0; len <= 32; ++len) {
      if (reader->mayHoldKeyLength(len)) lengths.push_back(len);
    }
    return lengths;
  };
  EXPECT_EQ(marked(), (std::vector<int>{8, 24, 32}));
  EXPECT_TRUE(reader->contains(PrefixRecord::prefixOf(16)));
  ASSERT_TRUE(writer->recordDel(PrefixRecord::prefixOf(16)));
  EXPECT_FALSE(reader->contains(PrefixRecord::prefixOf(16)));
  EXPECT_TRUE(reader->lookup(PrefixRecord::prefixOf(24)).whole());
  EXPECT_EQ(marked(), (std::vector<int>{8, 24, 32}));

  // A header that marked nothing (a store that kept no lengths) and a table of the process's
  // own: every length may be there.
  auto* header = reinterpret_cast<Brine::SharedTableHeader*>(store->writableBase() + at);
  header->keyLengths[0].store(0);
  EXPECT_EQ(marked().size(), 33u);
  EXPECT_TRUE(Mox::makePtr<PrefixTable>()->mayHoldKeyLength(17));
}

// The writer, in a process of its own, changes a prefix table in bursts and makes its order
// again after each, giving the regions back at once; this process reads the order again and
// again, in small pieces as a listing does. What it reads is whole (sorted, never from a
// region half given back) and every word whose record still has its key names a whole record;
// a stale order is never opened.
TEST_F(Store, AnOrderReadWhileTheWriterRemakesItIsWholeOrRefused) {
  int control[2], stop[2];
  ASSERT_EQ(::pipe(control), 0);
  ASSERT_EQ(::pipe(stop), 0);
  const pid_t writerPid = ::fork();
  if (writerPid == 0) {
    ::close(control[0]);
    ::close(stop[1]);
    auto store = create(std::chrono::milliseconds(0));
    auto table = Mox::makePtr<PrefixTable>();
    const std::uint64_t at = tableHeader(*store);
    table->sharedStorageIs(store, at);
    if (::write(control[1], &at, sizeof at) != sizeof at) ::_exit(2);
    ::close(control[1]);
    std::mt19937 random(5);
    pollfd p{stop[0], POLLIN, 0};
    for (std::uint32_t version = 1;; ++version) {
      for (int op = 0; op < 200; ++op) {
        const std::uint32_t id = 1 + random() % 3000;
        if (random() % 4 == 0) {
          table->recordDel(PrefixRecord::prefixOf(id));
        } else {
          table->recordIs(PrefixRecord::make(id, version));
        }
      }
      table->sharedOrderRefresh();
      store->reclaim();
      // A moment with the order current, every other burst: readers take it then.
      if (::poll(&p, 1, version % 2) > 0) ::_exit(0);
    }
  }
  ::close(control[1]);
  ::close(stop[0]);
  std::uint64_t at = 0;
  ASSERT_EQ(::read(control[0], &at, sizeof at), static_cast<ssize_t>(sizeof at));
  ::close(control[0]);
  auto table = Mox::makePtr<PrefixTable>();
  table->sharedStorageIs(Agent::Attachment::open(name_), at);
  std::size_t orders = 0, refused = 0, named = 0;
  std::vector<std::uint64_t> words;
  for (int round = 0; round < 200000 && orders < 100; ++round) {
    PrefixTable::OrderReader order(*table);
    if (!order.open()) {
      ++refused;
      ::sched_yield();
      continue;
    }
    words.clear();
    std::uint64_t piece[61];
    while (const std::size_t n = order.read(words.empty() ? nullptr : &words.back(), piece))
      words.insert(words.end(), piece, piece + n);
    ++orders;
    ASSERT_FALSE(words.empty());
    ASSERT_TRUE(std::adjacent_find(words.begin(), words.end(),
                                   [](auto a, auto b) {
                                     return a >> Brine::kOrderPlaceBits >= b >>
                                            Brine::kOrderPlaceBits;
                                   }) == words.end())
        << "an order with a key twice or out of order";
    for (std::size_t i = 0; i < words.size(); i += 1 + i % 13) {
      const std::uint64_t word = words[i];
      const PrefixRecord r = table->at(word & ((1u << Brine::kOrderPlaceBits) - 1));
      if (orderKey(r.prefix) != word >> Brine::kOrderPlaceBits) continue;  // changed since
      ASSERT_TRUE(r.whole()) << r.prefix.stringValue();
      ++named;
    }
  }
  ::close(stop[1]);
  int status = 0;
  ::waitpid(writerPid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the writer ended " << status;
  EXPECT_GT(orders, 0u);
  EXPECT_GT(named, 0u);
  std::printf("%zu orders read (%zu refused), %zu records named checked\n", orders, refused, named);
}

// Records never move: a walk interleaved with deletes, inserts into the holes they leave and
// growth hands out every record that stays in the table throughout exactly once. (Filling a
// delete's hole with the last record would hide that record from a walk already past the
// hole.)
TEST_F(Store, AWalkSeesEveryRecordThatStaysExactlyOnceAcrossDeletesAndGrowth) {
  auto store = create();
  auto writer = Mox::makePtr<ChurnTable>();
  const std::uint64_t at = tableHeader(*store);
  writer->sharedStorageIs(store, at);
  std::uint32_t next = 1;
  for (; next <= 1000; ++next)
    writer->recordIs(ChurnRecord::make(next, 0));
  auto reader = Mox::makePtr<ChurnTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);

  std::mt19937 random(3);
  std::vector<int> seen(100000);
  std::size_t walked = 0;
  for (const ChurnRecord& r : *reader) {
    ASSERT_TRUE(r.whole());
    ++seen[r.id];
    if (++walked % 10 != 0) continue;
    // Between two records: inserts (past the records' capacity at first), then deletes
    // anywhere, more of them than inserts later on, and a rewrite in place.
    const bool growing = walked < 60;
    for (int i = 0; i < (growing ? 8 : 2); ++i)
      writer->recordIs(ChurnRecord::make(next++, 0));
    for (int i = 0; i < (growing ? 2 : 6); ++i) {
      const std::uint32_t id = 1 + random() % (next - 1);
      if (!kept(id)) writer->recordDel(id);
    }
    writer->recordIs(ChurnRecord::make(3 * (1 + random() % 333), 1));
  }
  ASSERT_GT(walked, 333u);
  for (std::uint32_t id = 3; id <= 1000; id += 3)
    ASSERT_EQ(seen[id], 1) << "record " << id << " stayed in the table throughout the walk";
  for (std::uint32_t id = 1; id < next; ++id)
    ASSERT_LE(seen[id], 1) << "record " << id << " was handed out twice";
  EXPECT_EQ(reader->corruptionReports(), 0u);
}

TEST_F(Store, ARecordThatKeepsChangingIsReportedAndReadEmptyAndReadersCannotWrite) {
  auto store = create();
  auto writer = Mox::makePtr<ChurnTable>();
  const std::uint64_t at = tableHeader(*store);
  writer->sharedStorageIs(store, at);
  writer->recordIs(ChurnRecord::make(1, 0));
  writer->recordIs(ChurnRecord::make(2, 0));
  auto reader = Mox::makePtr<ChurnTable>();
  reader->sharedStorageIs(Agent::Attachment::open(name_), at);

  // The writer stopped half-way through rewriting record 1 (its counter odd).
  auto* header = reinterpret_cast<Brine::SharedTableHeader*>(store->writableBase() + at);
  auto* records = reinterpret_cast<Brine::SharedRecord<ChurnRecord>*>(store->writableBase() +
                                                                      header->recordsAt.load());
  records[0].seq.fetch_add(1);
  EXPECT_TRUE(reader->lookup(1).empty());
  EXPECT_EQ(reader->corruptionReports(), 1u);
  EXPECT_EQ(reader->lastCorruption(), "record changed while it was read");
  EXPECT_TRUE(reader->lookup(2).whole()) << "the other records read as ever";
  records[0].seq.fetch_add(1);
  EXPECT_TRUE(reader->lookup(1).whole());

  // Regions published outside the mapping are refused, not followed.
  const std::uint64_t good = header->recordsAt.load();
  header->recordsAt.store(store->mapSize() - 8);
  EXPECT_TRUE(reader->lookup(2).empty());
  for (const ChurnRecord& r : *reader)
    EXPECT_TRUE(r.empty());
  EXPECT_GE(reader->corruptionReports(), 2u);
  header->recordsAt.store(good);

  EXPECT_THROW(reader->recordIs(ChurnRecord::make(3, 0)), Mox::RangeException);
  EXPECT_THROW(reader->recordDel(1), Mox::RangeException);
  EXPECT_THROW(reader->recordDelAll(), Mox::RangeException);
  EXPECT_EQ(reader->size(), 2u);
}

// The writer, in a process of its own, replaces, deletes, grows and drops tables as fast as
// it can, giving regions back at once (no grace period), while this process walks and looks
// up the current table again and again. A walk hands out only whole records, and every record
// that stays in the table while it walks exactly once.
TEST_F(Store, ReadersSeeOnlyWholeRecordsWhileTheWriterChurns) {
  int control[2], stop[2];
  ASSERT_EQ(::pipe(control), 0);
  ASSERT_EQ(::pipe(stop), 0);
  const pid_t writerPid = ::fork();
  if (writerPid == 0) {
    ::close(control[0]);
    ::close(stop[1]);
    auto store = create(std::chrono::milliseconds(0));
    // Where this process says which table is current, the ids written so far (all below it
    // are in the table, for those it keeps) and how many times it emptied a table.
    const std::uint64_t current = store->allocate(24);
    auto* currentAt =
        reinterpret_cast<std::atomic<std::uint64_t>*>(store->writableBase() + current);
    auto* writtenBelow = currentAt + 1;
    auto* emptied = currentAt + 2;
    if (::write(control[1], &current, sizeof current) != sizeof current) ::_exit(2);
    ::close(control[1]);
    std::mt19937 random(7);
    pollfd p{stop[0], POLLIN, 0};
    for (std::uint64_t round = 0;; ++round) {
      auto table = Mox::makePtr<ChurnTable>();
      const std::uint64_t at = tableHeader(*store);
      table->sharedStorageIs(store, at);
      writtenBelow->store(1, std::memory_order_release);
      currentAt->store(at, std::memory_order_release);
      std::uint32_t next = 1, version = 0;
      for (int op = 0; op < 20000; ++op) {
        const unsigned what = random() % 16;
        if (what < 6) {
          // A few records rewritten all the time: a reader copying one meets the writer.
          table->recordIs(ChurnRecord::make(1 + random() % 8, ++version));
        } else if ((what < 9 && next < 4000) || table->size() < 16) {
          table->recordIs(ChurnRecord::make(next++, 0));  // grows the table
          writtenBelow->store(next, std::memory_order_release);
        } else if (what < 12) {
          // Replaces, or puts back one that was deleted.
          table->recordIs(ChurnRecord::make(1 + random() % next, ++version));
        } else if (what < 15) {
          const std::uint32_t id = 1 + random() % next;
          if (!kept(id)) table->recordDel(id);
        } else if (random() % 64 == 0) {
          // Said before it happens: a walk that began before the count moved checks nothing.
          writtenBelow->store(0, std::memory_order_release);
          emptied->fetch_add(1, std::memory_order_release);
          table->recordDelAll();
          next = 1;
          writtenBelow->store(1, std::memory_order_release);
        }
        if (op % 256 == 0) {
          store->reclaim();
          if (::poll(&p, 1, 0) > 0) ::_exit(0);
        }
      }
      // The table goes (emptied, for a walk still in it); the next one takes its place.
      writtenBelow->store(0, std::memory_order_release);
      emptied->fetch_add(1, std::memory_order_release);
    }
  }
  ::close(control[1]);
  ::close(stop[0]);
  std::uint64_t current = 0;
  ASSERT_EQ(::read(control[0], &current, sizeof current), static_cast<ssize_t>(sizeof current));
  ::close(control[0]);
  auto attachment = Agent::Attachment::open(name_);
  const auto* currentAt =
      reinterpret_cast<const std::atomic<std::uint64_t>*>(attachment->base() + current);
  const auto* writtenBelow = currentAt + 1;
  const auto* emptied = currentAt + 2;

  while (currentAt->load(std::memory_order_acquire) == 0)
    ::sched_yield();
  std::mt19937 random(11);
  std::size_t records = 0, empties = 0, lookups = 0, tables = 0, checkedWalks = 0;
  for (int walk = 0; walk < 400; ++walk) {
    auto table = Mox::makePtr<ChurnTable>();
    const std::uint64_t at = currentAt->load(std::memory_order_acquire);
    table->sharedStorageIs(attachment, at);
    ++tables;
    const std::uint64_t emptiedBefore = emptied->load(std::memory_order_acquire);
    const std::uint64_t below = writtenBelow->load(std::memory_order_acquire);
    std::vector<int> seen(4096);
    for (const ChurnRecord& r : *table) {
      ++records;
      if (r.empty()) {
        ++empties;
        continue;
      }
      ASSERT_TRUE(r.whole()) << "id " << r.id << " version " << r.version;
      ASSERT_LT(r.id, seen.size());
      ++seen[r.id];
      // Lookups between the records: the walk lasts while the writer deletes around it.
      for (int i = 0; i < 8; ++i) {
        const std::uint32_t id = 1 + (i % 2 ? random() % 8 : random() % 4000);
        const ChurnRecord found = table->lookup(id);
        if (found.empty()) continue;
        ASSERT_TRUE(found.whole() && found.id == id);
        ++lookups;
      }
    }
    // Only a walk of a table that stayed current and was not emptied meanwhile, and that
    // read no record as corrupt (one that kept changing while the writer was descheduled
    // mid-write is reported and read as the empty record, by design).
    if (currentAt->load(std::memory_order_acquire) == at &&
        emptied->load(std::memory_order_acquire) == emptiedBefore &&
        table->corruptionReports() == 0) {
      ++checkedWalks;
      for (std::uint32_t id = 1; id < seen.size(); ++id) {
        if (kept(id) && id < below) {
          ASSERT_EQ(seen[id], 1) << "record " << id << " stayed in the table throughout the walk";
        } else if (kept(id)) {
          ASSERT_LE(seen[id], 1) << "record " << id << " was handed out twice";
        }
      }
    }
    // Read by place, as a listing reads the routes it selected earlier: whatever is there
    // now, whole, or the empty record; the hints change nothing and stay inside the store.
    table->willReadAll();
    for (std::size_t place = 0; place < 4100; place += 1 + random() % 7) {
      table->prefetchAt(place + 8);
      const ChurnRecord r = table->at(place);
      if (r.empty()) continue;
      ASSERT_TRUE(r.whole()) << "id " << r.id << " at " << place;
    }
  }
  ::close(stop[1]);
  int status = 0;
  ::waitpid(writerPid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the writer ended " << status;
  // The reads met the writer: records walked and found, not only empty tables.
  EXPECT_GT(records, 0u);
  EXPECT_GT(lookups, 0u);
  EXPECT_GT(checkedWalks, 0u);
  RecordProperty("records", std::to_string(records));
  RecordProperty("empties", std::to_string(empties));
  std::printf(
      "walked %zu records (%zu empty) in %zu tables (%zu walks checked), found %zu by key\n",
      records, empties, tables, checkedWalks, lookups);
}

}  // namespace
