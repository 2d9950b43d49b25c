// Room asked for a large buffer: whole huge pages once the allocator's header is counted, so
// that the kernel can start the mapping on a huge page boundary; never less than asked.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/mox/HugePages.h"

namespace {

constexpr std::size_t kHuge = std::size_t(2) << 20;

TEST(HugePages, LargeBuffersFillWholeHugePagesWithTheAllocatorsHeader) {
  for (const std::size_t size :
       {std::size_t(1), std::size_t(8), std::size_t(24), std::size_t(40)}) {
    for (const std::size_t bytes : {kHuge, kHuge + 1, 3 * kHuge - 32, 3 * kHuge - 31,
                                    std::size_t(8003584), std::size_t(40) << 20}) {
      const std::size_t n = (bytes + size - 1) / size;
      const std::size_t room = Mox::hugePageEntries(n, size);
      EXPECT_GE(room, n) << size << " " << bytes;
      // Whole huge pages, less at most one entry's rounding.
      const std::size_t mapped = room * size + 32;
      EXPECT_LT(mapped % kHuge == 0 ? 0 : kHuge - mapped % kHuge, size) << size << " " << bytes;
      EXPECT_LE(room * size, n * size + kHuge) << size << " " << bytes;
    }
  }
}

TEST(HugePages, SmallOrHugeCountsAreLeftAlone) {
  EXPECT_EQ(Mox::hugePageEntries(1000, 8), 1000u);
  EXPECT_EQ(Mox::hugePageEntries(kHuge / 8 - 1, 8), kHuge / 8 - 1);
  EXPECT_EQ(Mox::hugePageEntries(0, 8), 0u);
  // A count whose bytes would overflow is not rounded.
  const std::size_t most = ~std::size_t(0) / 8;
  EXPECT_EQ(Mox::hugePageEntries(most, 8), most);
}

TEST(HugePages, ReserveKeepsWhatTheVectorHolds) {
  std::vector<std::uint64_t> v{1, 2, 3};
  Mox::reserveHuge(v, kHuge / 8 + 5);
  EXPECT_GE(v.capacity(), kHuge / 8 + 5);
  EXPECT_EQ(v, (std::vector<std::uint64_t>{1, 2, 3}));
  const std::size_t capacity = v.capacity();
  Mox::reserveHuge(v, 10);  // less than it has: nothing moves
  EXPECT_EQ(v.capacity(), capacity);
}

}  // namespace
