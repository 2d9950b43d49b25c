// What `write` replaces and what it refuses: only the regular file the state belongs to, through
// a symbolic link to it, never a device, a FIFO or one name of a file that has several; never
// a file someone else changed since the state was loaded; never with a temporary file left
// behind, whatever signal comes; and with the old file's owner. Every test works in its own
// directory, removed afterwards, and every path it lets rova write is inside it.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/cli/Capture.h"
#include "tests/cli/ExampleStateFile.h"
#include "tests/support/GoldenCases.h"

namespace {

namespace fs = std::filesystem;

clitest::Captured runRova(std::vector<std::string> args, std::string input = "",
                          const std::function<void()>& inChild = {}) {
  return clitest::runProgram(ROVA_PROGRAM, std::move(args), input, inChild);
}

class Saving : public clitest::ExampleStateFile {
 protected:
  // One-shot: removes the static routes through Ethernet1 and writes the state back.
  clitest::Captured clearIn(const std::string& state) {
    return runRova({"--state", state, "clear", "static-routes", "interface", "Ethernet1"});
  }
  // Whether the state at `path` has lost the static route through Ethernet1.
  static bool cleared(const std::string& path) {
    const std::string lines =
        runRova({"--state", path, "show", "running-config", "static-routes"}).out;
    return lines.find("10.8.0.0/16") != std::string::npos &&
           lines.find("10.9.0.0/16") == std::string::npos;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& e : fs::directory_iterator(dir_))
      all.push_back(e.path().filename().string());
    std::sort(all.begin(), all.end());
    return all;
  }
};

// A symbolic link is written through: the link stays, the file it leads to gets the new state,
// also when the link leads to a file not there yet.
TEST_F(Saving, WritesThroughASymbolicLink) {
  const std::string link = dir_ + "/link.json";
  fs::create_symlink("state.json", link);
  clitest::Captured r = clearIn(link);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(cleared(file_));

  const std::string dangling = dir_ + "/dangling.json";
  fs::create_symlink("new.json", dangling);
  clitest::Captured w = runRova({"--state", file_}, "write " + dangling + "\n");
  EXPECT_EQ(w.status, 0) << w.err;
  EXPECT_TRUE(fs::is_symlink(dangling));
  EXPECT_TRUE(fs::is_regular_file(dir_ + "/new.json"));
  EXPECT_EQ(names(),
            (std::vector<std::string>{"dangling.json", "link.json", "new.json", "state.json"}));
}

// Anything but a regular file is refused with nothing replaced: a FIFO, and through links
// inside the test's directory, a device and a pipe (as /dev/stdin leads to one).
TEST_F(Saving, RefusesToReplaceWhatIsNotARegularFile) {
  const std::string fifo = dir_ + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  fs::create_symlink("/dev/null", dir_ + "/null");
  fs::create_symlink("/proc/self/fd/0", dir_ + "/stdin");
  for (const std::string name : {"fifo", "null", "stdin"}) {
    SCOPED_TRACE(name);
    const std::string path = dir_ + "/" + name;
    clitest::Captured r = runRova({"--state", file_}, "write " + path + "\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "line 1: % Cannot write " + path +
                         ": not a regular file (a state is saved only to a regular file)\n"
                         "% 1 of 1 line refused; the run stopped at line 1\n");
  }
  EXPECT_TRUE(fs::is_fifo(fifo));
  EXPECT_TRUE(fs::is_symlink(dir_ + "/null"));
  EXPECT_TRUE(fs::is_symlink(dir_ + "/stdin"));
  EXPECT_EQ(names(), (std::vector<std::string>{"fifo", "null", "state.json", "stdin"}));
  // A state read from standard input has no file to go back to.
  clitest::Captured in = runRova({"--state", "-", "write"}, example_);
  EXPECT_EQ(in.status, 1);
  EXPECT_EQ(in.err, "% The state has no file of its own (standard input); give one: write FILE\n");
}

// A file with several names would be split by a replacement: this name new, the others with
// the old state. It is refused, and the file stays one file under both names. The name in the
// message is escaped, as a load error's is.
TEST_F(Saving, RefusesToSplitAHardLinkAndNamesTheFileEscaped) {
  const std::string odd = dir_ + "/s\x1b[2J.json";
  fs::rename(file_, odd);
  fs::create_hard_link(odd, dir_ + "/other.json");
  clitest::Captured r = clearIn(odd);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "% Cannot write " + dir_ +
                       "/s\\x1b[2J.json: the file has other names (hard links), which would "
                       "keep the old state; write to a file of its own\n");
  EXPECT_EQ(fs::hard_link_count(odd), 2u);
  EXPECT_EQ(rovatest::readText(odd), example_);
}

// Two sessions on one file: the second to write finds the file changed since it loaded it and
// refuses, rather than overwrite the first one's change; its own earlier writes did not count
// as changes.
TEST_F(Saving, RefusesToOverwriteAChangeMadeSinceTheStateWasLoaded) {
  int in[2], err[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(err), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(err[1], 2);
    dup2(err[1], 1);
    for (int fd : {in[0], in[1], err[0], err[1]})
      close(fd);
    execl(ROVA_PROGRAM, ROVA_PROGRAM, "--state", file_.c_str(), "--keep-going",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  close(in[0]);
  close(err[1]);
  const auto say = [&](const std::string& line) {
    ASSERT_EQ(write(in[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
  };
  // The session has loaded the state once it answers; its first write goes through.
  say("configure\nip route 10.99.0.0/16 Null0\nend\nwrite\nshow version\n");
  std::string seen;
  char buffer[4096];
  ssize_t n;
  while (seen.find("Device: leaf1") == std::string::npos &&
         (n = read(err[0], buffer, sizeof buffer)) > 0)
    seen.append(buffer, static_cast<std::size_t>(n));
  EXPECT_NE(rovatest::readText(file_).find("10.99.0.0/16"), std::string::npos);

  clitest::Captured other = clearIn(file_);
  EXPECT_EQ(other.status, 0) << other.err;
  say("configure\nip route 10.98.0.0/16 Null0\nend\nwrite\n");
  close(in[1]);
  seen += clitest::drain(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 1) << seen;
  EXPECT_NE(seen.find("% Cannot write " + file_ +
                      ": the file changed since the state was loaded from it (another session "
                      "or program wrote it); load it again, or write to another file\n"),
            std::string::npos)
      << seen;
  EXPECT_TRUE(cleared(file_));
  EXPECT_EQ(rovatest::readText(file_).find("10.98.0.0/16"), std::string::npos);
}

// Run as root, a save keeps the old file's owner and group along with its permissions.
TEST_F(Saving, KeepsTheOwnerAndGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "giving a file to another owner needs root";
  ASSERT_EQ(::chown(file_.c_str(), 1, 2), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
  clitest::Captured r = clearIn(file_);
  EXPECT_EQ(r.status, 0) << r.err;
  struct stat st {};
  ASSERT_EQ(::stat(file_.c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, 1u);
  EXPECT_EQ(st.st_gid, 2u);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_TRUE(cleared(file_));
}

// Changes a script made and never wrote are lost with the process: a note says so.
TEST_F(Saving, AScriptThatChangesAndDoesNotWriteSaysSo) {
  clitest::Captured r =
      runRova({"--state", file_}, "configure\nip route 10.99.0.0/16 Null0\nend\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err,
            "% Not saved: the changes since the state was loaded or last written are "
            "not in " +
                file_ + " (write saves them)\n");
  EXPECT_EQ(rovatest::readText(file_), example_);
  clitest::Captured written =
      runRova({"--state", file_}, "configure\nip route 10.99.0.0/16 Null0\nend\nwrite\n");
  EXPECT_EQ(written.err, "");
  clitest::Captured builtIn = runRova({}, "clear nexthop-group counters\n");
  EXPECT_EQ(builtIn.err,
            "% Not saved: the changes to the built-in example are lost; it has no file of its "
            "own (write FILE saves them)\n");
}

// A large generated state, for what needs a save or a load to take a while.
class LargeState : public Saving {
 protected:
  void SetUp() override {
    Saving::SetUp();
    const std::string gen = std::string(ROVA_GEN) + " --ipv4 100000 --ipv6 10 --seed 3 -o " + file_;
    ASSERT_EQ(std::system(gen.c_str()), 0);
    original_ = rovatest::readText(file_);
  }
  std::string original_;
};

// A signal while the state is written, by a one-shot command that writes its change back or by
// `write` in a script: the old file stays as it was (or, when the signal came after the rename,
// the new one is whole), and the temporary file goes with the process.
TEST_F(LargeState, ASignalDuringWriteLeavesNoTemporaryFile) {
  struct Way {
    std::vector<const char*> args;
    std::string input;
  };
  const Way ways[] = {{{"clear", "nexthop-group", "counters"}, ""}, {{}, "write\n"}};
  int caught = 0;
  for (const Way& way : ways) {
    for (int sig : {SIGTERM, SIGHUP, SIGINT}) {
      SCOPED_TRACE(std::to_string(sig) + " " + way.input);
      std::ofstream(file_, std::ios::trunc) << original_;
      int in[2];
      ASSERT_EQ(pipe(in), 0);
      const pid_t pid = fork();
      if (pid == 0) {
        dup2(in[0], 0);
        close(in[0]);
        close(in[1]);
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(126);
        std::vector<const char*> argv = {ROVA_PROGRAM, "--state", file_.c_str()};
        argv.insert(argv.end(), way.args.begin(), way.args.end());
        argv.push_back(nullptr);
        execv(ROVA_PROGRAM, const_cast<char* const*>(argv.data()));
        _exit(127);
      }
      close(in[0]);
      ASSERT_EQ(write(in[1], way.input.data(), way.input.size()),
                static_cast<ssize_t>(way.input.size()));
      close(in[1]);
      // Caught with its temporary file in place: stopped there, signalled, and let go.
      bool temporary = false;
      while (!temporary && waitpid(pid, nullptr, WNOHANG) == 0) {
        temporary = names().size() > 1;
        if (temporary) {
          kill(pid, SIGSTOP);
          kill(pid, sig);
          kill(pid, SIGCONT);
        }
      }
      if (temporary) ++caught;
      waitpid(pid, nullptr, 0);
      EXPECT_EQ(names(), std::vector<std::string>{"state.json"});
      if (rovatest::readText(file_) != original_) {
        clitest::Captured loads = runRova({"--state", file_, "show", "version"});
        EXPECT_EQ(loads.status, 0) << loads.err;
      }
    }
  }
  // On any machine the write of a state this size outlasts the loop's look at the directory.
  EXPECT_GT(caught, 0);
}

// Out of memory is said as such, with its own status, not as a malformed state or an internal
// error, however early it comes.
TEST_F(LargeState, RunningOutOfMemoryIsSaidWithItsOwnStatus) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer needs more address space than the limit leaves";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "AddressSanitizer needs more address space than the limit leaves";
#endif
#endif
  for (rlim_t megabytes : {20, 35, 50}) {
    SCOPED_TRACE(megabytes);
    clitest::Captured r = runRova({"--state", file_, "show", "version"}, "", [megabytes] {
      const rlimit limit{megabytes << 20, megabytes << 20};
      setrlimit(RLIMIT_AS, &limit);
    });
    EXPECT_EQ(r.status, 71);
    EXPECT_EQ(r.err, "% Cannot load state " + file_ + ": out of memory\n");
  }
}

}  // namespace
