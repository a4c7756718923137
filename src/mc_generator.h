// The Mersenne Twister of the trajectories: the word stream of std::mt19937, with the same
// seeding by an integer or by a seed sequence, kept as 32-bit words and regenerated 624 at a
// time in loops without a carried dependency, which the compiler turns into vector code.
// Uniform numbers are the canonical doubles of std::generate_canonical<double, 53>: two words
// each, the first as the low half.
#pragma once
#include <array>
#include <cmath>
#include <cstdint>
#include <random>

class MCGenerator {
 public:
  using result_type = std::uint32_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return 0xffffffffu; }

  explicit MCGenerator(result_type seed = 5489u) {
    x_[0] = seed;
    for (int i = 1; i < kN; ++i) x_[i] = 1812433253u * (x_[i - 1] ^ (x_[i - 1] >> 30)) + i;
    p_ = kN;
  }
  // A state of all zeros (bit 31 of the first word aside) would repeat zeros for ever; it
  // becomes a single set bit.
  explicit MCGenerator(std::seed_seq& seq) {
    seq.generate(x_.begin(), x_.end());
    bool zero = (x_[0] & kUpper) == 0;
    for (int i = 1; zero && i < kN; ++i) zero = x_[i] == 0;
    if (zero) x_[0] = kUpper;
    p_ = kN;
  }

  result_type operator()() {
    if (p_ >= kN) regenerate();
    std::uint32_t y = x_[p_++];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9d2c5680u;
    y ^= (y << 15) & 0xefc60000u;
    return y ^ (y >> 18);
  }

  // A uniform double in [0, 1): (w1 + w2 2^32) / 2^64 rounded once, 1 replaced by the double
  // below it.
  double canonical() {
    const double low = static_cast<double>((*this)());
    const double sum = low + static_cast<double>((*this)()) * 4294967296.0;
    const double u = sum / 18446744073709551616.0;
    return u >= 1.0 ? std::nextafter(1.0, 0.0) : u;
  }

 private:
  static constexpr int kN = 624, kM = 397;
  static constexpr std::uint32_t kUpper = 0x80000000u, kLower = 0x7fffffffu;
  static constexpr std::uint32_t kMatrix = 0x9908b0dfu;

  static std::uint32_t twist(std::uint32_t a, std::uint32_t b, std::uint32_t far) {
    const std::uint32_t y = (a & kUpper) | (b & kLower);
    return far ^ (y >> 1) ^ ((0u - (y & 1u)) & kMatrix);
  }
  void regenerate() {
    for (int k = 0; k < kN - kM; ++k) x_[k] = twist(x_[k], x_[k + 1], x_[k + kM]);
    for (int k = kN - kM; k < kN - 1; ++k) x_[k] = twist(x_[k], x_[k + 1], x_[k + kM - kN]);
    x_[kN - 1] = twist(x_[kN - 1], x_[0], x_[kM - 1]);
    p_ = 0;
  }

  std::array<std::uint32_t, kN> x_;
  int p_;
};
