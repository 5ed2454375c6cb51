#include "platform/file_util.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace morvane::ap {
namespace {

// close() that keeps errno of the failure the caller reports.
void CloseKeepingErrno(int fd) {
  const int saved = errno;
  close(fd);
  errno = saved;
}

class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attr_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  ~SpawnSetup() {
    posix_spawnattr_destroy(&attr_);
    posix_spawn_file_actions_destroy(&actions_);
  }

  bool Init() {
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      const int flags = fd == STDIN_FILENO ? O_RDONLY : O_WRONLY;
      if (posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", flags,
                                           0) != 0) {
        return false;
      }
    }
    // The loop blocks the signals it takes through signalfd and may ignore
    // SIGPIPE; a child must not inherit either.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    return posix_spawnattr_setsigmask(&attr_, &none) == 0 &&
           posix_spawnattr_setsigdefault(&attr_, &all) == 0 &&
           posix_spawnattr_setflags(
               &attr_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attr() const { return &attr_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attr_;
};

}  // namespace

bool ReadFileToString(const std::string& path, std::string* contents) {
  contents->clear();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  // Sizes from stat() are unreliable for sysfs and proc files, so read until
  // the end instead.
  char buffer[16 * 1024];
  while (true) {
    const ssize_t n = read(fd, buffer, sizeof(buffer));
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      CloseKeepingErrno(fd);
      contents->clear();
      return false;
    }
    contents->append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return true;
}

bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

int WriteFile(const std::string& path, const char* data, int size) {
  if (size < 0) return -1;
  const int fd =
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  int written = 0;
  while (written < size) {
    const ssize_t n = write(fd, data + written, size - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      CloseKeepingErrno(fd);
      return -1;
    }
    if (n == 0) break;
    written += static_cast<int>(n);
  }
  // Some file systems (NFS, say) report a failed write only here.
  if (close(fd) != 0) return -1;
  return written;
}

bool RunCommand(const std::vector<std::string>& argv) {
  if (argv.empty()) return false;
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& arg : argv)
    args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);

  SpawnSetup setup;
  if (!setup.Init()) return false;
  pid_t pid;
  if (posix_spawnp(&pid, args[0], setup.actions(), setup.attr(), args.data(),
                   environ) != 0) {
    return false;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace morvane::ap
