#include "lightcontrol_sysfs/sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace morvane::ap {
namespace {

// Attribute files are at most a page; a larger file is not an attribute.
constexpr size_t kMaxAttributeBytes = 4096;

static_assert(LOG_WARNING == 4, "ReportLine's default priority");

// Whether stderr is the journal's own stream (systemd names it in
// JOURNAL_STREAM as "device:inode"): syslog reaches the same journal.
bool StderrIsJournal() {
  const char* stream = getenv("JOURNAL_STREAM");
  unsigned long long device = 0, inode = 0;
  struct stat status;
  return stream && sscanf(stream, "%llu:%llu", &device, &inode) == 2 &&
         fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device &&
         status.st_ino == inode;
}

}  // namespace

void ReportLine(const std::string& message, int priority) {
  // Both, as the daemon logs: the init system keeps one, syslog the other.
  // Under systemd both would reach the journal: syslog's copy alone does.
  // No openlog(): the lines carry the daemon's own ident.
  static const bool stderr_is_journal = StderrIsJournal();
  syslog(priority, "lightcontrol-sysfs: %s", message.c_str());
  if (stderr_is_journal) return;
  fprintf(stderr, "lightcontrol-sysfs: %s\n", message.c_str());
  fflush(stderr);
}

std::optional<long> ParseInteger(const std::string& text) {
  const char* start = text.c_str();
  char* end = nullptr;
  errno = 0;
  const long value = strtol(start, &end, 10);
  if (end == start || errno != 0) return std::nullopt;
  while (*end == ' ' || *end == '\n' || *end == '\t') ++end;
  if (*end != '\0') return std::nullopt;
  return value;
}

Sysfs::Sysfs(std::string root)
    : root_(root.substr(0, root.find_last_not_of('/') + 1)) {}

std::string Sysfs::Path(const std::string& absolute) const {
  return root_ + absolute;
}

std::optional<std::string> Sysfs::Read(const std::string& path,
                                       int* error) const {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (error) *error = errno;
    return std::nullopt;
  }
  std::string text;
  char buffer[kMaxAttributeBytes];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof(buffer));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      if (error) *error = errno;
      close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    text.append(buffer, static_cast<size_t>(n));
    if (text.size() > kMaxAttributeBytes) {
      if (error) *error = EFBIG;
      close(fd);
      return std::nullopt;
    }
  }
  close(fd);
  return text;
}

bool Sysfs::Write(const std::string& path, const std::string& value) {
  const std::string line = value + "\n";
  // O_TRUNC as the shell does: harmless on sysfs, needed on a plain file.
  const int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  ssize_t written = -1;
  if (fd >= 0) {
    do {
      written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
  }
  const int saved = errno;
  if (fd >= 0) close(fd);
  if (written == static_cast<ssize_t>(line.size())) {
    Clear(path);
    return true;
  }
  ReportOnce(path, "Failed to write \"" + value + "\" to " + path + ": " +
                       (written < 0 ? strerror(saved) : "short write"));
  return false;
}

std::vector<std::string> Sysfs::List(const std::string& path) const {
  std::vector<std::string> names;
  DIR* dir = opendir(path.c_str());
  if (!dir) return names;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

void Sysfs::ReportOnce(const std::string& key, const std::string& message) {
  if (reported_.insert(key).second) ReportLine(message);
}

void Sysfs::Clear(const std::string& key) { reported_.erase(key); }

}  // namespace morvane::ap
