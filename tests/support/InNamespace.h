#pragma once
// The calling thread moved into a named network namespace (ip netns) for the object's life.

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <string>

namespace rovatest {

class InNamespace {
 public:
  explicit InNamespace(const std::string& name) {
    self_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(("/var/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    entered_ = self_ >= 0 && target >= 0 && ::setns(target, CLONE_NEWNET) == 0;
    if (target >= 0) ::close(target);
  }
  ~InNamespace() {
    if (entered_) ::setns(self_, CLONE_NEWNET);
    if (self_ >= 0) ::close(self_);
  }
  InNamespace(const InNamespace&) = delete;
  InNamespace& operator=(const InNamespace&) = delete;
  bool entered() const { return entered_; }

 private:
  int self_ = -1;
  bool entered_ = false;
};

}  // namespace rovatest
