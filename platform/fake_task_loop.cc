#include "platform/fake_task_loop.h"

#include <glog/logging.h>
#include <poll.h>

#include <algorithm>
#include <utility>

namespace morvane::ap {

TaskId FakeTaskLoop::PostTask(Task task) {
  return PostDelayedTask(std::move(task), 0);
}

TaskId FakeTaskLoop::PostDelayedTask(Task task, int64_t delay_us) {
  const TaskId id = next_id_++;
  tasks_.emplace(std::make_pair(now_us_ + std::max<int64_t>(delay_us, 0), id),
                 std::move(task));
  return id;
}

TaskId FakeTaskLoop::WatchReadable(int fd, Task task) {
  const TaskId id = next_id_++;
  watches_.emplace(id, Watch{fd, std::move(task)});
  return id;
}

bool FakeTaskLoop::CancelTask(TaskId id) {
  if (watches_.erase(id) > 0) return true;
  for (auto it = tasks_.begin(); it != tasks_.end(); ++it) {
    if (it->first.second == id) {
      tasks_.erase(it);
      return true;
    }
  }
  return false;
}

bool FakeTaskLoop::RunOne() {
  if (!tasks_.empty() && tasks_.begin()->first.first <= now_us_) {
    Task task = std::move(tasks_.begin()->second);
    tasks_.erase(tasks_.begin());
    task();
    return true;
  }
  for (auto it = watches_.begin(); it != watches_.end(); ++it) {
    pollfd p{it->second.fd, POLLIN, 0};
    if (poll(&p, 1, 0) > 0) {
      Task task = std::move(it->second.task);
      watches_.erase(it);
      task();
      return true;
    }
  }
  return false;
}

void FakeTaskLoop::RunUntilIdle() {
  // A reader that waits again on a descriptor that stays readable (an ended
  // pipe, say) never lets the loop go idle: end the test instead of hanging.
  for (int64_t ran = 0; RunOne(); ++ran) {
    CHECK_LT(ran, kMaxTasksUntilIdle) << "The loop never goes idle";
  }
}

void FakeTaskLoop::FastForwardBy(int64_t delta_us) {
  const int64_t end = now_us_ + delta_us;
  RunUntilIdle();
  while (!tasks_.empty() && tasks_.begin()->first.first <= end) {
    now_us_ = std::max(now_us_, tasks_.begin()->first.first);
    RunUntilIdle();
  }
  now_us_ = end;
  RunUntilIdle();
}

}  // namespace morvane::ap
