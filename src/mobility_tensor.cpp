// Exact diffusion tensor of the hopping walk on the periodic network, from the rates alone.
//
// Sites are the molecules i of the cell; a hop i -> j has rate k and Cartesian hop vector d
// (images of the same molecule are folded onto it). Let R(t) be the charge's accumulated
// position and i(t) its molecule. For any corrector chi on the sites, the generator of the
// walk acting on R + chi_i gives the local mean velocity
//     b_i + sum_j k_ij (chi_j - chi_i),   b_i = sum_j k_ij d_ij.
// Choose chi so that this is the same constant v at every site:
//     sum_j k_ij (chi_j - chi_i + d_ij) = v.                                         (1)
// (1) is a singular linear system (constants solve the homogeneous part); it has a solution
// exactly when its right-hand side v - b is orthogonal to the stationary distribution pi
// (pi Q = 0 for the rate matrix Q), which fixes v = sum_i pi_i b_i, the mean drift. Then
// M(t) = R(t) + chi_i(t) - v t is a martingale: each hop adds d_ij + chi_j - chi_i to it, at
// rate k_ij, so its covariance grows at the rate sum_j k_ij (d + chi_j - chi_i)(...)^T while
// the charge sits on i, i.e. at the time-averaged rate with weights pi_i. As chi is bounded,
// Cov R(t) = Cov M(t) + O(1) = 2 D t + O(1) with
//     D = 1/2 sum_i pi_i sum_j k_ij (d_ij + chi_j - chi_i)(d_ij + chi_j - chi_i)^T.     (2)
// The engine waits the fixed time 1/K_i instead of an exponential one. Its jump chain is the
// same, and without drift (v = 0) M is a martingale of the jump chain alone: after n hops its
// covariance is n times the mean increment covariance, and n hops take, by the law of large
// numbers, n times the mean residence time; only that mean (1/K_i, weighted as the jump chain
// visits) enters, so both walks have the tensor (2). With a drift the position also follows
// the time taken, R ~ v t(n), and the spread of t(n) (zero for fixed steps, not for
// exponential ones) adds to the spread of R: then (2) is not the engine's tensor.
//
// Both systems are solved with site 0 held fixed (pi_0 = 1 before normalising, chi_0 = 0),
// which leaves the matrix A = Q restricted to sites 1..n-1 and its transpose.
#include "mobility_tensor.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "transport.h"

namespace {

constexpr int kDenseLimit = 400;         // unknowns below which elimination is used
constexpr double kRelativeTolerance = 1e-13;
constexpr double kDriftTolerance = 1e-9;  // |v| relative to the mean hop speed

double dot(const std::vector<double>& a, const std::vector<double>& b) {
  double s = 0.0;
  for (size_t i = 0; i < a.size(); ++i) s += a[i] * b[i];
  return s;
}

void multiply(const SparseRows& A, const std::vector<double>& x, std::vector<double>& y) {
  for (int i = 0; i < A.n; ++i) {
    double s = 0.0;
    for (int p = A.start[i]; p < A.start[i + 1]; ++p) s += A.val[p] * x[A.col[p]];
    y[i] = s;
  }
}

SparseRows transpose(const SparseRows& A) {
  SparseRows T;
  T.n = A.n;
  T.start.assign(A.n + 1, 0);
  for (int c : A.col) ++T.start[c + 1];
  for (int i = 0; i < A.n; ++i) T.start[i + 1] += T.start[i];
  T.col.resize(A.col.size());
  T.val.resize(A.val.size());
  std::vector<int> fill(T.start.begin(), T.start.end() - 1);
  for (int i = 0; i < A.n; ++i)
    for (int p = A.start[i]; p < A.start[i + 1]; ++p) {
      const int q = fill[A.col[p]]++;
      T.col[q] = i;
      T.val[q] = A.val[p];
    }
  return T;
}

bool solve_dense(const SparseRows& A, const std::vector<double>& b, std::vector<double>& x) {
  const int n = A.n;
  std::vector<double> M(static_cast<size_t>(n) * n, 0.0);
  for (int i = 0; i < n; ++i)
    for (int p = A.start[i]; p < A.start[i + 1]; ++p)
      M[static_cast<size_t>(i) * n + A.col[p]] += A.val[p];
  x = b;
  for (int k = 0; k < n; ++k) {
    int piv = k;
    for (int i = k + 1; i < n; ++i)
      if (std::fabs(M[static_cast<size_t>(i) * n + k]) > std::fabs(M[static_cast<size_t>(piv) * n + k]))
        piv = i;
    if (M[static_cast<size_t>(piv) * n + k] == 0.0) return false;
    if (piv != k) {
      for (int j = 0; j < n; ++j)
        std::swap(M[static_cast<size_t>(k) * n + j], M[static_cast<size_t>(piv) * n + j]);
      std::swap(x[k], x[piv]);
    }
    const double* rk = &M[static_cast<size_t>(k) * n];
    for (int i = k + 1; i < n; ++i) {
      double* ri = &M[static_cast<size_t>(i) * n];
      const double f = ri[k] / rk[k];
      if (f == 0.0) continue;
      for (int j = k; j < n; ++j) ri[j] -= f * rk[j];
      x[i] -= f * x[k];
    }
  }
  for (int k = n - 1; k >= 0; --k) {
    const double* rk = &M[static_cast<size_t>(k) * n];
    double s = x[k];
    for (int j = k + 1; j < n; ++j) s -= rk[j] * x[j];
    x[k] = s / rk[k];
  }
  return true;
}

// BiCGSTAB with the diagonal as (right) preconditioner.
bool solve_bicgstab(const SparseRows& A, const std::vector<double>& b, std::vector<double>& x) {
  const int n = A.n;
  std::vector<double> inv_diag(n, 1.0);
  for (int i = 0; i < n; ++i) {
    double d = 0.0;
    for (int p = A.start[i]; p < A.start[i + 1]; ++p)
      if (A.col[p] == i) d += A.val[p];
    if (d != 0.0) inv_diag[i] = 1.0 / d;
  }
  x.assign(n, 0.0);
  const double bnorm = std::sqrt(dot(b, b));
  if (bnorm == 0.0) return true;
  const double tol = kRelativeTolerance * bnorm;
  std::vector<double> r = b, r0 = b, p(n, 0.0), v(n, 0.0), s(n), t(n), ph(n), sh(n);
  double rho = 1.0, alpha = 1.0, omega = 1.0;
  const int max_iter = std::max(1000, 20 * n);
  for (int it = 0; it < max_iter; ++it) {
    const double rho_new = dot(r0, r);
    if (rho_new == 0.0 || omega == 0.0) {  // breakdown: restart from the current x
      multiply(A, x, t);
      for (int i = 0; i < n; ++i) r[i] = b[i] - t[i];
      r0 = r;
      std::fill(p.begin(), p.end(), 0.0);
      std::fill(v.begin(), v.end(), 0.0);
      rho = alpha = omega = 1.0;
      if (std::sqrt(dot(r, r)) <= tol) return true;
      continue;
    }
    const double beta = (rho_new / rho) * (alpha / omega);
    for (int i = 0; i < n; ++i) p[i] = r[i] + beta * (p[i] - omega * v[i]);
    for (int i = 0; i < n; ++i) ph[i] = inv_diag[i] * p[i];
    multiply(A, ph, v);
    alpha = rho_new / dot(r0, v);
    for (int i = 0; i < n; ++i) s[i] = r[i] - alpha * v[i];
    if (std::sqrt(dot(s, s)) <= tol) {
      for (int i = 0; i < n; ++i) x[i] += alpha * ph[i];
      return true;
    }
    for (int i = 0; i < n; ++i) sh[i] = inv_diag[i] * s[i];
    multiply(A, sh, t);
    const double tt = dot(t, t);
    omega = tt > 0.0 ? dot(t, s) / tt : 0.0;
    for (int i = 0; i < n; ++i) x[i] += alpha * ph[i] + omega * sh[i];
    for (int i = 0; i < n; ++i) r[i] = s[i] - omega * t[i];
    if (std::sqrt(dot(r, r)) <= tol) return true;
    rho = rho_new;
  }
  return false;
}

}  // namespace

bool solve_sparse(const SparseRows& A, const std::vector<double>& b, std::vector<double>& x,
                  int dense_limit) {
  if (A.n == 0) {
    x.clear();
    return true;
  }
  return A.n < dense_limit ? solve_dense(A, b, x) : solve_bicgstab(A, b, x);
}

HopNetwork hop_network_of(const Transport& model, const double latt[3][3]) {
  HopNetwork net;
  net.nsites = model.get_nmols_uc();
  for (int i = 0; i < net.nsites; ++i) {
    const std::vector<double>& disp = model.get_nei_disp(i);
    for (int j = 0; j < model.get_MC_nhops(i); ++j) {
      NetworkHop h{i, model.get_nei_mol(i, j), model.get_MC_rate(i, j), {0, 0, 0}};
      for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 3; ++c) h.d[a] += latt[a][c] * disp[3 * j + c];
      net.hops.push_back(h);
    }
  }
  return net;
}

ExactDiffusion exact_diffusion(const HopNetwork& net) {
  ExactDiffusion out;
  const int n = net.nsites;
  if (n < 1) return out;

  // Off-diagonal rates of Q (hops between different sites), the exit rates and the local
  // drift b_i, in the order of the hops.
  std::vector<double> exit(n, 0.0), b(3 * static_cast<size_t>(n), 0.0);
  std::vector<std::vector<std::pair<int, double>>> rows(n);
  for (const NetworkHop& h : net.hops) {
    for (int a = 0; a < 3; ++a) b[3 * h.from + a] += h.rate * h.d[a];
    if (h.to == h.from) continue;
    exit[h.from] += h.rate;
    rows[h.from].push_back({h.to, h.rate});
  }
  // A: rows and columns 1..n-1 of Q, indexed from 0.
  SparseRows A;
  A.n = n - 1;
  A.start.assign(1, 0);
  for (int i = 1; i < n; ++i) {
    A.col.push_back(i - 1);
    A.val.push_back(-exit[i]);
    for (const auto& [j, k] : rows[i])
      if (j != 0) {
        A.col.push_back(j - 1);
        A.val.push_back(k);
      }
    A.start.push_back(static_cast<int>(A.col.size()));
  }

  // pi: sum_i pi_i Q_ij = 0 for j >= 1, with pi_0 = 1, then normalised.
  std::vector<double> rhs(A.n, 0.0), x;
  for (const auto& [j, k] : rows[0])
    if (j != 0) rhs[j - 1] -= k;
  bool solved = solve_sparse(transpose(A), rhs, x, kDenseLimit);
  out.pi.assign(n, 0.0);
  out.pi[0] = 1.0;
  for (int i = 1; i < n; ++i) out.pi[i] = x[i - 1];
  double total = 0.0;
  for (double p : out.pi) total += p;
  for (double& p : out.pi) p /= total;

  double speed = 0.0;
  for (const NetworkHop& h : net.hops)
    speed += out.pi[h.from] * h.rate * std::sqrt(h.d[0] * h.d[0] + h.d[1] * h.d[1] + h.d[2] * h.d[2]);
  for (int i = 0; i < n; ++i)
    for (int a = 0; a < 3; ++a) out.v[a] += out.pi[i] * b[3 * i + a];
  const double vnorm = std::sqrt(out.v[0] * out.v[0] + out.v[1] * out.v[1] + out.v[2] * out.v[2]);
  out.drift = vnorm > kDriftTolerance * speed;

  // chi, one Cartesian component at a time: (Q chi)_i = v - b_i for i >= 1, chi_0 = 0.
  std::vector<double> chi(3 * static_cast<size_t>(n), 0.0);
  for (int a = 0; a < 3; ++a) {
    for (int i = 1; i < n; ++i) rhs[i - 1] = out.v[a] - b[3 * i + a];
    solved = solve_sparse(A, rhs, x, kDenseLimit) && solved;
    for (int i = 1; i < n; ++i) chi[3 * i + a] = x[i - 1];
  }
  out.solved = solved;

  for (const NetworkHop& h : net.hops) {
    double e[3];
    for (int a = 0; a < 3; ++a) e[a] = h.d[a] + chi[3 * h.to + a] - chi[3 * h.from + a];
    const double w = 0.5 * out.pi[h.from] * h.rate;
    for (int a = 0; a < 3; ++a)
      for (int c = 0; c < 3; ++c) out.D[a][c] += w * e[a] * e[c];
  }
  return out;
}
