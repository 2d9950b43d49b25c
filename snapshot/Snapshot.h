#pragma once
// The JSON state snapshot: one document describing a whole device, loaded into a fresh entity
// manager at the paths of StateLayout.h. docs/state-format.md describes the format.
//
// Loading is strict and all-or-nothing: the first thing wrong in the document raises
// LoadError naming where it is ("$.vrfs.red.ipv4.fecs[3].vias[512]") and what is wrong, and
// no entity manager is returned. A document that loads yields every device-wide entity and,
// for every VRF it names, every per-VRF entity, empty where the document says nothing.
//
//   auto em = Snapshot::loadFile("examples/leaf1.json");       // or load(text), or "-"
//   auto routes = Snapshot::layout::find(*em, Snapshot::layout::fibRoute, "red");
//   Snapshot::save(*em, "/tmp/leaf1.json");                    // written whole, then renamed
//
//   try { Snapshot::load("{\"version\": 1}"); }
//   catch (const Snapshot::LoadError& e) { e.what(); }  // "$: missing required key \"vrfs\""

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/mox/Exception.h"
#include "platform/mox/Ptr.h"
#include "platform/statum/EntityManager.h"

namespace Snapshot {

class LoadError : public Mox::Exception {
 public:
  // what() is "<jsonPath>: <reason>", or "<file>: <reason>" for a file that cannot be read
  // (then the path is empty).
  LoadError(std::string jsonPath, std::string reason, std::string file = {});
  const std::string& jsonPath() const { return jsonPath_; }
  const std::string& reason() const { return reason_; }
  // The file that could not be read; empty for a problem inside the document.
  const std::string& file() const { return file_; }

 private:
  std::string jsonPath_;
  std::string reason_;
  std::string file_;
};

// The document format version this loader reads.
inline constexpr int kFormatVersion = 1;

// What a reader needs built of a state. Every table is built unless a family's route tables
// are left out: those are then read and checked as strictly as ever (a document refused with
// them is refused without them, with the same message) but not built, and the state holds
// them empty. The other sections are small and always built. A state loaded without a table
// is for reading only: writing it back would lose the routes.
struct Sections {
  bool ipv4Routes = true;
  bool ipv6Routes = true;

  static constexpr Sections all() { return {}; }
  static constexpr Sections none() { return {false, false}; }
  bool isAll() const { return ipv4Routes && ipv6Routes; }
  friend bool operator==(const Sections&, const Sections&) = default;
};

Mox::Ptr<Statum::EntityManager> load(std::string_view json, Sections sections = {});
// Reads the file whole, whatever it is (a regular file, a pipe, a FIFO); "-" is standard input.
Mox::Ptr<Statum::EntityManager> loadFile(const std::string& path, Sections sections = {});

// The example device (examples/leaf1.json), compiled into the program as its default state.
std::string_view embeddedExample();

// ---- writing a state back ----

// Why a state could not be saved: what() is "<file>: <reason>" ("s.json: Permission denied").
class SaveError : public Mox::Exception {
 public:
  SaveError(std::string path, std::string reason);
  const std::string& path() const { return path_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string path_;
  std::string reason_;
};

// The state as a snapshot document: loading the text gives back the same state. The same
// state always gives the same text.
std::string write(const Statum::EntityManager& em);
// The state with the route tables `sections` leaves out written empty (their FECs are kept): a
// copy of everything configuration reads, without the cost of a full table.
std::string write(const Statum::EntityManager& em, Sections sections);

// What a state file was when it was read (which file, its size and when it last changed), so
// that a save can tell that someone else changed it since. An unknown stamp (no regular file
// there) matches nothing and is never checked.
struct FileStamp {
  bool known = false;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modifiedSeconds = 0;
  std::int64_t modifiedNanoseconds = 0;

  bool sameFile(const FileStamp& o) const {
    return known && o.known && device == o.device && inode == o.inode;
  }
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};
// The stamp of the regular file at `path` (a symbolic link is followed); unknown when there is
// none.
FileStamp stampOf(const std::string& path);

// The state in the form of `original`, the document it was loaded from: what did not change
// keeps its text, blanks and all (members in their order, defaults left out where they were),
// a changed entity changes in place, a removed one goes, a new one comes after the last of
// its list. Loading the text gives back the same state. With no original (empty), or one
// this cannot follow, the text is write(em)'s.
std::string write(const Statum::EntityManager& em, std::string_view original);

// The text of the document at `path`, to give write() as the original: empty when it cannot
// be read, is not a regular file, or is no longer what `stamp` says it was (when known).
std::string documentText(const std::string& path, const FileStamp& stamp);

// Writes the state to `path`, replacing the file atomically: the text goes to a temporary file
// beside it, is flushed to disk, and is renamed over it. On any error (a full disk, a
// read-only directory) SaveError is raised and `path` is left as it was, with no temporary
// file left behind, whatever happens.
//
// - A symbolic link is written through: the file it leads to is replaced, the link stays.
// - Only a regular file is replaced: a directory, a FIFO, a device or a socket at `path` is
//   refused, and so is a file with several names (hard links), which a replacement would
//   separate, leaving the other names with the old state.
// - The new file keeps the old one's permissions, and its owner and group where the process
//   may give them (as root, always).
// - With `loaded`, the stamp of the file when the state was read from it: a file that changed
//   since (another session saved it, or someone edited it) is refused rather than overwritten.
// - SIGINT, SIGTERM and SIGHUP are held while the temporary file exists: one that comes
//   abandons the save (SaveError "interrupted") and acts once the temporary file is gone.
//
// - With `original`, the text is write(em, original): the form of the document the state
//   came from.
//
// Returns the stamp of the new file.
FileStamp save(const Statum::EntityManager& em, const std::string& path,
               const FileStamp* loaded = nullptr, std::string_view original = {});

}  // namespace Snapshot
