#ifndef FUZZ_FUZZ_SUPPORT_H_
#define FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace morvane::ap {

// Silences INFO and WARNING logging: the daemon warns about every bad input
// by design, and a fuzzer feeds nothing else. ERROR and FATAL still print.
void QuietLogging();

// A file in memory holding given bytes, reachable by path (through
// /proc/self/fd) for code that loads files by name. Closed on destruction.
class MemoryFile {
 public:
  MemoryFile(const uint8_t* data, size_t size);
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();

  const std::string& path() const { return path_; }

 private:
  int fd_ = -1;
  std::string path_;
};

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it
// on destruction.
class TempDir {
 public:
  TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace morvane::ap

#endif  // FUZZ_FUZZ_SUPPORT_H_
