// The document: its top-level sections, what is checked once all are read, and reading it
// from a string, a file, a pipe or standard input.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

#include "platform/mox/Exception.h"
#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

namespace {

bool isJsonBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Where the first non-blank byte after the document's top-level object is, or `size` when the
// object does not close or only blanks follow it. Brackets inside strings do not count.
std::size_t dataAfterObject(const char* text, std::size_t size) {
  std::size_t i = 0;
  while (i < size && isJsonBlank(text[i]))
    ++i;
  std::size_t depth = 0;
  bool inString = false;
  for (; i < size; ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '{' || c == '[') {
      ++depth;
    } else if ((c == '}' || c == ']') && depth > 0 && --depth == 0) {
      ++i;
      break;
    }
  }
  if (depth != 0) return size;
  while (i < size && isJsonBlank(text[i]))
    ++i;
  return i;
}

}  // namespace

Ptr<Statum::EntityManager> Loader::run(od::document& doc, const char* text, std::size_t size) {
  od::json_type t;
  r_.check(doc.type().get(t));
  if (t != od::json_type::object) r_.fail("a state snapshot is a JSON object");
  od::object obj;
  if (const auto e = doc.get_object().get(obj); e != simdjson::SUCCESS) {
    // The parser takes an object only when the document's last bracket closes it, so a number
    // or a word after the object would be reported as an object left open.
    if (e == simdjson::INCOMPLETE_ARRAY_OR_OBJECT) {
      if (const std::size_t at = dataAfterObject(text, size); at < size) {
        r_.fail("more data after the end of the document, at byte offset " + std::to_string(at));
      }
    }
    r_.check(e);
  }
  top(obj);
  // The parser stops where the object ends. Whatever follows (a second document, a stray
  // bracket) means the file is not what its writer meant, so nothing of it is taken.
  if (const char* at = nullptr; doc.current_location().get(at) == simdjson::SUCCESS) {
    r_.fail("more data after the end of the document, at byte offset " + std::to_string(at - text));
  }
  finish();

  auto em = makePtr<Statum::EntityManager>();
  layout::publish(*em, tables_);
  for (auto& [name, v] : vrfs_)
    layout::publish(*em, name, *v);
  return em;
}

enum TopKey {
  kVersion,
  kHostname,
  kHardware,
  kVrfs,
  kInterfaces,
  kNeighbors,
  kTunnels,
  kSrTePolicies,
  kNexthopGroups,
  kFlexCounters,
  kRouteDistinguisherInputs,
  kStaticRouteDefaults,
};
constexpr Keys<12> kTopKeys = {
    "version",
    "hostname",
    "hardware",
    "vrfs",
    "interfaces",
    "neighbors",
    "tunnels",
    "srTePolicies",
    "nexthopGroups",
    "flexCounters",
    "routeDistinguisherInputs",
    "staticRouteDefaults",
};

void Loader::top(od::object obj) {
  r_.fields(obj, kTopKeys, bit(kVersion) | bit(kVrfs), [&](unsigned k, od::value& v) {
    switch (k) {
      case kVersion:
        version_ = int(r_.number(v, 1000000));
        if (version_ != kFormatVersion) {
          r_.fail("unsupported version " + std::to_string(version_) + " (this program reads " +
                  std::to_string(kFormatVersion) + ")");
        }
        break;
      case kHostname:
        tables_.device->hostnameIs(std::string(r_.string(v)));
        break;
      case kHardware:
        hardware(v);
        break;
      case kVrfs:
        vrfs(v);
        break;
      case kInterfaces:
        interfaces(v);
        break;
      case kNeighbors:
        neighbors(v);
        break;
      case kTunnels:
        tunnels(v);
        break;
      case kSrTePolicies:
        srTePolicies(v);
        break;
      case kNexthopGroups:
        nexthopGroups(v);
        break;
      case kFlexCounters:
        flexCounters(v);
        break;
      case kRouteDistinguisherInputs:
        routeDistinguishers(v);
        break;
      case kStaticRouteDefaults:
        staticRouteDefaults(v);
        break;
    }
  });
}

void Loader::staticRouteDefaults(od::value& v) {
  static constexpr Keys<3> keys = {"preference", "tag", "name"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k == 0) {
      const auto preference = r_.number(f, 255, 1);
      tables_.staticRouteDefaults->preferenceIs(Routing::RoutePreference(preference));
    } else if (k == 1) {
      tables_.staticRouteDefaults->tagIs(std::uint32_t(r_.number(f, kU32Max)));
    } else {
      tables_.staticRouteDefaults->nameIs(std::string(r_.string(f)));
    }
  });
}

void Loader::hardware(od::value& v) {
  static constexpr Keys<3> keys = {"fecWeightLimit", "maxEcmp", "nexthopGroupMaxSize"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    const auto n = std::uint32_t(r_.number(f, kU32Max));
    if (k == 0) {
      tables_.routingHw->fecWeightLimitIs(n);
      tables_.routing6Hw->fecWeightLimitIs(n);
    } else if (k == 1) {
      tables_.routingHw->maxEcmpIs(n);
      tables_.routing6Hw->maxEcmpIs(n);
    } else {
      tables_.routingHw->nexthopGroupMaxSizeIs(n);
    }
  });
}

void Loader::finish() {
  auto def = vrfs_.find(L3::VrfName::kDefault);
  if (def == vrfs_.end()) {
    r_.path().push(std::string_view("vrfs"));
    r_.fail("the VRF \"default\" is missing; every device has it");
  }
  for (const auto& [name, path] : vrfRefs_) {
    if (vrfs_.find(name.stringValue()) == vrfs_.end())
      throw LoadError(path, "unknown VRF " + quote(name.stringValue()) + " (not in \"vrfs\")");
  }
  tables_.arpStatus->reserve(neighbors_.size());
  for (PendingNeighbor& n : neighbors_) {
    n.entry.arpKey.vrfId = vrfs_.at(vrfRefs_[n.vrfRef].first.stringValue())->id;
    if (tables_.arpStatus->contains(n.entry.arpKey)) {
      throw LoadError("$.neighbors[" + std::to_string(n.index) + "]",
                      "duplicate neighbour " + n.entry.arpKey.addr.stringValue() + " on " +
                          n.entry.arpKey.intfId.stringValue());
    }
    tables_.arpStatus->recordIs(n.entry);
  }
}

std::size_t Loader::vrfRef(const L3::VrfName& name) {
  for (std::size_t i = 0; i < vrfRefs_.size(); ++i) {
    if (vrfRefs_[i].first == name) return i;
  }
  vrfRefs_.emplace_back(name, r_.path().text());
  return vrfRefs_.size() - 1;
}

}  // namespace Snapshot::loader

namespace Snapshot {

namespace {

// `readPast` (if any) hears now and then how far the reader has come: the text before that
// point is not needed again.
Mox::Ptr<Statum::EntityManager> loadPadded(simdjson::padded_string_view json,
                                           loader::Loader& loader,
                                           std::function<void(const char*)> readPast = {},
                                           bool scan = true) {
  // Editors that save "UTF-8 with BOM" put these three bytes first. JSON has no place for
  // them, and the parser would only call the text's structure improper.
  if (json.size() >= 3 && std::memcmp(json.data(), "\xEF\xBB\xBF", 3) == 0) {
    throw LoadError("$",
                    "malformed JSON: a byte-order mark (EF BB BF) before the document; save the "
                    "file as UTF-8 without one");
  }
  const JsonKernelFor kernel(json.size());
  od::parser parser;
  od::document doc;
  // The text is the loader's own copy.
  if (scan) loader.scanRoutes(const_cast<char*>(json.data()), json.size());
  const auto err = parser.iterate(json).get(doc);
  if (err == simdjson::MEMALLOC) throw std::bad_alloc();
  if (err != simdjson::SUCCESS)
    throw LoadError("$", std::string("malformed JSON: ") + jsonErrorMessage(err));
  loader.readPastIs(std::move(readPast));
  return loader.run(doc, json.data(), json.size());
}

// The parser reads documents of up to 4 GiB; a longer source is refused before it is all read.
constexpr std::size_t kMaxDocumentBytes = 0xffffffffu;

[[noreturn]] void failFile(const std::string& path, int err) {
  // No memory to map or hold the text is the machine's shortage, not the file's fault.
  if (err == ENOMEM) throw std::bad_alloc();
  throw LoadError("", std::strerror(err), path);
}

// A file's bytes, copied into memory of the program's own with the parser's padding after
// them. The parser finds the document's structure in one pass over the text and then reads the
// text again at the places found; text that changed between the two (a file written over in
// place while it is read, or cut short) would send it past the document. A copy cannot change,
// so whatever happens to the file, the parser reads only what it indexed. The copy is an
// anonymous mapping, so that the pages the reader has gone past can be let go as it goes and
// the file's text and the tables built from it are not all held at once.
class FileText {
 public:
  // Reads `fd` to its end. `expected` is the size when it is known (a regular file), so that
  // such a file is read into one buffer of its size; other sources grow the buffer as they
  // come.
  FileText(int fd, std::size_t expected, const std::string& path) {
    reserve(expected + 1);  // room for the read that finds the end
    for (;;) {
      if (size_ == room()) reserve(2 * size_);
      const ssize_t n = ::read(fd, base_ + size_, room() - size_);
      if (n == 0) return;
      if (n < 0) {
        if (errno == EINTR) continue;
        failFile(path, errno);
      }
      size_ += static_cast<std::size_t>(n);
      if (size_ > kMaxDocumentBytes)
        throw LoadError("", "larger than 4 GiB, the most a state may be", path);
    }
  }
  FileText(const FileText&) = delete;
  FileText& operator=(const FileText&) = delete;
  ~FileText() {
    if (base_) ::munmap(base_, capacity_);
  }

  std::size_t size() const { return size_; }
  const char* data() const { return base_; }
  simdjson::padded_string_view view() const {
    return simdjson::padded_string_view(base_, size_, capacity_);
  }
  // Lets go of the whole huge pages before `at`; the reader does not come back to them.
  // (Letting go of part of one would split it.)
  void readPast(const char* at) {
    constexpr std::size_t kUnit = 2 << 20;
    const std::size_t upTo = std::min<std::size_t>(at - base_, size_) / kUnit * kUnit;
    if (upTo > released_) {
      ::madvise(base_ + released_, upTo - released_, MADV_DONTNEED);
      released_ = upTo;
    }
  }

 private:
  static std::size_t page() { return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)); }
  std::size_t room() const { return capacity_ - simdjson::SIMDJSON_PADDING; }

  // Fresh anonymous pages read as zeros, which is the padding the parser wants. Huge pages
  // where the kernel has them: faulted in a small page at a time while read() fills them,
  // they cost more than the copy itself.
  void reserve(std::size_t bytes) {
    std::size_t capacity = std::max<std::size_t>(bytes, 64 * 1024) + simdjson::SIMDJSON_PADDING;
    capacity = (capacity + page() - 1) / page() * page();
    void* grown = base_ ? ::mremap(base_, capacity_, capacity, MREMAP_MAYMOVE)
                        : ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (grown == MAP_FAILED) throw std::bad_alloc();
    base_ = static_cast<char*>(grown);
    capacity_ = capacity;
    ::madvise(base_, capacity_, MADV_HUGEPAGE);
  }

  char* base_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::size_t released_ = 0;
};

// A regular file that changed while it was read holds neither its old document nor its new
// one, and a copy taken while another program wrote over it in place may mix the two: it is
// read a second time and compared, and refused when the two reads differ, whatever the mix
// would have parsed as. The second read comes from the page cache the first filled, but on a
// full table it costs as much as reading the file did; detail::unchangedWhileRead() says when
// the file's status, looked at before and after, proves what the second read would, and then
// there is none.
detail::ReadStamp readStamp(const struct stat& st) {
  constexpr std::int64_t kNs = 1000000000;
  return {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino),
          static_cast<std::int64_t>(st.st_size), st.st_mtim.tv_sec * kNs + st.st_mtim.tv_nsec,
          st.st_ctim.tv_sec * kNs + st.st_ctim.tv_nsec};
}

std::int64_t nowNanoseconds() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return ts.tv_sec * std::int64_t(1000000000) + ts.tv_nsec;
}

void checkUnchanged(int fd, std::size_t sizeBefore, const FileText& text, const std::string& path) {
  if (text.size() < sizeBefore)
    throw LoadError("", "the file was cut short while it was read", path);
  constexpr std::size_t kChunk = 1 << 20;
  const auto again = std::make_unique_for_overwrite<char[]>(kChunk);
  std::size_t at = 0;
  for (;;) {
    const ssize_t n = ::pread(fd, again.get(), kChunk, static_cast<off_t>(at));
    if (n < 0) {
      if (errno == EINTR) continue;
      failFile(path, errno);
    }
    if (n == 0) break;
    const auto got = static_cast<std::size_t>(n);
    if (got > text.size() - at || std::memcmp(again.get(), text.data() + at, got) != 0)
      throw LoadError("", "the file changed while it was read", path);
    at += got;
  }
  if (at < text.size()) throw LoadError("", "the file was cut short while it was read", path);
}

}  // namespace

Mox::Ptr<Statum::EntityManager> detail::loadStripped(int fd, std::size_t expected,
                                                     Sections sections,
                                                     const std::function<bool()>& unchanged,
                                                     std::optional<std::size_t> splitAt) {
  loader::Loader loader;
  loader.sectionsIs(sections);
  // Room for the whole text, in the address space only: growing by copies cost more than
  // the rest of the load when a family's arrays are kept (a command that builds them).
  std::vector<char> doc;
  doc.reserve(expected + simdjson::SIMDJSON_PADDING);
  constexpr std::uintptr_t kHuge = 2 << 20;
  const auto from = (reinterpret_cast<std::uintptr_t>(doc.data()) + kHuge - 1) & ~(kHuge - 1);
  const auto to = (reinterpret_cast<std::uintptr_t>(doc.data()) + doc.capacity()) & ~(kHuge - 1);
  if (to > from) ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
  if (!loader.stripRoutes(fd, doc, expected, splitAt ? *splitAt : splitPlace(expected, sections)) ||
      !unchanged() || doc.size() > kMaxDocumentBytes)
    return nullptr;
  const std::size_t size = doc.size();
  doc.resize(size + simdjson::SIMDJSON_PADDING, '\0');
  return loadPadded(simdjson::padded_string_view(doc.data(), size, doc.size()), loader);
}

bool detail::unchangedWhileRead(const ReadStamp& before, const ReadStamp& after, std::int64_t now) {
  constexpr std::int64_t kSettled = std::int64_t(2) * 1000000000;
  return before == after && before.changed <= now - kSettled && before.modified <= now - kSettled;
}

Mox::Ptr<Statum::EntityManager> detail::loadRouteByRoute(std::string_view json) {
  loader::Loader loader;
  return loadPadded(simdjson::padded_string(json), loader, {}, false);
}

Mox::Ptr<Statum::EntityManager> load(std::string_view json, Sections sections) {
  loader::Loader loader;
  loader.sectionsIs(sections);
  return loadPadded(simdjson::padded_string(json), loader);
}

Mox::Ptr<Statum::EntityManager> loadFile(const std::string& path, Sections sections) {
  // Whoever asks (the command line, a script): an empty name is a mistake (an unset variable),
  // and a name holding a NUL would open a file the caller did not name.
  if (path.empty()) throw LoadError("", "empty file name", path);
  if (path.find('\0') != std::string::npos)
    throw LoadError("", "a file name cannot hold a NUL byte", path);
  const bool standardInput = path == "-";
  const int fd = standardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) failFile(path, errno);
  struct Closer {
    int fd;
    ~Closer() {
      if (fd >= 0) ::close(fd);
    }
  } closer{standardInput ? -1 : fd};
  // What the path is decides how it is read: a directory has no text (and a size that means
  // nothing), a pipe or FIFO has no size and cannot seek, only a regular file has both.
  struct stat st {};
  if (::fstat(fd, &st) != 0) failFile(path, errno);
  const std::int64_t lookedAt = nowNanoseconds();
  if (S_ISDIR(st.st_mode)) failFile(path, EISDIR);
  const std::size_t expected = S_ISREG(st.st_mode) ? static_cast<std::size_t>(st.st_size) : 0;
  if (expected > kMaxDocumentBytes)
    throw LoadError("", "larger than 4 GiB, the most a state may be", path);
  // A command that leaves a family's route tables out, on a file whose status can prove it
  // unchanged: the text is read a window at a time, those tables checked from the window and
  // only the rest kept (loader::Loader::stripRoutes). Anything unusual, or a status that moved,
  // and the file is read again the usual way, whole.
  if (S_ISREG(st.st_mode) && !sections.isAll() &&
      detail::unchangedWhileRead(readStamp(st), readStamp(st), lookedAt)) {
    auto em = detail::loadStripped(fd, expected, sections, [&] {
      struct stat after {};
      if (::fstat(fd, &after) != 0) failFile(path, errno);
      return detail::unchangedWhileRead(readStamp(st), readStamp(after), lookedAt);
    });
    if (em) return em;
    if (::lseek(fd, 0, SEEK_SET) != 0) failFile(path, errno);
  }
  FileText text(fd, expected, path);
  if (S_ISREG(st.st_mode)) {
    struct stat after {};
    if (::fstat(fd, &after) != 0) failFile(path, errno);
    if (!detail::unchangedWhileRead(readStamp(st), readStamp(after), lookedAt))
      checkUnchanged(fd, expected, text, path);
  }
  loader::Loader loader;
  loader.sectionsIs(sections);
  return loadPadded(text.view(), loader, [&text](const char* at) { text.readPast(at); });
}

}  // namespace Snapshot
