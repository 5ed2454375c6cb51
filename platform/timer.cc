#include "platform/timer.h"

#include <utility>

namespace morvane::ap {

OneShotTimer::OneShotTimer(TaskLoop* loop) : loop_(loop) {}

OneShotTimer::~OneShotTimer() { Stop(); }

void OneShotTimer::Start(int64_t delay_us, Task task) {
  Stop();
  task_ = std::move(task);
  pending_ = loop_->PostDelayedTask([this] { Fire(); }, delay_us);
}

void OneShotTimer::Stop() {
  if (pending_ == 0) return;
  loop_->CancelTask(pending_);
  pending_ = 0;
  task_ = nullptr;
}

void OneShotTimer::Fire() {
  pending_ = 0;
  // Moved out first: the task may restart this timer or destroy its owner.
  Task task = std::move(task_);
  task_ = nullptr;
  task();
}

RepeatingTimer::RepeatingTimer(TaskLoop* loop) : loop_(loop) {}

RepeatingTimer::~RepeatingTimer() { Stop(); }

void RepeatingTimer::Start(int64_t period_us, Task task) {
  Stop();
  task_ = std::move(task);
  period_us_ = period_us;
  Schedule();
}

void RepeatingTimer::Stop() {
  if (pending_ == 0) return;
  loop_->CancelTask(pending_);
  pending_ = 0;
  task_ = nullptr;
}

void RepeatingTimer::Schedule() {
  pending_ = loop_->PostDelayedTask([this] { Fire(); }, period_us_);
}

void RepeatingTimer::Fire() {
  // Rescheduled before the task runs, so the task may Stop() or restart it.
  Schedule();
  Task task = task_;
  task();
}

}  // namespace morvane::ap
