// Output files that replace their target in one step. The content is written into a file
// that belongs to this run alone, and only a complete file takes the target's name, so two
// runs writing the same target at once, a kill at any moment or a full disk never leave a
// mixed or truncated file under that name.
//
// On Linux the file is created unnamed in the target's directory (O_TMPFILE): it has no
// path while it is written, so nothing can be linked or put in its way, and a killed run
// leaves nothing behind. Once complete it gets a fresh name and is renamed over the target.
// Where the directory's file system cannot hold unnamed files, a fresh name beside the target
// is made with mkstemp (it never opens a path that already exists).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <string>

#include "util.h"

namespace {

constexpr int kFreshNameTries = 100;

// The directory part of a path, "." when it has none.
std::string directory_of(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// The mode a file created with 0666 gets under the process's umask.
mode_t created_file_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

ReplacingOutput::ReplacingOutput(const std::string& target) : target_(target) {
#ifdef O_TMPFILE
  if (access("/proc/self/fd", X_OK) == 0) {
    const int fd = open(directory_of(target).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (fd >= 0) {
      file_ = fdopen(fd, "w");
      if (!file_) close(fd);
      unnamed_fd_ = fd;
      return;
    }
  }
#endif
  std::string name = target + ".XXXXXX";
  const int fd = mkstemp(name.data());
  if (fd < 0) return;
  fchmod(fd, created_file_mode());
  file_ = fdopen(fd, "w");
  if (!file_) {
    close(fd);
    unlink(name.c_str());
    return;
  }
  temp_name_ = name;
}

ReplacingOutput::~ReplacingOutput() { discard(); }

void ReplacingOutput::discard() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
  if (!temp_name_.empty()) unlink(temp_name_.c_str());
  temp_name_.clear();
}

bool ReplacingOutput::commit() {
  if (!file_) return false;
  bool ok = std::fflush(file_) == 0 && std::ferror(file_) == 0;
  if (ok && temp_name_.empty()) {
    // Give the unnamed file a fresh name beside the target; linkat never replaces a path.
    std::random_device device;
    const std::string proc = format_string("/proc/self/fd/%d", unnamed_fd_);
    ok = false;
    for (int k = 0; k < kFreshNameTries && !ok; ++k) {
      const std::string name = format_string("%s.%08x", target_.c_str(), device());
      if (linkat(AT_FDCWD, proc.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        temp_name_ = name;
        ok = true;
      } else if (errno != EEXIST) {
        break;
      }
    }
  }
  ok = std::fclose(file_) == 0 && ok;
  file_ = nullptr;
  ok = ok && std::rename(temp_name_.c_str(), target_.c_str()) == 0;
  if (ok) temp_name_.clear();
  discard();
  return ok;
}
