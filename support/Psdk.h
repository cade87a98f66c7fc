// Small platform services: a millisecond tick count and the constants of the
// multiplicative generator that seeds identifiers.
#pragma once

#include <cstdint>

class Psdk {
 public:
  // Milliseconds from a fixed but unspecified start, monotonic, wrapping at 2^32.
  static uint32_t getTickCount();
  // Multiplier and modulus of a Lehmer generator (the MINSTD constants 48271, 2^31 - 1).
  static uint32_t n1() { return 48271u; }
  static uint32_t n2() { return 2147483647u; }
  // Folds v into the closed range [lo, hi] (lo when the range is empty or reversed).
  static int toIntRange(uint32_t v, int lo, int hi);
};
