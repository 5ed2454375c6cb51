#include "sim/script_ui.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/event_loop.h"
#include "sim/commands.h"

namespace morvane::ap {

ScriptUi::ScriptUi(EventLoop* loop) : loop_(loop) {}

ScriptUi::~ScriptUi() {
  if (watch_) loop_->CancelTask(watch_);
}

void ScriptUi::Start(Simulator* simulator) {
  simulator_ = simulator;
  watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
}

void ScriptUi::OnLine(const std::string& line) {
  // A reader that went away ends the run like end of input does.
  if (fprintf(stdout, "%s\n", line.c_str()) < 0 || fflush(stdout) != 0) {
    loop_->Quit(1);
  }
}

void ScriptUi::OnReadable() {
  watch_ = 0;
  char buffer[4096];
  const ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
    watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
    return;
  }
  if (n <= 0) {
    loop_->Quit(0);
    return;
  }
  pending_.append(buffer, static_cast<size_t>(n));
  size_t start = 0;
  for (size_t nl; (nl = pending_.find('\n', start)) != std::string::npos;
       start = nl + 1) {
    ExecuteCommand(simulator_, pending_.substr(start, nl - start));
  }
  pending_.erase(0, start);
  watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
}

}  // namespace morvane::ap
