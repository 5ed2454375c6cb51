#include "common/configuration_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "peers/controller_peer.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;

class ConfigurationMonitorTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    controller_ = std::make_unique<ControllerPeer>(
        loop_->event(), daemon_->address(), [](const std::string&) {});
    monitor_ = std::make_unique<ConfigurationMonitor>(bus_);
  }

  // Records every delivery as "config <intensity>" or "state <interface>".
  void Follow() {
    monitor_->SetDeviceConfigurationChangedCallback(
        [this](const DeviceConfiguration& config) {
          deliveries_.push_back("config " +
                                std::to_string(config.light_intensity()));
        });
    monitor_->SetRuntimeStateChangedCallback([this](const RuntimeState& state) {
      deliveries_.push_back("state " + state.wan_interface());
    });
  }

  void SetIntensity(int percent) {
    DeviceConfiguration config;
    config.set_light_intensity(percent);
    controller_->SetConfiguration(config);
  }

  void WaitForDeliveries(size_t count) {
    RunUntil([&] { return deliveries_.size() >= count; });
  }

  std::unique_ptr<ControllerPeer> controller_;
  std::unique_ptr<ConfigurationMonitor> monitor_;
  std::vector<std::string> deliveries_;
};

TEST_F(ConfigurationMonitorTest, DeliversEachRecordOnItsOwnChangesAndRestarts) {
  Follow();
  SetIntensity(55);
  RuntimeState state;
  state.set_wan_interface("wan0");
  controller_->SetRuntimeState(state);
  ASSERT_TRUE(controller_->Start(nullptr));
  WaitForDeliveries(2);

  SetIntensity(60);
  WaitForDeliveries(3);
  controller_->SetRuntimeState(RuntimeState());  // zero bytes
  WaitForDeliveries(4);
  controller_->Stop();
  ASSERT_TRUE(controller_->Start(nullptr));
  WaitForDeliveries(6);

  EXPECT_THAT(deliveries_, ElementsAre("config 55", "state wan0", "config 60",
                                       "state ", "config 60", "state "));
  EXPECT_NE(monitor_->GetConfigurationProxy(), nullptr);
}

TEST_F(ConfigurationMonitorTest, KeepsRecordsForLateFollowersAndAfterLeaving) {
  controller_->SetConfiguration(DeviceConfiguration());  // zero bytes
  ASSERT_TRUE(controller_->Start(nullptr));
  RunUntil([&] { return monitor_->device_configuration() != nullptr; });
  controller_->Stop();
  RunUntil([&] { return monitor_->GetConfigurationProxy() == nullptr; });

  Follow();

  // Delivered at once, once each; the empty record reads as the schema's
  // defaults (intensity 30).
  EXPECT_THAT(deliveries_, ElementsAre("config 30", "state "));
  EXPECT_NE(monitor_->device_configuration(), nullptr);
}

}  // namespace
}  // namespace morvane::ap
