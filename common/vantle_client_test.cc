#include "common/vantle_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/log_capture.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class VantleClientTest : public BusTest {
 protected:
  // The connection manager joins the bus, its state |state|.
  void StartPeer(const std::string& state) {
    peer_ = std::make_unique<TestPeer>(
        *daemon_, VantleClient::kServiceName, VantleClient::kManagerPath,
        [state](sd_bus_message* m) {
          if (!sd_bus_message_is_method_call(m, VantleClient::kManagerInterface,
                                             "GetProperties")) {
            return 0;
          }
          return sd_bus_reply_method_return(m, "a{sv}", 2, "Technology", "u",
                                            1, "ConnectionState", "s",
                                            state.c_str());
        },
        loop_.get());
  }

  template <typename... Args>
  void Signal(const char* types, Args... args) {
    sd_bus_emit_signal(peer_->bus(), VantleClient::kManagerPath,
                       VantleClient::kManagerInterface, "PropertyChanged",
                       types, args...);
  }

  std::unique_ptr<TestPeer> peer_;
  std::vector<std::string> states_;
};

TEST_F(VantleClientTest, FollowsTheStateAcrossSignalsAndRestarts) {
  LogCapture log;
  VantleClient client(bus_);
  client.RegisterConnectionStateCallback(
      [this](const std::string& state) { states_.push_back(state); });

  StartPeer("online");
  RunUntil([&] { return states_.size() >= 2; });
  Signal("sv", "Technology", "s", "wifi");
  Signal("sv", "ConnectionState", "u", 5);
  Signal("sv", "ConnectionState", "s", "");
  Signal("sv", "ConnectionState", "s", "ready");
  Signal("sv", "ConnectionState", "s", "ready");  // No change: not handed on.
  RunUntil([&] { return states_.size() >= 3; });
  peer_.reset();
  RunUntil([&] { return states_.size() >= 4; });
  StartPeer("online");
  RunUntil([&] { return states_.size() >= 5; });

  EXPECT_THAT(states_,
              ElementsAre("offline", "online", "ready", "offline", "online"));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre(HasSubstr("Failed to read ConnectionState: Method "
                                    "parameter type mismatch"),
                          "Failed to read ConnectionState: empty, ignoring it"));
  std::string late;
  client.RegisterConnectionStateCallback(
      [&](const std::string& state) { late = state; });
  EXPECT_EQ(late, "online");
}

}  // namespace
}  // namespace morvane::ap
