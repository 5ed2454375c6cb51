#ifndef PLATFORM_TASK_LOOP_H_
#define PLATFORM_TASK_LOOP_H_

#include <cstdint>
#include <functional>

namespace morvane::ap {

using Task = std::function<void()>;

// Identifies a pending task so it can be cancelled. 0 is never a valid id.
using TaskId = uint64_t;

// The single-threaded loop every callback of the daemon runs on. All times
// are microseconds. Tasks never run inside the call that posts them. A task
// the loop cannot take (out of resources, the loop has ended) is logged and
// dropped, and the call returns 0.
class TaskLoop {
 public:
  virtual ~TaskLoop() = default;

  // Runs |task| on the loop as soon as possible, after the tasks posted
  // before it.
  virtual TaskId PostTask(Task task) = 0;

  // Runs |task| once |delay_us| has passed on the monotonic clock, counted
  // from this call.
  virtual TaskId PostDelayedTask(Task task, int64_t delay_us) = 0;

  // Runs |task| once, the first time |fd| is readable (or has hung up or
  // failed, so that the reader learns of it). The descriptor stays owned by
  // the caller and must stay open until the task ran or was cancelled.
  virtual TaskId WatchReadable(int fd, Task task) = 0;

  // Drops a pending task; it will not run. Returns false if |id| is not
  // pending (it ran, was cancelled, or never existed).
  virtual bool CancelTask(TaskId id) = 0;

  // Monotonic time, for delays and intervals.
  virtual int64_t Now() const = 0;

  // Wall-clock time since the Unix epoch, for timestamps that leave the
  // process.
  virtual int64_t WallNow() const = 0;
};

}  // namespace morvane::ap

#endif  // PLATFORM_TASK_LOOP_H_
