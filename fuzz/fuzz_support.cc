#include "fuzz/fuzz_support.h"

#include <glog/logging.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace morvane::ap {

void QuietLogging() { FLAGS_minloglevel = google::GLOG_ERROR; }

MemoryFile::MemoryFile(const uint8_t* data, size_t size)
    : fd_(memfd_create("fuzz-input", MFD_CLOEXEC)) {
  PCHECK(fd_ >= 0) << "memfd_create";
  for (size_t written = 0; written < size;) {
    const ssize_t n = write(fd_, data + written, size - written);
    PCHECK(n > 0) << "write";
    written += n;
  }
  path_ = "/proc/self/fd/" + std::to_string(fd_);
}

MemoryFile::~MemoryFile() { close(fd_); }

TempDir::TempDir() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern =
      std::string(tmp && *tmp ? tmp : "/tmp") + "/fuzz.XXXXXX";
  PCHECK(mkdtemp(pattern.data())) << pattern;
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace morvane::ap
