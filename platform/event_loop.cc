#include "platform/event_loop.h"

#include <signal.h>
#include <sys/epoll.h>
#include <systemd/sd-event.h>
#include <time.h>

#include <cstring>

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "ap";

int64_t ClockUs(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return int64_t{ts.tv_sec} * 1'000'000 + ts.tv_nsec / 1000;
}

}  // namespace

std::unique_ptr<EventLoop> EventLoop::Create(ErrorPtr* error) {
  sd_event* event = nullptr;
  const int r = sd_event_new(&event);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "event_loop",
                       "Failed to create event loop: %s", strerror(-r));
    return nullptr;
  }
  return std::unique_ptr<EventLoop>(new EventLoop(event));
}

EventLoop::EventLoop(sd_event* event) : event_(event) {
  sd_event_add_defer(event_, &posted_source_, &EventLoop::OnDefer, this);
  sd_event_source_set_enabled(posted_source_, SD_EVENT_OFF);
}

EventLoop::~EventLoop() {
  for (auto& [id, pending] : pending_) sd_event_source_unref(pending.source);
  for (auto& [signo, source] : signal_sources_) sd_event_source_unref(source);
  sd_event_source_unref(posted_source_);
  sd_event_unref(event_);
}

TaskId EventLoop::PostTask(Task task) {
  const TaskId id = next_id_++;
  posted_.emplace_back(id, std::move(task));
  sd_event_source_set_enabled(posted_source_, SD_EVENT_ON);
  return id;
}

TaskId EventLoop::PostDelayedTask(Task task, int64_t delay_us) {
  if (delay_us <= 0) return PostTask(std::move(task));
  sd_event_source* source = nullptr;
  uint64_t now = 0;
  sd_event_now(event_, CLOCK_MONOTONIC, &now);
  // Accuracy of 1 us: sd-event would otherwise coalesce wake-ups by up to
  // 250 ms, and our delays are meant as given.
  const int r = sd_event_add_time(event_, &source, CLOCK_MONOTONIC,
                                  now + static_cast<uint64_t>(delay_us), 1,
                                  &EventLoop::OnTime, this);
  if (r < 0) return 0;
  const TaskId id = next_id_++;
  pending_[id] = Pending{source, std::move(task)};
  by_source_[source] = id;
  return id;
}

TaskId EventLoop::WatchReadable(int fd, Task task) {
  sd_event_source* source = nullptr;
  const int r = sd_event_add_io(event_, &source, fd, EPOLLIN,
                                &EventLoop::OnIo, this);
  if (r < 0) return 0;
  const TaskId id = next_id_++;
  pending_[id] = Pending{source, std::move(task)};
  by_source_[source] = id;
  return id;
}

bool EventLoop::CancelTask(TaskId id) {
  auto it = pending_.find(id);
  if (it != pending_.end()) {
    by_source_.erase(it->second.source);
    sd_event_source_unref(it->second.source);
    pending_.erase(it);
    return true;
  }
  for (auto p = posted_.begin(); p != posted_.end(); ++p) {
    if (p->first == id) {
      posted_.erase(p);
      return true;
    }
  }
  return false;
}

int64_t EventLoop::Now() const { return ClockUs(CLOCK_MONOTONIC); }

int64_t EventLoop::WallNow() const { return ClockUs(CLOCK_REALTIME); }

int EventLoop::Run() { return sd_event_loop(event_); }

void EventLoop::Quit(int exit_code) { sd_event_exit(event_, exit_code); }

bool EventLoop::QuitOnSignal(int signo, ErrorPtr* error) {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, signo);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  sd_event_source* source = nullptr;
  const int r = sd_event_add_signal(
      event_, &source, signo,
      [](sd_event_source* s, const signalfd_siginfo*, void*) {
        return sd_event_exit(sd_event_source_get_event(s), 0);
      },
      nullptr);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "event_loop",
                       "Failed to handle signal %d: %s", signo, strerror(-r));
    return false;
  }
  signal_sources_[signo] = source;
  return true;
}

int EventLoop::OnDefer(sd_event_source*, void* userdata) {
  static_cast<EventLoop*>(userdata)->RunPosted();
  return 0;
}

int EventLoop::OnTime(sd_event_source* source, uint64_t, void* userdata) {
  static_cast<EventLoop*>(userdata)->RunPending(source);
  return 0;
}

int EventLoop::OnIo(sd_event_source* source, int, uint32_t, void* userdata) {
  static_cast<EventLoop*>(userdata)->RunPending(source);
  return 0;
}

void EventLoop::RunPosted() {
  // Only the tasks queued so far: tasks they post wait for the next
  // iteration, so timers and descriptors are not starved.
  size_t count = posted_.size();
  while (count-- > 0 && !posted_.empty()) {
    Task task = std::move(posted_.front().second);
    posted_.pop_front();
    task();
  }
  if (posted_.empty()) sd_event_source_set_enabled(posted_source_, SD_EVENT_OFF);
}

void EventLoop::RunPending(sd_event_source* source) {
  auto s = by_source_.find(source);
  if (s == by_source_.end()) return;
  auto it = pending_.find(s->second);
  Task task = std::move(it->second.task);
  by_source_.erase(s);
  pending_.erase(it);
  sd_event_source_unref(source);
  task();
}

}  // namespace morvane::ap
