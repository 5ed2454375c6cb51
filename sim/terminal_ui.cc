#include "sim/terminal_ui.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "platform/event_loop.h"
#include "sim/commands.h"

namespace morvane::ap {
namespace {

constexpr size_t kMaxLog = 200;
constexpr int kLeds = 12;
constexpr int kAmbientStep = 32;
constexpr char kKeys1[] =
    " w wave  b button  n WAN  g group failure  r root  l group leave  e bridge"
    "  k vpd";
constexpr char kKeys2[] =
    " s setup  +/- intensity  a auto  [/] ambient  x ambient fail  v default dev";
constexpr char kKeys3[] =
    " m audio  p op start  u succeed  f fail  c restart ctrl  d restart avd  q quit";

struct Rgb {
  int r, g, b;
};

// What the ring looks like in each light state on this simulated device.
Rgb StateColour(int state) {
  switch (state) {
    case 0: return {225, 225, 225};  // start-up: white
    case 1: return {40, 200, 90};    // online: green
    case 2: return {235, 100, 20};   // WAN failure: amber
    case 3: return {40, 110, 240};   // setup: blue
    case 4: return {40, 210, 230};   // setup activity: cyan
    case 6: return {170, 70, 230};   // operation in progress: purple
    default: return {90, 90, 90};
  }
}

const char* StateName(int state) {
  switch (state) {
    case -1: return "(none yet)";
    case 0: return "start-up";
    case 1: return "online";
    case 2: return "WAN failure";
    case 3: return "setup";
    case 4: return "setup activity";
    case 6: return "operation";
    default: return "unexpected";
  }
}

std::string Colour(Rgb c, int brightness) {
  // Dimmed by master brightness but never invisible on screen.
  const double f = brightness < 0 ? 1.0 : 0.2 + 0.8 * brightness / 255.0;
  char out[40];
  snprintf(out, sizeof(out), "\x1b[38;2;%d;%d;%dm", static_cast<int>(c.r * f),
           static_cast<int>(c.g * f), static_cast<int>(c.b * f));
  return out;
}

// Only printable ASCII reaches the screen, cut to |width| columns.
std::string Printable(const std::string& text, size_t width) {
  std::string out;
  for (char c : text) {
    if (out.size() >= width) break;
    out.push_back(c >= 0x20 && c < 0x7f ? c : '?');
  }
  return out;
}

// A screen row: cells of one character each, with optional colour.
struct Row {
  std::vector<std::string> cells;  // Each cell: colour prefix + one glyph.
  explicit Row(int width) : cells(static_cast<size_t>(width), " ") {}
  void Put(int col, const std::string& text, const std::string& colour = "") {
    for (size_t i = 0; i < text.size(); ++i) {
      const size_t at = static_cast<size_t>(col) + i;
      if (at >= cells.size()) return;
      cells[at] = colour.empty() ? std::string(1, text[i])
                                 : colour + text[i] + "\x1b[0m";
    }
  }
  void PutGlyph(int col, const std::string& glyph, const std::string& colour) {
    if (col >= 0 && static_cast<size_t>(col) < cells.size()) {
      cells[static_cast<size_t>(col)] = colour + glyph + "\x1b[0m";
    }
  }
  std::string Render() const {
    std::string out;
    for (const std::string& cell : cells) out += cell;
    return out;
  }
};

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
  const char kLeave[] = "\x1b[0m\x1b[?25h\x1b[?1049l";
  (void)!write(STDOUT_FILENO, kLeave, sizeof(kLeave) - 1);
  tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
  const size_t shown = std::min<size_t>(log_.size(), 8);
  for (size_t i = log_.size() - shown; i < log_.size(); ++i) {
    printf("%s\n", log_[i].c_str());
  }
  fflush(stdout);
}

void TerminalUi::OnLine(const std::string& line) {
  if (!active_) {
    printf("%s\n", line.c_str());
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
  const std::string frame = Frame(std::min(width, 160), height);
  size_t done = 0;
  while (done < frame.size()) {
    const ssize_t n = write(STDOUT_FILENO, frame.data() + done,
                            frame.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
}

std::string TerminalUi::Frame(int width, int height) const {
  const SimState& s = simulator_->state();
  constexpr int kRingRows = 11;
  const int log_rows = std::max(3, height - kRingRows - 6);
  std::vector<Row> rows(static_cast<size_t>(kRingRows + 6 + log_rows),
                        Row(width));

  // Title.
  char title[160];
  snprintf(title, sizeof(title), " ap-sim  avd: %s",
           s.avd_running ? (s.avd_ready ? "running, on the bus"
                                        : "running, not on the bus yet")
                         : "not running");
  rows[0].Put(0, title, "\x1b[1m");
  if (s.avd_pid > 0) {
    rows[0].Put(static_cast<int>(strlen(title)) + 1,
                "(pid " + std::to_string(s.avd_pid) + ")");
  }

  // The ring: kLeds lights on an ellipse (terminal cells are twice as tall
  // as wide).
  const std::string colour = Colour(StateColour(s.light_state), s.brightness);
  const int cx = 15;
  const int cy = 6;
  for (int i = 0; i < kLeds; ++i) {
    const double angle = 2 * M_PI * i / kLeds;
    const int x = cx + static_cast<int>(std::lround(12 * std::sin(angle)));
    const int y = cy - static_cast<int>(std::lround(4.6 * std::cos(angle)));
    // Through the sysfs library each LED shows the colour of its attributes.
    const bool sysfs = s.ring_colours.size() == static_cast<size_t>(kLeds);
    const uint32_t rgb = sysfs ? s.ring_colours[static_cast<size_t>(i)] : 0;
    rows[static_cast<size_t>(y)].PutGlyph(
        x, s.light_state < 0 && !sysfs ? "\u25cb" : "\u25cf",
        sysfs ? Colour({int(rgb >> 16), int(rgb >> 8 & 0xff), int(rgb & 0xff)},
                       s.brightness)
              : colour);
  }
  const std::string state_text =
      !s.ring_mode.empty() ? "sysfs LEDs"
      : s.light_state < 0  ? "no state"
                           : "state " + std::to_string(s.light_state);
  rows[cy - 1].Put(cx - static_cast<int>(state_text.size()) / 2, state_text,
                   colour);
  const std::string name =
      s.ring_mode.empty() ? StateName(s.light_state) : s.ring_mode;
  rows[cy].Put(cx - static_cast<int>(name.size()) / 2, name);
  const std::string level =
      s.brightness < 0 ? "brightness ?" : "brightness " + std::to_string(s.brightness);
  rows[cy + 1].Put(cx - static_cast<int>(level.size()) / 2, level);

  // Flags.
  const std::string on = "\x1b[32m";
  const std::string off = "\x1b[33m";
  const struct {
    const char* label;
    std::string value;
    bool good;
  } kFlags[] = {
      {"WAN", s.wan_online ? "online" : "offline", s.wan_online},
      {"group",
       !s.group_joined ? "monitor left the bus"
       : s.is_root     ? "root"
       : s.connected_to_root ? "connected to root"
                             : "FAILURE (not connected to root)",
       !s.group_joined || s.is_root || s.connected_to_root},
      {"setup", s.setup_completed ? "completed" : "in setup", s.setup_completed},
      {"intensity",
       std::to_string(s.light_intensity) + " %" +
           (s.automatic_intensity ? ", automatic" : ""),
       true},
      {"bridge mode", s.bridge_mode ? "on" : "off", true},
      {"default device", s.default_device.empty() ? "none" : s.default_device,
       !s.default_device.empty()},
      {"ambient", s.ambient < 0 ? "fails" : std::to_string(s.ambient),
       s.ambient >= 0},
      {"audio server", s.audio_down ? "down" : "up", !s.audio_down},
      {"controller", s.controller_running ? "running" : "stopped",
       s.controller_running},
      {"proximity",
       s.calibration[0].empty()
           ? (s.vpd_present ? "not calibrated" : "VPD cache removed")
           : "calibrated " + s.calibration[0] + " " + s.calibration[1] + " " +
                 s.calibration[2],
       !s.calibration[0].empty()},
      {"last op/sound",
       (s.last_operation_id ? "id " + std::to_string(s.last_operation_id)
                            : std::string("none")) +
           ", " + (s.last_sound.empty() ? "none" : s.last_sound),
       true},
  };
  int row = 1;
  for (const auto& flag : kFlags) {
    rows[static_cast<size_t>(row)].Put(36, flag.label);
    rows[static_cast<size_t>(row)].Put(53, Printable(flag.value, 26),
                                       flag.good ? on : off);
    ++row;
  }

  // Keys and log.
  const std::string dim = "\x1b[2m";
  rows[kRingRows + 1].Put(0, Printable(kKeys1, static_cast<size_t>(width)), dim);
  rows[kRingRows + 2].Put(0, Printable(kKeys2, static_cast<size_t>(width)), dim);
  rows[kRingRows + 3].Put(0, Printable(kKeys3, static_cast<size_t>(width)), dim);
  rows[kRingRows + 4].Put(0, std::string(static_cast<size_t>(width), '-'), dim);
  const size_t first =
      log_.size() > static_cast<size_t>(log_rows) ? log_.size() - log_rows : 0;
  for (size_t i = first; i < log_.size(); ++i) {
    rows[kRingRows + 5 + (i - first)].Put(
        1, Printable(log_[i], static_cast<size_t>(width) - 1));
  }

  // Home, overwrite every row, clear what is left: no flicker.
  std::string frame = "\x1b[H";
  const size_t shown = std::min(rows.size(), static_cast<size_t>(height));
  for (size_t i = 0; i < shown; ++i) {
    frame += rows[i].Render();
    frame += "\x1b[0m\x1b[K";
    if (i + 1 < shown) frame += "\r\n";
  }
  frame += "\x1b[J";
  return frame;
}

}  // namespace morvane::ap
