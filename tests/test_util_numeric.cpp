// Tests of the numerical helpers: tie orders of both quicksorts, the ran2 streams and the
// Gaussian pairing, 3x3 algebra with its fatal paths, Jacobi, RK4, the line fit, the FFT
// and the layouts of the text dumps.
#include <gtest/gtest.h>
#include <unistd.h>

#include <complex>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <valarray>
#include <vector>

#include "ct_fft.h"
#include "util.h"

using Ints = std::vector<int>;
using Doubles = std::vector<double>;

// The first draws of a process that never seeded the generator.
static bool fresh_stream_matches() {
  const double expected[] = {0.6554163483485531, 0.20099518545185716, 0.8936223876466522,
                             0.2818865431288053, 0.5250003829714993};
  bool ok = idum == 1000;
  for (double e : expected) ok = ok && randUniform() == e;
  return ok && idum == 2105446580;
}

TEST(UtilSort, TieOrdersOfBothSchemes) {
  int b[] = {2, 2, 1, 2, 1}, ib[] = {0, 1, 2, 3, 4};
  q_sort(b, ib, 0, 5); // right is one past the end
  EXPECT_EQ(Ints(b, b + 5), (Ints{1, 1, 2, 2, 2}));
  EXPECT_EQ(Ints(ib, ib + 5), (Ints{2, 4, 1, 3, 0}));
  double v[] = {2, 1, 2, 1, 2, 1}, x[] = {3, 1, 2, 3, 1, 2, 3};
  int iv[] = {0, 1, 2, 3, 4, 5}, ix[] = {0, 1, 2, 3, 4, 5, 6};
  quickSort_d(v, iv, 6); // only the index moves
  EXPECT_EQ(Ints(iv, iv + 6), (Ints{3, 1, 5, 4, 0, 2}));
  EXPECT_EQ(Doubles(v, v + 6), (Doubles{2, 1, 2, 1, 2, 1}));
  q_sort2(x, ix, 0, 6); // both ends included
  EXPECT_EQ(Ints(ix, ix + 7), (Ints{1, 4, 5, 2, 6, 0, 3}));
}

TEST(UtilRandom, Ran2StreamsGaussianPairsAndSelection) {
  // First, in a re-executed process whose shuffle table is still all zeros.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(fresh_stream_matches() ? 0 : 1), ::testing::ExitedWithCode(0), "");

  long seed = -7; // a negative seed reinitialises
  for (double e : {0.45206034994923033, 0.8885129427181557, 0.3178740604870464,
                   0.5964256179035536, 0.6130059860206716})
    EXPECT_EQ(ran2(&seed), e);
  EXPECT_EQ(seed, 1699077319);

  idum = -7;
  need_newvars = 1;
  EXPECT_DOUBLE_EQ(randGaussian(), -0.12116528481224147);
  const long after_first = idum;
  EXPECT_DOUBLE_EQ(randGaussian(), 0.981948789943902); // the stored partner, no new draws
  EXPECT_EQ(idum, after_first);

  double rates[] = {1, 2, 3}; // the running sum must exceed u * total
  const std::pair<double, int> picks[] = {{0.0, 0}, {1.0 / 6.0, 1}, {0.5, 2}, {1.0, -1}};
  for (const auto& [u, want] : picks) EXPECT_EQ(select_reaction(rates, 3, u, 6.0), want) << u;
}

TEST(UtilAlgebra, ThreeByThreeAndJacobi) {
  EXPECT_EQ(anint(-2.5), -3.0);
  const int powers[][2] = {{1000, 512}, {1024, 1024}, {1, 1}, {0, 0}, {2147483647, 1073741824}};
  for (const auto& p : powers) EXPECT_EQ(highestPowerof2(p[0]), p[1]) << p[0];

  double A[3][3] = {{4, 1, 2}, {1, 3, 0.5}, {2, 0.5, 5}}, K[3][3], B[3][3], C[3][3], d[3], v[3][3];
  std::memcpy(K, A, sizeof K);
  EXPECT_DOUBLE_EQ(det(A), 44.0);
  invert(A, B);
  mat_mat_mul(A, B, C);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(C[i][j], i == j ? 1.0 : 0.0, 1e-15);
  double x[3] = {1, 2, 3};
  mat_vec_mul(A, x, x); // in place
  EXPECT_EQ(Doubles(x, x + 3), (Doubles{12, 8.5, 18}));

  int nrot = -1;
  jacobi_nr(A, 3, d, v, nrot); // A is overwritten; K keeps a copy
  for (int k = 0; k < 3; ++k)
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(K[i][0] * v[0][k] + K[i][1] * v[1][k] + K[i][2] * v[2][k], d[k] * v[i][k], 1e-12);
  double D[3][3] = {{3, 0, 0}, {0, 1, 0}, {0, 0, 2}};
  jacobi_nr(D, 3, d, v, nrot);
  EXPECT_EQ(nrot, 0);
  EXPECT_EQ(Doubles(d, d + 3), (Doubles{3, 1, 2})); // not sorted

  // Among equal values the later one is taken: column 2 moves to the front.
  double e[3] = {1, 2, 2}, w[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  eigsrt_nr(e, w, 3);
  EXPECT_EQ(Doubles(e, e + 3), (Doubles{2, 2, 1}));
  EXPECT_EQ(w[2][0] + w[1][1] + w[0][2], 3.0);
}

TEST(UtilAlgebraDeath, InvertFailuresOnStdout) {
  // stderr is closed in the child, so the messages matched must come from stdout.
  double I[3][3] = {{1}, {0, 1}, {0, 0, 1}}, S[3][3] = {{1e-31}, {0, 1}, {0, 0, 1}};
  EXPECT_EXIT((dup2(2, 1), close(2), invert(I, I)), ::testing::ExitedWithCode(255),
              "^invert - Result matrix overlaps input\n$");
  EXPECT_EXIT((dup2(2, 1), close(2), invert(S, I)), ::testing::ExitedWithCode(255),
              "^Determinant of matrix is zero.$");
}

TEST(UtilFit, Rk4LineFitAndFft) {
  // One step of y' = -2y agrees with exp(-0.2) through the fourth-order term.
  EXPECT_NEAR(rk4_one(0.0, 1.0, 0.1, [](double, double y) { return -2.0 * y; }),
              0.8187333333333333, 1e-15);

  double x[] = {0, 1, 2, 3}, y[] = {1, 3, 5, 7}, same[] = {2, 2, 2}, a, b, s;
  EXPECT_EQ(LinearRegression(x, y, 4, &a, &b, &s), 0);
  EXPECT_EQ((Doubles{a, b}), (Doubles{1, 2}));
  EXPECT_NEAR(s, 0.0, 1e-7);
  EXPECT_EQ(LinearRegression(same, y, 3, &a, &b, &s), 0);
  EXPECT_EQ((Doubles{a, b, s}), Doubles(3, 0.0));
  a = b = s = 5;
  testing::internal::CaptureStderr();
  EXPECT_EQ(LinearRegression(x, y, 2, &a, &b, &s), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Not enough data [2] (at least n > 2)!\n");
  EXPECT_EQ((Doubles{a, b, s}), Doubles(3, 0.0));

  std::valarray<std::complex<double>> f = {1.0, 2.0, 3.0, 4.0};
  const std::complex<double> expected[] = {{10, 0}, {-2, 2}, {-2, 0}, {-2, -2}};
  CT_fft(f);
  for (int k = 0; k < 4; ++k) EXPECT_LT(std::abs(f[k] - expected[k]), 1e-14) << k;
  CT_ifft(f);
  for (int k = 0; k < 4; ++k) EXPECT_LT(std::abs(f[k] - (k + 1.0)), 1e-14) << k;
}

TEST(UtilDump, MatrixBlocksAndVectorRows) {
  const std::string path = ::testing::TempDir() + "kavri_dump_" + std::to_string(getpid());
  const auto dumped = [&path] {
    return std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {});
  };
  double r0[] = {0, 0.1, 0.2}, r1[] = {1, 1.1, 1.2}, r2[] = {2, 2.1, 2.2}, *M[] = {r0, r1, r2};
  output_matrix(M, 3, 2, path.c_str()); // a block of columns 0-1, then one of column 2
  EXPECT_EQ(dumped(), "                    0            1\n"
                      "      0       0.00000000   0.10000000\n"
                      "      1       1.00000000   1.10000000\n"
                      "      2       2.00000000   2.10000000\n"
                      "                    2\n"
                      "      0       0.20000000\n"
                      "      1       1.20000000\n"
                      "      2       2.20000000\n");
  output_vector(r2, 3, 2, path.c_str());
  EXPECT_EQ(dumped(), " 2.0000000e+00 2.1000000e+00\n 2.2000000e+00\n");
  output_vvector({{1.5}, {2, -3}}, path.c_str());
  EXPECT_EQ(dumped(), "  1.5000000e+00\n  2.0000000e+00 -3.0000000e+00\n");
  std::remove(path.c_str());
}
