#pragma once
// A rova-agent the test starts and always ends: SIGTERM then wait when the object goes, the
// agent's store removed whatever happened, and the agent told to end with the test process
// should that die first.

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "agent/Channel.h"
#include "agent/Store.h"

namespace agenttest {

// A name no other test (or test run) uses at the same time.
inline std::string uniqueName(const std::string& what) {
  static std::atomic<int> n{0};
  return "test-" + what + "-" + std::to_string(::getpid()) + "-" + std::to_string(n++);
}

// What a child runs before the program starts to become the user `nobody` (it ends with
// status 126 when it cannot); empty when the machine has no such user.
inline std::function<void()> becomeNobody() {
  const passwd* nobody = ::getpwnam("nobody");
  if (!nobody) return {};
  const uid_t uid = nobody->pw_uid;
  const gid_t gid = nobody->pw_gid;
  return [uid, gid] {
    if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0) ::_exit(126);
  };
}

class AgentProcess {
 public:
  // `wrapper`: a command the agent runs under ("ip netns exec NS"), which must exec it in
  // its own process.
  AgentProcess(std::string name, std::vector<std::string> args,
               std::vector<std::string> wrapper = {})
      : name_(std::move(name)) {
    int out[2];
    if (::pipe(out) != 0) return;
    args.insert(args.begin(), {ROVA_AGENT, "--name", name_});
    args.insert(args.begin(), wrapper.begin(), wrapper.end());
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      ::dup2(out[1], 1);
      ::close(out[0]);
      ::close(out[1]);
      std::vector<char*> argv;
      for (std::string& a : args)
        argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execvp(argv[0], argv.data());
      ::_exit(127);
    }
    started_ = pid_;
    ::close(out[1]);
    // Up to the ready line, or the end of the output when the agent refused.
    char c;
    while (::read(out[0], &c, 1) == 1 && c != '\n')
      firstLine_ += c;
    ::close(out[0]);
  }
  // A store this agent left behind (it was killed) goes too; one another agent of the name
  // made since stays.
  ~AgentProcess() {
    stop(SIGTERM);
    if (started_ > 0 && Agent::storeAgentPid(name_) == started_) {
      ::shm_unlink(("/rova-agent." + name_).c_str());
      ::unlink(Agent::socketPathOf(name_).c_str());
    }
  }
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  bool ready() const { return firstLine_.rfind("rova-agent: ready:", 0) == 0; }
  const std::string& name() const { return name_; }
  pid_t pid() const { return pid_; }
  // Ends the agent with `sig` and returns its wait status (-1 when it had ended before).
  int stop(int sig) {
    if (pid_ <= 0) return -1;
    ::kill(pid_, sig);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  std::string name_;
  pid_t pid_ = -1;
  pid_t started_ = -1;
  std::string firstLine_;
};

}  // namespace agenttest
