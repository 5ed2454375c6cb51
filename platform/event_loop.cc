#include "platform/event_loop.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/epoll.h>
#include <systemd/sd-event.h>
#include <time.h>

#include <glog/logging.h>

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
  int r = sd_event_new(&event);
  std::unique_ptr<EventLoop> loop;
  if (r >= 0) {
    loop.reset(new EventLoop(event));
    // Posted tasks all run from this one source; without it none would.
    r = sd_event_add_defer(event, &loop->posted_source_, &EventLoop::OnDefer,
                           loop.get());
  }
  if (r >= 0) r = sd_event_source_set_enabled(loop->posted_source_, SD_EVENT_OFF);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "event_loop",
                       "Failed to create event loop: %s", strerror(-r));
    if (!loop) sd_event_unref(event);
    return nullptr;
  }
  return loop;
}

EventLoop::EventLoop(sd_event* event) : event_(event) {}

EventLoop::~EventLoop() {
  for (auto& [id, pending] : pending_) sd_event_source_unref(pending.source);
  for (auto& [signo, source] : signal_sources_) sd_event_source_unref(source);
  sd_event_source_unref(posted_source_);
  sd_event_unref(event_);
}

TaskId EventLoop::PostTask(Task task) {
  const TaskId id = next_id_++;
  const int r = sd_event_source_set_enabled(posted_source_, SD_EVENT_ON);
  if (r < 0) {
    LOG(ERROR) << "Failed to post a task: " << strerror(-r) << ", dropping it";
    return 0;
  }
  posted_.emplace_back(id, std::move(task));
  return id;
}

TaskId EventLoop::PostDelayedTask(Task task, int64_t delay_us) {
  if (delay_us <= 0) return PostTask(std::move(task));
  sd_event_source* source = nullptr;
  // From the clock, not sd_event_now(): that is the loop's last wake-up, and
  // the caller may have blocked since (on a D-Bus call, say). Accuracy of
  // 1 us: sd-event would otherwise coalesce wake-ups by up to 250 ms, and our
  // delays are meant as given.
  const uint64_t due = static_cast<uint64_t>(Now() + delay_us);
  const int r = sd_event_add_time(event_, &source, CLOCK_MONOTONIC, due, 1,
                                  &EventLoop::OnTime, this);
  if (r < 0) {
    LOG(ERROR) << "Failed to post a task in " << delay_us
               << " us: " << strerror(-r) << ", dropping it";
    return 0;
  }
  return AddPending(source, std::move(task));
}

TaskId EventLoop::WatchReadable(int fd, Task task) {
  sd_event_source* source = nullptr;
  const int r = sd_event_add_io(event_, &source, fd, EPOLLIN,
                                &EventLoop::OnIo, this);
  if (r < 0) {
    LOG(ERROR) << "Failed to watch descriptor " << fd << ": " << strerror(-r)
               << ", dropping the task";
    return 0;
  }
  return AddPending(source, std::move(task));
}

TaskId EventLoop::AddPending(sd_event_source* source, Task task) {
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
  return HandleSignal(signo, [this] { Quit(0); }, error);
}

bool EventLoop::HandleSignal(int signo, Task handler, ErrorPtr* error) {
  if (auto it = signal_sources_.find(signo); it != signal_sources_.end()) {
    signal_handlers_[signo] = std::move(handler);
    return true;
  }
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, signo);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  sd_event_source* source = nullptr;
  const int r = sd_event_add_signal(event_, &source, signo, &OnSignal, this);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "event_loop",
                       "Failed to handle signal %d: %s", signo, strerror(-r));
    return false;
  }
  signal_sources_[signo] = source;
  signal_handlers_[signo] = std::move(handler);
  return true;
}

int EventLoop::OnSignal(sd_event_source*, const signalfd_siginfo* info,
                        void* userdata) {
  auto* loop = static_cast<EventLoop*>(userdata);
  auto it = loop->signal_handlers_.find(static_cast<int>(info->ssi_signo));
  if (it != loop->signal_handlers_.end()) it->second();
  return 0;
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
