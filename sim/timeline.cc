#include "sim/timeline.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>

#include "sim/ring_colours.h"

namespace morvane::ap {
namespace {

// Under the band, lanes for the names of stretches too narrow to hold them.
constexpr int kStateLanes = 3;
constexpr int kLaneHeight = 12;
constexpr int kStateLanesTop = kStateBandTop + kStateBandHeight + 2;
constexpr int kBrightnessTop = kStateLanesTop + kStateLanes * kLaneHeight + 14;
constexpr int kBrightnessHeight = 50;
constexpr int kRowsTop = kBrightnessTop + kBrightnessHeight + 12;
constexpr int kRowHeight = 24;
constexpr int kRightMargin = 110;
constexpr int kLegendLineHeight = 18;
// A generous width of a sans-serif character, per pixel of font size, so
// that the boxes kept apart hold their texts as a renderer draws them.
constexpr double kCharWidth = 0.62;
constexpr int64_t kGraceMs = 60'000;  // The daemon's start-up grace period.

const char* const kRowNames[] = {"WAN",        "group",        "setup",
                                 "grace period", "operations", "timed states",
                                 "presses",    "wave, Set",    "sounds",
                                 "daemon"};
enum RowIndex {
  kWan, kGroup, kSetup, kGrace, kOps, kTimed, kPress, kWave, kSound, kDaemon
};
constexpr int kStates[] = {0, 1, 2, 3, 4, 6};

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (c == '"') out += "&quot;";
    else out.push_back(c);
  }
  return out;
}

std::string Hex(Rgb c) {
  char out[8];
  snprintf(out, sizeof(out), "#%02x%02x%02x", c.r, c.g, c.b);
  return out;
}

std::string Seconds(int64_t ms) {
  char out[32];
  snprintf(out, sizeof(out), "%.1f s", static_cast<double>(ms) / 1000);
  return out;
}

// The word after |prefix| in |line|, or empty when |line| does not start
// with |prefix|.
std::string After(const std::string& line, const std::string& prefix) {
  if (!line.starts_with(prefix)) return "";
  const std::string rest = line.substr(prefix.size());
  return rest.substr(0, rest.find(' '));
}

class Picture {
 public:
  explicit Picture(int64_t end_ms)
      : end_ms_(std::max<int64_t>(end_ms, 1)),
        px_per_ms_(static_cast<double>(kTimelineWidth) / end_ms_) {}

  double X(int64_t ms) const { return kTimelineLeft + ms * px_per_ms_; }
  int64_t end_ms() const { return end_ms_; }

  void Rect(double x0, double x1, int y, int h, const std::string& fill) {
    Printf("<rect x=\"%.1f\" y=\"%d\" width=\"%.1f\" height=\"%d\" "
           "fill=\"%s\"/>\n",
           x0, y, std::max(x1 - x0, 0.5), h, fill.c_str());
  }

  // |text| with its baseline at (|x|, |y|) if it overlaps no text placed
  // before and stays inside the picture; false, and nothing drawn, if not.
  bool Text(double x, int y, const std::string& text, int size = 11,
            const char* fill = "#222") {
    const Box box{x, static_cast<double>(y - size), x + TextWidth(text, size),
                  y + size / 4.0};
    if (box.x0 < 0 || box.x1 > width_) return false;
    for (const Box& other : boxes_) {
      if (box.x0 < other.x1 && other.x0 < box.x1 && box.y0 < other.y1 &&
          other.y0 < box.y1) {
        return false;
      }
    }
    boxes_.push_back(box);
    Printf("<text x=\"%.1f\" y=\"%d\" font-size=\"%d\" fill=\"%s\">%s</text>\n",
           x, y, size, fill, Escape(text).c_str());
    return true;
  }
  static double TextWidth(const std::string& text, int size) {
    return kCharWidth * size * text.size();
  }

  // A span of a row from |from_ms| to |to_ms|, labelled (BarLabel).
  void Bar(int row, int64_t from_ms, int64_t to_ms, const std::string& fill,
           const std::string& label) {
    Rect(X(from_ms), X(to_ms), RowTop(row) + 3, kRowHeight - 6, fill);
    BarLabel(row, from_ms, to_ms, label);
  }

  // The label of a bar: inside it where it fits beside the texts already
  // there, else just after it, else just before it.
  void BarLabel(int row, int64_t from_ms, int64_t to_ms,
                const std::string& label) {
    if (label.empty()) return;
    const int y = RowTop(row) + 16;
    const double width = TextWidth(label, 11);
    for (double x = X(from_ms) + 3; x + width + 3 < X(to_ms); x += 20) {
      if (Text(x, y, label)) return;
    }
    Text(X(to_ms) + 3, y, label) || Text(X(from_ms) - width - 3, y, label);
  }

  // One moment on a row: a tick (or a dot), labelled (MarkLabel).
  void Mark(int row, int64_t ms, const std::string& fill,
            const std::string& label, bool dot = false) {
    const int y = RowTop(row);
    if (dot) {
      Printf("<circle cx=\"%.1f\" cy=\"%d\" r=\"4\" fill=\"%s\"/>\n", X(ms),
             y + kRowHeight / 2, fill.c_str());
    } else {
      Printf("<line x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\" stroke=\"%s\" "
             "stroke-width=\"2\"/>\n",
             X(ms), y + 2, X(ms), y + kRowHeight - 2, fill.c_str());
    }
    ticks_[row].push_back(X(ms));
    MarkLabel(row, ms, label);
  }

  // The label of a mark: after it, else before it, where the row has room
  // and no other mark of the row drawn so far lies between the two.
  void MarkLabel(int row, int64_t ms, const std::string& label) {
    if (label.empty()) return;
    const double x = X(ms), width = TextWidth(label, 10);
    auto clear = [&](double from, double to) {
      for (const double tick : ticks_[row]) {
        if (tick > from && tick < to) return false;
      }
      return true;
    };
    const int y = RowTop(row) + 16;
    if (clear(x + 0.5, x + 5 + width) && Text(x + 5, y, label, 10)) return;
    if (clear(x - 5 - width, x - 0.5)) Text(x - 5 - width, y, label, 10);
  }

  static int RowTop(int row) { return kRowsTop + row * kRowHeight; }

  void Printf(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    body_ += buffer;
  }

  void Raw(const std::string& text) { body_ += text; }

  static int LegendTop() { return RowTop(std::size(kRowNames)) + 8; }

  std::string Finish() const {
    const int height = LegendTop() + 2 * kLegendLineHeight + 6;
    char head[256];
    snprintf(head, sizeof(head),
             "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" "
             "height=\"%d\" viewBox=\"0 0 %d %d\" font-family=\"sans-serif\">\n"
             "<rect width=\"100%%\" height=\"100%%\" fill=\"#ffffff\"/>\n",
             width_, height, width_, height);
    return head + body_ + "</svg>\n";
  }

 private:
  const int64_t end_ms_;
  const double px_per_ms_;
  struct Box {
    double x0, y0, x1, y1;
  };

  const int width_ = kTimelineLeft + kTimelineWidth + kRightMargin;
  std::string body_;
  std::vector<Box> boxes_;  // Every text's box so far.
  std::map<int, std::vector<double>> ticks_;  // By row: where marks are.
};

// Calls |span| for each stretch over which |value| of the snapshots stays
// the same, with that value.
template <typename T>
void Spans(const std::vector<TimelineEntry>& entries, int64_t end_ms,
           const std::function<T(const DeviceSnapshot&)>& value,
           const std::function<void(int64_t, int64_t, T)>& span) {
  if (entries.empty()) return;
  int64_t from = 0;
  T current = value(entries.front().device);
  for (const TimelineEntry& entry : entries) {
    const T next = value(entry.device);
    if (next == current) continue;
    span(from, entry.ms, current);
    from = entry.ms;
    current = next;
  }
  span(from, end_ms, current);
}

void DrawAxis(Picture& p) {
  // About ten ticks, at round numbers of seconds.
  int64_t step = 1000;
  for (const int64_t s : {2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600}) {
    if (p.end_ms() / step <= 10) break;
    step = s * 1000;
  }
  const int bottom = Picture::RowTop(std::size(kRowNames));
  for (int64_t ms = 0; ms <= p.end_ms(); ms += step) {
    p.Printf("<line x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\" "
             "stroke=\"#dddddd\"/>\n",
             p.X(ms), kStateBandTop - 6, p.X(ms), bottom);
    p.Text(p.X(ms) - 6, kStateBandTop - 9, std::to_string(ms / 1000) + " s", 10);
  }
  p.Text(kTimelineLeft - 130, kStateBandTop + 22, "light state", 12);
  p.Text(kTimelineLeft - 130, kStateLanesTop + 2 * kLaneHeight - 2,
         "(names)", 10, "#777");
  p.Text(kTimelineLeft - 130, kBrightnessTop + 28, "brightness", 12);
  for (size_t row = 0; row < std::size(kRowNames); ++row) {
    p.Text(kTimelineLeft - 130, Picture::RowTop(static_cast<int>(row)) + 16,
           kRowNames[row], 12);
  }
}

// Each stretch of one light state, named inside the band when the name
// fits, else in the first lane under it with room, tied to it by a line in
// its colour; the number alone when no lane has room for the name.
void DrawLight(Picture& p, const std::vector<TimelineEntry>& entries) {
  // A stretch of state 2 is named by its cause when it began: the world
  // changes first, and the ring follows.
  auto stretch = [&p](int64_t from, int64_t to, const DeviceSnapshot& first) {
    const int state = first.light_state;
    const std::string colour = Hex(StateColour(state));
    p.Rect(p.X(from), p.X(to), kStateBandTop, kStateBandHeight, colour);
    if (state < 0) return;  // Before the daemon's first state.
    const std::string number = std::to_string(state);
    const std::string name =
        number + " " + StateName(state, first.wan_online && first.group_failure);
    if (p.X(to) - p.X(from) > Picture::TextWidth(name, 10) + 6 &&
        p.Text(p.X(from) + 3, kStateBandTop + kStateBandHeight - 4, name, 10,
               state == 0 ? "#444" : "#fff")) {
      return;
    }
    for (const std::string& label : {name, number}) {
      for (int lane = 0; lane < kStateLanes; ++lane) {
        const int y = kStateLanesTop + (lane + 1) * kLaneHeight - 2;
        if (!p.Text(p.X(from) + 3, y, label, 10)) continue;
        p.Rect(p.X(from), p.X(from) + 2, kStateBandTop + kStateBandHeight,
               y - kStateBandTop - kStateBandHeight, colour);
        return;
      }
    }
  };
  if (!entries.empty()) {
    size_t first = 0;
    for (size_t i = 1; i < entries.size(); ++i) {
      if (entries[i].device.light_state == entries[first].device.light_state) {
        continue;
      }
      stretch(first == 0 ? 0 : entries[first].ms, entries[i].ms,
              entries[first].device);
      first = i;
    }
    stretch(first == 0 ? 0 : entries[first].ms, p.end_ms(),
            entries[first].device);
  }
  // Transitions: a dark tick across the top of the band.
  for (const TimelineEntry& e : entries) {
    if (!e.line.starts_with("light transition")) continue;
    p.Rect(p.X(e.ms) - 1, p.X(e.ms) + 1, kStateBandTop - 4, 14, "#111111");
  }
  // The master brightness as a curve, 0 at the bottom and 255 at the top,
  // each level named above the curve, else under it, where there is room.
  std::string points;
  int last = -1;
  auto y = [](int level) {
    return kBrightnessTop + kBrightnessHeight -
           kBrightnessHeight * level / 255.0;
  };
  auto add = [&](int64_t ms, int level) {
    char point[64];
    snprintf(point, sizeof(point), "%.1f,%.1f ", p.X(ms), y(level));
    points += point;
  };
  for (const TimelineEntry& e : entries) {
    const int level = e.device.brightness;
    if (level == last || level < 0) continue;
    if (last >= 0) add(e.ms, last);
    add(e.ms, level);
    const std::string text = std::to_string(level);
    for (const double dx : {2, 16, 30}) {
      if (p.Text(p.X(e.ms) + dx, static_cast<int>(y(level)) - 2, text, 9, "#555") ||
          p.Text(p.X(e.ms) + dx, static_cast<int>(y(level)) + 10, text, 9, "#555")) {
        break;
      }
    }
    last = level;
  }
  if (last >= 0) add(p.end_ms(), last);
  if (!points.empty()) points.pop_back();  // The separator after the last.
  p.Rect(kTimelineLeft, p.X(p.end_ms()), kBrightnessTop + kBrightnessHeight, 1,
         "#bbbbbb");
  // Any length: not through Printf's buffer.
  p.Raw("<polyline points=\"" + points +
        "\" fill=\"none\" stroke=\"#d08000\" stroke-width=\"2\"/>\n");
}

// The WAN as online and offline spans; a group failure and setup only
// where they hold.
void DrawWorld(Picture& p, const std::vector<TimelineEntry>& entries) {
  const struct {
    RowIndex row;
    bool DeviceSnapshot::*value;
    const char *on_label, *on_fill, *off_label = nullptr, *off_fill = nullptr;
  } kRows[] = {
      {kWan, &DeviceSnapshot::wan_online, "online ", "#a8e0b8", "offline ",
       "#f4c09a"},
      {kGroup, &DeviceSnapshot::group_failure, "failure ", "#f4a0a0"},
      {kSetup, &DeviceSnapshot::in_setup, "in setup ", "#a8c4f4"},
  };
  for (const auto& row : kRows) {
    Spans<bool>(
        entries, p.end_ms(),
        [&row](const DeviceSnapshot& d) { return d.*row.value; },
        [&](int64_t from, int64_t to, bool on) {
          if (!on && !row.off_label) return;
          p.Bar(row.row, from, to, on ? row.on_fill : row.off_fill,
                (on ? row.on_label : row.off_label) + Seconds(to - from));
        });
  }
}

// The label of a sound: the touch click and the setup chime by what they
// are, any other by its clip's name.
std::string SoundLabel(const std::string& clip) {
  if (clip == "touch_feedback") return "click";
  if (clip == "network_creation") return "chime";
  return clip;
}

void DrawEvents(Picture& p, const std::vector<TimelineEntry>& entries) {
  const int64_t end = p.end_ms();
  std::map<std::string, int64_t> operations;  // By "id=N": when started.
  struct Timed {
    int64_t from, until;
    std::string label;
  };
  std::map<std::string, Timed> timed;  // By name.
  int64_t daemon_since = -1;
  std::string daemon_pid;
  std::vector<std::pair<int64_t, std::string>> daemon_marks;
  struct Run {
    int64_t from, to;
    std::string label;
  };
  std::vector<Run> daemon_runs;
  // The grace period starts with each run of the daemon and ends when its
  // 60 s are up, when the ring is first connected (WAN online, no group
  // failure), or with the daemon.
  int64_t grace_since = -1;
  auto end_grace = [&](int64_t at, const char* why) {
    p.Bar(kGrace, grace_since, at, "#ececec",
          "grace " + Seconds(at - grace_since) + why);
    grace_since = -1;
  };
  // A timed state ends when its time is up or it is set again.
  auto end_timed = [&](const std::string& name, int64_t at) {
    auto it = timed.find(name);
    if (it == timed.end()) return;
    const Timed& t = it->second;
    const int64_t to = std::min({at, t.until, end});
    p.Bar(kTimed, t.from, to, "#d4b8f0", t.label + " " + Seconds(to - t.from));
    timed.erase(it);
  };
  for (const TimelineEntry& e : entries) {
    const std::string& line = e.line;
    if (grace_since >= 0) {
      if (e.ms >= grace_since + kGraceMs) {
        end_grace(grace_since + kGraceMs, ", ran out");
      } else if (e.device.wan_online && !e.device.group_failure) {
        end_grace(e.ms, ", connected");
      } else if (line.starts_with("avd exited")) {
        end_grace(e.ms, "");
      }
    }
    std::string id;
    if (!(id = After(line, "operation started ")).empty()) {
      operations[id] = e.ms;
    } else if (!(id = After(line, "operation succeeded ")).empty() ||
               !(id = After(line, "operation failed ")).empty()) {
      const bool ok = line.starts_with("operation succeeded");
      if (operations.count(id)) {
        p.Bar(kOps, operations[id], e.ms, ok ? "#b8e8c0" : "#f0b0b0",
              id + (ok ? " ok " : " failed ") + Seconds(e.ms - operations[id]));
        operations.erase(id);
      }
    } else if (line.starts_with("inject led ")) {
      std::istringstream in(line.substr(11));
      std::string name, value;
      int64_t seconds = 0;
      in >> name >> value >> seconds;
      end_timed(name, e.ms);
      if (seconds > 0) timed[name] = {e.ms, e.ms + seconds * 1000, name + " " + value};
    } else if (line == "inject press") {
      p.Mark(kPress, e.ms, "#2050c0", "press");
    } else if (line == "inject wave") {
      p.Mark(kWave, e.ms, "#2050c0", "wave");
    } else if (line.starts_with("config set")) {
      p.Mark(kWave, e.ms, "#a05000", "Set");
    } else if (line.starts_with("sound ")) {
      p.Mark(kSound, e.ms, "#107040", SoundLabel(After(line, "sound ")), true);
    } else if (line.starts_with("avd started")) {
      daemon_since = grace_since = e.ms;
      daemon_pid = After(line, "avd started ");
    } else if (line.starts_with("avd exited") && daemon_since >= 0) {
      daemon_runs.push_back({daemon_since, e.ms, "avd " + daemon_pid});
      // "avd exited status=0" as "exit 0", "... signal=9, unasked" as
      // "signal 9, unasked".
      std::string how = line.substr(11);
      if (how.starts_with("status=")) how = "exit " + how.substr(7);
      std::replace(how.begin(), how.end(), '=', ' ');
      daemon_marks.emplace_back(e.ms, how);
      daemon_since = -1;
    } else if (line == "ready") {
      daemon_marks.emplace_back(e.ms, "ready");
    }
  }
  for (const auto& [id, from] : operations) {
    p.Bar(kOps, from, end, "#e0d0f0", id + " " + Seconds(end - from));
  }
  while (!timed.empty()) end_timed(timed.begin()->first, end);
  if (grace_since >= 0) {
    end_grace(std::min(end, grace_since + kGraceMs),
              end >= grace_since + kGraceMs ? ", ran out" : "");
  }
  if (daemon_since >= 0) daemon_runs.push_back({daemon_since, end, "avd " + daemon_pid});
  // Each run as a bar, its marks on top, and its label where they leave room.
  for (const Run& run : daemon_runs) p.Bar(kDaemon, run.from, run.to, "#dddddd", "");
  for (const auto& [ms, label] : daemon_marks) {
    p.Mark(kDaemon, ms, label == "ready" ? "#107040" : "#c00000", "");
  }
  for (const auto& [ms, label] : daemon_marks) p.MarkLabel(kDaemon, ms, label);
  for (const Run& run : daemon_runs) p.BarLabel(kDaemon, run.from, run.to, run.label);
}

// What the colours and marks mean, in two lines under the rows.
void DrawLegend(Picture& p) {
  int y = Picture::LegendTop() + kLegendLineHeight - 5;
  double x = kTimelineLeft;
  p.Text(kTimelineLeft - 130, y, "light states", 11);
  for (const int state : kStates) {
    p.Rect(x, x + 14, y - 10, 12, Hex(StateColour(state)));
    const std::string name = std::to_string(state) + " " +
                             (state == 2 ? "WAN or group failure" : StateName(state));
    p.Text(x + 18, y, name, 11);
    x += 18 + Picture::TextWidth(name, 11) + 14;
  }
  y += kLegendLineHeight;
  x = kTimelineLeft;
  p.Text(kTimelineLeft - 130, y, "marks", 11);
  auto item = [&](const std::string& text) {
    p.Text(x + 18, y, text, 11);
    x += 18 + Picture::TextWidth(text, 11) + 14;
  };
  p.Rect(x + 5, x + 7, y - 12, 14, "#111111");
  item("light transition");
  p.Rect(x, x + 14, y - 5, 2, "#d08000");
  item("master brightness, 0 to 255");
  p.Rect(x + 5, x + 7, y - 12, 14, "#2050c0");
  item("press, wave (injected)");
  p.Printf("<circle cx=\"%.1f\" cy=\"%d\" r=\"4\" fill=\"#107040\"/>\n",
           x + 6, y - 4);
  item("sound played");
  p.Rect(x + 5, x + 7, y - 12, 14, "#107040");
  item("daemon ready");
  p.Rect(x + 5, x + 7, y - 12, 14, "#c00000");
  item("daemon exit");
}

}  // namespace

std::string RenderTimeline(const std::vector<TimelineEntry>& entries,
                           int64_t end_ms) {
  Picture p(end_ms);
  p.Text(10, 16, "ap-sim session, " + Seconds(end_ms), 14);
  DrawAxis(p);
  DrawLight(p, entries);
  DrawWorld(p, entries);
  DrawEvents(p, entries);
  DrawLegend(p);
  return p.Finish();
}

}  // namespace morvane::ap
