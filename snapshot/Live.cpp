#include "snapshot/Live.h"

namespace Snapshot {

Mox::Ptr<Statum::EntityManager> readConsistently(const LiveRead& read, int attempts) {
  std::string interrupted;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    // A fresh builder each time: nothing of an interrupted read survives into the next.
    LiveBuilder builder;
    interrupted = read(builder);
    if (interrupted.empty()) return builder.finish();
  }
  throw LiveError(interrupted + " kept changing while they were read (" + std::to_string(attempts) +
                  " attempts); try again");
}

}  // namespace Snapshot
