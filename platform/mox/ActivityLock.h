#pragma once
// The activity lock: whoever changes or walks shared state holds it. Long walks give it up
// now and then (release, yield the processor, retake) so that the writers of the state are not
// starved. The front end takes it around each command.

#include <functional>
#include <mutex>

namespace Mox {

class ActivityLock {
 public:
  static ActivityLock& instance();
  void lock();
  void unlock();
  bool heldByThisThread() const;
  // Release, yield, retake; a no-op when this thread does not hold the lock.
  void yield();
  // How many times yield() really gave the lock up (for tests and benchmarks).
  unsigned long yields() const { return yields_; }
  // Called at every yield(), lock held or not: a reader of tables another process writes
  // checks there that the writer is still alive, and may throw to end the walk.
  void yieldCheckIs(std::function<void()> check) { check_ = std::move(check); }

 private:
  std::function<void()> check_;
  std::recursive_mutex mutex_;
  unsigned long yields_ = 0;
};

// Holds the activity lock for a scope.
class ActivityLockGuard {
 public:
  ActivityLockGuard() { ActivityLock::instance().lock(); }
  ~ActivityLockGuard() { ActivityLock::instance().unlock(); }
  ActivityLockGuard(const ActivityLockGuard&) = delete;
  ActivityLockGuard& operator=(const ActivityLockGuard&) = delete;
};

// Releases the activity lock for a scope when this thread holds it, and takes it back after.
class ActivityLockRelease {
 public:
  ActivityLockRelease();
  ~ActivityLockRelease();
  ActivityLockRelease(const ActivityLockRelease&) = delete;
  ActivityLockRelease& operator=(const ActivityLockRelease&) = delete;

 private:
  int depth_ = 0;
};

}  // namespace Mox
