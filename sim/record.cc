#include "sim/record.h"

#include <chrono>

#include "sim/sim_directory.h"
#include "peers/system_error.h"

namespace morvane::ap {
namespace {

int64_t MonotonicMs() {
  return std::chrono::steady_clock::now().time_since_epoch() /
         std::chrono::milliseconds(1);
}

}  // namespace

Record::Record(Simulator::Observer* next)
    : next_(next), start_ms_(MonotonicMs()) {}

Record::~Record() {
  if (log_) fclose(log_);
}

int64_t Record::NowMs() const { return MonotonicMs() - start_ms_; }

bool Record::OpenLog(const std::string& path, ErrorPtr* error) {
  log_ = fopen(path.c_str(), "we");
  if (!log_) return SystemCallFailed(error, "open " + path);
  for (const TimelineEntry& entry : entries_) Append(entry);
  return true;
}

bool Record::WriteTimeline(const std::string& path, ErrorPtr* error) const {
  return WriteWholeFile(path, RenderTimeline(entries_, NowMs()), error);
}

void Record::OnLine(const std::string& line) {
  TimelineEntry entry{NowMs(), line, {}};
  if (state_) {
    const SimState& s = *state_;
    entry.device = {s.light_state, s.brightness, s.wan_online,
                    s.group_failure(),
                    !s.setup_completed};
  }
  entries_.push_back(entry);
  Append(entry);
  next_->OnLine(line);
}

void Record::Append(const TimelineEntry& entry) {
  if (!log_) return;
  // Line-buffered by hand: a killed simulator leaves every line so far.
  fprintf(log_, "%8lld %s\n", static_cast<long long>(entry.ms),
          entry.line.c_str());
  fflush(log_);
}

}  // namespace morvane::ap
