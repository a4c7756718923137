// Numerical helpers of the transport model: index sorts, the process-wide ran2 generator
// and its distributions, fixed 3x3 and n x n linear algebra, the Jacobi eigen-solver,
// Runge-Kutta steps, the straight-line fit and plain-text dumps of matrices and vectors.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "util.h"

long idum = 1000;
int need_newvars = 1;

namespace {

// ran2 (L'Ecuyer with a Bays-Durham shuffle), constants as published.
constexpr long kIm1 = 2147483563;
constexpr long kIm2 = 2147483399;
constexpr double kAm = 1.0 / kIm1;
constexpr long kImm1 = kIm1 - 1;
constexpr long kIa1 = 40014;
constexpr long kIa2 = 40692;
constexpr long kIq1 = 53668;
constexpr long kIq2 = 52774;
constexpr long kIr1 = 12211;
constexpr long kIr2 = 3791;
constexpr int kNtab = 32;
constexpr long kNdiv = 1 + kImm1 / kNtab;
constexpr double kRan2Eps = 1.2e-7;
constexpr double kRnmx = 1.0 - kRan2Eps;
constexpr int kRan2WarmUp = 8;

constexpr double kSingularDeterminant = 1e-30;
constexpr int kJacobiMaxSweeps = 50;
constexpr int kJacobiThresholdSweeps = 4; // sweeps below this use the 0.2*sum/n^2 threshold
constexpr int kJacobiUnderflowSweep = 4;  // sweeps above this may drop tiny elements
constexpr double kJacobiEps = 2.220446e-16;
constexpr int kJacobiMaxOrder = 3;

constexpr double kRegressionMinDenominator = 1.11022302e-16;
constexpr double kDegreesToRadians = KAVRI_PI / 180.0;

constexpr const char* kUtilSource = "util";
constexpr int kOutputVvectorErrorLine = 1107;
constexpr int kOutputFailStatus = 1;
constexpr int kInvertFailStatus = -1;

// One step of a multiplicative congruential generator by Schrage's method.
long schrage_step(long state, long a, long q, long r, long m) {
  const long k = state / q;
  state = a * (state - k * q) - k * r;
  if (state < 0) state += m;
  return state;
}

// Keeps the table index inside the shuffle table even for states no seed produces.
int table_index(long iy) {
  long j = iy / kNdiv;
  if (j < 0 || j >= kNtab) j = ((j % kNtab) + kNtab) % kNtab;
  return static_cast<int>(j);
}

void swap_idx(int* idx, int i, int j) {
  const int t = idx[i];
  idx[i] = idx[j];
  idx[j] = t;
}

// Jacobi rotation of the pair (a[i][j], a[k][l]).
void jacobi_rotate(double a[][3], double s, double tau, int i, int j, int k, int l) {
  const double g = a[i][j];
  const double h = a[k][l];
  a[i][j] = g - s * (h + g * tau);
  a[k][l] = h + s * (g - h * tau);
}

void write_matrix_block(std::FILE* f, double** M, int n, int first, int last) {
  std::fprintf(f, "%8s", "");
  for (int j = first; j < last; ++j) std::fprintf(f, "%13d", j);
  std::fprintf(f, "\n");
  for (int i = 0; i < n; ++i) {
    std::fprintf(f, "%7d    ", i);
    for (int j = first; j < last; ++j) std::fprintf(f, "%13.8f", M[i][j]);
    std::fprintf(f, "\n");
  }
}

std::FILE* open_dump_or_exit(const char* path) {
  std::FILE* f = path ? std::fopen(path, "w") : nullptr;
  if (!f) {
    std::printf("Failed to create file %s\n", path ? path : "(null)");
    fatal_exit(kOutputFailStatus);
  }
  return f;
}

} // namespace

// ---------------------------------------------------------------- sorting

// Sorts a[left, right) with the first element as pivot; idx follows every swap.
// Elements equal to the pivot end on its left.
void q_sort(int* a, int* idx, int left, int right) {
  while (right > left + 1) {
    const int pivot = a[left];
    int l = left + 1;
    int r = right;
    while (l < r) {
      if (a[l] <= pivot) {
        ++l;
      } else {
        --r;
        swap_int(&a[l], &a[r]);
        swap_idx(idx, l, r);
      }
    }
    --l;
    swap_int(&a[l], &a[left]);
    swap_idx(idx, l, left);
    q_sort(a, idx, left, l);
    left = r;
  }
}

void quickSort_i(int* a, int* idx, int n) {
  if (n < 2) return;
  q_sort(a, idx, 0, n);
}

// Indirect Hoare sort of idx[left..right] (both included) by the values val[idx[k]].
void q_sort2(double* val, int* idx, int left, int right) {
  while (left < right) {
    const double pivot = val[idx[left + (right - left) / 2]];
    int i = left;
    int j = right;
    while (i <= j) {
      while (val[idx[i]] < pivot) ++i;
      while (val[idx[j]] > pivot) --j;
      if (i <= j) {
        swap_idx(idx, i, j);
        ++i;
        --j;
      }
    }
    if (left < j) q_sort2(val, idx, left, j);
    left = i;
  }
}

void quickSort_d(double* val, int* idx, int n) {
  if (n < 2) return;
  q_sort2(val, idx, 0, n - 1);
}

void swap_int(int* a, int* b) {
  const int t = *a;
  *a = *b;
  *b = t;
}

void swap_dbl(double* a, double* b) {
  const double t = *a;
  *a = *b;
  *b = t;
}

// ---------------------------------------------------------------- random numbers

// A state word <= 0 re-seeds the shuffle table; a positive one continues the stream.
double ran2(long* state) {
  static long idum2 = 123456789;
  static long iy = 0;
  static long iv[kNtab] = {};

  if (*state <= 0) {
    *state = *state == LONG_MIN ? LONG_MAX : -*state;
    if (*state < 1) *state = 1;
    idum2 = *state;
    for (int j = kNtab + kRan2WarmUp - 1; j >= 0; --j) {
      *state = schrage_step(*state, kIa1, kIq1, kIr1, kIm1);
      if (j < kNtab) iv[j] = *state;
    }
    iy = iv[0];
  }
  *state = schrage_step(*state, kIa1, kIq1, kIr1, kIm1);
  idum2 = schrage_step(idum2, kIa2, kIq2, kIr2, kIm2);
  const int j = table_index(iy);
  iy = iv[j] - idum2;
  iv[j] = *state;
  if (iy < 1) iy += kImm1;
  const double temp = kAm * static_cast<double>(iy);
  return temp > kRnmx ? kRnmx : temp;
}

double randUniform() { return ran2(&idum); }

// A positive seed keeps the shuffle table as it stands (all zeros at first start).
void init_random_seed() {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  idum = std::rand();
}

// Polar Box-Muller: each accepted draw gives two deviates, the second kept for the next call.
double randGaussian() {
  static double u1 = 0.0;
  static double u2 = 0.0;
  static double factor = 0.0;
  if (!need_newvars) {
    need_newvars = 1;
    return u2 * factor;
  }
  double r = 0.0;
  do {
    u1 = 2.0 * randUniform() - 1.0;
    u2 = 2.0 * randUniform() - 1.0;
    r = u1 * u1 + u2 * u2;
  } while (r >= 1.0 || r == 0.0);
  factor = std::sqrt(-2.0 * std::log(r) / r);
  need_newvars = 0;
  return u1 * factor;
}

double randExponential() { return -std::log(randUniform()); }

// Smallest index whose running sum of rates exceeds u*total; -1 when none does.
int select_reaction(double* rates, int n, double u, double total) {
  const double target = u * total;
  double sum = 0.0;
  for (int i = 0; i < n; ++i) {
    sum += rates[i];
    if (sum > target) return i;
  }
  return -1;
}

// ---------------------------------------------------------------- linear algebra

double det(double A[3][3]) {
  return A[0][0] * (A[1][1] * A[2][2] - A[1][2] * A[2][1]) -
         A[0][1] * (A[1][0] * A[2][2] - A[1][2] * A[2][0]) +
         A[0][2] * (A[1][0] * A[2][1] - A[1][1] * A[2][0]);
}

void transpose_matrix(double A[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = i + 1; j < 3; ++j) swap_dbl(&A[i][j], &A[j][i]);
}

void transpose_matrix(double** A, int n) {
  for (int i = 0; i < n; ++i)
    for (int j = i + 1; j < n; ++j) swap_dbl(&A[i][j], &A[j][i]);
}

// Adjugate over determinant; an aliased result or a singular matrix ends the run.
void invert(double A[3][3], double B[3][3]) {
  if (A == B) {
    std::printf("%s - Result matrix overlaps input\n", "invert");
    fatal_exit(kInvertFailStatus);
  }
  const double d = det(A);
  if (std::fabs(d) < kSingularDeterminant) {
    std::printf("Determinant of matrix is zero.");
    fatal_exit(kInvertFailStatus);
  }
  B[0][0] = (A[1][1] * A[2][2] - A[1][2] * A[2][1]) / d;
  B[0][1] = (A[0][2] * A[2][1] - A[0][1] * A[2][2]) / d;
  B[0][2] = (A[0][1] * A[1][2] - A[0][2] * A[1][1]) / d;
  B[1][0] = (A[1][2] * A[2][0] - A[1][0] * A[2][2]) / d;
  B[1][1] = (A[0][0] * A[2][2] - A[0][2] * A[2][0]) / d;
  B[1][2] = (A[0][2] * A[1][0] - A[0][0] * A[1][2]) / d;
  B[2][0] = (A[1][0] * A[2][1] - A[1][1] * A[2][0]) / d;
  B[2][1] = (A[0][1] * A[2][0] - A[0][0] * A[2][1]) / d;
  B[2][2] = (A[0][0] * A[1][1] - A[0][1] * A[1][0]) / d;
}

double get_magnitude(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

double get_dot(const double a[3], const double b[3]) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// y may be the same array as x.
void mat_vec_mul(double A[3][3], const double x[3], double y[3]) {
  double r[3];
  for (int i = 0; i < 3; ++i) r[i] = A[i][0] * x[0] + A[i][1] * x[1] + A[i][2] * x[2];
  for (int i = 0; i < 3; ++i) y[i] = r[i];
}

void mat_vec_mul_n(double A[3][3], double X[][3], double Y[][3], int n) {
  for (int k = 0; k < n; ++k) mat_vec_mul(A, X[k], Y[k]);
}

void mat_mat_mul(double A[3][3], double B[3][3], double C[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      C[i][j] = A[i][0] * B[0][j] + A[i][1] * B[1][j] + A[i][2] * B[2][j];
}

void mat_mat_mul_nxn(double** A, double** B, double** C, int n) {
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) C[i][j] = 0.0;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      for (int k = 0; k < n; ++k) C[i][j] += A[i][k] * B[k][j];
}

void mat_scale(double A[3][3], double s, double B[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) B[i][j] = s * A[i][j];
}

void mat_mat_add(double A[3][3], double B[3][3], double C[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) C[i][j] = A[i][j] + B[i][j];
}

// Halves away from zero, through a 64-bit integer; values beyond its range (and NaN)
// are already integral or meaningless and come back unchanged.
double anint(double x) {
  constexpr double kInt64Limit = 9223372036854775808.0;
  if (!(std::fabs(x) < kInt64Limit)) return x;
  return x > 0 ? static_cast<double>(static_cast<long long>(x + 0.5))
               : static_cast<double>(static_cast<long long>(x - 0.5));
}

// Cyclic Jacobi for a symmetric matrix of order n <= 3: eigenvalues in d (unsorted),
// normalised eigenvectors in the columns of v; the strict upper triangle of a is destroyed.
void jacobi_nr(double a[][3], int n, double* d, double v[][3], int& nrot) {
  if (n > kJacobiMaxOrder) n = kJacobiMaxOrder;
  double b[kJacobiMaxOrder] = {};
  double z[kJacobiMaxOrder] = {};
  for (int ip = 0; ip < n; ++ip) {
    for (int iq = 0; iq < n; ++iq) v[ip][iq] = 0.0;
    v[ip][ip] = 1.0;
    b[ip] = d[ip] = a[ip][ip];
    z[ip] = 0.0;
  }
  nrot = 0;
  for (int sweep = 1; sweep <= kJacobiMaxSweeps; ++sweep) {
    double sm = 0.0;
    for (int ip = 0; ip < n - 1; ++ip)
      for (int iq = ip + 1; iq < n; ++iq) sm += std::fabs(a[ip][iq]);
    if (sm == 0.0) return;
    const double tresh = sweep < kJacobiThresholdSweeps ? 0.2 * sm / (n * n) : 0.0;
    for (int ip = 0; ip < n - 1; ++ip) {
      for (int iq = ip + 1; iq < n; ++iq) {
        const double g = 100.0 * std::fabs(a[ip][iq]);
        if (sweep > kJacobiUnderflowSweep && g <= kJacobiEps * std::fabs(d[ip]) &&
            g <= kJacobiEps * std::fabs(d[iq])) {
          a[ip][iq] = 0.0;
        } else if (std::fabs(a[ip][iq]) > tresh) {
          double h = d[iq] - d[ip];
          double t;
          if (g <= kJacobiEps * std::fabs(h)) {
            t = a[ip][iq] / h;
          } else {
            const double theta = 0.5 * h / a[ip][iq];
            t = 1.0 / (std::fabs(theta) + std::sqrt(1.0 + theta * theta));
            if (theta < 0.0) t = -t;
          }
          const double c = 1.0 / std::sqrt(1 + t * t);
          const double s = t * c;
          const double tau = s / (1.0 + c);
          h = t * a[ip][iq];
          z[ip] -= h;
          z[iq] += h;
          d[ip] -= h;
          d[iq] += h;
          a[ip][iq] = 0.0;
          for (int j = 0; j < ip; ++j) jacobi_rotate(a, s, tau, j, ip, j, iq);
          for (int j = ip + 1; j < iq; ++j) jacobi_rotate(a, s, tau, ip, j, j, iq);
          for (int j = iq + 1; j < n; ++j) jacobi_rotate(a, s, tau, ip, j, iq, j);
          for (int j = 0; j < n; ++j) jacobi_rotate(v, s, tau, j, ip, j, iq);
          ++nrot;
        }
      }
    }
    for (int ip = 0; ip < n; ++ip) {
      b[ip] += z[ip];
      d[ip] = b[ip];
      z[ip] = 0.0;
    }
  }
  std::printf("ERROR: Too many iterations in routine jacobi");
}

// Descending selection sort; among equal values the later one is taken.
void eigsrt_nr(double* d, double v[][3], int n) {
  if (n > kJacobiMaxOrder && v) n = kJacobiMaxOrder;
  for (int i = 0; i < n - 1; ++i) {
    int k = i;
    double p = d[i];
    for (int j = i; j < n; ++j) {
      if (d[j] >= p) {
        k = j;
        p = d[j];
      }
    }
    if (k == i) continue;
    d[k] = d[i];
    d[i] = p;
    if (!v) continue;
    for (int j = 0; j < n; ++j) swap_dbl(&v[j][i], &v[j][k]);
  }
}

// Rodrigues' formula R = I + sin(t) K + (1 - cos(t)) K K for the unit axis u, t in degrees.
void rot_matrix_from_dir_vector_and_angle(double R[3][3], double u[3], double angle) {
  const double theta = angle * kDegreesToRadians;
  const double s = std::sin(theta);
  const double c1 = 1.0 - std::cos(theta);
  const double K[3][3] = {{0.0, -u[2], u[1]}, {u[2], 0.0, -u[0]}, {-u[1], u[0], 0.0}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const double kk = K[i][0] * K[0][j] + K[i][1] * K[1][j] + K[i][2] * K[2][j];
      const double identity = i == j ? 1.0 : 0.0;
      R[i][j] = identity + s * K[i][j] + c1 * kk;
    }
  }
}

// ---------------------------------------------------------------- ODE steps and fitting

double rk4_one(double t, double y, double h, double (*f)(double, double)) {
  const double k1 = f(t, y);
  const double k2 = f(t + h / 2, y + h * k1 / 2);
  const double k3 = f(t + h / 2, y + h * k2 / 2);
  const double k4 = f(t + h, y + h * k3);
  return y + h * (k1 + 2 * k2 + 2 * k3 + k4) / 6;
}

std::vector<double> rk4_vec(double t, int n, const double* y, double h,
                            void (*f)(double t, int n, const double* y, double* dydt)) {
  if (n < 1) return {};
  const std::size_t size = static_cast<std::size_t>(n);
  std::vector<double> k1(size), k2(size), k3(size), k4(size), state(size);
  f(t, n, y, k1.data());
  for (std::size_t i = 0; i < size; ++i) state[i] = y[i] + h * k1[i] / 2;
  f(t + h / 2, n, state.data(), k2.data());
  for (std::size_t i = 0; i < size; ++i) state[i] = y[i] + h * k2[i] / 2;
  f(t + h / 2, n, state.data(), k3.data());
  for (std::size_t i = 0; i < size; ++i) state[i] = y[i] + h * k3[i];
  f(t + h, n, state.data(), k4.data());
  for (std::size_t i = 0; i < size; ++i)
    state[i] = y[i] + h * (k1[i] + 2 * k2[i] + 2 * k3[i] + k4[i]) / 6;
  return state;
}

// Least-squares line y = a + b x with the standard error of the estimate in s.
int LinearRegression(double* x, double* y, int n, double* a, double* b, double* s) {
  *a = *b = *s = 0.0;
  if (n < 3) {
    std::fprintf(stderr, "Not enough data [%d] (at least n > 2)!\n", n);
    return -1;
  }
  double sx = 0.0, sy = 0.0, sxx = 0.0, syy = 0.0, sxy = 0.0;
  for (int i = 0; i < n; ++i) {
    sx += x[i];
    sy += y[i];
    sxx += x[i] * x[i];
    syy += y[i] * y[i];
    sxy += x[i] * y[i];
  }
  const double denom = n * sxx - sx * sx;
  if (std::fabs(denom) > kRegressionMinDenominator) {
    *b = (n * sxy - sx * sy) / denom;
    *a = (sy - *b * sx) / n;
    *s = std::sqrt((syy - sy * sy / n - *b * (sxy - sx * sy / n)) / (n - 2));
  }
  return 0;
}

int highestPowerof2(int n) {
  if (n < 1) return 0;
  int p = 1;
  while (p <= n / 2) p *= 2;
  return p;
}

// ---------------------------------------------------------------- text dumps

// Blocks of ncol columns, then one block with the n mod ncol last columns.
void output_matrix(double** M, int n, int ncol, const char* path) {
  std::FILE* f = open_dump_or_exit(path);
  if (ncol < 1) ncol = n > 0 ? n : 1;
  const int full = n / ncol;
  for (int blk = 0; blk < full; ++blk) write_matrix_block(f, M, n, blk * ncol, (blk + 1) * ncol);
  if (n % ncol != 0) write_matrix_block(f, M, n, full * ncol, n);
  std::fclose(f);
}

void output_vector(double* v, int n, int ncol, const char* path) {
  std::FILE* f = open_dump_or_exit(path);
  if (ncol < 1) ncol = n > 0 ? n : 1;
  for (int i = 0; i < n; ++i) {
    std::fprintf(f, "%14.7e", v[i]);
    if ((i + 1) % ncol == 0 || i == n - 1) std::fprintf(f, "\n");
  }
  std::fclose(f);
}

// One row per line.
void output_vvector(std::vector<std::vector<double>> m, const char* path) {
  std::FILE* f = path ? std::fopen(path, "w") : nullptr;
  if (!f)
    fatal_error(kUtilSource, kOutputVvectorErrorLine, FatalStream::Out,
                format_string("Failed to create file %s\n", path ? path : "(null)"),
                kOutputFailStatus);
  for (const std::vector<double>& row : m) {
    for (double value : row) std::fprintf(f, " %14.7e", value);
    std::fprintf(f, "\n");
  }
  std::fclose(f);
}
