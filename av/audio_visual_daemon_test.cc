#include "av/audio_visual_daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <tuple>

#include "tests/fixtures/mock_lighting_client.h"
#include "av/prioritized_device.h"
#include "common/mock_configuration_monitor.h"
#include "common/upstart_client.h"
#include "dbus/mock_configuration_proxy.h"
#include "dbus/mock_group_monitor_proxy.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/log_capture.h"
#include "tests/fixtures/temp_dir.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {

using ::testing::_;
using ::testing::DoAll;
using ::testing::ElementsAre;
using ::testing::InvokeWithoutArgs;
using ::testing::IsEmpty;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::SaveArg;
using ::testing::SetArgPointee;

// The daemon with its loop replaced by the test's fake one.
class DaemonOnFakeLoop : public AudioVisualDaemon {
 public:
  explicit DaemonOnFakeLoop(TaskLoop* loop) : fake_loop_(loop) {}
  TaskLoop* loop() const override { return fake_loop_; }

 private:
  TaskLoop* const fake_loop_;
};

// The daemon's reactions, driven directly: the lighting manager and the
// ambient timer on the fake loop, the light, audio and metrics stand-ins
// logging into a temporary directory that also holds the sysroot, the
// controller mocked, and Upstart a peer on the test bus.
class AudioVisualDaemonTest : public BusTest {
 protected:
  static constexpr const char* kVariables[] = {
      "LIGHTCONTROL_LOG", "LIGHTCONTROL_AMBIENT", "PAVO_LOG", "PAVO_CAPTURE",
      "METRICS_LOG",      "AVD_SYSROOT"};

  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    for (const char* name : kVariables) setenv(name, dir_.Path(name).c_str(), 1);
    ON_CALL(lighting_, SetState)
        .WillByDefault(DoAll(SaveArg<0>(&shown_), Return(0)));
    ON_CALL(lighting_, SetStateWithTransition)
        .WillByDefault(DoAll(SaveArg<0>(&shown_),
                             InvokeWithoutArgs([this] { ++transitions_; }), Return(0)));
    avd_.status_object_ = std::make_unique<ExportedObject>(
        nullptr, bus_, org::tessaly::ap::AudioVisual::kStatusPath);
    avd_.status_ = std::make_unique<org::tessaly::ap::AudioVisual::StatusAdaptor>(
        avd_.status_object_.get());
    avd_.lighting_manager_ = std::make_unique<LightingManager>(
        &loop_, &lighting_, avd_.status_.get());
    avd_.ambient_light_timer_ = std::make_unique<RepeatingTimer>(&loop_);
    auto monitor = std::make_unique<NiceMock<MockConfigurationMonitor>>(bus_);
    monitor_ = monitor.get();
    avd_.configuration_monitor_ = std::move(monitor);
    ON_CALL(*monitor_, GetConfigurationProxy).WillByDefault(Return(&proxy_));
    upstart_ = std::make_unique<TestPeer>(
        *daemon_, UpstartClient::kServiceName, UpstartClient::kManagerPath,
        [this](sd_bus_message* m) {
          const char* event = nullptr;
          sd_bus_message_read(m, "s", &event);
          if (event && std::string(event) == "ap-wan-online") ++events_;
          return sd_bus_reply_method_return(m, "");
        });
    loop_.FastForwardBy(61'000'000);  // Past the start-up grace.
  }

  void TearDown() override {
    for (const char* name : kVariables) unsetenv(name);
  }

  void Wan(const std::string& state) { avd_.OnWanStateChanged(state); }
  org::tessaly::ap::AudioVisual::StatusAdaptor& Status() { return *avd_.status_; }
  void Group(bool is_root, bool connected_to_root) {
    ON_CALL(group_monitor_, is_root).WillByDefault(Return(is_root));
    ON_CALL(group_monitor_, connected_to_root)
        .WillByDefault(Return(connected_to_root));
    avd_.OnGroupMonitorPropertyChanged(&group_monitor_, "Lost");
  }

  // The controller publishes |config| and answers that setup is
  // |completed|.
  void Configure(const DeviceConfiguration& config, bool completed = true) {
    ON_CALL(proxy_, GetSetupCompleted)
        .WillByDefault(DoAll(SetArgPointee<0>(completed), Return(true)));
    Deliver(config);
  }
  void Deliver(const DeviceConfiguration& config) {
    avd_.OnDeviceConfigurationChanged(config);
  }
  void SetNetworkCreationClip(const std::string& clip) {
    avd_.system_setup_audio_ = clip;
  }
  void GroupMonitorOwner(const char* old_owner, const char* new_owner) {
    avd_.OnGroupMonitorOwnerChanged(old_owner, new_owner);
  }
  void Configure(int intensity, bool automatic = false) {
    DeviceConfiguration config;
    config.set_light_intensity(intensity);
    config.set_enable_automatic_intensity(automatic);
    Configure(config);
  }
  void Wave(const DeviceConfiguration* current) {
    ON_CALL(*monitor_, device_configuration).WillByDefault(Return(current));
    avd_.OnWaveDetected();
  }

  // The lines a stand-in library wrote since the last call for it.
  std::vector<std::string> Calls(const char* variable) {
    const std::vector<std::string> lines = ReadLines(dir_.Path(variable));
    std::vector<std::string> fresh(lines.begin() + seen_[variable],
                                   lines.end());
    seen_[variable] = lines.size();
    return fresh;
  }
  std::vector<std::string> LightCalls() { return Calls("LIGHTCONTROL_LOG"); }
  // Writes |contents| at |path| under the sysroot.
  void WriteSysroot(const std::string& path, const std::string& contents) {
    dir_.Write("AVD_SYSROOT" + path, contents);
  }
  std::string Sysroot(const std::string& path) {
    return dir_.Path("AVD_SYSROOT" + path);
  }
  // The light library names |path| as the proximity sensor.
  void StartGestureMonitor(const std::string& device) {
    avd_.proximity_device_path_ = device;
    avd_.StartGestureMonitor();
  }
  bool monitoring() const { return avd_.gesture_monitor_ != nullptr; }

  FakeTaskLoop loop_;
  NiceMock<MockLightingClient> lighting_;
  NiceMock<org::tessaly::ap::MockGroupMonitorProxy> group_monitor_;
  NiceMock<org::tessaly::ap::Controller::MockConfigurationProxy> proxy_;
  DaemonOnFakeLoop avd_{&loop_};
  NiceMock<MockConfigurationMonitor>* monitor_ = nullptr;
  TempDir dir_;
  std::map<std::string, size_t> seen_;
  int shown_ = -1;
  int transitions_ = 0;
  std::atomic<int> events_{0};
  std::unique_ptr<TestPeer> upstart_;
};

namespace {

TEST_F(AudioVisualDaemonTest, RingIsOnlineOnlyWithTheWanUpAndNoGroupFailure) {
  LogCapture log;
  const struct {
    const char* wan;
    bool is_root;
    bool connected_to_root;
    int shown;
  } kCases[] = {
      {"offline", false, true, kLightStateWanFailure},
      {"online", false, true, kLightStateOnline},
      {"online", false, false, kLightStateWanFailure},
      {"online", true, false, kLightStateOnline},  // the root never fails
      {"ready", true, true, kLightStateWanFailure},  // only "online" is online
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.wan) + " root=" + std::to_string(c.is_root) +
                 " connected=" + std::to_string(c.connected_to_root));

    Group(c.is_root, c.connected_to_root);
    Wan(c.wan);

    EXPECT_EQ(shown_, c.shown);
    EXPECT_EQ(Status().light_state().value(), static_cast<uint32_t>(c.shown));
    EXPECT_EQ(Status().wan_online().value(), std::string(c.wan) == "online");
    EXPECT_EQ(Status().group_failure().value(),
              !c.is_root && !c.connected_to_root);
  }

  // A group monitor that arrives changes nothing until it reports; one that
  // leaves takes its failure with it.
  Group(false, false);
  Wan("online");
  GroupMonitorOwner("", ":1.8");
  EXPECT_EQ(shown_, kLightStateWanFailure);
  GroupMonitorOwner(":1.8", "");
  EXPECT_EQ(shown_, kLightStateOnline);
  EXPECT_FALSE(Status().group_failure().value());
  // Upstart hears of each coming online once, not of each "online".
  EXPECT_EQ(events_, 2);
  std::vector<std::string> lines = log.Messages(google::GLOG_INFO);
  // Said once per change, beside the existing lines.
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "WAN is online"), 2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "Group: not connected to the root"), 2);
  std::erase_if(lines, [](const std::string& line) {
    return !line.starts_with("Group failure");
  });
  EXPECT_THAT(lines,
              ElementsAre("Group failure is 0", "Group failure is 0",
                          "Group failure is 1", "Group failure is 0",
                          "Group failure is 0", "Group failure is 1",
                          "Group failure is cleared"));
}

TEST_F(AudioVisualDaemonTest, BrightnessFollowsTheAmbientEveryTwoSecondsOrTheIntensity) {
  dir_.Write("LIGHTCONTROL_AMBIENT", "0");
  Configure(101, true);
  EXPECT_THAT(LightCalls(), ElementsAre("light_get_ambient_brightness 0",
                                        "light_set_master_brightness 1"));

  dir_.Write("LIGHTCONTROL_AMBIENT", "200");
  loop_.FastForwardBy(1'999'999);
  EXPECT_THAT(LightCalls(), IsEmpty());
  loop_.FastForwardBy(1);
  EXPECT_THAT(LightCalls(), ElementsAre("light_get_ambient_brightness 200",
                                        "light_set_master_brightness 200"));

  // Failed readings change nothing and are said once, as is the next good
  // one.
  LogCapture log;
  dir_.Write("LIGHTCONTROL_AMBIENT", "dark");
  loop_.FastForwardBy(4'000'000);
  dir_.Write("LIGHTCONTROL_AMBIENT", "100");
  loop_.FastForwardBy(2'000'000);
  EXPECT_THAT(LightCalls(), ElementsAre("light_get_ambient_brightness fail",
                                        "light_get_ambient_brightness fail",
                                        "light_get_ambient_brightness 100",
                                        "light_set_master_brightness 100"));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Failed to read the ambient light level; the "
                          "brightness stays until a reading succeeds"));
  EXPECT_THAT(log.Messages(google::GLOG_INFO),
              ElementsAre("Read the ambient light level again: 100"));

  // Automatic intensity off, the intensity alike: the intensity scaled to a
  // byte (30 % and 100 % reach the light in the end-to-end scenario).
  Configure(101, false);
  loop_.FastForwardBy(10'000'000);
  EXPECT_THAT(LightCalls(), ElementsAre("light_set_master_brightness 1"));

  // Only other fields differ: stored without a word or a light call.
  LogCapture quiet;
  DeviceConfiguration other;
  other.set_light_intensity(101);
  other.set_enable_bridge_mode(true);
  Configure(other);
  EXPECT_THAT(LightCalls(), IsEmpty());
  EXPECT_THAT(quiet.Messages(google::GLOG_INFO), IsEmpty());
  // A lower intensity is a change too.
  Configure(30);
  EXPECT_THAT(LightCalls(), ElementsAre("light_set_master_brightness 76"));
}

TEST_F(AudioVisualDaemonTest, SetupStateReachesTheRingAndCompletionChimesOnce) {
  SetNetworkCreationClip(std::string(8, '\0'));  // two stereo frames
  DeviceConfiguration config;
  LogCapture log;
  // Without the setup state a configuration is ignored.
  ON_CALL(proxy_, GetSetupCompleted).WillByDefault(Return(false));
  Deliver(config);
  ON_CALL(*monitor_, GetConfigurationProxy).WillByDefault(Return(nullptr));
  Deliver(config);
  EXPECT_THAT(LightCalls(), IsEmpty());
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Could not read if setup was completed",
                          "Could not read if setup was completed"));

  ON_CALL(*monitor_, GetConfigurationProxy).WillByDefault(Return(&proxy_));
  Configure(config, false);
  EXPECT_EQ(shown_, kLightStateSetup);
  Configure(config, true);
  Configure(config, true);
  EXPECT_EQ(shown_, kLightStateOnline);  // the hold after setup
  EXPECT_EQ(transitions_, 1);
  Configure(config, false);
  EXPECT_EQ(shown_, kLightStateSetup);

  EXPECT_THAT(Calls("PAVO_LOG"),
              ElementsAre("connect 0", "device 0 0 -> 0",
                          "play frames=2 format=2 rate=48000 channels=2 "
                          "device=0 bytes=8 -> 0"));
}

TEST_F(AudioVisualDaemonTest, WavePrioritisesTheDefaultDeviceForItsDuration) {
  // Nothing to prioritise: no device, no duration, a bridge, no
  // configuration at all. These waves come first and write nothing.
  DeviceConfiguration none;
  DeviceConfiguration zero;
  zero.mutable_default_prioritized_device()->set_mac_address("02:aa");
  DeviceConfiguration bridge;
  bridge.mutable_default_prioritized_device()->set_expiration_time(600);
  bridge.set_enable_bridge_mode(true);
  DeviceConfiguration config;
  config.mutable_default_prioritized_device()->set_mac_address("02:aa");
  config.mutable_default_prioritized_device()->set_expiration_time(600);
  config.set_light_intensity(55);
  config.add_port_forwarding()->set_lan_ip_address("192.168.86.20");
  config.mutable_wireless_network()->add_channel_5000mhz()->set_number(36);
  // A field this daemon does not know goes back as it came.
  config.mutable_unknown_fields()->AddVarint(99, 7);
  DeviceConfiguration written;
  EXPECT_CALL(*monitor_, WriteDeviceConfiguration)
      .WillOnce(DoAll(SaveArg<0>(&written), Return(true)));
  LogCapture log;

  for (const DeviceConfiguration* current : {&none, &zero, &bridge}) {
    Wave(current);
  }
  Wave(nullptr);
  Wave(&config);

  EXPECT_EQ(written.prioritized_device().mac_address(), "02:aa");
  EXPECT_EQ(written.prioritized_device().expiration_time(),
            loop_.WallNow() / 1'000'000 + 600);
  written.clear_prioritized_device();
  EXPECT_EQ(written.SerializeAsString(), config.SerializeAsString());
  EXPECT_EQ(transitions_, 1);
  EXPECT_THAT(Calls("METRICS_LOG"),
              ElementsAre("enum AccessPoint.PrioritizeEvent 2 3",
                          "enum AccessPoint.PrioritizeEvent 2 3",
                          "enum AccessPoint.PrioritizeEvent 2 3",
                          "enum AccessPoint.PrioritizeEvent 1 3"));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Unable to get current device configuration"));
}

// 2147483647, the largest second the field holds, is also a "forever" a
// user interface may send.
TEST(PrioritizeDefaultDeviceTest, ExpirySaturatesAtTheFieldsLargestSecond) {
  // A clock at the ends of its range saturates too, on the side the
  // duration points to.
  constexpr int64_t kNow = 2147483047'999'999;
  DeviceConfiguration config;
  for (const auto& [now_us, duration_s, expiry_s] :
       {std::tuple{kNow, 599, 2147483646}, {kNow, 600, 2147483647},
        {kNow, 601, 2147483647}, {kNow, 2147483647, 2147483647},
        {INT64_MAX - 1, 1, 2147483647}, {INT64_MIN + 1, -1, INT32_MIN}}) {
    config.mutable_default_prioritized_device()->set_expiration_time(
        duration_s);
    const DeviceConfiguration written = PrioritizeDefaultDevice(config, now_us);
    EXPECT_EQ(written.prioritized_device().expiration_time(), expiry_s)
        << now_us << " + " << duration_s << " s";
  }
}

constexpr char kVpdCache[] = "/var/cache/vpd/full-v2.txt";
constexpr char kSensor[] = "/sys/bus/iio/devices/iio:device0/";

TEST_F(AudioVisualDaemonTest, CalibrationCopiesTheVpdValuesIntoTheSensor) {
  WriteSysroot(kVpdCache,
               "\"ps_calibration\"=\"123\"\n\"plthres\"=\"100\"\n");
  WriteSysroot(std::string(kSensor) + "in_proximity_calibbias", "");
  WriteSysroot(std::string(kSensor) + "events/in_proximity_thresh_rising_value",
               "");
  LogCapture log;

  // Any node serves as the device here; it is no IIO device, so the
  // monitor is made but never reports.
  StartGestureMonitor(Sysroot(kVpdCache));

  EXPECT_EQ(ReadFile(Sysroot(std::string(kSensor) + "in_proximity_calibbias")),
            "123");
  EXPECT_TRUE(monitoring());
  const std::vector<std::string> warnings = log.Messages(google::GLOG_WARNING);
  ASSERT_GE(warnings.size(), 2u);
  EXPECT_EQ(warnings[0],
            "Destination path does not exist: " + Sysroot(kSensor) +
                "events/in_proximity_thresh_falling_value");
  EXPECT_EQ(warnings[1], "VPD cache does not contain value for phthres");
}

TEST_F(AudioVisualDaemonTest, MissingCacheIsWaitedForEveryThreeSeconds) {
  constexpr char kRetry[] = "Device or VPD cache information missing, will retry";
  LogCapture log;
  StartGestureMonitor(dir_.path());  // exists
  loop_.FastForwardBy(2'999'999);
  EXPECT_THAT(log.Messages(google::GLOG_INFO),
              ElementsAre("Proximity calibration waits for the VPD cache " +
                              Sysroot(kVpdCache),
                          kRetry));

  EXPECT_EQ(Status().devices_not_read().value().at("proximity"),
            "waiting for the VPD cache " + Sysroot(kVpdCache));
  loop_.FastForwardBy(1);
  EXPECT_THAT(log.Messages(google::GLOG_INFO).back(), kRetry);
  EXPECT_EQ(log.Messages(google::GLOG_INFO).size(), 3u);
  WriteSysroot(kVpdCache, "not a key-value line\n");
  loop_.FastForwardBy(3'000'000);

  EXPECT_FALSE(monitoring());
  EXPECT_EQ(Status().devices_not_read().value().at("proximity"),
            "the VPD cache cannot be loaded");
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Failed to parse VPD cache",
                          "Failed to load the VPD cache " + Sysroot(kVpdCache) +
                              " (unreadable, or a line without '='); no "
                              "wave until the daemon restarts"));
  loop_.FastForwardBy(30'000'000);
  EXPECT_EQ(log.Messages(google::GLOG_INFO).size(), 4u) << "retried after all";
  EXPECT_EQ(log.Messages(google::GLOG_INFO).back(),
            "Found the proximity device and the VPD cache");
}

}  // namespace
}  // namespace morvane::ap
