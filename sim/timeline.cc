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

constexpr int kBrightnessTop = kStateBandTop + kStateBandHeight + 8;
constexpr int kBrightnessHeight = 50;
constexpr int kRowsTop = kBrightnessTop + kBrightnessHeight + 10;
constexpr int kRowHeight = 24;
constexpr int kRightMargin = 110;

const char* const kRowNames[] = {"WAN",         "group",          "setup",
                                 "operations",  "timed states",   "press, click",
                                 "wave, Set",   "sounds",         "daemon"};
enum RowIndex { kWan, kGroup, kSetup, kOps, kTimed, kPress, kWave, kSound, kDaemon };

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

  void Text(double x, int y, const std::string& text, int size = 11,
            const char* fill = "#222") {
    Printf("<text x=\"%.1f\" y=\"%d\" font-size=\"%d\" fill=\"%s\">%s</text>\n",
           x, y, size, fill, Escape(text).c_str());
  }

  // A span of a row from |from_ms| to |to_ms|, labelled inside when the
  // label fits.
  void Bar(int row, int64_t from_ms, int64_t to_ms, const std::string& fill,
           const std::string& label) {
    const int y = RowTop(row) + 3;
    Rect(X(from_ms), X(to_ms), y, kRowHeight - 6, fill);
    // Inside when it fits, else just after the bar.
    if (X(to_ms) - X(from_ms) > 6.0 * label.size() + 4) {
      Text(X(from_ms) + 3, y + 13, label);
    } else {
      Label(row, X(to_ms) + 3, y + 13, label, 11, 6.0);
    }
  }

  // One moment on a row: a tick, and its label where the row has room.
  void Mark(int row, int64_t ms, const std::string& fill,
            const std::string& label) {
    const int y = RowTop(row);
    Printf("<line x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\" stroke=\"%s\" "
           "stroke-width=\"2\"/>\n",
           X(ms), y + 2, X(ms), y + kRowHeight - 2, fill.c_str());
    Label(row, X(ms) + 3, y + 16, label, 10, 5.5);
  }

  // |label| at |x| on |row| where the row's last label left room.
  void Label(int row, double x, int y, const std::string& label, int size,
             double char_width) {
    double& free_from = label_free_[row];
    if (x < free_from) return;
    Text(x, y, label, size);
    free_from = x + char_width * label.size() + 4;
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

  std::string Finish() const {
    const int height = RowTop(std::size(kRowNames)) + 10;
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
  const int width_ = kTimelineLeft + kTimelineWidth + kRightMargin;
  std::string body_;
  std::map<int, double> label_free_;
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
  p.Text(kTimelineLeft - 130, kBrightnessTop + 28, "brightness", 12);
  for (size_t row = 0; row < std::size(kRowNames); ++row) {
    p.Text(kTimelineLeft - 130, Picture::RowTop(static_cast<int>(row)) + 16,
           kRowNames[row], 12);
  }
}

void DrawLight(Picture& p, const std::vector<TimelineEntry>& entries) {
  Spans<std::pair<int, bool>>(
      entries, p.end_ms(),
      [](const DeviceSnapshot& d) {
        return std::make_pair(d.light_state, d.wan_online && d.group_failure);
      },
      [&p](int64_t from, int64_t to, std::pair<int, bool> state) {
        p.Rect(p.X(from), p.X(to), kStateBandTop, kStateBandHeight,
               Hex(StateColour(state.first)));
        const std::string label =
            state.first < 0 ? "" : std::to_string(state.first) + " " +
                                       StateName(state.first, state.second);
        if (p.X(to) - p.X(from) > 6.0 * label.size() + 4) {
          p.Text(p.X(from) + 3, kStateBandTop + kStateBandHeight - 4, label, 10,
                 state.first == 0 ? "#444" : "#fff");
        }
      });
  // Transitions: a dark tick across the top of the band.
  for (const TimelineEntry& e : entries) {
    if (!e.line.starts_with("light transition")) continue;
    p.Rect(p.X(e.ms) - 1, p.X(e.ms) + 1, kStateBandTop - 4, 14, "#111111");
  }
  // The master brightness as a curve, 0 at the bottom and 255 at the top.
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
    p.Text(p.X(e.ms) + 2, static_cast<int>(y(level)) - 2, std::to_string(level),
           9, "#555");
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

void DrawEvents(Picture& p, const std::vector<TimelineEntry>& entries) {
  const int64_t end = p.end_ms();
  std::map<std::string, int64_t> operations;  // By "id=N": when started.
  struct Timed {
    int64_t from, until;
    std::string label;
  };
  std::map<std::string, Timed> timed;  // By name.
  int64_t daemon_since = -1;
  std::vector<std::pair<int64_t, std::string>> daemon_marks;
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
    } else if (line.starts_with("sound touch_feedback")) {
      p.Mark(kPress, e.ms, "#8090b0", "click");
    } else if (line == "inject wave") {
      p.Mark(kWave, e.ms, "#2050c0", "wave");
    } else if (line.starts_with("config set")) {
      p.Mark(kWave, e.ms, "#a05000", "Set");
    } else if (line.starts_with("sound ")) {
      p.Mark(kSound, e.ms, "#107040", After(line, "sound "));
    } else if (line.starts_with("avd started")) {
      daemon_since = e.ms;
    } else if (line.starts_with("avd exited") && daemon_since >= 0) {
      p.Bar(kDaemon, daemon_since, e.ms, "#dddddd", "");
      daemon_marks.emplace_back(e.ms, line.substr(4));
      daemon_since = -1;
    } else if (line == "ready") {
      daemon_marks.emplace_back(e.ms, "ready");
    }
  }
  for (const auto& [id, from] : operations) {
    p.Bar(kOps, from, end, "#e0d0f0", id + " " + Seconds(end - from));
  }
  while (!timed.empty()) end_timed(timed.begin()->first, end);
  if (daemon_since >= 0) p.Bar(kDaemon, daemon_since, end, "#dddddd", "");
  for (const auto& [ms, label] : daemon_marks) {
    p.Mark(kDaemon, ms, label == "ready" ? "#107040" : "#c00000", label);
  }
}

}  // namespace

std::string RenderTimeline(const std::vector<TimelineEntry>& entries,
                           int64_t end_ms) {
  Picture p(end_ms);
  p.Text(10, 18, "ap-sim session, " + Seconds(end_ms), 14);
  DrawAxis(p);
  DrawLight(p, entries);
  DrawWorld(p, entries);
  DrawEvents(p, entries);
  return p.Finish();
}

}  // namespace morvane::ap
