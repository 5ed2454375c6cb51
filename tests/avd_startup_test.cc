// Start-up of the real avd binary against a private bus.

#include <signal.h>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/avd_process.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto kTimeout = std::chrono::seconds(20);
constexpr char kVerifiedMarker[] = "/usr/local/etc/ap/simulate-verified-mode";

class AvdStartupTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(bus_.Start(&error)) << error;
  }

  // Sends |signo| and expects a clean exit with status 0.
  void ExpectCleanExitOn(AvdProcess& avd, int signo) {
    avd.Signal(signo);
    const std::optional<int> status = avd.WaitForExit(kTimeout);
    ASSERT_TRUE(status.has_value()) << "avd did not exit";
    EXPECT_TRUE(WIFEXITED(*status)) << avd.Stderr();
    EXPECT_EQ(WEXITSTATUS(*status), 0) << avd.Stderr();
  }

  DbusDaemonFixture bus_;
};

TEST_F(AvdStartupTest, InitialisesTheLightWithRawBrightnessThenShowsStartup) {
  AvdProcess avd(bus_.address());
  avd.Start();

  ASSERT_TRUE(avd.WaitForLightCalls(4, kTimeout)) << avd.Stderr();

  // 30 is the record's default intensity as it is, not scaled to 76. No
  // proximity device: nothing more.
  EXPECT_THAT(avd.LightCalls(),
              ElementsAre("light_init 1", "light_set_master_brightness 30",
                          "light_set_state 0",
                          "light_get_proximity_device_path null"));
  ExpectCleanExitOn(avd, SIGTERM);
}

TEST_F(AvdStartupTest, DeveloperModeNeedsTheCommandToSucceedAndNoMarker) {
  const struct {
    const char* name;
    std::optional<int> command_status;
    bool marker;
    const char* expected;
  } kCases[] = {
      {"developer", 0, false, "light_init 1"},
      {"developer simulating verified", 0, true, "light_init 0"},
      {"command fails", 1, false, "light_init 0"},
      {"command missing", std::nullopt, false, "light_init 0"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AvdProcess avd(bus_.address());
    avd.SetDeveloperCommand(c.command_status);
    if (c.marker) avd.WriteSysrootFile(kVerifiedMarker, "");
    avd.Start();

    ASSERT_TRUE(avd.WaitForLightCalls(1, kTimeout)) << avd.Stderr();

    EXPECT_EQ(avd.LightCalls().front(), c.expected);
    ExpectCleanExitOn(avd, SIGINT);
  }
}

TEST_F(AvdStartupTest, MissingClipEndsTheProcessBeforeAnyLightCall) {
  AvdProcess avd(bus_.address());
  avd.RemoveSysrootFile("/usr/share/sounds/ap/network_creation.raw");
  avd.Start();

  const std::optional<int> status = avd.WaitForExit(kTimeout);

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  EXPECT_TRUE(WIFSIGNALED(*status));
  EXPECT_EQ(WTERMSIG(*status), SIGABRT);
  EXPECT_THAT(avd.Stderr(),
              HasSubstr("Check failed: ReadFileToString("
                        "kNetworkCreationAudioFilename, &system_setup_audio_) "
                        "Failed to read file: " +
                        avd.SysrootPath("/usr/share/sounds/ap/network_creation.raw")));
  EXPECT_THAT(avd.LightCalls(), IsEmpty());
}

TEST(AvdWithoutBusTest, ExitsNonZeroWithAMessage) {
  AvdProcess avd("unix:path=/nonexistent/avd-test-bus");
  avd.Start();

  const std::optional<int> status = avd.WaitForExit(kTimeout);

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  ASSERT_TRUE(WIFEXITED(*status)) << avd.Stderr();
  EXPECT_NE(WEXITSTATUS(*status), 0);
  EXPECT_THAT(avd.Stderr(), HasSubstr("system bus"));
  EXPECT_THAT(avd.LightCalls(), IsEmpty());
}

}  // namespace
}  // namespace morvane::ap
