#include "platform/log_rate_limit.h"

#include <glog/logging.h>

#include <utility>

namespace morvane::ap {

LogRateLimit::LogRateLimit(TaskLoop* loop, std::string kind, int burst,
                           int64_t interval_us)
    : loop_(loop),
      kind_(std::move(kind)),
      burst_(burst),
      interval_us_(interval_us),
      report_timer_(loop) {}

bool LogRateLimit::Allow() {
  const int64_t now = loop_->Now();
  if (!started_ || now - interval_start_us_ >= interval_us_) {
    started_ = true;
    interval_start_us_ = now;
    allowed_ = 0;
  }
  if (allowed_ < burst_) {
    ++allowed_;
    return true;
  }
  if (suppressed_++ == 0) {
    report_timer_.Start(interval_start_us_ + interval_us_ - now,
                        [this] { ReportSuppressed(); });
  }
  return false;
}

void LogRateLimit::ReportSuppressed() {
  LOG(WARNING) << suppressed_ << " similar messages suppressed (" << kind_
               << ")";
  suppressed_ = 0;
}

}  // namespace morvane::ap
