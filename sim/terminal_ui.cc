#include "sim/terminal_ui.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "platform/event_loop.h"
#include "sim/commands.h"
#include "sim/view_frame.h"

namespace morvane::ap {
namespace {

constexpr size_t kMaxLog = 200;
constexpr int kAmbientStep = 32;
constexpr char kLeave[] = "\x1b[0m\x1b[?25h\x1b[?1049l";

// The terminal as it was, for a crash of the simulator to restore.
termios g_saved_terminal;

void RestoreTerminalAndDie(int signo) {
  (void)!write(STDOUT_FILENO, kLeave, sizeof(kLeave) - 1);
  tcsetattr(STDIN_FILENO, TCSANOW, &g_saved_terminal);
  // The handler was reset: the signal now does what it always does.
  raise(signo);
}

}  // namespace

TerminalUi::TerminalUi(EventLoop* loop) : loop_(loop) {}

TerminalUi::~TerminalUi() {
  Stop();
  if (redraw_task_) loop_->CancelTask(redraw_task_);
}

bool TerminalUi::Start(Simulator* simulator, ErrorPtr* error) {
  simulator_ = simulator;
  if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &saved_) != 0) {
    Error::AddTo(error, FROM_HERE, "sim", "terminal",
                 "Failed to use the terminal: stdin is not a terminal; use "
                 "--script");
    return false;
  }
  termios raw = saved_;
  // Keep ISIG: Ctrl-C stays a signal, which the loop turns into a clean quit.
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 1;
  raw.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  // A SIGKILL leaves the terminal raw; a crash need not.
  g_saved_terminal = saved_;
  struct sigaction crash {};
  crash.sa_handler = RestoreTerminalAndDie;
  crash.sa_flags = SA_RESETHAND;
  for (const int signo : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    sigaction(signo, &crash, nullptr);
  }
  // A resized terminal is drawn again at once.
  loop_->HandleSignal(SIGWINCH, [this] { ScheduleRedraw(); }, nullptr);
  active_ = true;
  const char kEnter[] = "\x1b[?1049h\x1b[?25l\x1b[2J";
  (void)!write(STDOUT_FILENO, kEnter, sizeof(kEnter) - 1);
  key_watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
  ScheduleRedraw();
  return true;
}

void TerminalUi::Stop() {
  if (!active_) return;
  active_ = false;
  if (key_watch_) loop_->CancelTask(key_watch_);
  key_watch_ = 0;
  loop_->HandleSignal(SIGWINCH, [] {}, nullptr);
  (void)!write(STDOUT_FILENO, kLeave, sizeof(kLeave) - 1);
  tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
  // The last few lines, as the view showed them, so that what happened
  // last stays on the terminal.
  const size_t shown = std::min<size_t>(log_.size(), 4);
  for (size_t i = log_.size() - shown; i < log_.size(); ++i) {
    printf(" %s\n", ShortenDaemonLine(log_[i]).c_str());
  }
  fflush(stdout);
}

void TerminalUi::OnLine(const std::string& line) {
  if (!active_) {
    printf(" %s\n", ShortenDaemonLine(line).c_str());
    fflush(stdout);
  }
  log_.push_back(line);
  if (log_.size() > kMaxLog) log_.pop_front();
  ScheduleRedraw();
}

void TerminalUi::OnStateChanged() { ScheduleRedraw(); }

void TerminalUi::ScheduleRedraw() {
  if (!active_ || redraw_task_) return;
  // Coalesces a burst of events into one frame.
  redraw_task_ = loop_->PostTask([this] {
    redraw_task_ = 0;
    Redraw();
  });
}

std::string TerminalUi::CommandForKey(char key, const SimState& s) {
  switch (key) {
    case 'w': return "wave";
    case 'b':
    case ' ': return "press";
    case 'n': return s.wan_online ? "wan offline" : "wan online";
    case 'g':
      return !s.is_root && !s.connected_to_root ? "group ok" : "group failure";
    case 'r': return s.is_root ? "group nonroot" : "group root";
    case 'l': return s.group_joined ? "group leave" : "group join";
    case 's': return s.setup_completed ? "setup reset" : "setup completed";
    case '+':
    case '=': return "intensity up";
    case '-': return "intensity down";
    case 'a': return s.automatic_intensity ? "auto off" : "auto on";
    case 'e': return s.bridge_mode ? "bridge off" : "bridge on";
    case 'v':
      return s.default_device.empty() ? "default 02:00:00:5e:00:01 600"
                                      : "default none";
    case '[':
      return "ambient " + std::to_string(std::max(0, s.ambient - kAmbientStep));
    case ']':
      return "ambient " +
             std::to_string(std::min(255, std::max(0, s.ambient) + kAmbientStep));
    case 'x': return "ambient fail";
    case 'm': return s.audio_down ? "audio up" : "audio down";
    case 'k': return s.vpd_present ? "vpd remove" : "vpd restore";
    case 'p': return "op start";
    case 'u': return "op succeed";
    case 'f': return "op fail";
    case 'c': return "restart controller";
    case 'd': return "restart avd";
    case 'q': return "quit";
    default: return "";
  }
}

void TerminalUi::OnReadable() {
  key_watch_ = 0;
  char keys[64];
  const ssize_t n = read(STDIN_FILENO, keys, sizeof(keys));
  if (n <= 0) {
    loop_->Quit(0);
    return;
  }
  for (ssize_t i = 0; i < n; ++i) {
    // Escape sequences (arrow keys and the like) mean nothing here.
    if (keys[i] == 0x1b) break;
    if (keys[i] == '?') {
      show_keys_ = !show_keys_;
      ScheduleRedraw();
      continue;
    }
    const std::string command = CommandForKey(keys[i], simulator_->state());
    if (!command.empty()) ExecuteCommand(simulator_, command);
  }
  if (active_) {
    key_watch_ = loop_->WatchReadable(STDIN_FILENO, [this] { OnReadable(); });
  }
}

void TerminalUi::Redraw() {
  if (!active_) return;
  winsize ws{};
  int width = 80;
  int height = 24;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col && ws.ws_row) {
    width = ws.ws_col;
    height = ws.ws_row;
  }
  const std::string frame = RenderFrame(simulator_->state(), log_, show_keys_,
                                        std::min(width, 160), height);
  size_t done = 0;
  while (done < frame.size()) {
    const ssize_t n = write(STDOUT_FILENO, frame.data() + done,
                            frame.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
}

}  // namespace morvane::ap
