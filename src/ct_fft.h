// Radix-2 Cooley-Tukey FFT used for time-series analysis of trajectories.
#pragma once
#include <complex>
#include <valarray>

void CT_fft(std::valarray<std::complex<double>>& x);
void CT_ifft(std::valarray<std::complex<double>>& x);
