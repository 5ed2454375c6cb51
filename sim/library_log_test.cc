#include "sim/library_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace morvane::ap {
namespace {

TEST(LibraryLogTest, LibraryLinesBecomeSimulatorLines) {
  const struct {
    const char* raw;
    const char* line;
    std::optional<int> state;
    std::optional<int> brightness;
  } kCases[] = {
      {"light_init 1", "light init 1", std::nullopt, std::nullopt},
      {"light_set_state 6", "light state 6", 6, std::nullopt},
      {"light_set_state_with_transition 1 0", "light transition 1 0", 1, std::nullopt},
      {"light_set_master_brightness 76", "brightness 76", std::nullopt, 76},
      {"light_get_ambient_brightness fail", "ambient read fail", std::nullopt, std::nullopt},
      {"light_get_proximity_device_path /dev/iio:device0",
       "proximity path /dev/iio:device0", std::nullopt, std::nullopt},
      {"light_something_new 3", "light light_something_new 3", std::nullopt, std::nullopt},
      {"light_set_state x", "light state x", std::nullopt, std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.raw);
    const LibraryOutcome out = TranslateLightControlLine(c.raw);
    EXPECT_EQ(out.line, c.line);
    EXPECT_EQ(out.light_state, c.state);
    EXPECT_EQ(out.brightness, c.brightness);
  }
  // The known audio and metric lines are the end-to-end scenario's outcomes.
  // A clip is told by its exact size: a byte either side is another sound.
  for (const char* bytes : {"1919", "1921", "67199", "67201"}) {
    EXPECT_EQ(TranslatePavoLine(std::string("play bytes=") + bytes, 67200, 1920).line,
              std::string("sound unknown bytes=") + bytes);
  }
}

}  // namespace
}  // namespace morvane::ap
