#ifndef PLATFORM_FAKE_TASK_LOOP_H_
#define PLATFORM_FAKE_TASK_LOOP_H_

#include <cstdint>
#include <map>
#include <utility>

#include "platform/task_loop.h"

namespace morvane::ap {

// A task loop for tests, on a virtual clock that moves only when the test
// says so. Descriptor watches are checked with a zero-timeout poll() each
// time the loop runs, so tests may feed real pipes.
class FakeTaskLoop : public TaskLoop {
 public:
  // The virtual clocks start at these values, so a zero time stays
  // distinguishable from "never".
  static constexpr int64_t kStartUs = 1'000'000'000;
  static constexpr int64_t kStartWallUs = 1'700'000'000'000'000;

  FakeTaskLoop() = default;
  FakeTaskLoop(const FakeTaskLoop&) = delete;
  FakeTaskLoop& operator=(const FakeTaskLoop&) = delete;
  ~FakeTaskLoop() override = default;

  TaskId PostTask(Task task) override;
  TaskId PostDelayedTask(Task task, int64_t delay_us) override;
  TaskId WatchReadable(int fd, Task task) override;
  bool CancelTask(TaskId id) override;
  int64_t Now() const override { return now_us_; }
  int64_t WallNow() const override { return kStartWallUs + now_us_ - kStartUs; }

  // Tasks and watches RunUntilIdle() runs before it takes the loop for a
  // spinning one and ends the process.
  static constexpr int64_t kMaxTasksUntilIdle = 1'000'000;

  // Runs everything that is due now, including tasks those tasks post for
  // now, without moving the clock.
  void RunUntilIdle();

  // Moves the clock forward by |delta_us|, running each task when its time
  // comes, in order of due time and then of posting.
  void FastForwardBy(int64_t delta_us);

  // Number of tasks and watches not yet run or cancelled.
  size_t PendingTaskCount() const { return tasks_.size() + watches_.size(); }

 private:
  struct Watch {
    int fd;
    Task task;
  };

  // Runs one due task or ready watch; false if there was none.
  bool RunOne();

  int64_t now_us_ = kStartUs;
  TaskId next_id_ = 1;
  // Keyed by (due time, id): ids grow, so equal due times run in post order.
  std::map<std::pair<int64_t, TaskId>, Task> tasks_;
  std::map<TaskId, Watch> watches_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_FAKE_TASK_LOOP_H_
