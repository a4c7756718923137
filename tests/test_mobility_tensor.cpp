// Exact diffusion tensor of the hopping walk: known answers, and a second route through the
// curvature of the leading eigenvalue of the Bloch rate matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "mobility_tensor.h"

namespace {

using cplx = std::complex<double>;

NetworkHop hop(int from, int to, double rate, double dx, double dy = 0, double dz = 0) {
  return NetworkHop{from, to, rate, {dx, dy, dz}};
}

// Two sites a/2 apart on a line of period a: site 0 hops right at rate r0 and left at l0,
// site 1 right at r1 and left at l1 (each to the other site).
HopNetwork chain_cell(double a, double r0, double l0, double r1, double l1) {
  return HopNetwork{2, {hop(0, 1, r0, a / 2), hop(0, 1, l0, -a / 2), hop(1, 0, r1, a / 2),
                        hop(1, 0, l1, -a / 2)}};
}

// The leading eigenvalue lambda(q) of the Bloch matrix H_ij(q) = sum_hops k e^{i q.d} - K_i
// delta_ij, by inverse iteration about 0; Re lambda(q) = -q.D.q + O(q^4).
double bloch_real_eigenvalue(const HopNetwork& net, const double q[3]) {
  const int n = net.nsites;
  std::vector<cplx> H(static_cast<size_t>(n) * n, 0.0);
  for (const NetworkHop& h : net.hops) {
    const double phase = q[0] * h.d[0] + q[1] * h.d[1] + q[2] * h.d[2];
    H[h.from * n + h.to] += h.rate * std::exp(cplx(0.0, phase));
    H[h.from * n + h.from] -= h.rate;
  }
  // LU of H (no pivoting needed near q = 0 for these small, diagonally dominant matrices).
  for (int k = 0; k < n; ++k)
    for (int i = k + 1; i < n; ++i) {
      const cplx f = H[i * n + k] / H[k * n + k];
      H[i * n + k] = f;
      for (int j = k + 1; j < n; ++j) H[i * n + j] -= f * H[k * n + j];
    }
  std::vector<cplx> x(n, 1.0);
  cplx mu = 0.0;
  for (int it = 0; it < 60; ++it) {
    std::vector<cplx> y = x;
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < i; ++j) y[i] -= H[i * n + j] * y[j];
    for (int i = n - 1; i >= 0; --i) {
      for (int j = i + 1; j < n; ++j) y[i] -= H[i * n + j] * y[j];
      y[i] /= H[i * n + i];
    }
    int big = 0;
    for (int i = 1; i < n; ++i)
      if (std::abs(y[i]) > std::abs(y[big])) big = i;
    mu = y[big] / x[big];
    const cplx scale = y[big];
    for (int i = 0; i < n; ++i) x[i] = y[i] / scale;
  }
  return (1.0 / mu).real();
}

// D from the Bloch curvature along the axes and their pairwise sums.
void bloch_diffusion(const HopNetwork& net, double D[3][3]) {
  const double h = 1e-3;
  auto curvature = [&](int a, int b) {
    double q[3] = {0, 0, 0};
    q[a] += h;
    q[b] += h;
    return -bloch_real_eigenvalue(net, q) / (h * h);
  };
  for (int a = 0; a < 3; ++a) D[a][a] = curvature(a, a) / 4.0;
  for (int a = 0; a < 3; ++a)
    for (int b = a + 1; b < 3; ++b)
      D[a][b] = D[b][a] = (curvature(a, b) - D[a][a] - D[b][b]) / 2.0;
}

TEST(ExactDiffusion, KnownAnswers) {
  // One molecule hopping +a and -a with rate k each: D_xx = k a^2, nothing else.
  {
    HopNetwork net{1, {hop(0, 0, 3.0, 2.0), hop(0, 0, 3.0, -2.0)}};
    const ExactDiffusion e = exact_diffusion(net);
    EXPECT_DOUBLE_EQ(e.D[0][0], 12.0);
    EXPECT_EQ(e.D[1][1], 0.0);
    EXPECT_EQ(e.D[0][1], 0.0);
    EXPECT_FALSE(e.drift);
  }
  // Biased: +a at rate k1, -a at rate k2: v = (k1 - k2) a, D = (k1 + k2) a^2 / 2, and the
  // drift is flagged.
  {
    HopNetwork net{1, {hop(0, 0, 5.0, 1.5), hop(0, 0, 1.0, -1.5)}};
    const ExactDiffusion e = exact_diffusion(net);
    EXPECT_DOUBLE_EQ(e.v[0], 6.0);
    EXPECT_DOUBLE_EQ(e.D[0][0], 6.0 * 2.25 / 2.0);
    EXPECT_TRUE(e.drift);
  }
  // Two-site chain of period a with alternating bonds k1, k2: D = a^2 k1 k2 / (2 (k1 + k2)),
  // the series sum of the two bonds (chi is not zero here).
  {
    const double a = 4.0, k1 = 2.0, k2 = 7.0;
    const ExactDiffusion e = exact_diffusion(chain_cell(a, k1, k2, k2, k1));
    EXPECT_NEAR(e.D[0][0], a * a * k1 * k2 / (2 * (k1 + k2)), 1e-12);
    EXPECT_NEAR(e.pi[0], 0.5, 1e-15);
    EXPECT_FALSE(e.drift);
  }
  // Two sites of different energy (detailed balance, rates up k_u and down k_d on both
  // bonds): pi_0 = k_d / (k_u + k_d), D = a^2 k_u k_d / (2 (k_u + k_d)).
  {
    const double a = 3.0, ku = 0.5, kd = 4.0;
    const ExactDiffusion e = exact_diffusion(chain_cell(a, ku, ku, kd, kd));
    EXPECT_NEAR(e.pi[0], kd / (ku + kd), 1e-15);
    EXPECT_NEAR(e.D[0][0], a * a * ku * kd / (2 * (ku + kd)), 1e-12);
  }
}

TEST(ExactDiffusion, MirrorSymmetryFixesTheAxes) {
  // Two sites of a rectangular cell with x -> -x and y -> -y mirrors: centred-rectangular
  // hops (+-a/2, +-b/2) between the sites and +-a, +-b, +-c within each, all rates different
  // along different axes. The tensor is diagonal, and D_zz = k_c c^2.
  const double a = 6.0, b = 8.0, c = 5.0;
  HopNetwork net{2, {}};
  for (int s = 0; s < 2; ++s) {
    for (int sx = -1; sx <= 1; sx += 2)
      for (int sy = -1; sy <= 1; sy += 2) net.hops.push_back(hop(s, 1 - s, 3.0, sx * a / 2, sy * b / 2));
    for (int sg = -1; sg <= 1; sg += 2) {
      net.hops.push_back(hop(s, s, 0.7, sg * a));
      net.hops.push_back(hop(s, s, 0.2, 0, sg * b));
      net.hops.push_back(hop(s, s, 0.05, 0, 0, sg * c));
    }
  }
  const ExactDiffusion e = exact_diffusion(net);
  EXPECT_NEAR(e.D[0][1], 0.0, 1e-12);
  EXPECT_NEAR(e.D[0][2], 0.0, 1e-12);
  EXPECT_NEAR(e.D[1][2], 0.0, 1e-12);
  EXPECT_NEAR(e.D[2][2], 0.05 * c * c, 1e-12);
  EXPECT_NEAR(e.D[0][0], 0.5 * 4 * 3.0 * a * a / 4 + 0.7 * a * a, 1e-11);
}

TEST(ExactDiffusion, AgreesWithBlochCurvatureOnRandomNetworks) {
  // Random rates without detailed balance (so pi, v and chi are all non-trivial), with and
  // without drift-cancelling pairs; compared on the full tensor.
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> rate(0.1, 5.0), vec(-3.0, 3.0);
  for (int trial = 0; trial < 4; ++trial) {
    HopNetwork net{5, {}};
    for (int i = 0; i < net.nsites; ++i)
      for (int k = 0; k < 4; ++k) {
        const int j = (i + 1 + k) % net.nsites;
        net.hops.push_back(hop(i, j, rate(gen), vec(gen), vec(gen), vec(gen)));
      }
    const ExactDiffusion e = exact_diffusion(net);
    double B[3][3];
    bloch_diffusion(net, B);
    for (int a = 0; a < 3; ++a)
      for (int b = 0; b < 3; ++b)
        EXPECT_NEAR(e.D[a][b], B[a][b], 2e-5 * (std::fabs(B[a][a]) + std::fabs(B[b][b])))
            << "trial " << trial << " D" << a << b;
  }
}

TEST(ExactDiffusion, IterativeRouteOnALongChainMatchesTheSeriesSum) {
  // The alternating chain as 300 cells of a 600-site supercell: above the elimination limit,
  // so pi and chi come from the iteration; the answer is that of the two-site cell.
  const double a = 4.0, k1 = 2.0, k2 = 7.0;
  const int cells = 300, n = 2 * cells;
  HopNetwork net{n, {}};
  for (int s = 0; s < n; ++s) {
    const double kr = s % 2 == 0 ? k1 : k2, kl = s % 2 == 0 ? k2 : k1;
    net.hops.push_back(hop(s, (s + 1) % n, kr, a / 2));
    net.hops.push_back(hop(s, (s + n - 1) % n, kl, -a / 2));
  }
  const ExactDiffusion e = exact_diffusion(net);
  EXPECT_TRUE(e.solved);
  EXPECT_NEAR(e.D[0][0], a * a * k1 * k2 / (2 * (k1 + k2)), 1e-9);
  for (double p : e.pi) EXPECT_NEAR(p, 1.0 / n, 1e-12);

  // The two solvers agree on a non-symmetric system.
  SparseRows A;
  A.n = 50;
  A.start.push_back(0);
  for (int i = 0; i < A.n; ++i) {
    for (int j : {i - 1, i, i + 1, i + 7})
      if (j >= 0 && j < A.n) {
        A.col.push_back(j);
        A.val.push_back(j == i ? -4.0 - 0.01 * i : 1.0 + 0.1 * ((i * j) % 3));
      }
    A.start.push_back(static_cast<int>(A.col.size()));
  }
  std::vector<double> b(A.n), x1, x2;
  for (int i = 0; i < A.n; ++i) b[i] = std::sin(i);
  ASSERT_TRUE(solve_sparse(A, b, x1, A.n + 1));
  ASSERT_TRUE(solve_sparse(A, b, x2, 0));
  for (int i = 0; i < A.n; ++i) EXPECT_NEAR(x1[i], x2[i], 1e-11);
}

}  // namespace
