#include "common/configuration_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "peers/controller_peer.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;

class ConfigurationMonitorTest : public BusTest {};

TEST_F(ConfigurationMonitorTest, DeliversRecordsOnChangesAndRestartsAndToLateFollowers) {
  ControllerPeer controller(loop_->event(), daemon_->address(),
                            [](const std::string&) {});
  ConfigurationMonitor monitor(bus_);
  controller.SetConfiguration(DeviceConfiguration());  // zero bytes
  RuntimeState state;
  state.set_wan_interface("wan0");
  controller.SetRuntimeState(state);
  ASSERT_TRUE(controller.Start(nullptr));
  RunUntil([&] { return monitor.device_configuration() != nullptr; });
  EXPECT_NE(monitor.GetConfigurationProxy(), nullptr);

  // Each delivery as "config <intensity>" or "state <interface>". Kept
  // records reach a follower that comes late at once, once each; the empty
  // record reads as the schema's defaults (intensity 30).
  std::vector<std::string> deliveries;
  const auto follow = [&] {
    monitor.SetDeviceConfigurationChangedCallback(
        [&](const DeviceConfiguration& config) {
          deliveries.push_back("config " + std::to_string(config.light_intensity()));
        });
    monitor.SetRuntimeStateChangedCallback([&](const RuntimeState& state) {
      deliveries.push_back("state " + state.wan_interface());
    });
  };
  follow();
  DeviceConfiguration config;
  config.set_light_intensity(55);
  controller.SetConfiguration(config);
  controller.SetRuntimeState(RuntimeState());  // zero bytes
  RunUntil([&] { return deliveries.size() >= 4; });
  controller.Stop();
  ASSERT_TRUE(controller.Start(nullptr));
  RunUntil([&] { return deliveries.size() >= 6; });
  // And kept after the controller left.
  controller.Stop();
  RunUntil([&] { return monitor.GetConfigurationProxy() == nullptr; });
  follow();

  EXPECT_THAT(deliveries,
              ElementsAre("config 30", "state wan0", "config 55", "state ",
                          "config 55", "state ", "config 55", "state "));
}

}  // namespace
}  // namespace morvane::ap
