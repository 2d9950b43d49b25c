// Saving a state to a file: atomically (a temporary file beside the old one, renamed over it),
// through a symbolic link to the file it names, never over anything but a regular file of one
// name, keeping owner, group and mode, and refusing when the file changed since it was loaded.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "snapshot/Snapshot.h"

namespace Snapshot {

namespace {

std::string reason(int err) {
  return std::strerror(err);
}

// A file descriptor closed on every way out.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  // Closes now, so that an error of the close itself is seen.
  int release() {
    const int r = ::close(fd_);
    fd_ = -1;
    return r;
  }

 private:
  int fd_;
};

std::string directoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

FileStamp stampOf(const struct stat& st) {
  FileStamp s;
  s.known = true;
  s.device = st.st_dev;
  s.inode = st.st_ino;
  s.size = st.st_size;
  s.modifiedSeconds = st.st_mtim.tv_sec;
  s.modifiedNanoseconds = st.st_mtim.tv_nsec;
  return s;
}

constexpr const char* kChangedSinceLoaded =
    "the file changed since the state was loaded from it (another session or program wrote "
    "it); load it again, or write to another file";

// The most one write() call hands the kernel, so that a signal is seen soon on a large state.
constexpr std::size_t kWriteChunk = 1 << 20;

// The file a save replaces. A symbolic link is written through to the file it leads to, so
// that the link stays a link and the file it names gets the new state; a link to nothing yet
// leads to the file it names. Anything but a regular file (a directory, a FIFO, a device:
// /dev/stdin, /dev/null) is refused, and so is a file with other names (hard links): a
// replacement would give this name a new file and leave the others with the old state.
std::string fileToReplace(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) throw SaveError(path, reason(EISDIR));
    if (!S_ISREG(st.st_mode))
      throw SaveError(path, "not a regular file (a state is saved only to a regular file)");
    if (st.st_nlink > 1) {
      throw SaveError(path,
                      "the file has other names (hard links), which would keep the old "
                      "state; write to a file of its own");
    }
    char* real = ::realpath(path.c_str(), nullptr);
    if (!real) throw SaveError(path, reason(errno));
    std::string resolved(real);
    std::free(real);
    return resolved;
  }
  if (errno != ENOENT) throw SaveError(path, reason(errno));
  // Nothing there yet: a new file, or a dangling link to follow to the name it holds.
  std::string at = path;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat link {};
    if (::lstat(at.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return at;
    std::string to(static_cast<std::size_t>(link.st_size > 0 ? link.st_size : 4096), '\0');
    const ssize_t n = ::readlink(at.c_str(), to.data(), to.size());
    if (n < 0) throw SaveError(path, reason(errno));
    to.resize(static_cast<std::size_t>(n));
    at = to.starts_with('/') ? to : directoryOf(at) + "/" + to;
  }
  throw SaveError(path, reason(ELOOP));
}

// SIGINT, SIGTERM and SIGHUP wait while a temporary file exists, so that none ends the process
// with the file left behind; a save asks between writes whether one came, and gives up if so.
// The signals act as usual once the file is gone and the old mask is back.
class StopSignalsHeld {
 public:
  StopSignalsHeld() {
    sigset_t stop;
    sigemptyset(&stop);
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&stop, sig);
    pthread_sigmask(SIG_BLOCK, &stop, &previous_);
  }
  ~StopSignalsHeld() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  StopSignalsHeld(const StopSignalsHeld&) = delete;
  StopSignalsHeld& operator=(const StopSignalsHeld&) = delete;

  void stopIfSignalled(const std::string& path) const {
    sigset_t pending;
    if (sigpending(&pending) != 0) return;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
      // One the caller held already is the caller's to handle.
      if (sigismember(&pending, sig) == 1 && sigismember(&previous_, sig) != 1)
        throw SaveError(path, "interrupted");
    }
  }

 private:
  sigset_t previous_;
};

}  // namespace

SaveError::SaveError(std::string path, std::string reason)
    : Mox::Exception(path + ": " + reason), path_(std::move(path)), reason_(std::move(reason)) {}

FileStamp stampOf(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
  return stampOf(st);
}

std::string documentText(const std::string& path, const FileStamp& stamp) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  Fd file(fd);
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return {};
  if (stamp.known && stampOf(st) != stamp) return {};
  std::string text(static_cast<std::size_t>(st.st_size), '\0');
  std::size_t at = 0;
  while (at < text.size()) {
    const ssize_t n = ::read(fd, text.data() + at, text.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return {};
    at += static_cast<std::size_t>(n);
  }
  return text;
}

FileStamp save(const Statum::EntityManager& em, const std::string& path, const FileStamp* loaded,
               std::string_view original) {
  const std::string text = write(em, original);
  const std::string target = fileToReplace(path);
  const auto unchanged = [&] {
    if (!loaded || !loaded->known) return;
    const FileStamp now = stampOf(target);
    if (now.known && now != *loaded) throw SaveError(path, kChangedSinceLoaded);
  };
  unchanged();

  // The new text goes to a file beside the old one and replaces it in one rename: a crash or
  // a full disk leaves either the old file or the new one, never half of either.
  const StopSignalsHeld held;
  std::string temp = target + ".XXXXXX";
  Fd fd(::mkstemp(temp.data()));
  if (fd.get() < 0) throw SaveError(path, reason(errno));
  bool renamed = false;
  struct Cleanup {
    const std::string& temp;
    const bool& renamed;
    ~Cleanup() {
      if (!renamed) ::unlink(temp.c_str());
    }
  } cleanup{temp, renamed};

  // Keep the old file's owner, group and permissions; mkstemp made the new one ours and
  // private. Giving a file away needs privilege: without it the file is the writer's, as any
  // editor's would be. The mode goes last, since a change of owner clears set-id bits.
  struct stat old {};
  mode_t mode = 0644;
  if (::stat(target.c_str(), &old) == 0) {
    mode = old.st_mode & 07777;
    if (::fchown(fd.get(), old.st_uid, old.st_gid) != 0) {
      if (::fchown(fd.get(), static_cast<uid_t>(-1), old.st_gid) != 0 && errno != EPERM)
        throw SaveError(path, reason(errno));
    }
  }
  if (::fchmod(fd.get(), mode) != 0) throw SaveError(path, reason(errno));

  std::string_view rest = text;
  while (!rest.empty()) {
    held.stopIfSignalled(path);
    const ssize_t n = ::write(fd.get(), rest.data(), std::min(rest.size(), kWriteChunk));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw SaveError(path, reason(errno));
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
  if (::fsync(fd.get()) != 0) throw SaveError(path, reason(errno));
  struct stat written {};
  if (::fstat(fd.get(), &written) != 0) throw SaveError(path, reason(errno));
  if (fd.release() != 0) throw SaveError(path, reason(errno));
  held.stopIfSignalled(path);
  unchanged();
  if (::rename(temp.c_str(), target.c_str()) != 0) throw SaveError(path, reason(errno));
  renamed = true;
  // The rename itself is durable once the directory is.
  Fd dir(::open(directoryOf(target).c_str(), O_RDONLY | O_DIRECTORY));
  if (dir.get() >= 0) ::fsync(dir.get());
  return stampOf(written);
}

}  // namespace Snapshot
