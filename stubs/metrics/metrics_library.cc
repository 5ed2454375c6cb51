#include "stubs/metrics/metrics_library.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include <glog/logging.h>

namespace metrics {

namespace {

bool AppendLine(const char* path, const std::string& line) {
  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  // One write per line, so a concurrent reader sees whole lines only.
  ssize_t written;
  do {
    written = write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  close(fd);
  return written == static_cast<ssize_t>(line.size());
}

}  // namespace

void MetricsLibrary::Init() {
  // Nothing to prepare: the stand-in opens its log for each sample.
}

bool MetricsLibrary::SendEnumToUMA(const std::string& name, int sample,
                                   int exclusive_max) {
  const char* path = std::getenv("METRICS_LOG");
  if (path == nullptr || path[0] == '\0') {
    LOG(INFO) << "Metric " << name << ": sample " << sample
              << ", exclusive maximum " << exclusive_max;
    return true;
  }
  return AppendLine(path, "enum " + name + " " + std::to_string(sample) + " " +
                              std::to_string(exclusive_max) + "\n");
}

}  // namespace metrics
