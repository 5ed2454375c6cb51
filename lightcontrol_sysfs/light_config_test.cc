#include "lightcontrol_sysfs/light_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LightConfigTest, FilesOverrideTheDefaultsTheyName) {
  LightConfig config = DefaultLightConfig();
  std::vector<std::string> problems;

  ParseLightConfig(
      "# board: three LEDs\n"
      "ring = a:rgb:1  b:rgb:2 c:rgb:3\n"
      "  state.1 = #10A0ff pattern 255 100 0 0\n"
      "state.15=off\n"
      "transition.7 = 3 breathe 501\n"
      "ambient_full_scale_lux = 80\n",
      &config, &problems);

  EXPECT_THAT(problems, IsEmpty());
  EXPECT_THAT(config.ring, ElementsAre("a:rgb:1", "b:rgb:2", "c:rgb:3"));
  EXPECT_EQ(config.states[1].colour, (Rgb{0x10, 0xa0, 0xff}));
  EXPECT_THAT(config.states[1].pattern,
              ElementsAre(PatternStep{255, 100}, PatternStep{0, 0}));
  EXPECT_THAT(config.states[15].pattern, IsEmpty());
  EXPECT_EQ(config.transitions[7].repeat, 3);
  EXPECT_THAT(config.transitions[7].pattern,
              ElementsAre(PatternStep{0, 250}, PatternStep{255, 250}));
  EXPECT_EQ(config.ambient_full_scale_lux, 80);
  // Untouched keys keep their defaults.
  EXPECT_EQ(config.states[6].colour, (Rgb{160, 0, 255}));

  // The example file shipped beside the library parses cleanly.
  LightConfig example;
  ParseLightConfig(ReadFile(LIGHTCONTROL_SYSFS_EXAMPLE), &example, &problems);
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_EQ(example.states.size(), DefaultLightConfig().states.size());
}

TEST(LightConfigTest, MalformedLineIsNamedAndLeavesItsKeyAlone) {
  const struct {
    const char* line;
    const char* why;
  } kCases[] = {
      {"ring", "expected key = value"},
      {"colour = red", "unknown key \"colour\""},
      {"state.16 = red", "\"state.16\" needs a number 0..15"},
      {"state.1 =", "\"state.1\" has no value"},
      {"state.1 = #12345", "\"#12345\" is not a colour (#rrggbb or a name)"},
      {"state.1 = 1234567", "\"1234567\" is not a colour (#rrggbb or a name)"},
      {"state.1 = red blink", "expected solid, blink MS, breathe MS or pattern LEVEL MS LEVEL MS..."},
      {"state.1 = red pattern 0 100 256 100", "pattern levels must be 0..255 and durations 0..60000 ms"},
      {"state.1 = red pattern 0 0 255 0", "a pattern needs a step that lasts"},
      {"transition.0 = blink 200", "a transition starts with its count, 1..1000"},
      {"transition.0 = 2 solid", "a transition needs blink, breathe or pattern"},
      {"ring = ../../etc", "\"../../etc\" is not an LED name"},
      {"ambient_full_scale_lux = 0", "expected a whole number of lux, 1..1000000"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    LightConfig config = DefaultLightConfig();
    std::vector<std::string> problems;

    ParseLightConfig(std::string("\n") + c.line + "\nstate.4 = red\n", &config,
                     &problems);

    EXPECT_THAT(problems, ElementsAre(std::string("line 2: ") + c.why));
    EXPECT_EQ(config.states[1].colour, (Rgb{0, 255, 0}));
    EXPECT_EQ(config.transitions[0].repeat, 2);
    EXPECT_THAT(config.ring, IsEmpty());
    EXPECT_EQ(config.states[4].colour, (Rgb{255, 0, 0}));
  }
}

}  // namespace
}  // namespace morvane::ap
