#include "sim/file_watcher.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/file_util.h"
#include "peers/system_error.h"

namespace morvane::ap {
std::string ReadWholeFile(const std::string& path) {
  std::string out;
  ReadFileToString(path, &out);
  return out;
}

FileWatcher::FileWatcher(TaskLoop* loop) : loop_(loop) {}

FileWatcher::~FileWatcher() {
  if (watch_) loop_->CancelTask(watch_);
  if (inotify_fd_ >= 0) close(inotify_fd_);
}

bool FileWatcher::Init(ErrorPtr* error) {
  inotify_fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotify_fd_ < 0) return SystemCallFailed(error, "set up inotify");
  Arm();
  return true;
}

bool FileWatcher::WatchDirectoryOf(const std::string& path, ErrorPtr* error) {
  const std::string dir = std::filesystem::path(path).parent_path();
  if (std::find(directories_.begin(), directories_.end(), dir) !=
      directories_.end()) {
    return true;
  }
  if (inotify_add_watch(inotify_fd_, dir.c_str(),
                        IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE |
                            IN_MOVED_TO) < 0) {
    return SystemCallFailed(error, "watch " + dir);
  }
  directories_.push_back(dir);
  return true;
}

bool FileWatcher::TailLines(const std::string& path, LineCallback callback,
                            ErrorPtr* error) {
  if (!WatchDirectoryOf(path, error)) return false;
  struct stat st {};
  const off_t end = stat(path.c_str(), &st) == 0 ? st.st_size : 0;
  tails_.push_back({path, std::move(callback), end, ""});
  return true;
}

bool FileWatcher::WatchContent(const std::string& path,
                               ContentCallback callback, ErrorPtr* error) {
  if (!WatchDirectoryOf(path, error)) return false;
  contents_.push_back({path, std::move(callback), ReadWholeFile(path)});
  return true;
}

void FileWatcher::Arm() {
  watch_ = loop_->WatchReadable(inotify_fd_, [this] { OnReadable(); });
}

void FileWatcher::OnReadable() {
  watch_ = 0;
  // Which file changed does not matter: every followed file is checked.
  alignas(inotify_event) char buffer[4096];
  while (read(inotify_fd_, buffer, sizeof(buffer)) > 0) {
  }
  Poll();
  Arm();
}

void FileWatcher::Poll() {
  for (Tail& tail : tails_) ReadTail(&tail);
  for (Content& content : contents_) {
    std::string now = ReadWholeFile(content.path);
    if (now == content.last) continue;
    content.last = now;
    content.callback(now);
  }
}

void FileWatcher::ReadTail(Tail* tail) {
  const int fd = open(tail->path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  struct stat st {};
  if (fstat(fd, &st) == 0 && st.st_size < tail->offset) {
    tail->offset = 0;
    tail->partial.clear();
  }
  char buffer[4096];
  for (;;) {
    const ssize_t n = pread(fd, buffer, sizeof(buffer), tail->offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    tail->offset += n;
    tail->partial.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  size_t start = 0;
  for (size_t nl; (nl = tail->partial.find('\n', start)) != std::string::npos;
       start = nl + 1) {
    tail->callback(tail->partial.substr(start, nl - start));
  }
  tail->partial.erase(0, start);
}

}  // namespace morvane::ap
