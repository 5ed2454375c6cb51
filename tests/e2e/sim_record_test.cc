// What a session leaves behind and tells a script: the timeline picture as
// a real renderer draws it, events.log, and the exit status.

#include <arpa/inet.h>
#include <signal.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
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

namespace morvane::ap {
namespace {

// A PNG of 8-bit RGB or RGBA, as rsvg-convert writes it: |rgb| holds three
// bytes per pixel, row by row; empty when the file is not such a PNG.
struct Image {
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> rgb;
  Rgb At(int x, int y) const {
    const size_t i = (static_cast<size_t>(y) * width + x) * 3;
    return {rgb[i], rgb[i + 1], rgb[i + 2]};
  }
};

uint32_t BigEndian(const std::string& bytes, size_t at) {
  uint32_t value;
  memcpy(&value, bytes.data() + at, sizeof(value));
  return ntohl(value);
}

Image ReadPng(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string file((std::istreambuf_iterator<char>(in)), {});
  Image image;
  std::string idat;
  int channels = 0;
  for (size_t at = 8; at + 12 <= file.size();) {
    const uint32_t length = BigEndian(file, at);
    const std::string type = file.substr(at + 4, 4);
    const std::string data = file.substr(at + 8, length);
    if (type == "IHDR") {
      image.width = BigEndian(data, 0);
      image.height = BigEndian(data, 4);
      channels = data[8] != 8 ? 0 : data[9] == 2 ? 3 : data[9] == 6 ? 4 : 0;
    }
    if (type == "IDAT") idat += data;
    at += 12 + length;
  }
  const size_t stride = image.width * channels;
  std::vector<uint8_t> raw(image.height * (stride + 1));
  uLongf size = raw.size();
  if (channels == 0 ||
      uncompress(raw.data(), &size, reinterpret_cast<const Bytef*>(idat.data()),
                 idat.size()) != Z_OK) {
    return {};
  }
  // Undo each row's filter against the row above (zeros for the first).
  std::vector<uint8_t> pixels(image.height * stride), zero(stride);
  for (size_t y = 0; y < image.height; ++y) {
    const uint8_t filter = raw[y * (stride + 1)];
    const uint8_t* in_row = &raw[y * (stride + 1) + 1];
    uint8_t* row = &pixels[y * stride];
    const uint8_t* up = y ? &pixels[(y - 1) * stride] : zero.data();
    for (size_t i = 0; i < stride; ++i) {
      const int a = i >= size_t(channels) ? row[i - channels] : 0;
      const int b = up[i];
      const int c = i >= size_t(channels) ? up[i - channels] : 0;
      const int p = a + b - c;
      const int paeth = (abs(p - a) <= abs(p - b) && abs(p - a) <= abs(p - c))
                            ? a
                            : abs(p - b) <= abs(p - c) ? b : c;
      const int predictor[] = {0, a, b, (a + b) / 2, paeth};
      row[i] = static_cast<uint8_t>(in_row[i] + predictor[filter % 5]);
    }
    for (size_t x = 0; x < image.width; ++x) {
      for (int k = 0; k < 3; ++k) image.rgb.push_back(row[x * channels + k]);
    }
  }
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

TEST(SimRecordTest, TheTimelineShowsTheRingsStatesWhenTheyWere) {
  const std::string svg = testing::TempDir() + "/session.svg";
  const std::string png = testing::TempDir() + "/session.png";
  SimProcess sim;
  ASSERT_TRUE(sim.Start(AP_SIM_BINARY, AVD_BINARY,
                        {"--timeline=" + svg, "--keep"}));
  const std::optional<size_t> sim_dir = sim.WaitForPrefix("sim dir ");
  ASSERT_TRUE(sim_dir) << sim.Transcript();
  // Kept by the simulator, removed by the test however it ends.
  struct Kept {
    std::string dir;
    ~Kept() { std::filesystem::remove_all(dir); }
  } kept{sim.lines()[*sim_dir].substr(8)};
  for (const char* command :
       {"wan online", "wait \"light state 1\"", "sleep 1500", "group failure",
        "wait \"light state 2\"", "sleep 1500", "op start", "wait \"light state 6\"",
        "sleep 1500", "op fail", "wait \"operation failed\"", "sleep 1500",
        "group ok", "wait \"light state 1\"", "sleep 1500", "press",
        "wait \"sound touch_feedback\"", "echo end", "quit"}) {
    sim.Send(command);
  }
  ASSERT_EQ(sim.WaitForExit(30'000), std::optional<int>(0)) << sim.Transcript();
  ASSERT_TRUE(sim.WaitForLine("kept " + kept.dir)) << sim.Transcript();
  // A quit is quiet: the daemon ends before its peers leave, so it never
  // sees the WAN go or the group clear.
  const size_t quit = sim.Expect("echo end");
  for (size_t i = quit; i < sim.lines().size(); ++i) {
    EXPECT_FALSE(sim.lines()[i].starts_with("light state") ||
                 sim.lines()[i].find("WAN is offline") != std::string::npos)
        << sim.lines()[i];
  }
  const auto events = ReadEvents(kept.dir + "/events.log");
  ASSERT_EQ(system(("timeout 30 rsvg-convert -o " + png + " " + svg).c_str()), 0);
  const Image image = ReadPng(png);
  std::ifstream svg_file(svg);
  const std::string picture((std::istreambuf_iterator<char>(svg_file)), {});
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
  ASSERT_GT(boxes.size(), 30u);

  // The timeline ends when it is written, just before it says so.
  ASSERT_FALSE(events.empty());
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

// A wait that times out and a daemon that dies each make the exit status
// say so; the script goes on after a failed wait.
TEST(SimRecordTest, WaitsAndCrashesShowInTheExitStatus) {
  SimProcess waits;
  ASSERT_TRUE(waits.Start(AP_SIM_BINARY, AVD_BINARY));
  for (const char* command : {"wait ready 20", "wan online", "wait \"light state 1\" 20",
                              "wait nothing-says-this 1", "echo after", "quit"}) {
    waits.Send(command);
  }
  EXPECT_EQ(waits.WaitForExit(), std::optional<int>(2)) << waits.Transcript();
  const size_t timed_out =
      waits.Expect("error wait nothing-says-this 1: nothing came within 1 s");
  waits.Expect("echo after", timed_out);
  EXPECT_LT(waits.Expect("light state 1"), timed_out);

  SimProcess killed;
  ASSERT_TRUE(killed.Start(AP_SIM_BINARY, AVD_BINARY));
  killed.Expect("ready");
  const std::string avd = killed.lines()[*killed.WaitForPrefix("avd started pid=")];
  kill(std::atoi(avd.substr(16).c_str()), SIGKILL);
  killed.Expect("avd exited signal=9, unasked");
  killed.Send("quit");
  EXPECT_EQ(killed.WaitForExit(), std::optional<int>(3)) << killed.Transcript();

  SimProcess missing;
  ASSERT_TRUE(missing.Start(AP_SIM_BINARY, "/nonexistent/avd"));
  missing.CloseInput();
  EXPECT_EQ(missing.WaitForExit(), std::optional<int>(3)) << missing.Transcript();
  missing.Expect("avd failed to start: /nonexistent/avd is not an executable file");
}

}  // namespace
}  // namespace morvane::ap
