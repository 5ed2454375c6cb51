// What a session leaves behind and tells a script: the timeline picture as
// a real renderer draws it, events.log, and the exit status.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/ring_colours.h"
#include "sim/timeline.h"
#include "tests/e2e/sim_process.h"
#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

// A picture as netpbm's P6 holds it: three bytes a pixel, row by row.
struct Image {
  uint32_t width = 0, height = 0;
  std::string rgb;
  Rgb At(int x, int y) const {
    const size_t i = (static_cast<size_t>(y) * width + x) * 3;
    return {uint8_t(rgb[i]), uint8_t(rgb[i + 1]), uint8_t(rgb[i + 2])};
  }
};

// The SVG picture |svg| as rsvg-convert draws it and pngtopnm decodes it;
// empty when either cannot.
Image Render(const std::string& svg) {
  Image image;
  FILE* in = popen(
      ("timeout 30 rsvg-convert " + svg + " | timeout 30 pngtopnm").c_str(), "r");
  if (!in) return image;
  unsigned max = 0;
  if (fscanf(in, "P6 %u %u %u", &image.width, &image.height, &max) == 3 &&
      max == 255 && fgetc(in) != EOF) {
    image.rgb.resize(size_t{image.width} * image.height * 3);
    image.rgb.resize(fread(image.rgb.data(), 1, image.rgb.size(), in));
  }
  pclose(in);
  return image;
}

// events.log: milliseconds since start and the line.
std::vector<std::pair<int64_t, std::string>> ReadEvents(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::pair<int64_t, std::string>> events;
  int64_t ms;
  for (std::string line; in >> ms && std::getline(in >> std::ws, line);) {
    events.emplace_back(ms, line);
  }
  return events;
}

// Each text of an SVG picture as the box it covers: from its baseline's
// start, as wide as its characters at 0.6 of the font size (wide for a
// sans-serif font), from a font size above the baseline to a quarter below.
struct TextBox {
  double x0, y0, x1, y1;
  std::string text;
};
std::vector<TextBox> TextBoxes(const std::string& svg) {
  static const std::regex kText(
      "<text x=\"([0-9.-]+)\" y=\"([0-9.-]+)\" font-size=\"([0-9.]+)\"[^>]*>([^<]*)</text>");
  std::vector<TextBox> boxes;
  for (std::sregex_iterator it(svg.begin(), svg.end(), kText), end; it != end; ++it) {
    const double x = std::stod((*it)[1]), y = std::stod((*it)[2]);
    const double size = std::stod((*it)[3]);
    const std::string text =
        std::regex_replace((*it)[4].str(), std::regex("&[a-z]+;"), "&");
    boxes.push_back({x, y - size, x + 0.6 * size * text.size(), y + size / 4, text});
  }
  return boxes;
}

// The session also tells its script: a wait that times out makes the exit
// status 2, and the script goes on after it.
TEST(SimRecordTest, TheTimelineShowsTheRingsStatesWhenTheyWere) {
  const std::string svg = testing::TempDir() + "/session.svg";
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY,
                        {"--timeline=" + svg, "--keep"}));
  // Kept by the simulator, removed by the test however it ends.
  struct Kept {
    std::string dir;
    ~Kept() { std::filesystem::remove_all(dir); }
  } kept{sim.After("sim dir ")};
  for (const char* command :
       {"wan online", "wait \"light state 1\" 4", "sleep 1500", "group failure",
        "wait \"light state 2\" 4", "sleep 1500", "op start", "wait \"light state 6\" 4",
        "sleep 1500", "op fail", "wait \"operation failed\" 4", "sleep 1500",
        "group ok", "wait \"light state 1\" 4", "sleep 1500", "press",
        "wait \"sound touch_feedback\" 4", "wait nothing-says-this 1", "echo end",
        "quit"}) {
    sim.Send(command);
  }
  ASSERT_EQ(sim.WaitForExit(30'000), std::optional<int>(2)) << sim.Transcript();
  sim.Expect("kept " + kept.dir);
  const size_t timed_out =
      sim.Expect("error wait nothing-says-this 1: nothing came within 1 s");
  EXPECT_LT(sim.Expect("light state 1"), timed_out);
  // A quit is quiet: the daemon ends before its peers leave, so it never
  // sees the WAN go or the group clear.
  for (size_t i = sim.Expect("echo end", timed_out); i < sim.lines().size(); ++i) {
    EXPECT_FALSE(sim.lines()[i].starts_with("light state") ||
                 sim.lines()[i].find("WAN is offline") != std::string::npos)
        << sim.lines()[i];
  }
  const auto events = ReadEvents(kept.dir + "/events.log");
  const Image image = Render(svg);
  const std::string picture = ReadFile(svg);
  const std::vector<TextBox> boxes = TextBoxes(picture);
  for (size_t i = 0; i < boxes.size(); ++i) {
    for (size_t j = i + 1; j < boxes.size(); ++j) {
      const TextBox &a = boxes[i], &b = boxes[j];
      EXPECT_FALSE(a.x0 < b.x1 && b.x0 < a.x1 && a.y0 < b.y1 && b.y0 < a.y1)
          << "\"" << a.text << "\" at " << a.x0 << "," << a.y1 << " overlaps \""
          << b.text << "\" at " << b.x0 << "," << b.y1;
    }
  }
  // The press and its click, each named in its own row; the state bands
  // named; the grace period, ended by the WAN coming online.
  for (const char* label : {">press<", ">click<", ">1 online<", ">6 operation<",
                            ", connected<"}) {
    EXPECT_NE(picture.find(label), std::string::npos) << label;
  }
  ASSERT_EQ(image.width, unsigned(kTimelineLeft + kTimelineWidth) + 110);
  ASSERT_EQ(image.rgb.size(), size_t{image.width} * image.height * 3);
  ASSERT_GT(boxes.size(), 30u);

  // The timeline ends when it is written, just before it says so.
  ASSERT_GE(events.size(), 3u);
  const int64_t end_ms = events[events.size() - 3].first;
  ASSERT_TRUE(events[events.size() - 3].second.starts_with("timeline "));
  std::map<int, int> checked;  // State: stretches checked.
  int state = -1;
  int64_t since = 0;
  for (const auto& [ms, line] : events) {
    int next = state;
    // What follows "echo end" is the shutdown.
    const bool end = line == "echo end";
    if (!end && sscanf(line.c_str(), "light state %d", &next) < 1 &&
        sscanf(line.c_str(), "light transition %d", &next) < 1) {
      continue;
    }
    // A stretch of a second or more: its middle is well inside the band.
    if (ms - since >= 1000 && state >= 0) {
      const int x = kTimelineLeft + static_cast<int>((since + ms) / 2 * kTimelineWidth / end_ms);
      const Rgb seen = image.At(x, kStateBandTop + kStateBandHeight / 2);
      const Rgb want = StateColour(state);
      EXPECT_TRUE(seen.r == want.r && seen.g == want.g && seen.b == want.b)
          << "state " << state << " at " << since << ".." << ms << " ms, x=" << x;
      ++checked[state];
    }
    if (end) break;
    state = next;
    since = ms;
  }
  checked.erase(0);  // Start-up lasts as long as the daemon takes.
  EXPECT_EQ(checked, (std::map<int, int>{{1, 2}, {2, 2}, {6, 1}})) << sim.Transcript();
}

// A daemon that cannot start makes the exit status say so, as a crash does.
TEST(SimRecordTest, ADaemonThatCannotStartShowsInTheExitStatus) {
  SimProcess missing;
  ASSERT_TRUE(missing.Start(AP_SIM_BINARY, "/nonexistent/avd"));
  missing.CloseInput();
  EXPECT_EQ(missing.WaitForExit(), std::optional<int>(3)) << missing.Transcript();
  missing.Expect("avd failed to start: /nonexistent/avd is not an executable file");
}

}  // namespace
}  // namespace morvane::ap
