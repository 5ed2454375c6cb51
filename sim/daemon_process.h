#ifndef SIM_DAEMON_PROCESS_H_
#define SIM_DAEMON_PROCESS_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/timer.h"
#include "peers/child_process.h"

namespace morvane::ap {

class EventLoop;
struct SimState;

// The daemon under test as the simulator's child: started with exactly its
// environment and its output appended to a log file, stopped, restarted
// (its end starts the next one; it is killed if it lingers). Reports "avd
// started pid=N", "avd exited status=N" (", unasked" when it ended by
// itself) and "avd failed to start: ...", and keeps the state's avd_*
// fields.
class DaemonProcess {
 public:
  struct Hooks {
    std::function<void(const std::string& line)> report;
    std::function<void()> before_start;  // Before each start.
    std::function<void()> flush;  // Brings what the daemon wrote first.
    std::function<void()> changed;
  };

  // |loop| and |state| must outlive this object.
  DaemonProcess(EventLoop* loop, std::string path, std::vector<std::string> env,
                std::string log_path, SimState* state, Hooks hooks);
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;
  ~DaemonProcess();

  void Start();
  // Sends SIGTERM and waits up to |wait_us| for the daemon to end, without
  // reaping it: Stop() then reports the end.
  void AskToStop(int64_t wait_us);
  // Blocks until the daemon ended (SIGTERM, then SIGKILL after a grace).
  void Stop();
  // The peers keep serving while the daemon ends: it may be waiting on one
  // of them.
  void Restart();

  // The daemon ended, or could not start, without being asked to.
  bool failed() const { return failed_; }

 private:
  void OnExited(int status);
  void Ended(const std::string& how);

  EventLoop* const loop_;
  const std::string path_;
  const std::vector<std::string> env_;
  const std::string log_path_;
  SimState* const state_;
  const Hooks hooks_;
  std::unique_ptr<ChildProcess> child_;
  bool restart_pending_ = false;
  bool failed_ = false;
  OneShotTimer stop_timer_;
};

}  // namespace morvane::ap

#endif  // SIM_DAEMON_PROCESS_H_
