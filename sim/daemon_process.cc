#include "sim/daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "platform/event_loop.h"
#include "sim/simulator.h"

namespace morvane::ap {
namespace {

constexpr int64_t kStopGraceUs = 5'000'000;

// Whether |path| (looked up in PATH when it has no slash) can be run.
bool Executable(const std::string& path) {
  if (path.find('/') != path.npos) return access(path.c_str(), X_OK) == 0;
  const char* dirs = getenv("PATH");
  std::istringstream in(dirs ? dirs : "/usr/bin:/bin");
  for (std::string dir; std::getline(in, dir, ':');) {
    if (access((dir + "/" + path).c_str(), X_OK) == 0) return true;
  }
  return false;
}

}  // namespace

DaemonProcess::DaemonProcess(EventLoop* loop, std::string path,
                             std::vector<std::string> env, std::string log_path,
                             SimState* state, Hooks hooks)
    : loop_(loop),
      path_(std::move(path)),
      env_(std::move(env)),
      log_path_(std::move(log_path)),
      state_(state),
      hooks_(std::move(hooks)),
      stop_timer_(loop) {}

DaemonProcess::~DaemonProcess() { Stop(); }

void DaemonProcess::Start() {
  ErrorPtr error;
  bool started = false;
  if (!Executable(path_)) {
    // Said here: the child's failed exec would only show as status 127.
    Error::AddTo(&error, FROM_HERE, "sim", "not_executable",
                 path_ + " is not an executable file");
  } else {
    hooks_.before_start();
    const int log_fd = open(log_path_.c_str(),
                            O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    child_ = std::make_unique<ChildProcess>(loop_->event());
    started = child_->Start({path_}, env_, log_fd, log_fd,
                            [this](int status) { OnExited(status); }, &error);
    if (log_fd >= 0) close(log_fd);
  }
  if (!started) {
    hooks_.report("avd failed to start: " + error->message());
    failed_ = true;
    hooks_.changed();
    return;
  }
  state_->avd_running = true;
  state_->avd_pid = child_->pid();
  hooks_.report("avd started pid=" + std::to_string(child_->pid()));
  hooks_.changed();
}

void DaemonProcess::OnExited(int status) {
  Ended(DescribeWaitStatus(status) + (restart_pending_ ? "" : ", unasked"));
  if (!restart_pending_) {
    failed_ = true;
    return;
  }
  restart_pending_ = false;
  stop_timer_.Stop();
  // Not from inside the ended child's own callback.
  loop_->PostTask([this] { Start(); });
}

void DaemonProcess::AskToStop(int64_t wait_us) {
  restart_pending_ = false;
  if (!child_ || !child_->running()) return;
  child_->Signal(SIGTERM);
  constexpr int64_t kStepUs = 5'000;
  for (int64_t waited = 0; waited < wait_us; waited += kStepUs) {
    siginfo_t info{};
    // WNOWAIT leaves the child to be reaped by Stop().
    if (waitid(P_PID, static_cast<id_t>(child_->pid()), &info,
               WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != 0) {
      return;
    }
    usleep(kStepUs);
  }
}

void DaemonProcess::Stop() {
  stop_timer_.Stop();
  restart_pending_ = false;
  if (!child_ || !child_->running()) return;
  Ended(DescribeWaitStatus(child_->Stop(kStopGraceUs)));
}

void DaemonProcess::Ended(const std::string& how) {
  // Lines the daemon wrote just before it ended come first.
  hooks_.flush();
  hooks_.report("avd exited " + how);
  state_->avd_running = false;
  state_->avd_ready = false;
  state_->avd_pid = -1;
  hooks_.changed();
}

void DaemonProcess::Restart() {
  if (!child_ || !child_->running()) {
    Start();
    return;
  }
  restart_pending_ = true;
  child_->Signal(SIGTERM);
  stop_timer_.Start(kStopGraceUs, [this] { child_->Signal(SIGKILL); });
}

}  // namespace morvane::ap
