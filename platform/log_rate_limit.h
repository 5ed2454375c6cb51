#ifndef PLATFORM_LOG_RATE_LIMIT_H_
#define PLATFORM_LOG_RATE_LIMIT_H_

#include <cstdint>
#include <string>

#include "platform/task_loop.h"
#include "platform/timer.h"

namespace morvane::ap {

// Bounds one kind of log line that someone outside can trigger at will (a
// caller's rejected request, a peer's malformed value): at most |burst|
// lines per interval. The first line of a kind starts an interval; when an
// interval in which lines were held back ends, one warning says
// "<N> similar messages suppressed (<kind>)". One object per kind; never
// used for the daemon's own state changes or fatal lines.
//
// Only a held-back line arms a timer: a limit that lets everything through
// has nothing scheduled.
class LogRateLimit {
 public:
  static constexpr int kBurst = 10;
  static constexpr int64_t kIntervalUs = 10'000'000;

  // |loop| must outlive this object and times the intervals. |kind| names
  // the held-back lines in the summary.
  LogRateLimit(TaskLoop* loop, std::string kind, int burst = kBurst,
               int64_t interval_us = kIntervalUs);
  LogRateLimit(const LogRateLimit&) = delete;
  LogRateLimit& operator=(const LogRateLimit&) = delete;

  // Whether one more line of this kind may be logged now; counts it as held
  // back when not.
  bool Allow();

 private:
  void ReportSuppressed();

  TaskLoop* const loop_;
  const std::string kind_;
  const int burst_;
  const int64_t interval_us_;
  bool started_ = false;
  int64_t interval_start_us_ = 0;
  int allowed_ = 0;
  int suppressed_ = 0;
  OneShotTimer report_timer_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_LOG_RATE_LIMIT_H_
