#include "tests/e2e/sim_process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace morvane::ap {
namespace {

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

SimProcess::~SimProcess() {
  // End of input quits cleanly, so the simulator removes its directory.
  CloseInput();
  if (pid_ > 0 && !exit_code_ && !WaitForExit()) {
    // SIGKILL: the simulator's children die with it (parent-death signal).
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  if (from_sim_ >= 0) close(from_sim_);
}

bool SimProcess::Start(const std::string& sim_binary,
                       const std::string& avd_binary,
                       const std::vector<std::string>& extra_args) {
  // Sound is captured, never played aloud by a test.
  std::vector<std::string> args = {sim_binary, "--script", "--sound=capture",
                                   "--avd=" + avd_binary};
  args.insert(args.end(), extra_args.begin(), extra_args.end());
  return Run(args);
}

bool SimProcess::Run(std::vector<std::string> args) {
  int in[2];
  int out[2];
  // A failure here fails the test; the descriptors go with the process.
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return false;
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);

  pid_ = fork();
  if (pid_ < 0) return false;
  if (pid_ == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(out[1], 2);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  to_sim_ = in[1];
  from_sim_ = out[0];
  // A test that stops reading must not block the simulator's pipe writes
  // forever; it is killed at the end anyway.
  signal(SIGPIPE, SIG_IGN);
  return true;
}

bool SimProcess::Send(const std::string& command) {
  const std::string line = command + "\n";
  return to_sim_ >= 0 &&
         write(to_sim_, line.data(), line.size()) ==
             static_cast<ssize_t>(line.size());
}

void SimProcess::CloseInput() {
  if (to_sim_ >= 0) close(to_sim_);
  to_sim_ = -1;
}

bool SimProcess::ReadSome(int64_t timeout_ms) {
  if (from_sim_ < 0) return false;
  pollfd pfd{from_sim_, POLLIN, 0};
  if (poll(&pfd, 1, static_cast<int>(std::max<int64_t>(0, timeout_ms))) <= 0) {
    return false;
  }
  char buffer[4096];
  const ssize_t n = read(from_sim_, buffer, sizeof(buffer));
  if (n <= 0) {
    close(from_sim_);
    from_sim_ = -1;
    return false;
  }
  partial_.append(buffer, static_cast<size_t>(n));
  size_t start = 0;
  for (size_t nl; (nl = partial_.find('\n', start)) != std::string::npos;
       start = nl + 1) {
    lines_.push_back(partial_.substr(start, nl - start));
  }
  partial_.erase(0, start);
  return true;
}

bool SimProcess::DaemonEnded() const {
  bool ended = false;
  for (auto it = lines_.rbegin(); it != lines_.rend(); ++it) {
    if (it->starts_with("avd started ")) return ended;
    // A restart ends the daemon on purpose and starts the next one.
    if (*it == "inject restart avd") return false;
    ended = ended || it->starts_with("avd exited ") ||
            it->starts_with("avd failed to start");
  }
  return ended;
}

size_t SimProcess::Wait(const std::string& text, bool whole, size_t from,
                        int64_t timeout_ms) {
  int64_t deadline = NowMs() + (failed_ ? 0 : timeout_ms);
  bool ended = false;
  for (size_t i = from;; ++i) {
    while (i >= lines_.size()) {
      // A daemon that has ended brings no more lines: fail fast.
      if (!ended && DaemonEnded()) {
        ended = true;
        deadline = std::min(deadline, NowMs() + kAfterDaemonEndMs);
      }
      const int64_t left = deadline - NowMs();
      if (left <= 0 || from_sim_ < 0) {
        ADD_FAILURE() << "no line \"" << text << "\" after line " << from
                      << (failed_ ? " (after an earlier failure)"
                                  : "; output:\n" + Transcript());
        failed_ = true;
        return lines_.size();
      }
      ReadSome(left);
    }
    if (whole ? lines_[i] == text : lines_[i].starts_with(text)) return i;
  }
}

std::string SimProcess::After(const std::string& prefix) {
  const size_t at = ExpectPrefix(prefix);
  return at < lines_.size() ? lines_[at].substr(prefix.size()) : "";
}

std::optional<int> SimProcess::WaitForExit(int64_t timeout_ms) {
  const int64_t deadline = NowMs() + timeout_ms;
  while (!exit_code_) {
    // Keep draining output so the simulator never blocks on a full pipe.
    if (!ReadSome(10) && from_sim_ < 0) poll(nullptr, 0, 10);
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status)
                                     : 128 + WTERMSIG(status);
      while (ReadSome(0)) {
      }
    } else if (NowMs() >= deadline) {
      return std::nullopt;
    }
  }
  return exit_code_;
}

std::string SimProcess::Transcript() const {
  std::string out;
  for (const std::string& line : lines_) out += "  | " + line + "\n";
  return out;
}

size_t SimProcess::Count(const std::string& prefix, size_t from) const {
  from = std::min(from, lines_.size());
  return std::count_if(lines_.begin() + from, lines_.end(), [&](const std::string& line) {
    return line.starts_with(prefix);
  });
}

}  // namespace morvane::ap
