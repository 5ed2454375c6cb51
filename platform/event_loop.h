#ifndef PLATFORM_EVENT_LOOP_H_
#define PLATFORM_EVENT_LOOP_H_

#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <utility>

#include "platform/error.h"
#include "platform/task_loop.h"

typedef struct sd_event sd_event;
typedef struct sd_event_source sd_event_source;
struct signalfd_siginfo;

namespace morvane::ap {

// The real task loop, over sd-event. Single-threaded: every method must be
// called from the thread that runs the loop.
class EventLoop : public TaskLoop {
 public:
  // Returns null and adds to |error| when sd-event cannot be set up.
  static std::unique_ptr<EventLoop> Create(ErrorPtr* error);

  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  // Pending tasks are dropped without running.
  ~EventLoop() override;

  TaskId PostTask(Task task) override;
  TaskId PostDelayedTask(Task task, int64_t delay_us) override;
  TaskId WatchReadable(int fd, Task task) override;
  bool CancelTask(TaskId id) override;
  int64_t Now() const override;
  int64_t WallNow() const override;

  // Runs until Quit(); returns the code given to Quit().
  int Run();
  void Quit(int exit_code);

  // Blocks |signo| for normal delivery and quits the loop with code 0 when
  // it arrives.
  bool QuitOnSignal(int signo, ErrorPtr* error);
  // Blocks |signo| for normal delivery and runs |handler| on the loop each
  // time it arrives. Replaces an earlier handler or quit of the signal.
  bool HandleSignal(int signo, Task handler, ErrorPtr* error);

  // For attaching other sd-event users (the bus) inside platform/.
  sd_event* event() const { return event_; }

 private:
  struct Pending {
    sd_event_source* source = nullptr;
    Task task;
  };

  explicit EventLoop(sd_event* event);
  static int OnDefer(sd_event_source* source, void* userdata);
  static int OnTime(sd_event_source* source, uint64_t usec, void* userdata);
  static int OnSignal(sd_event_source* source, const signalfd_siginfo* info,
                      void* userdata);
  static int OnIo(sd_event_source* source, int fd, uint32_t revents,
                  void* userdata);
  TaskId AddPending(sd_event_source* source, Task task);
  void RunPending(sd_event_source* source);
  void RunPosted();

  sd_event* const event_;
  TaskId next_id_ = 1;
  // Posted tasks run in order from one deferred source, enabled while any
  // are queued.
  std::deque<std::pair<TaskId, Task>> posted_;
  sd_event_source* posted_source_ = nullptr;
  std::unordered_map<TaskId, Pending> pending_;
  std::unordered_map<sd_event_source*, TaskId> by_source_;
  std::unordered_map<int, sd_event_source*> signal_sources_;
  std::unordered_map<int, Task> signal_handlers_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_EVENT_LOOP_H_
