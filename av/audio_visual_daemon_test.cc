#include "av/audio_visual_daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>

#include "av/mock_lighting_client.h"
#include "common/upstart_client.h"
#include "dbus/mock_group_monitor_proxy.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/log_capture.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {

using ::testing::ElementsAre;
using ::testing::NiceMock;
using ::testing::Return;

// The daemon's reactions, driven directly, with the lighting manager on the
// fake loop and Upstart as a peer on the test bus.
class AudioVisualDaemonTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    ON_CALL(lighting_, SetState).WillByDefault([this](int state) {
      shown_ = state;
      return 0;
    });
    avd_.lighting_manager_ =
        std::make_unique<LightingManager>(&loop_, &lighting_);
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

  void Wan(const std::string& state) { avd_.OnWanStateChanged(state); }
  void Group(bool is_root, bool connected_to_root) {
    ON_CALL(group_monitor_, is_root).WillByDefault(Return(is_root));
    ON_CALL(group_monitor_, connected_to_root)
        .WillByDefault(Return(connected_to_root));
    avd_.OnGroupMonitorPropertyChanged(&group_monitor_, "Lost");
  }
  void GroupMonitorLeaves() { avd_.OnGroupMonitorOwnerChanged(":1.7", ""); }
  void GroupMonitorArrives() { avd_.OnGroupMonitorOwnerChanged("", ":1.8"); }

  FakeTaskLoop loop_;
  NiceMock<MockLightingClient> lighting_;
  NiceMock<org::tessaly::ap::MockGroupMonitorProxy> group_monitor_;
  AudioVisualDaemon avd_;
  int shown_ = -1;
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
  }
  EXPECT_THAT(log.Messages(google::GLOG_INFO),
              ElementsAre("Group failure is 0", "Group failure is 0",
                          "Group failure is 1", "Group failure is 0",
                          "Group failure is 0"));
}

TEST_F(AudioVisualDaemonTest, GroupMonitorLeavingClearsTheFailure) {
  Wan("online");
  Group(false, false);
  ASSERT_EQ(shown_, kLightStateWanFailure);
  LogCapture log;

  GroupMonitorArrives();
  EXPECT_EQ(shown_, kLightStateWanFailure);
  GroupMonitorLeaves();

  EXPECT_EQ(shown_, kLightStateOnline);
  EXPECT_THAT(log.Messages(google::GLOG_INFO),
              ElementsAre("Group failure is cleared"));
}

TEST_F(AudioVisualDaemonTest, EachComingOnlineEmitsTheEventOnce) {
  Wan("online");
  Wan("online");
  Wan("offline");
  Wan("offline");
  EXPECT_EQ(events_, 1);

  Wan("online");

  EXPECT_EQ(events_, 2);
}

}  // namespace
}  // namespace morvane::ap
