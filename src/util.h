// String, path, file-system and numerical utilities used by every module:
// trimming and comparison of keywords, tokenising, printf-style formatting, backups,
// index sorts, the process-wide random generator, small 3x3 linear algebra, Jacobi
// eigen-solver, Runge-Kutta steps, line fit and text dumps. The FFT is in ct_fft.h.
#pragma once
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "util_error.h"

// ---------------------------------------------------------------- trimming
std::string& triml(std::string& s);
std::string& trimr(std::string& s);
std::string& trim(std::string& s);
std::string& sg_triml(std::string& s);
std::string& sg_trimr(std::string& s);
std::string& sg_trim(std::string& s);
void c_triml(char* s);
void c_trimr(char* s);
void c_trim(char* s);

// ---------------------------------------------------------------- comparison
bool iequals(const std::string& a, const std::string& b);
bool strcaseequal(const std::string& a, const std::string& b);
bool strcaseequal(const std::string& a, const std::string& b, unsigned long n);
// Prefix test of n characters ignoring case; 1 for n < 1. Stops safely at a terminator.
int strcasestr_n(const char* a, const char* b, int n);
bool isAlphabetical(std::string s);

struct ci_char_traits : public std::char_traits<char> {
  static bool eq(char c1, char c2);
  static bool ne(char c1, char c2);
  static bool lt(char c1, char c2);
  static int compare(const char* s1, const char* s2, size_t n);
  static const char* find(const char* s, int n, char a);
};
using ci_string = std::basic_string<char, ci_char_traits>;

// ---------------------------------------------------------------- edits
void findAndReplaceAll(std::string& data, std::string toSearch, std::string replaceStr);
std::string RemoveWhiteSpaceUnderscore(const std::string& s);
void ReplaceSlashWithUnderscore(char* s);
void ReplaceSlashWithUnderscore(std::string& s);
void ReplaceBackSlashWithSlash(char* s);
void FixMsys2PathDrive(char* s);
void FixMsys2PathDrive(std::string& s);
char* morphNumericString(char* s, int n);

// ---------------------------------------------------------------- splitting
int tokenize(std::vector<std::string>& out, std::string& s, const char* delims);
int tokenize(std::vector<std::string>& out, const char* s, const char* delims);
void split_to_words(std::string s, std::string delims, std::vector<std::string>* out);
std::vector<std::string> split_string_dl(std::string s, char d);
std::vector<std::string> split_string(std::string s);
std::vector<std::string> globFileVector(const std::string& pattern);

// ---------------------------------------------------------------- formatting
// printf-style formatting of any length (the format is a C string: a reference parameter
// cannot carry the variable arguments).
std::string format_string(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string formatStringV(const char* fmt, va_list args);
std::string formatString(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void get_now_date_time(char* dst);
char* get_now_date_time();
int get_date(int* month, int* day, int* year);

// ---------------------------------------------------------------- paths and files
std::string base_filename(const std::string& path);
std::string remove_filename_extension(const std::string& name);
std::pair<std::string, std::string> getParentPathAndBasename(const std::string& path);
void get_workdir(std::string& out);
bool fileExist(const char* path);
int file_exists(const char* path);
// True for a path that exists and is not a regular file (a FIFO, a device, a directory):
// readers refuse it, since reading one may never end.
bool exists_not_regular(const char* path);
int _file_exist(const std::string& path);
int dir_exists(const char* path);
void create_directory(const char* path);
int count_lines(const char* path);
char* strhed(char** s);
void make_file_backup(const std::string& path);

// An output file that replaces `target` in one step (util_output.cpp): written into a file
// of this run alone (unnamed where the file system allows, else a fresh name beside the
// target), then renamed over the target by commit(). An uncommitted file is discarded.
class ReplacingOutput {
 public:
  explicit ReplacingOutput(const std::string& target);
  ~ReplacingOutput();
  ReplacingOutput(const ReplacingOutput&) = delete;
  ReplacingOutput& operator=(const ReplacingOutput&) = delete;

  // The stream to write to; null when no file could be created.
  std::FILE* file() const { return file_; }
  // Flushes, closes and renames the file over the target; false (and nothing left behind)
  // when any step fails.
  bool commit();

 private:
  void discard();
  std::string target_;
  std::string temp_name_;  // the file's own name, empty while it is unnamed
  std::FILE* file_ = nullptr;
  int unnamed_fd_ = -1;
};
std::string _backup_filenname(const std::string& path);
void backup_file(const char* path);
unsigned long FNW_hash(const char* s);

// ---------------------------------------------------------------- sorting
void q_sort(int* a, int* idx, int left, int right);
void quickSort_i(int* a, int* idx, int n);
void q_sort2(double* val, int* idx, int left, int right);
void quickSort_d(double* val, int* idx, int n);
void swap_int(int* a, int* b);
void swap_dbl(double* a, double* b);

// ---------------------------------------------------------------- random numbers
extern long idum;        // shared seed / first state word of ran2 (64-bit long)
extern int need_newvars; // 1 when randGaussian must draw a new pair
double ran2(long* idum);
double randUniform();
void init_random_seed();
double randGaussian();
double randExponential();
int select_reaction(double* rates, int n, double u, double total);

// ---------------------------------------------------------------- linear algebra
constexpr double KAVRI_PI = 3.1415926535898; // the truncated pi used for every degree conversion
double det(double A[3][3]);
void transpose_matrix(double A[3][3]);
void transpose_matrix(double** A, int n);
void invert(double A[3][3], double B[3][3]);
double get_magnitude(const double v[3]);
double get_dot(const double a[3], const double b[3]);
void mat_vec_mul(double A[3][3], const double x[3], double y[3]);
void mat_vec_mul_n(double A[3][3], double X[][3], double Y[][3], int n);
void mat_mat_mul(double A[3][3], double B[3][3], double C[3][3]);
void mat_mat_mul_nxn(double** A, double** B, double** C, int n);
void mat_scale(double A[3][3], double s, double B[3][3]);
void mat_mat_add(double A[3][3], double B[3][3], double C[3][3]);
double anint(double x);
void jacobi_nr(double a[][3], int n, double* d, double v[][3], int& nrot);
void eigsrt_nr(double* d, double v[][3], int n);
void rot_matrix_from_dir_vector_and_angle(double R[3][3], double u[3], double angle);

// ---------------------------------------------------------------- ODE steps and fitting
double rk4_one(double t, double y, double h, double (*f)(double, double));
// One RK4 step for n coupled equations; f fills `dydt` (n values) for (t, y).
std::vector<double> rk4_vec(double t, int n, const double* y, double h,
                            void (*f)(double t, int n, const double* y, double* dydt));
int LinearRegression(double* x, double* y, int n, double* a, double* b, double* s);
int highestPowerof2(int n);

// ---------------------------------------------------------------- text dumps
void output_matrix(double** M, int n, int ncol, const char* path);
void output_vector(double* v, int n, int ncol, const char* path);
void output_vvector(std::vector<std::vector<double>> m, const char* path);
