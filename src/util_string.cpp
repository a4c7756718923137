// Text, path and file-system helpers shared by every module: trimming, case-insensitive
// comparison, splitting, printf-style formatting, dates, path pieces, existence tests,
// numbered file backups and the FNW string hash.
#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>

#include "util.h"

namespace {

constexpr const char* kLeftBlank = "\t ";
constexpr const char* kRightBlank = "\t\n\r ";
constexpr const char* kLeftBlankQuote = "\t \"'";
constexpr const char* kRightBlankQuote = "\t\n\r \"'";
constexpr const char* kPathSeparators = "/\\";

constexpr std::size_t kFormatStackBuffer = 1024;
constexpr std::size_t kFormatHeapLimit = std::size_t{1} << 26; // give up on formatter errors
constexpr std::size_t kWorkdirBuffer = 4096;
constexpr std::size_t kCountLinesBuffer = 1024;
constexpr std::size_t kDateTimeBuffer = 64;
constexpr int kMaxBackups = 9;
constexpr mode_t kNewDirectoryMode = 0750;
constexpr mode_t kDirectoryBit = 040000;

constexpr unsigned long kFnwOffsetBasis = 2166136261UL;
constexpr unsigned long kFnwPrime = 16777619UL;

const char* const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool in_set(char c, const char* set) { return c != '\0' && std::strchr(set, c) != nullptr; }

int upper(char c) { return std::toupper(static_cast<unsigned char>(c)); }
int lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

// tolower of a character taken as a signed byte: bytes above 127 stay negative, which
// decides the order given by ci_char_traits::lt.
int lower_signed(char c) {
  const int v = static_cast<signed char>(c);
  return v < 0 ? v : std::tolower(v);
}

std::string& erase_left(std::string& s, const char* set) {
  const std::size_t first = s.find_first_not_of(set);
  s.erase(0, first == std::string::npos ? s.size() : first);
  return s;
}

std::string& erase_right(std::string& s, const char* set) {
  const std::size_t last = s.find_last_not_of(set);
  s.erase(last == std::string::npos ? 0 : last + 1);
  return s;
}

// Line-layout blanks of strhed: space and the control bytes backspace to carriage return.
bool is_layout_blank(char c) { return c == ' ' || (c >= 8 && c <= 13); }

bool is_head_end(char c) { return c == '\0' || c == ' ' || c == '\t' || c == '\n'; }

void split_runs(const std::string& s, const char* delims, std::vector<std::string>& out) {
  std::size_t start = s.find_first_not_of(delims);
  while (start != std::string::npos) {
    const std::size_t end = s.find_first_of(delims, start);
    out.push_back(s.substr(start, end == std::string::npos ? std::string::npos : end - start));
    start = end == std::string::npos ? end : s.find_first_not_of(delims, end);
  }
}

void replace_char(char* s, char from, char to) {
  if (!s) return;
  for (; *s; ++s)
    if (*s == from) *s = to;
}

void replace_char(std::string& s, char from, char to) {
  for (char& c : s)
    if (c == from) c = to;
}

void format_date_time(char* dst, std::size_t size) {
  const std::time_t now = std::time(nullptr);
  const std::tm* t = std::localtime(&now);
  if (!t || t->tm_wday < 0 || t->tm_wday > 6 || t->tm_mon < 0 || t->tm_mon > 11) {
    dst[0] = '\0';
    return;
  }
  std::snprintf(dst, size, "%s %s %d %02d:%02d:%02d %4d", kWeekdays[t->tm_wday],
                kMonths[t->tm_mon], t->tm_mday, t->tm_hour, t->tm_min, t->tm_sec,
                t->tm_year + 1900);
}

char outstr[kDateTimeBuffer];

} // namespace

// ---------------------------------------------------------------- trimming

std::string& triml(std::string& s) { return erase_left(s, kLeftBlank); }
std::string& trimr(std::string& s) { return erase_right(s, kRightBlank); }
std::string& trim(std::string& s) { return trimr(triml(s)); }
std::string& sg_triml(std::string& s) { return erase_left(s, kLeftBlankQuote); }
std::string& sg_trimr(std::string& s) { return erase_right(s, kRightBlankQuote); }

std::string& sg_trim(std::string& s) {
  sg_trimr(sg_triml(s));
  s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
  return s;
}

// The last character is never removed, so a text of blanks keeps one blank, as with c_trimr.
void c_triml(char* s) {
  if (!s) return;
  const std::size_t len = std::strlen(s);
  std::size_t skip = std::strspn(s, kLeftBlank);
  if (len > 0 && skip >= len) skip = len - 1;
  if (skip > 0) std::memmove(s, s + skip, len - skip + 1);
}

// The first character is never removed: a lone blank or line feed survives.
void c_trimr(char* s) {
  if (!s) return;
  for (std::size_t i = std::strlen(s); i > 1 && in_set(s[i - 1], kRightBlank); --i)
    s[i - 1] = '\0';
}

void c_trim(char* s) {
  c_triml(s);
  c_trimr(s);
}

// ---------------------------------------------------------------- comparison

bool iequals(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (upper(a[i]) != upper(b[i])) return false;
  return true;
}

bool strcaseequal(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

bool strcaseequal(const std::string& a, const std::string& b, unsigned long n) {
  if (n > a.size() || n > b.size()) return false;
  for (std::size_t i = 0; i < n; ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

// Prefix test of n characters; a terminator ends the walk (both ended: equal).
int strcasestr_n(const char* a, const char* b, int n) {
  if (n < 1) return 1;
  const char* pa = a ? a : "";
  const char* pb = b ? b : "";
  for (int i = 0; i < n; ++i) {
    if (pa[i] == '\0' || pb[i] == '\0') return pa[i] == pb[i] ? 1 : 0;
    if (lower(pa[i]) != lower(pb[i])) return 0;
  }
  return 1;
}

bool isAlphabetical(std::string s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!std::isalpha(static_cast<unsigned char>(c))) return false;
  return true;
}

bool ci_char_traits::eq(char c1, char c2) { return lower_signed(c1) == lower_signed(c2); }
bool ci_char_traits::ne(char c1, char c2) { return lower_signed(c1) != lower_signed(c2); }
bool ci_char_traits::lt(char c1, char c2) { return lower_signed(c1) < lower_signed(c2); }

int ci_char_traits::compare(const char* s1, const char* s2, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (s1[i] == '\0') return s2[i] == '\0' ? 0 : -1;
    if (s2[i] == '\0') return 1;
    const int l1 = lower(s1[i]);
    const int l2 = lower(s2[i]);
    if (l1 != l2) return l1 < l2 ? -1 : 1;
  }
  return 0;
}

// Returns s + n (the end) when nothing matches, never a null pointer.
const char* ci_char_traits::find(const char* s, int n, char a) {
  if (n < 1) return s;
  for (int i = 0; i < n; ++i)
    if (lower_signed(s[i]) == lower_signed(a)) return s + i;
  return s + n;
}

// ---------------------------------------------------------------- edits

// The search resumes behind the inserted text, so inserted text is never searched again.
void findAndReplaceAll(std::string& data, std::string toSearch, std::string replaceStr) {
  if (toSearch.empty()) return; // an empty pattern would match forever at one place
  std::size_t pos = data.find(toSearch);
  while (pos != std::string::npos) {
    data.replace(pos, toSearch.size(), replaceStr);
    pos = data.find(toSearch, pos + replaceStr.size());
  }
}

std::string RemoveWhiteSpaceUnderscore(const std::string& s) {
  std::string out;
  for (char c : s)
    if (c != ' ' && c != '_') out += c;
  return out;
}

void ReplaceSlashWithUnderscore(char* s) {
  if (!s) return;
  for (; *s; ++s)
    if (*s == '/' || *s == '\\') *s = '_';
}

void ReplaceSlashWithUnderscore(std::string& s) {
  replace_char(s, '/', '_');
  replace_char(s, '\\', '_');
}

void ReplaceBackSlashWithSlash(char* s) { replace_char(s, '\\', '/'); }

// 'X:...' becomes '/X...' so that the MSYS2 shell layer understands a drive path.
void FixMsys2PathDrive(char* s) {
  if (!s || s[0] == '\0' || s[1] != ':') return;
  s[1] = s[0];
  s[0] = '/';
}

void FixMsys2PathDrive(std::string& s) {
  if (s.size() < 2 || s[1] != ':') return;
  s[1] = s[0];
  s[0] = '/';
}

// Cuts a printed decimal to n digits behind the point and drops trailing zeros and a bare
// point; a negative n cuts at the point and strips the zeros of the integer part too.
char* morphNumericString(char* s, int n) {
  if (!s) return nullptr;
  char* dot = std::strchr(s, '.');
  if (!dot) return nullptr;
  std::size_t end = static_cast<std::size_t>(dot - s);
  if (n >= 0) {
    const std::size_t len = std::strlen(s);
    const std::size_t digits = len - end - 1;
    end += 1 + (static_cast<std::size_t>(n) < digits ? static_cast<std::size_t>(n) : digits);
  }
  s[end] = '\0';
  while (end > 0 && s[end - 1] == '0') s[--end] = '\0';
  if (end > 0 && s[end - 1] == '.') s[--end] = '\0';
  return end > 0 ? s + end - 1 : s;
}

// ---------------------------------------------------------------- splitting

int tokenize(std::vector<std::string>& out, std::string& s, const char* delims) {
  out.clear();
  if (!delims || s.empty()) return 0;
  std::string work = s;
  if (delims[0] != '\0') work += delims[0];
  split_runs(work, delims, out);
  return 1;
}

int tokenize(std::vector<std::string>& out, const char* s, const char* delims) {
  out.clear();
  if (!s || !delims) return 0;
  std::string work = s;
  if (work.empty()) return 1;
  return tokenize(out, work, delims);
}

void split_to_words(std::string s, std::string delims, std::vector<std::string>* out) {
  if (!out) return;
  out->clear();
  split_runs(s, delims.c_str(), *out);
}

std::vector<std::string> split_string_dl(std::string s, char d) {
  std::vector<std::string> out;
  std::string token;
  s += d;
  for (char c : s) {
    if (c != d) {
      token += c;
    } else if (!token.empty()) {
      out.push_back(token);
      token.clear();
    }
  }
  return out;
}

std::vector<std::string> split_string(std::string s) {
  std::istringstream in(s);
  std::vector<std::string> out;
  std::string word;
  while (in >> word) out.push_back(word);
  return out;
}

std::vector<std::string> globFileVector(const std::string& pattern) {
  glob_t found;
  std::memset(&found, 0, sizeof(found));
  std::vector<std::string> out;
  if (glob(pattern.c_str(), GLOB_TILDE, nullptr, &found) == 0)
    for (std::size_t i = 0; i < found.gl_pathc; ++i) out.emplace_back(found.gl_pathv[i]);
  globfree(&found);
  return out;
}

// ---------------------------------------------------------------- formatting

std::string format_string(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list measure;
  va_copy(measure, args);
  const int len = std::vsnprintf(nullptr, 0, fmt, measure);
  va_end(measure);
  std::string out;
  if (len >= 0) {
    std::vector<char> buf(static_cast<std::size_t>(len) + 1, '\0');
    std::vsnprintf(buf.data(), buf.size(), fmt, args);
    out.assign(buf.data(), static_cast<std::size_t>(len));
  }
  va_end(args);
  return out;
}

std::string formatStringV(const char* fmt, va_list args) {
  char stack_buf[kFormatStackBuffer];
  va_list attempt;
  va_copy(attempt, args);
  int len = std::vsnprintf(stack_buf, sizeof(stack_buf), fmt, attempt);
  va_end(attempt);
  if (len >= 0 && static_cast<std::size_t>(len) < sizeof(stack_buf)) return stack_buf;

  std::size_t size = sizeof(stack_buf);
  std::vector<char> heap;
  while (size <= kFormatHeapLimit) {
    size = len >= 0 ? static_cast<std::size_t>(len) + 1 : size * 2;
    heap.assign(size, '\0');
    va_copy(attempt, args);
    len = std::vsnprintf(heap.data(), size, fmt, attempt);
    va_end(attempt);
    if (len >= 0 && static_cast<std::size_t>(len) < size) return heap.data();
  }
  return std::string();
}

std::string formatString(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string out = formatStringV(fmt, args);
  va_end(args);
  return out;
}

// The caller's buffer must hold the 24 characters of the usual text and its terminator.
void get_now_date_time(char* dst) {
  if (!dst) return;
  char buf[kDateTimeBuffer];
  format_date_time(buf, sizeof(buf));
  std::strcpy(dst, buf);
}

char* get_now_date_time() {
  format_date_time(outstr, sizeof(outstr));
  return outstr;
}

int get_date(int* month, int* day, int* year) {
  const std::time_t now = std::time(nullptr);
  const std::tm* t = std::localtime(&now);
  const int y = t ? t->tm_year + 1900 : 0;
  if (month) *month = t ? t->tm_mon + 1 : 0;
  if (day) *day = t ? t->tm_mday : 0;
  if (year) *year = y;
  return y;
}

// ---------------------------------------------------------------- paths and files

std::string base_filename(const std::string& path) {
  const std::size_t pos = path.find_last_of(kPathSeparators);
  return pos == std::string::npos ? path : path.substr(pos + 1);
}

// The last '.' anywhere in the text counts, also one in a directory name.
std::string remove_filename_extension(const std::string& name) {
  const std::size_t pos = name.rfind('.');
  return pos == std::string::npos ? name : name.substr(0, pos);
}

std::pair<std::string, std::string> getParentPathAndBasename(const std::string& path) {
  const std::size_t pos = path.find_last_of(kPathSeparators);
  if (pos == std::string::npos) return {std::string(), path};
  return {path.substr(0, pos), path.substr(pos + 1)};
}

void get_workdir(std::string& out) {
  char buf[kWorkdirBuffer];
  if (getcwd(buf, sizeof(buf)) == nullptr) {
    std::printf("WARNING: getcwd failed!\n");
    out.clear();
    return;
  }
  out = buf;
  replace_char(out, '\\', '/');
}

bool fileExist(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0;
}

// Opened without waiting, so that a FIFO without a writer does not block the test.
int file_exists(const char* path) {
  if (!path) return 0;
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return 0;
  close(fd);
  return 1;
}

bool exists_not_regular(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0 && !S_ISREG(st.st_mode);
}

int _file_exist(const std::string& path) { return path.empty() ? 0 : file_exists(path.c_str()); }

int dir_exists(const char* path) {
  if (!path) return 0;
  struct stat st;
  if (stat(path, &st) == 0) return (st.st_mode & kDirectoryBit) ? 1 : 0;
  return (errno == ENOENT || errno == ENOTDIR) ? 0 : -1;
}

// Parents are not created and a failed creation is not reported.
void create_directory(const char* path) {
  if (!path) return;
  struct stat st;
  if (stat(path, &st) != 0) mkdir(path, kNewDirectoryMode);
}

// Every line feed and every carriage return counts, so CR LF endings count twice.
int count_lines(const char* path) {
  std::FILE* f = path ? std::fopen(path, "r") : nullptr;
  if (!f) {
    std::printf("ERROR: Failed to open input file %s\n", path ? path : "(null)");
    fatal_exit(-1);
  }
  char buf[kCountLinesBuffer];
  int count = 0;
  std::size_t got = 0;
  while ((got = std::fread(buf, 1, sizeof(buf), f)) > 0)
    for (std::size_t i = 0; i < got; ++i)
      if (buf[i] == '\n' || buf[i] == '\r') ++count;
  std::fclose(f);
  return count;
}

// Splits off the head word of *s and leaves *s on the remainder stripped of layout blanks.
char* strhed(char** s) {
  if (!s || !*s) return nullptr;
  char* p = *s;
  while (*p == '\t' || *p == '\n' || *p == ' ') ++p;
  char* head = p;
  while (!is_head_end(*p)) ++p;
  if (*p != '\0') *p++ = '\0';
  while (is_layout_blank(*p)) ++p;
  std::size_t len = std::strlen(p);
  while (len > 0 && is_layout_blank(p[len - 1])) p[--len] = '\0';
  *s = p;
  return head;
}

// ---------------------------------------------------------------- backups

void make_file_backup(const std::string& path) {
  if (path.empty() || !_file_exist(path)) return;
  const std::string backup = _backup_filenname(path);
  if (std::rename(path.c_str(), backup.c_str()) == 0)
    std::fprintf(stderr, "Backed up %s to %s\n", path.c_str(), backup.c_str());
  else
    std::fprintf(stderr, "Couldn't backup %s to %s\n", path.c_str(), backup.c_str());
}

// At most nine numbered backups are kept: when all exist, '.1' is deleted and reused.
std::string _backup_filenname(const std::string& path) {
  std::pair<std::string, std::string> parts = getParentPathAndBasename(path);
  if (parts.first.empty()) parts.first = ".";
  for (int k = 1; k <= kMaxBackups; ++k) {
    const std::string name =
        format_string("%s/%s.%d", parts.first.c_str(), parts.second.c_str(), k);
    if (!_file_exist(name)) return name;
  }
  const std::string first = format_string("%s/%s.%d", parts.first.c_str(), parts.second.c_str(), 1);
  std::remove(first.c_str());
  return first;
}

// Older scheme: the backup is the path with '#' appended, replacing an earlier one.
void backup_file(const char* path) {
  if (!file_exists(path)) return;
  const std::string command = format_string("mv %s %s#", path, path);
  const int status = std::system(command.c_str());
  (void)status;
}

// ---------------------------------------------------------------- hashing

// FNV-1 order (multiply, then xor) with the 32-bit constants carried in 64 bits; bytes
// are sign-extended before the xor.
unsigned long FNW_hash(const char* s) {
  unsigned long hash = kFnwOffsetBasis;
  if (!s) return hash;
  for (; *s; ++s) {
    hash *= kFnwPrime;
    hash ^= static_cast<unsigned long>(static_cast<long>(static_cast<signed char>(*s)));
  }
  return hash;
}
