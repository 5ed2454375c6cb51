#include "peers/child_process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "sim";

// Runs in the forked child: only async-signal-safe calls until exec.
[[noreturn]] void ExecChild(char* const* argv, char* const* envp,
                            int stdout_fd, int stderr_fd, pid_t parent) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have died between fork and prctl.
  if (getppid() != parent) _exit(127);
  const int null_fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null_fd, 0);
  dup2(stdout_fd >= 0 ? stdout_fd : null_fd, 1);
  dup2(stderr_fd >= 0 ? stderr_fd : null_fd, 2);
  // The child gets its three standard streams and nothing else: not what
  // this process inherited, nor what a library opened without O_CLOEXEC.
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
  execvpe(argv[0], argv, envp);
  _exit(127);
}

}  // namespace

std::vector<std::string> EnvironmentWith(
    const std::vector<std::string>& overrides) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('=') + 1);
    if (std::none_of(overrides.begin(), overrides.end(),
                     [&](const std::string& o) { return o.starts_with(name); })) {
      env.push_back(entry);
    }
  }
  env.insert(env.end(), overrides.begin(), overrides.end());
  return env;
}

std::string DescribeWaitStatus(int wait_status) {
  if (WIFEXITED(wait_status)) {
    return "status=" + std::to_string(WEXITSTATUS(wait_status));
  }
  if (WIFSIGNALED(wait_status)) {
    return "signal=" + std::to_string(WTERMSIG(wait_status));
  }
  return "wait_status=" + std::to_string(wait_status);
}

ChildProcess::ChildProcess(sd_event* event) : event_(event) {}

ChildProcess::~ChildProcess() { Stop(2'000'000); }

bool ChildProcess::Start(const std::vector<std::string>& argv,
                         const std::vector<std::string>& env, int stdout_fd,
                         int stderr_fd, ExitCallback on_exit,
                         ErrorPtr* error) {
  Stop(2'000'000);
  // Built before fork: the child must not allocate.
  std::vector<char*> c_argv;
  for (const std::string& arg : argv) c_argv.push_back(const_cast<char*>(arg.c_str()));
  c_argv.push_back(nullptr);
  std::vector<char*> c_env;
  for (const std::string& entry : env) c_env.push_back(const_cast<char*>(entry.c_str()));
  c_env.push_back(nullptr);

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "spawn",
                       "Failed to fork for %s: %s", argv[0].c_str(),
                       strerror(errno));
    return false;
  }
  if (pid == 0) ExecChild(c_argv.data(), c_env.data(), stdout_fd, stderr_fd, parent);
  // Also set from this side so that the group exists before any kill().
  setpgid(pid, pid);
  pid_ = pid;
  on_exit_ = std::move(on_exit);
  const int r = sd_event_add_child(event_, &source_, pid, WEXITED,
                                   &ChildProcess::OnChildExit, this);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "spawn",
                       "Failed to watch %s: %s", argv[0].c_str(), strerror(-r));
    Stop(0);
    return false;
  }
  return true;
}

int ChildProcess::Stop(int64_t grace_us) {
  // Drop the watch first so that sd-event does not reap the child under us.
  source_ = sd_event_source_disable_unref(source_);
  if (pid_ <= 0) return -1;
  kill(pid_, SIGTERM);
  int status = 0;
  constexpr int64_t kStepUs = 5'000;
  for (int64_t waited = 0;; waited += kStepUs) {
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_ || (r < 0 && errno != EINTR)) break;
    if (waited >= grace_us) {
      kill(pid_, SIGKILL);
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
      break;
    }
    usleep(kStepUs);
  }
  pid_ = -1;
  on_exit_ = nullptr;
  return status;
}

void ChildProcess::Signal(int signo) {
  if (pid_ > 0) kill(pid_, signo);
}

int ChildProcess::OnChildExit(sd_event_source*, const siginfo_t* info,
                              void* userdata) {
  auto* self = static_cast<ChildProcess*>(userdata);
  // sd-event reaps the child once this callback returns.
  const int status = info->si_code == CLD_EXITED
                         ? W_EXITCODE(info->si_status & 0xff, 0)
                         : info->si_status & 0x7f;
  // The source stays until the next Start() or Stop(): sd-event still uses
  // it after this callback returns.
  self->pid_ = -1;
  ExitCallback callback = std::move(self->on_exit_);
  self->on_exit_ = nullptr;
  if (callback) callback(status);
  return 0;
}

}  // namespace morvane::ap
