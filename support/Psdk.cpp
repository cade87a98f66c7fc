// Tick count from the monotonic clock, and range folding.
#include "support/Psdk.h"

#include <chrono>

uint32_t Psdk::getTickCount() {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  return static_cast<uint32_t>(ms.count());
}

int Psdk::toIntRange(uint32_t v, int lo, int hi) {
  if (hi <= lo) return lo;
  const uint64_t span = static_cast<uint64_t>(static_cast<int64_t>(hi) - lo) + 1;
  return static_cast<int>(lo + static_cast<int64_t>(v % span));
}
