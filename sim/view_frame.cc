#include "sim/view_frame.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <regex>
#include <vector>

#include "sim/ring_colours.h"

namespace morvane::ap {
namespace {

constexpr int kLeds = 12;
constexpr const char* kKeyRows[] = {
    (" w wave  b button  n WAN  g group failure  r root  l leave  e bridge"
     "  k vpd"),
    " s setup  +/- intensity  a auto  [/] ambient  x ambient fail  v default dev",
    " m audio  p op start  u succeed  f fail  c restart ctrl  d restart avd  q quit"};
// What ? shows in place of the log.
constexpr const char* kKeyHelp[] = {
    "keys (? again: back to the log)",
    "  w       hand wave over the proximity sensor",
    "  b space touch button press and release",
    "  n       WAN online / offline",
    "  g       group failure on / off (shows with the WAN online)",
    "  r       this access point is root / not root",
    "  l       group monitor leaves / rejoins the bus",
    "  s       setup completed / back to setup",
    "  + -     light intensity up / down by 10",
    "  a       automatic intensity on / off;  [ ] ambient level down / up",
    "  x       ambient reading fails;  e bridge mode;  v default device",
    "  m       audio server down / up;  k VPD cache removed / restored",
    "  p u f   start / succeed / fail an operation",
    "  c       restart the controller;  d restart the daemon",
    "  q       quit (Ctrl-C too)",
};

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

std::string ShortenDaemonLine(const std::string& line) {
  // The logging library's prefix: level, date, time, thread, file:line.
  static const std::regex kPrefix(
      R"(avd: ([IWEF])\d{4,8} (\d\d:\d\d:\d\d)\.\d+ +\d+ [^ \]]+\] (.*))");
  std::smatch m;
  if (!std::regex_match(line, m, kPrefix)) return line;
  return "avd " + m[2].str() + " " + m[1].str() + " " + m[3].str();
}

std::string RenderFrame(const SimState& s, const std::deque<std::string>& log_,
                        bool show_keys, int width, int height) {
  constexpr int kRingRows = 11;
  const int log_rows = std::max(3, height - kRingRows - 6);
  std::vector<Row> rows(static_cast<size_t>(kRingRows + 6 + log_rows),
                        Row(width));

  // Header: the daemon, and the bus a developer's own tools can join.
  const std::string status =
      !s.avd_running ? std::string(" avd not running")
                     : std::string(s.avd_ready ? " avd ready" : " avd starting") +
                           ", pid " + std::to_string(s.avd_pid);
  rows[0].Put(0, " ap-sim ", "\x1b[1m");
  rows[0].Put(8, status, "\x1b[1m");
  rows[0].Put(static_cast<int>(8 + status.size() + 2),
              Printable(s.bus_address.substr(0, s.bus_address.find(',')),
                        static_cast<size_t>(std::max(0, width - 11 - int(status.size())))));

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
      !s.ring_mode.empty()
          ? s.ring_mode
          : StateName(s.light_state, s.wan_online && s.group_failure());
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
                             : "FAILURE (no root)",
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
  for (int i = 0; i < 3; ++i) {
    rows[kRingRows + 1 + i].Put(
        0, Printable(kKeyRows[i], static_cast<size_t>(width)), dim);
  }
  rows[kRingRows + 4].Put(0, std::string(static_cast<size_t>(width), '-'), dim);
  const size_t first =
      log_.size() > static_cast<size_t>(log_rows) ? log_.size() - log_rows : 0;
  for (size_t i = first; i < log_.size(); ++i) {
    rows[kRingRows + 5 + (i - first)].Put(
        1, Printable(ShortenDaemonLine(log_[i]), static_cast<size_t>(width) - 1));
  }
  // The keys cover all but the header.
  for (size_t i = 0; show_keys && i + 1 < rows.size(); ++i) {
    rows[i + 1] = Row(width);
    if (i < std::size(kKeyHelp)) rows[i + 1].Put(0, kKeyHelp[i]);
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
