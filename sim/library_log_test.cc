#include "sim/library_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvane::ap {
namespace {


TEST(LibraryLogTest, LightControlLinesBecomeSimulatorLines) {
  const struct {
    const char* raw;
    const char* line;
    std::optional<int> state;
    std::optional<int> brightness;
  } kCases[] = {
      {"light_init 1", "light init 1", std::nullopt, std::nullopt},
      {"light_set_state 6", "light state 6", 6, std::nullopt},
      {"light_set_state_with_transition 1 0", "light transition 1 0", 1,
       std::nullopt},
      {"light_set_master_brightness 76", "brightness 76", std::nullopt, 76},
      {"light_get_ambient_brightness fail", "ambient read fail", std::nullopt,
       std::nullopt},
      {"light_get_proximity_device_path /dev/iio:device0",
       "proximity path /dev/iio:device0", std::nullopt, std::nullopt},
      {"light_something_new 3", "light light_something_new 3", std::nullopt,
       std::nullopt},
      {"light_set_state x", "light state x", std::nullopt, std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.raw);
    const LibraryOutcome out = TranslateLightControlLine(c.raw);
    EXPECT_EQ(out.line, c.line);
    EXPECT_EQ(out.light_state, c.state);
    EXPECT_EQ(out.brightness, c.brightness);
  }
}

TEST(LibraryLogTest, PlayedClipIsToldByItsByteCount) {
  EXPECT_EQ(TranslatePavoLine("play frames=16800 format=2 rate=48000 "
                              "channels=2 device=0 bytes=67200 -> 0",
                              67200, 1920)
                .line,
            "sound network_creation frames=16800 format=2 rate=48000 "
            "channels=2 device=0 bytes=67200 -> 0");
  EXPECT_EQ(TranslatePavoLine("play frames=960 format=2 rate=48000 "
                              "channels=1 device=0 bytes=1920 -> 0",
                              67200, 1920)
                .line,
            "sound touch_feedback frames=960 format=2 rate=48000 "
            "channels=1 device=0 bytes=1920 -> 0");
  EXPECT_EQ(TranslatePavoLine("play frames=1 bytes=2 -> 0", 67200, 1920).line,
            "sound unknown frames=1 bytes=2 -> 0");
  EXPECT_EQ(TranslatePavoLine("connect 0", 67200, 1920).line, "audio connect 0");
}

TEST(LibraryLogTest, MetricLinesKeepNameSampleAndMaximum) {
  EXPECT_EQ(TranslateMetricsLine("enum AccessPoint.PrioritizeEvent 1 3").line,
            "metric AccessPoint.PrioritizeEvent 1 3");
}

}  // namespace
}  // namespace morvane::ap
