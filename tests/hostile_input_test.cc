// The production avd against what a bad image, a hostile caller and its
// surroundings hand it: one group per source, each a table of inputs. The
// user needs the daemon alive and answering, the rest of the input still
// applied, no log line that the input started, and bounded log growth.

#include <fcntl.h>
#include <signal.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "tests/fixtures/avd_process.h"

namespace morvane::ap {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kSettings[] = "/usr/share/ap/platform-settings.sh";
constexpr char kStatusPath[] = "/org/tessaly/ap/AudioVisual/Status";
constexpr char kStatusInterface[] = "org.tessaly.ap.AudioVisual.Status";
// Longer than any line the daemon writes of its own, shorter than 1 MiB.
constexpr size_t kLongestLine = 1024;

class HostileInputTest : public AvdTest {
 protected:
  // Whether the daemon answers on the bus now.
  bool Answers() { return Call("/", "org.freedesktop.DBus.Peer", "Ping") != nullptr; }
  // A boolean of the daemon's status: 0 or 1, -1 when it cannot be read.
  int InUse(const char* name) {
    int value = -1;
    sd_bus_get_property_trivial(client_, kService, kStatusPath, kStatusInterface,
                                name, nullptr, 'b', &value);
    return value;
  }
  // A call whose answer (a rejection, mostly) is not looked at.
  void SetLedState(const std::string& state) {
    Call("/org/tessaly/ap/AudioVisual/Manager", "org.tessaly.ap.AudioVisual.Manager",
         "SetLedState", "ssu", state.c_str(), "", 0u);
  }
  // Every line of the daemon's log (at |path|) was started by the daemon
  // (glog's header) and is not long.
  static void ExpectOnlyItsOwnLines(const std::string& path) {
    const std::regex header("^[IWEF][0-9]{8} [0-9:.]+ +[0-9]+ [a-z_]+\\.cc:[0-9]+\\] ");
    for (const std::string& line : ReadLines(path)) {
      EXPECT_TRUE(std::regex_search(line, header)) << line.substr(0, 80);
      EXPECT_LE(line.size(), kLongestLine) << line.substr(0, 80);
    }
  }
};

// A value of the VPD cache that is not quoted costs only its key, a line of
// the platform settings that cannot be read only itself.
TEST_F(HostileInputTest, FileLinesThatCannotBeReadCostOnlyThemselves) {
  // The VPD cache's calibration line, the settings' text around the touch
  // device's line, and the warning after "Failed to read ", followed by the
  // settings' path in the rows of the settings (those without calibration).
  const struct {
    const char* name;
    std::string calibration;
    std::string before;
    std::string after;
    std::string warning;
  } kCases[] = {
      {"VPD empty", "\"ps_calibration\"=", "", "", "(): not enclosed"},
      {"VPD one character", "\"ps_calibration\"=\"", "", "", "(\"): not enclosed"},
      {"VPD unquoted", "\"ps_calibration\"=100", "", "", "(100): not enclosed"},
      {"VPD open quote", "\"ps_calibration\"=\"100", "", "", "(\"100): not enclosed"},
      {"VPD forged line", "\"ps_calibration\"=x\r<0>avd: forged\x1b[2J", "", "",
       "(x\\r<0>avd: forged\\x1b[2J): not enclosed"},
      {"settings without '='", "", "export PATH\n", "", "line 1 of "},
      {"settings CRLF", "", "# image 7\r\n", "\r\nPLATFORM_HAS_NSS_SUPPORT=0\r\n", ""},
      {"settings NUL byte", "", "",
       std::string("\nPLATFORM_HAS_NSS_SUPPORT=0") + '\0' + "\n", "line 2 of "},
      {"settings forged line", "", "\r<0>avd: forged\n", "\n", "line 1 of "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AvdProcess avd(bus_.address(), {}, true);
    const std::string sensor = avd.dir().iio_sysfs_dir();
    const std::string settings = avd.dir().sysroot() + kSettings;
    WriteWholeFile(avd.dir().vpd_cache(),
                   c.calibration + "\r\n\"plthres\"=\"40\"\r\n\"phthres\"=\"200\"\n",
                   nullptr);
    WriteWholeFile(sensor + "/in_proximity_calibbias", "-", nullptr);
    WriteWholeFile(settings,
                   c.before + "PLATFORM_TOUCH_INPUT_EVENT_PATH='" +
                       avd.dir().touch_fifo() + "'" + c.after,
                   nullptr);
    avd.Start();

    ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();
    ASSERT_TRUE(avd.WaitUntil([&] {
      return avd.Stderr().find(" started: ") != std::string::npos &&
             ReadFile(sensor + "/events/in_proximity_thresh_rising_value") == "200";
    })) << avd.Stderr();

    EXPECT_TRUE(Answers());
    EXPECT_EQ(ReadFile(sensor + "/events/in_proximity_thresh_falling_value"), "40");
    EXPECT_EQ(ReadFile(sensor + "/in_proximity_calibbias"), "-");
    EXPECT_THAT(avd.Stderr(), HasSubstr("touch device " + avd.dir().touch_fifo()));
    const std::string warning = c.calibration.empty()
                                    ? c.warning + settings
                                    : "the VPD value of ps_calibration " + c.warning;
    if (c.warning.empty()) {
      EXPECT_THAT(avd.Stderr(), Not(HasSubstr("Failed to read ")));
    } else {
      EXPECT_THAT(avd.Stderr(), HasSubstr("Failed to read " + warning));
    }
    ExpectOnlyItsOwnLines(avd.dir().avd_log());
  }
  // Unreadable: said once, with the path and the reason.
  AvdProcess avd(bus_.address());
  std::filesystem::remove(avd.dir().sysroot() + kSettings);
  avd.Start();
  ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();
  EXPECT_THAT(avd.Stderr(), HasSubstr("Failed to read " + avd.dir().sysroot() +
                                      kSettings + ": No such file or directory"));
}

TEST_F(HostileInputTest, CallersTextIsQuotedAndTheirFloodIsBounded) {
  AvdProcess avd(bus_.address());
  avd.Start();
  ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();
  const size_t before = avd.Stderr().size();
  const std::string kNames[] = {
      "vox\n<0>avd[1]: forged",
      "\x1b[2J\r\t\\",
      "\xc2\x85 next line",
      std::string(1 << 20, 'a'),
  };

  for (const std::string& name : kNames) SetLedState(name);
  for (int i = 0; i < 10'000; ++i) SetLedState("flood");

  EXPECT_TRUE(Answers());
  const std::string log = avd.Stderr();
  ExpectOnlyItsOwnLines(avd.dir().avd_log());
  EXPECT_THAT(log, HasSubstr("Unexpected led state: vox\\n<0>avd[1]: forged"));
  EXPECT_THAT(log, HasSubstr("Unexpected led state: \\x1b[2J\\r\\t\\\\"));
  EXPECT_THAT(log, HasSubstr("Unexpected led state: \\xc2\\x85 next line"));
  EXPECT_LT(log.size() - before, 16'384u);
}

TEST_F(HostileInputTest, SurroundingsNeitherEndNorLeakIntoTheDaemon) {
  // Standard error a pipe whose reader went away.
  int pipe_fds[2];
  ASSERT_EQ(pipe2(pipe_fds, O_CLOEXEC), 0);
  // Left open without O_CLOEXEC, as a careless parent would.
  const int leaked = open("/dev/null", O_RDONLY);
  AvdProcess avd(bus_.address());
  avd.Start({}, pipe_fds[1]);
  close(pipe_fds[1]);
  ASSERT_TRUE(avd.WaitForName(client_));
  close(pipe_fds[0]);

  avd.Signal(SIGHUP);  // says so on standard error
  for (int i = 0; i < 20; ++i) SetLedState("unknown");  // and these

  EXPECT_TRUE(Answers());
  const std::string fds = "/proc/" + std::to_string(avd.pid()) + "/fd";
  for (const auto& entry : std::filesystem::directory_iterator(fds)) {
    const std::string fd = entry.path().filename();
    if (std::stoi(fd) <= 2) continue;
    const std::string info =
        ReadFile("/proc/" + std::to_string(avd.pid()) + "/fdinfo/" + fd);
    const size_t flags = info.find("flags:");
    ASSERT_NE(flags, std::string::npos);
    EXPECT_TRUE(std::stoul(info.substr(flags + 6), nullptr, 8) & O_CLOEXEC)
        << fd << " -> " << std::filesystem::read_symlink(entry.path());
  }
  close(leaked);
}

// The status shows a device as in use only while it is read, and says why
// it is not.
TEST_F(HostileInputTest, StatusSaysWhichDeviceIsNotReadAndWhy) {
  AvdProcess avd(bus_.address(), {}, true);
  avd.Start();
  ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();
  ASSERT_TRUE(avd.WaitUntil([&] { return InUse("TouchDeviceInUse") == 1; }));

  // A FIFO ends once a writer has come and gone.
  close(open(avd.dir().touch_fifo().c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(avd.WaitUntil([&] { return InUse("TouchDeviceInUse") == 0; }))
      << avd.Stderr();

  EXPECT_EQ(InUse("ProximitySensorInUse"), 0);
  sd_bus_message* reply = nullptr;
  ASSERT_GE(sd_bus_get_property(client_, kService, kStatusPath, kStatusInterface,
                                "DevicesNotRead", nullptr, &reply, "a{ss}"), 0);
  std::map<std::string, std::string> not_read;
  sd_bus_message_enter_container(reply, 'a', "{ss}");
  for (const char *device, *why; sd_bus_message_read(reply, "{ss}", &device, &why) > 0;) {
    not_read[device] = why;
  }
  sd_bus_message_unref(reply);
  EXPECT_THAT(not_read, testing::ElementsAre(
                            testing::Pair("proximity", "cannot open " +
                                                           avd.dir().proximity_device()),
                            testing::Pair("touch", "end of stream")));
}

}  // namespace
}  // namespace morvane::ap
