// Tests of the numerical helpers: tie orders of both quicksorts, the ran2 streams and the
// Gaussian pairing, 3x3 algebra with its fatal paths, Jacobi, RK4, the line fit, the FFT
// and the layouts of the text dumps.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <valarray>
#include <vector>

#include "ct_fft.h"
#include "util.h"

namespace {

std::string read_file(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string temp_path(const char* name) {
  return ::testing::TempDir() + "kavri_" + std::to_string(getpid()) + "_" + name;
}

double decay(double, double y) { return -2.0 * y; }

void decay_vec(double t, int n, const double* y, double* dydt) {
  for (int i = 0; i < n; ++i) dydt[i] = decay(t, y[i]);
}

// The first draws of a process that never seeded the generator.
bool fresh_stream_matches() {
  const double expected[] = {0.6554163483485531, 0.20099518545185716, 0.8936223876466522,
                             0.2818865431288053, 0.5250003829714993};
  bool ok = idum == 1000;
  for (double e : expected) ok = ok && randUniform() == e;
  return ok && idum == 2105446580;
}

} // namespace

TEST(UtilSort, TieOrdersOfBothSchemes) {
  int a[] = {3, 1, 3, 2};
  int ia[] = {0, 1, 2, 3};
  quickSort_i(a, ia, 4);
  EXPECT_EQ(std::vector<int>(a, a + 4), (std::vector<int>{1, 2, 3, 3}));
  EXPECT_EQ(std::vector<int>(ia, ia + 4), (std::vector<int>{1, 3, 2, 0}));
  int b[] = {2, 2, 1, 2, 1};
  int ib[] = {0, 1, 2, 3, 4};
  q_sort(b, ib, 0, 5);
  EXPECT_EQ(std::vector<int>(ib, ib + 5), (std::vector<int>{2, 4, 1, 3, 0}));

  double v[] = {2, 1, 2, 1, 2, 1};
  int iv[] = {0, 1, 2, 3, 4, 5};
  quickSort_d(v, iv, 6);
  EXPECT_EQ(std::vector<int>(iv, iv + 6), (std::vector<int>{3, 1, 5, 4, 0, 2}));
  EXPECT_EQ(std::vector<double>(v, v + 6), (std::vector<double>{2, 1, 2, 1, 2, 1}));
  double w[] = {5, 5, 5, 5};
  int iw[] = {0, 1, 2, 3};
  quickSort_d(w, iw, 4);
  EXPECT_EQ(std::vector<int>(iw, iw + 4), (std::vector<int>{2, 3, 0, 1}));
  double x[] = {3, 1, 2, 3, 1, 2, 3};
  int ix[] = {0, 1, 2, 3, 4, 5, 6};
  q_sort2(x, ix, 0, 6);
  EXPECT_EQ(std::vector<int>(ix, ix + 7), (std::vector<int>{1, 4, 5, 2, 6, 0, 3}));
  quickSort_d(x, ix, 0); // nothing to do, nothing read
}

TEST(UtilRandom, FreshProcessStreamFromSeed1000) {
  // Runs in a re-executed process so that the shuffle table is still all zeros.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(fresh_stream_matches() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST(UtilRandom, NegativeSeedReinitialisesAndGaussianPairs) {
  const double expected[] = {0.45206034994923033, 0.8885129427181557, 0.3178740604870464,
                             0.5964256179035536, 0.6130059860206716};
  long seed = -7;
  for (double e : expected) EXPECT_EQ(ran2(&seed), e);
  EXPECT_EQ(seed, 1699077319);

  idum = -7;
  need_newvars = 1;
  EXPECT_DOUBLE_EQ(randGaussian(), -0.12116528481224147);
  EXPECT_EQ(need_newvars, 0);
  const long after_first = idum;
  EXPECT_DOUBLE_EQ(randGaussian(), 0.981948789943902); // the stored partner, no new draws
  EXPECT_EQ(idum, after_first);
  EXPECT_EQ(idum, 1438451740);
  EXPECT_EQ(need_newvars, 1);
}

TEST(UtilRandom, SelectReactionIsStrict) {
  double rates[] = {1, 2, 3};
  EXPECT_EQ(select_reaction(rates, 3, 0.0, 6.0), 0);
  EXPECT_EQ(select_reaction(rates, 3, 1.0 / 6.0, 6.0), 1);
  EXPECT_EQ(select_reaction(rates, 3, 0.5, 6.0), 2);
  EXPECT_EQ(select_reaction(rates, 3, 1.0, 6.0), -1);
  EXPECT_EQ(select_reaction(rates, 0, 0.0, 6.0), -1);
}

TEST(UtilAlgebra, RoundingAndPowers) {
  EXPECT_EQ(anint(2.5), 3.0);
  EXPECT_EQ(anint(-2.5), -3.0);
  EXPECT_EQ(anint(0.0), 0.0);
  EXPECT_EQ(anint(-0.4), 0.0);
  EXPECT_EQ(highestPowerof2(1000), 512);
  EXPECT_EQ(highestPowerof2(1024), 1024);
  EXPECT_EQ(highestPowerof2(1), 1);
  EXPECT_EQ(highestPowerof2(0), 0);
  EXPECT_EQ(highestPowerof2(2147483647), 1073741824);
}

TEST(UtilAlgebra, ThreeByThree) {
  double A[3][3] = {{2, 1, 0}, {1, 3, 1}, {0, 1, 4}};
  EXPECT_DOUBLE_EQ(det(A), 18.0);
  double B[3][3], C[3][3];
  invert(A, B);
  mat_mat_mul(A, B, C);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(C[i][j], i == j ? 1.0 : 0.0, 1e-15);

  double x[3] = {1, 2, 3};
  mat_vec_mul(A, x, x); // in place
  EXPECT_EQ(std::vector<double>(x, x + 3), (std::vector<double>{4, 10, 14}));
  double r0[] = {1, 2}, r1[] = {3, 4}, p0[] = {9, 9}, p1[] = {9, 9};
  double* M[] = {r0, r1};
  double* P[] = {p0, p1};
  mat_mat_mul_nxn(M, M, P, 2); // the result is cleared first
  EXPECT_EQ(p1[0], 15.0);

  double R[3][3];
  double z[3] = {0, 0, 1};
  rot_matrix_from_dir_vector_and_angle(R, z, 90.0);
  double e1[3] = {1, 0, 0};
  mat_vec_mul(R, e1, e1);
  EXPECT_NEAR(e1[0], 0.0, 1e-13);
  EXPECT_NEAR(e1[1], 1.0, 1e-15);
}

TEST(UtilAlgebraDeath, InvertFailures) {
  double A[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  EXPECT_EXIT(
      {
        dup2(2, 1);
        invert(A, A);
      },
      ::testing::ExitedWithCode(255), "^invert - Result matrix overlaps input\n$");
  double S[3][3] = {{1e-31, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  double B[3][3];
  EXPECT_EXIT(
      {
        dup2(2, 1);
        invert(S, B);
      },
      ::testing::ExitedWithCode(255), "^Determinant of matrix is zero.$");
}

TEST(UtilJacobi, EigenpairsAndSortOrder) {
  double D[3][3] = {{3, 0, 0}, {0, 1, 0}, {0, 0, 2}};
  double d[3], v[3][3];
  int nrot = -1;
  jacobi_nr(D, 3, d, v, nrot);
  EXPECT_EQ(nrot, 0);
  EXPECT_EQ(std::vector<double>(d, d + 3), (std::vector<double>{3, 1, 2}));

  double A[3][3] = {{4, 1, 2}, {1, 3, 0.5}, {2, 0.5, 5}};
  const double keep[3][3] = {{4, 1, 2}, {1, 3, 0.5}, {2, 0.5, 5}};
  jacobi_nr(A, 3, d, v, nrot);
  EXPECT_GT(nrot, 0);
  for (int k = 0; k < 3; ++k)
    for (int i = 0; i < 3; ++i) {
      const double Av = keep[i][0] * v[0][k] + keep[i][1] * v[1][k] + keep[i][2] * v[2][k];
      EXPECT_NEAR(Av, d[k] * v[i][k], 1e-12);
    }

  // Among equal values the later one is taken: column 2 moves to the front.
  double e[3] = {1, 2, 2};
  double w[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  eigsrt_nr(e, w, 3);
  EXPECT_EQ(std::vector<double>(e, e + 3), (std::vector<double>{2, 2, 1}));
  EXPECT_EQ(w[2][0], 1.0);
  EXPECT_EQ(w[1][1], 1.0);
  EXPECT_EQ(w[0][2], 1.0);
  eigsrt_nr(e, nullptr, 3);
}

TEST(UtilOde, Rk4StepsAgree) {
  const double h = 0.1;
  const double expected = 1.0 - 0.2 + 0.02 - 0.2 * 0.2 * 0.2 / 6 + 0.2 * 0.2 * 0.2 * 0.2 / 24;
  const double one = rk4_one(0.0, 1.0, h, decay);
  EXPECT_NEAR(one, expected, 1e-15);
  const double y[2] = {1.0, 3.0};
  const std::vector<double> vec = rk4_vec(0.0, 2, y, h, decay_vec);
  ASSERT_EQ(vec.size(), 2u);
  EXPECT_EQ(vec[0], one);
  EXPECT_EQ(vec[1], rk4_one(0.0, 3.0, h, decay));
}

TEST(UtilFit, LinearRegression) {
  double x[] = {0, 1, 2, 3}, y[] = {1, 3, 5, 7};
  double a = -1, b = -1, s = -1;
  EXPECT_EQ(LinearRegression(x, y, 4, &a, &b, &s), 0);
  EXPECT_DOUBLE_EQ(a, 1.0);
  EXPECT_DOUBLE_EQ(b, 2.0);
  EXPECT_NEAR(s, 0.0, 1e-7);

  double same[] = {2, 2, 2};
  EXPECT_EQ(LinearRegression(same, y, 3, &a, &b, &s), 0);
  EXPECT_EQ(a + b + s, 0.0);

  testing::internal::CaptureStderr();
  a = b = s = 5;
  EXPECT_EQ(LinearRegression(x, y, 2, &a, &b, &s), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Not enough data [2] (at least n > 2)!\n");
  EXPECT_EQ(a + b + s, 0.0);
}

TEST(UtilFft, ForwardAndInverse) {
  std::valarray<std::complex<double>> x = {1.0, 2.0, 3.0, 4.0};
  CT_fft(x);
  const std::complex<double> expected[] = {{10, 0}, {-2, 2}, {-2, 0}, {-2, -2}};
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(x[k].real(), expected[k].real(), 1e-14);
    EXPECT_NEAR(x[k].imag(), expected[k].imag(), 1e-14);
  }
  CT_ifft(x);
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(x[k].real(), k + 1.0, 1e-14);

  std::valarray<std::complex<double>> impulse(8);
  impulse[0] = 1.0;
  CT_fft(impulse);
  for (const auto& c : impulse) EXPECT_EQ(c, std::complex<double>(1.0, 0.0));
}

TEST(UtilDump, MatrixVectorLayouts) {
  double rows[5][5];
  double* M[5];
  for (int i = 0; i < 5; ++i) {
    M[i] = rows[i];
    for (int j = 0; j < 5; ++j) rows[i][j] = i + j / 10.0;
  }
  const std::string path = temp_path("matrix.txt");
  output_matrix(M, 5, 2, path.c_str());
  std::vector<std::string> lines;
  std::istringstream text(read_file(path));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 18u); // blocks for columns 0-1, 2-3, then 4
  EXPECT_EQ(lines[0], "                    0            1");
  EXPECT_EQ(lines[1], "      0       0.00000000   0.10000000");
  EXPECT_EQ(lines[12], "                    4");
  EXPECT_EQ(lines[17], "      4       4.40000000");

  double v[] = {1, -2, 3, 4};
  output_vector(v, 4, 2, path.c_str());
  EXPECT_EQ(read_file(path), " 1.0000000e+00-2.0000000e+00\n 3.0000000e+00 4.0000000e+00\n");
  output_vector(v, 3, 2, path.c_str());
  EXPECT_EQ(read_file(path), " 1.0000000e+00-2.0000000e+00\n 3.0000000e+00\n");
  output_vvector({{1.5}, {2, 3}}, path.c_str());
  EXPECT_EQ(read_file(path), "  1.5000000e+00\n  2.0000000e+00  3.0000000e+00\n");
  std::remove(path.c_str());
}

TEST(UtilDumpDeath, UnwritablePaths) {
  const char* bad = "/nonexistent_dir/out.txt";
  double v[] = {1.0};
  double* M[] = {v};
  EXPECT_EXIT(
      {
        dup2(2, 1);
        output_matrix(M, 1, 1, bad);
      },
      ::testing::ExitedWithCode(1), "^Failed to create file /nonexistent_dir/out.txt\n$");
  EXPECT_EXIT(
      {
        dup2(2, 1);
        output_vvector({{1.0}}, bad);
      },
      ::testing::ExitedWithCode(1),
      "^\nERROR  transport : util : line [0-9]+ : \nFailed to create file /nonexistent_dir/out.txt\n$");
}
