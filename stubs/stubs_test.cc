// Tests of the stand-in platform libraries through their C and C++ surfaces,
// with the environment pointing at files in a temporary directory.

#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stubs/lightcontrol/lightcontrol.h"
#include "stubs/pavo/pavo.h"
#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class StubsTest : public testing::Test {
 protected:
  void TearDown() override {
    for (const char* name :
         {"LIGHTCONTROL_LOG", "LIGHTCONTROL_AMBIENT", "PAVO_LOG",
          "PAVO_CAPTURE", "PAVO_DOWN", "ALSA_CONFIG_PATH"}) {
      unsetenv(name);
    }
  }

  // Points environment variable |name| at |file| in the temporary directory.
  void SetEnv(const char* name, const std::string& file) {
    setenv(name, dir_.Path(file).c_str(), /*overwrite=*/1);
  }
  std::vector<std::string> Lines(const std::string& file) const {
    return ReadLines(dir_.Path(file));
  }
  static std::string Bytes(const void* data, size_t size) {
    return std::string(static_cast<const char*>(data), size);
  }

  TempDir dir_;
};

// The other calls' lines are read by the daemon's own tests and, through the
// simulator, by the end-to-end scenario; a failed reading too.
TEST_F(StubsTest, LightControlReadsTheAmbientFileAtEachCall) {
  const struct {
    const char* text;
    int level;  // -1: the reading fails.
  } kCases[] = {
      {"42\n", 42}, {"0", 0},     {"255", 255}, {" 7 \n", 7},  {"007", 7},
      {"256", -1},  {"-1", -1},   {"+5", -1},   {"abc", -1},   {"", -1},
      {"\n", -1},   {"4 2", -1},  {"12x", -1},  {"99999999999999999999", -1},
  };
  SetEnv("LIGHTCONTROL_LOG", "light.log");
  SetEnv("LIGHTCONTROL_AMBIENT", "ambient");
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << "\"" << c.text << "\"");
    dir_.Write("ambient", c.text);
    std::filesystem::remove(dir_.Path("light.log"));
    uint8_t level = 99;

    EXPECT_EQ(light_get_ambient_brightness(&level), c.level >= 0);

    EXPECT_EQ(level, c.level >= 0 ? c.level : 99);
    const std::string logged = c.level >= 0 ? std::to_string(c.level) : "fail";
    EXPECT_THAT(Lines("light.log"),
                ElementsAre("light_get_ambient_brightness " + logged));
  }
}

// With a capture file the server needs no sound card; without one, the
// sound device is chosen by the ALSA configuration, so a configuration in
// the temporary directory stands in for a sound card. A server that is down
// is seen by the input manager's tests.
TEST_F(StubsTest, PavoLogsEveryCallAndPlaysIntoTheCaptureOrTheAlsaDevice) {
  SetEnv("PAVO_LOG", "pavo.log");
  SetEnv("PAVO_CAPTURE", "capture.raw");
  const int16_t kStereo[] = {1, -2, 0x1234, 0x5678, -32768, 32767};
  const int16_t kMono[] = {0x0a0b, 0x0c0d};
  const std::string stereo = Bytes(kStereo, sizeof(kStereo));
  const std::string mono = Bytes(kMono, sizeof(kMono));
  pavo_client* client = nullptr;

  ASSERT_EQ(pavo_helper_create_connect(&client), 0);
  ASSERT_NE(client, nullptr);
  const int device = pavo_client_get_first_dev_type_idx(client, 0, 0);
  EXPECT_EQ(pavo_helper_play_buffer(client, kStereo, 3, 2, 48000, 2, device),
            0);
  EXPECT_EQ(pavo_helper_play_buffer(client, kMono, 2, 2, 48000, 1, device), 0);
  EXPECT_EQ(pavo_helper_play_buffer(client, kMono, 0, 2, 48000, 1, device), 0);
  pavo_client_destroy(client);

  EXPECT_EQ(device, 0);
  EXPECT_EQ(ReadFile(dir_.Path("capture.raw")), stereo + mono);
  EXPECT_THAT(
      Lines("pavo.log"),
      ElementsAre(
          "connect 0", "device 0 0 -> 0",
          "play frames=3 format=2 rate=48000 channels=2 device=0 bytes=12 -> 0",
          "play frames=2 format=2 rate=48000 channels=1 device=0 bytes=4 -> 0",
          "play frames=0 format=2 rate=48000 channels=1 device=0 bytes=0 -> 0",
          "destroy"));

  unsetenv("PAVO_CAPTURE");
  SetEnv("PAVO_LOG", "alsa.log");
  // Named but absent: the server is up, and plays on the device.
  SetEnv("PAVO_DOWN", "down");
  // ALSA reloads its configuration only when the file list or a file's
  // inode or mtime (whole seconds) changes: use a new file for each.
  SetEnv("ALSA_CONFIG_PATH", "no-default.conf");
  dir_.Write("no-default.conf", "pcm.nothing { type null }\n");
  client = nullptr;
  EXPECT_NE(pavo_helper_create_connect(&client), 0);
  EXPECT_EQ(client, nullptr);

  SetEnv("ALSA_CONFIG_PATH", "file-default.conf");
  dir_.Write("file-default.conf",
             "pcm.!default { type file slave.pcm { type null }\n  file \"" +
                 dir_.Path("card.raw") + "\" format \"raw\" }\n");
  ASSERT_EQ(pavo_helper_create_connect(&client), 0);
  EXPECT_EQ(pavo_helper_play_buffer(client, kStereo, 3, 2, 48000, 2, 0), 0);
  EXPECT_EQ(pavo_helper_play_buffer(client, kStereo, 3, 2, 48000, 2, 0), 0);
  // A new channel count sets the device up again.
  EXPECT_EQ(pavo_helper_play_buffer(client, kMono, 2, 2, 48000, 1, 0), 0);
  pavo_client_destroy(client);

  EXPECT_EQ(ReadFile(dir_.Path("card.raw")), stereo + stereo + mono);
  const std::vector<std::string> lines = Lines("alsa.log");
  ASSERT_GE(lines.size(), 2u);
  EXPECT_THAT(lines[0], MatchesRegex("connect -[0-9]+"));
  EXPECT_EQ(lines[1], "connect 0");
}

}  // namespace
}  // namespace morvane::ap
