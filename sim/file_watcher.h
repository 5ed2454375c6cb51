#ifndef SIM_FILE_WATCHER_H_
#define SIM_FILE_WATCHER_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/task_loop.h"

namespace morvane::ap {

// Follows files that other processes write: log files line by line (as
// `tail -f` does) and small attribute files by whole content. Woken by
// inotify on the files' directories, so nothing runs while nothing changes.
class FileWatcher {
 public:
  // Called once per complete line, without its newline.
  using LineCallback = std::function<void(const std::string& line)>;
  // Called with the new whole content when it differs from the last one.
  using ContentCallback = std::function<void(const std::string& content)>;

  // |loop| must outlive this object.
  explicit FileWatcher(TaskLoop* loop);
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;
  ~FileWatcher();

  // Sets up inotify. Returns false and adds to |error| on failure.
  bool Init(ErrorPtr* error);

  // Follows |path| from its current end. A file that shrinks is read again
  // from its start. Returns false and adds to |error| if the directory
  // cannot be watched.
  bool TailLines(const std::string& path, LineCallback callback,
                 ErrorPtr* error);

  // Follows the whole content of |path|, starting from its current content.
  bool WatchContent(const std::string& path, ContentCallback callback,
                    ErrorPtr* error);

  // Reads whatever changed now, without waiting for inotify.
  void Poll();

 private:
  struct Tail {
    std::string path;
    LineCallback callback;
    off_t offset = 0;
    std::string partial;
  };
  struct Content {
    std::string path;
    ContentCallback callback;
    std::string last;
  };

  bool WatchDirectoryOf(const std::string& path, ErrorPtr* error);
  void Arm();
  void OnReadable();
  void ReadTail(Tail* tail);

  TaskLoop* const loop_;
  int inotify_fd_ = -1;
  TaskId watch_ = 0;
  std::vector<std::string> directories_;
  std::vector<Tail> tails_;
  std::vector<Content> contents_;
};

// Reads the whole of |path|; an unreadable file reads as empty.
std::string ReadWholeFile(const std::string& path);

}  // namespace morvane::ap

#endif  // SIM_FILE_WATCHER_H_
