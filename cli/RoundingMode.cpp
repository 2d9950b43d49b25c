// The rounding-mode functions the C++ runtime's floating-point text conversions call:
// std::to_chars and std::from_chars of a double save, set and restore the mode. They are all
// the program would load the maths library for, and loading a library costs every start its
// mapping and relocation. The program's link sends the runtime's calls here (--wrap); these
// do what the C library's do on x86-64, where the x87 control word (bits 10-11) and the SSE
// control register (bits 13-14) both carry the mode.

#include <cfenv>

namespace {

constexpr int kRoundingBits = FE_TONEAREST | FE_DOWNWARD | FE_UPWARD | FE_TOWARDZERO;
static_assert(kRoundingBits == 0xc00, "the x87 control word's rounding bits");

}  // namespace

extern "C" {

int __wrap_fegetround() {
  unsigned short control;
  __asm__ volatile("fnstcw %0" : "=m"(control));
  return control & kRoundingBits;
}

int __wrap_fesetround(int mode) {
  if ((mode & ~kRoundingBits) != 0) return 1;
  unsigned short control;
  __asm__ volatile("fnstcw %0" : "=m"(control));
  control = static_cast<unsigned short>((control & ~kRoundingBits) | mode);
  __asm__ volatile("fldcw %0" : : "m"(control));
  unsigned int sse;
  __asm__ volatile("stmxcsr %0" : "=m"(sse));
  sse = (sse & ~(static_cast<unsigned int>(kRoundingBits) << 3)) |
        (static_cast<unsigned int>(mode) << 3);
  __asm__ volatile("ldmxcsr %0" : : "m"(sse));
  return 0;
}

}  // extern "C"
