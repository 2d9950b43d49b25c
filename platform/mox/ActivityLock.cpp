#include "platform/mox/ActivityLock.h"

#include <sched.h>

namespace Mox {

namespace {
// Depth of this thread's hold on the (recursive) lock.
thread_local int tDepth = 0;
}  // namespace

ActivityLock& ActivityLock::instance() {
  static ActivityLock lock;
  return lock;
}

void ActivityLock::lock() {
  mutex_.lock();
  ++tDepth;
}

void ActivityLock::unlock() {
  --tDepth;
  mutex_.unlock();
}

bool ActivityLock::heldByThisThread() const {
  return tDepth > 0;
}

void ActivityLock::yield() {
  if (check_) check_();
  const int depth = tDepth;
  if (depth == 0) return;
  for (int i = 0; i < depth; ++i)
    unlock();
  sched_yield();
  for (int i = 0; i < depth; ++i)
    lock();
  ++yields_;
}

ActivityLockRelease::ActivityLockRelease() {
  depth_ = tDepth;
  for (int i = 0; i < depth_; ++i)
    ActivityLock::instance().unlock();
}

ActivityLockRelease::~ActivityLockRelease() {
  for (int i = 0; i < depth_; ++i)
    ActivityLock::instance().lock();
}

}  // namespace Mox
