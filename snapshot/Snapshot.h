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

Mox::Ptr<Statum::EntityManager> load(std::string_view json);
// Reads the file whole, whatever it is (a regular file, a pipe, a FIFO); "-" is standard input.
Mox::Ptr<Statum::EntityManager> loadFile(const std::string& path);

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

// Writes the state to `path`, replacing the file atomically: the text goes to a temporary file
// in the same directory, is flushed to disk, and is renamed over `path`. On any error (a full
// disk, a read-only directory) SaveError is raised and `path` is left as it was.
void save(const Statum::EntityManager& em, const std::string& path);

}  // namespace Snapshot
