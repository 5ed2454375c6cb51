#ifndef PLATFORM_TIMER_H_
#define PLATFORM_TIMER_H_

#include <cstdint>

#include "platform/task_loop.h"

namespace morvane::ap {

// Runs a task once after a delay. Destroying the timer stops it.
class OneShotTimer {
 public:
  // |loop| must outlive the timer.
  explicit OneShotTimer(TaskLoop* loop);
  OneShotTimer(const OneShotTimer&) = delete;
  OneShotTimer& operator=(const OneShotTimer&) = delete;
  ~OneShotTimer();

  // Runs |task| after |delay_us|. Starting a running timer restarts it: the
  // old deadline and task are dropped and the delay counts from now.
  void Start(int64_t delay_us, Task task);

  // Cancels a pending run; the task will not run. Does nothing when idle.
  void Stop();

  // True from Start() until the task runs or Stop() is called. The task
  // itself sees false, so it may start the timer again.
  bool IsRunning() const { return pending_ != 0; }

 private:
  void Fire();

  TaskLoop* const loop_;
  Task task_;
  TaskId pending_ = 0;
};

// Runs a task every |period_us| until stopped. Destroying the timer stops it.
class RepeatingTimer {
 public:
  // |loop| must outlive the timer.
  explicit RepeatingTimer(TaskLoop* loop);
  RepeatingTimer(const RepeatingTimer&) = delete;
  RepeatingTimer& operator=(const RepeatingTimer&) = delete;
  ~RepeatingTimer();

  // Runs |task| every |period_us|, the first time one period from now.
  // Starting a running timer restarts it with the new period and task.
  void Start(int64_t period_us, Task task);

  void Stop();

  // True from Start() until Stop().
  bool IsRunning() const { return pending_ != 0; }

 private:
  void Schedule();
  void Fire();

  TaskLoop* const loop_;
  Task task_;
  int64_t period_us_ = 0;
  TaskId pending_ = 0;
};

}  // namespace morvane::ap

#endif  // PLATFORM_TIMER_H_
