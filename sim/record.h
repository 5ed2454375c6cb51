#ifndef SIM_RECORD_H_
#define SIM_RECORD_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/error.h"
#include "sim/simulator.h"
#include "sim/timeline.h"

namespace morvane::ap {

// The session as it happened: every line the simulator reports, stamped
// with milliseconds since the session started and with what the device
// showed then. Passes each line and change on to the view, appends it to
// events.log ("     123 light state 6") once that is open, and draws the
// timeline picture from it at any moment.
class Record : public Simulator::Observer {
 public:
  // |next| (the view) must outlive this object.
  explicit Record(Simulator::Observer* next);
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record() override;

  // Where the device's state is read from when a line comes; unset, the
  // lines carry an empty snapshot.
  void Follow(const SimState* state) { state_ = state; }

  // Starts writing events.log at |path|, with the lines so far first.
  bool OpenLog(const std::string& path, ErrorPtr* error);

  // Writes the timeline of the session so far to |path|.
  bool WriteTimeline(const std::string& path, ErrorPtr* error) const;

  void OnLine(const std::string& line) override;
  void OnStateChanged() override { next_->OnStateChanged(); }

  int64_t NowMs() const;

 private:
  void Append(const TimelineEntry& entry);

  Simulator::Observer* const next_;
  const int64_t start_ms_;
  const SimState* state_ = nullptr;
  std::vector<TimelineEntry> entries_;
  FILE* log_ = nullptr;
};

}  // namespace morvane::ap

#endif  // SIM_RECORD_H_
