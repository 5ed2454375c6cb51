#include "sim/script_ui.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "platform/event_loop.h"
#include "sim/commands.h"
#include "sim/record.h"

namespace morvane::ap {
namespace {

constexpr size_t kMaxRecent = 100'000;

bool DaemonGone(const std::string& line) {
  return line.starts_with("avd failed to start") ||
         (line.starts_with("avd exited") && line.ends_with(", unasked"));
}

}  // namespace

ScriptUi::ScriptUi(EventLoop* loop) : loop_(loop), timer_(loop) {}

ScriptUi::~ScriptUi() {
  if (watch_) loop_->CancelTask(watch_);
  if (run_task_) loop_->CancelTask(run_task_);
}

void ScriptUi::Start(Simulator* simulator, Record* record) {
  simulator_ = simulator;
  record_ = record;
  // A file cannot be watched, and never blocks: it is read whole.
  struct stat st {};
  if (fstat(STDIN_FILENO, &st) != 0 || !S_ISREG(st.st_mode)) {
    watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
  }
  while (!watch_ && ReadInput()) {
  }
  const SimState& s = simulator_->state();
  if (s.avd_ready || !s.avd_running) {
    block_ = Block::kNone;
  } else {
    // Slow under valgrind; the script goes on without it after that.
    Wait(Block::kFirstReady, "", 4 * kReadyWaitMs);
  }
}

void ScriptUi::OnLine(const std::string& line) {
  // A reader that went away ends the run like end of input does.
  if (fprintf(stdout, "%s\n", line.c_str()) < 0 || fflush(stdout) != 0) {
    loop_->Quit(1);
  }
  if (recent_.size() < kMaxRecent) recent_.push_back(line);
  if (block_ == Block::kQuiet) {
    const int64_t left = quit_by_ms_ - record_->NowMs();
    timer_.Start(std::clamp<int64_t>(left, 0, kQuietMs) * 1000,
                 [this] { Quit(); });
    return;
  }
  const bool ready = block_ == Block::kReady || block_ == Block::kFirstReady;
  if (ready && DaemonGone(line)) {
    if (block_ == Block::kReady) Fail("wait ready: the daemon ended");
    Unblock();
  } else if ((ready && line == "ready") ||
             (block_ == Block::kPattern &&
              line.find(pattern_) != std::string::npos)) {
    Unblock();
  }
}

void ScriptUi::OnStateChanged() {}

void ScriptUi::Quit() {
  // Nothing runs any more; the loop ends.
  block_ = Block::kQuitting;
  simulator_->Quit();
}

bool ScriptUi::ReadInput() {
  char buffer[4096];
  ssize_t n;
  while ((n = read(STDIN_FILENO, buffer, sizeof(buffer))) < 0 && errno == EINTR) {
  }
  if (n < 0 && errno == EAGAIN) return true;
  if (n <= 0) {
    // End of input: whatever is queued still runs, then quit.
    if (!pending_.empty()) queue_.push_back(pending_);
    queue_.push_back("quit");
    return false;
  }
  pending_.append(buffer, static_cast<size_t>(n));
  size_t start = 0;
  for (size_t nl; (nl = pending_.find('\n', start)) != std::string::npos;
       start = nl + 1) {
    queue_.push_back(pending_.substr(start, nl - start));
  }
  pending_.erase(0, start);
  return true;
}

void ScriptUi::OnReadable() {
  watch_ = 0;
  if (ReadInput()) {
    watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
  }
  RunQueued();
}

void ScriptUi::RunQueued() {
  while (block_ == Block::kNone && !queue_.empty()) {
    const std::string line = queue_.front();
    queue_.pop_front();
    if (!Run(line)) return;
  }
}

bool ScriptUi::Run(const std::string& line) {
  std::istringstream in(line);
  std::string command;
  in >> command;
  std::string rest;
  std::getline(in >> std::ws, rest);
  int64_t number = 0;

  if (command == "wait") {
    std::string pattern;
    std::string seconds;
    std::istringstream words(rest);
    words >> std::quoted(pattern);
    std::getline(words >> std::ws, seconds);
    const bool ready = pattern == "ready";
    number = ready ? kReadyWaitMs / 1000 : kDefaultWaitMs / 1000;
    if (pattern.empty() || (!seconds.empty() && !ParseNumber(seconds, 1, 3600, &number))) {
      Fail(line + ": expected PATTERN (\"quoted\" when it has spaces) and "
                  "SECONDS in 1..3600");
      return true;
    }
    wait_text_ = line;
    if (ready && simulator_->state().avd_ready) return true;
    pattern_ = pattern;
    if (!ready && std::any_of(recent_.begin(), recent_.end(),
                              [&](const std::string& l) {
                                return l.find(pattern) != std::string::npos;
                              })) {
      return true;
    }
    Wait(ready ? Block::kReady : Block::kPattern, pattern, number * 1000);
    return false;
  }

  recent_.clear();
  if (command == "sleep") {
    if (!ParseNumber(rest, 0, 600'000, &number)) {
      Fail(line + ": expected MS in 0..600000");
      return true;
    }
    Wait(Block::kSleep, "", number);
    return false;
  }
  if (command == "timeline") {
    ErrorPtr error;
    if (rest.empty() || !record_->WriteTimeline(rest, &error)) {
      Fail(line + ": " + (rest.empty() ? std::string("expected FILE.svg")
                                        : error->message()));
    } else {
      simulator_->Report("timeline " + rest);
    }
    return true;
  }
  if (command == "quit") {
    block_ = Block::kQuiet;
    quit_by_ms_ = record_->NowMs() + kQuitMaxMs;
    timer_.Start(kQuietMs * 1000, [this] { Quit(); });
    return false;
  }
  if (!ExecuteCommand(simulator_, line)) failed_ = true;
  return true;
}

void ScriptUi::Wait(Block block, const std::string& pattern,
                    int64_t timeout_ms) {
  block_ = block;
  pattern_ = pattern;
  timer_.Start(timeout_ms * 1000, [this, block, timeout_ms] {
    if (block == Block::kReady || block == Block::kPattern) {
      Fail(wait_text_ + ": nothing came within " +
           std::to_string(timeout_ms / 1000) + " s");
    }
    Unblock();
  });
}

void ScriptUi::Unblock() {
  timer_.Stop();
  block_ = Block::kNone;
  // Not from inside the report that ended the wait.
  if (!run_task_) {
    run_task_ = loop_->PostTask([this] {
      run_task_ = 0;
      RunQueued();
    });
  }
}

void ScriptUi::Fail(const std::string& why) {
  failed_ = true;
  simulator_->Report("error " + why);
}

}  // namespace morvane::ap
