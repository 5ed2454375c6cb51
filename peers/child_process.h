#ifndef PEERS_CHILD_PROCESS_H_
#define PEERS_CHILD_PROCESS_H_

#include <signal.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/error.h"

typedef struct sd_event sd_event;
typedef struct sd_event_source sd_event_source;

namespace morvane::ap {

// One child process (a bus daemon, a daemon under test), watched on the
// loop. The child runs in its own process group (a Ctrl-C in the terminal
// reaches only its parent, which then stops its children in order) and is
// killed by the kernel if the parent dies without cleaning up.
//
// SIGCHLD must be blocked in the parent before Start() (sd-event watches
// children through it); the child gets an empty signal mask.
class ChildProcess {
 public:
  // Called on the loop when the child ended by itself, with its wait status.
  // It is not called for an end caused by Stop().
  using ExitCallback = std::function<void(int wait_status)>;

  // |event| must outlive this object.
  explicit ChildProcess(sd_event* event);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Stops the child if it still runs.
  ~ChildProcess();

  // Starts |argv| (argv[0] is looked up in PATH when it has no slash) with
  // exactly |env|. stdin is /dev/null; stdout and stderr go to the given
  // descriptors (-1: /dev/null), which stay owned by the caller. Returns
  // false and adds to |error| if fork or exec fails.
  bool Start(const std::vector<std::string>& argv,
             const std::vector<std::string>& env, int stdout_fd,
             int stderr_fd, ExitCallback on_exit, ErrorPtr* error);

  // Sends SIGTERM, waits up to |grace_us| for the child to end, then sends
  // SIGKILL, and reaps it. Blocks. Returns the wait status, or -1 when no
  // child was running.
  int Stop(int64_t grace_us);

  // Sends |signo| to a running child and returns at once; its end is
  // reported to the exit callback as if it ended by itself.
  void Signal(int signo);

  bool running() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

 private:
  static int OnChildExit(sd_event_source* source, const siginfo_t* info,
                         void* userdata);

  sd_event* const event_;
  pid_t pid_ = -1;
  sd_event_source* source_ = nullptr;
  ExitCallback on_exit_;
};

// This process's environment with |overrides| (NAME=VALUE) replacing the
// entries of the same names.
std::vector<std::string> EnvironmentWith(
    const std::vector<std::string>& overrides);

// Describes a wait status as "status=N" or "signal=N".
std::string DescribeWaitStatus(int wait_status);

}  // namespace morvane::ap

#endif  // PEERS_CHILD_PROCESS_H_
