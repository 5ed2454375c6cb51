// One log line as the daemon writes it: glog with the daemon's settings
// (syslog and standard error, with the header), standard error /dev/null
// so that the figure is the daemon's own cost, not a disk's. Wherever no
// syslog daemon listens on /dev/log (a workstation, a container, a board
// without one) this is the case measured; with one listening, a line adds
// one datagram.
//
// Run pinned to one CPU:
//   taskset -c 1 build/bench/log_line_bench 2>/dev/null

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <glog/logging.h>

#include "platform/logging.h"

namespace {

void BM_LogLine(benchmark::State& state) {
  const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const int saved = dup(STDERR_FILENO);
  dup2(file, STDERR_FILENO);
  morvane::ap::InitLogging("avd", morvane::ap::kLogToSyslog |
                                      morvane::ap::kLogToStderr |
                                      morvane::ap::kLogHeader);
  int operation = 0;
  for (auto _ : state) {
    LOG(INFO) << "Operation " << ++operation << " started";
  }
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(file);
}
BENCHMARK(BM_LogLine);

}  // namespace

BENCHMARK_MAIN();
