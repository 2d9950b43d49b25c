#pragma once
// Asking the processor for a cache line ahead of the read that needs it. A hint only: the
// address need not be valid, and nothing changes but the time the later read takes.

namespace Mox {

// g++ takes a function whose only effect is __builtin_prefetch for one with no effect at all,
// and drops the calls to it (and to its callers in turn, when they do nothing else). The empty
// statement that takes the address is an effect it keeps, and costs no instruction.
inline void prefetch(const void* p) {
  __builtin_prefetch(p);
  asm volatile("" : : "r"(p));
}

}  // namespace Mox
