// Recursive radix-2 Cooley-Tukey FFT in place, forward sign, and its inverse through
// conjugation. The length must be a power of two (see highestPowerof2); it is not checked.
#include "ct_fft.h"

#include <cstddef>

namespace {
constexpr double kMinusTwoPi = -6.283185307179586;
}

void CT_fft(std::valarray<std::complex<double>>& x) {
  const std::size_t n = x.size();
  if (n < 2) return;
  const std::size_t half = n / 2;
  std::valarray<std::complex<double>> even = x[std::slice(0, half, 2)];
  std::valarray<std::complex<double>> odd = x[std::slice(1, half, 2)];
  CT_fft(even);
  CT_fft(odd);
  for (std::size_t k = 0; k < half; ++k) {
    const double angle = static_cast<double>(k) * kMinusTwoPi / static_cast<double>(n);
    const std::complex<double> t = std::polar(1.0, angle) * odd[k];
    x[k] = even[k] + t;
    x[k + half] = even[k] - t;
  }
}

void CT_ifft(std::valarray<std::complex<double>>& x) {
  const std::size_t n = x.size();
  if (n == 0) return;
  for (std::complex<double>& v : x) v = std::conj(v);
  CT_fft(x);
  for (std::complex<double>& v : x) v = std::conj(v) / static_cast<double>(n);
}
