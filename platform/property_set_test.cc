#include "platform/property_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "platform/object_proxy.h"
#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/log_capture.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kName[] = "org.tessaly.Test.Props";
constexpr char kPath[] = "/org/tessaly/Test/Props";
constexpr char kInterface[] = "org.tessaly.Test.Props";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";

class PropertySetTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    proxy_ = std::make_unique<ObjectProxy>(bus_, kName, ObjectPath{kPath});
    set_ = std::make_unique<PropertySet>(
        proxy_.get(), kInterface,
        [this](const std::string& name) { arrived_.push_back(name); });
    set_->RegisterProperty("Flag", &flag_);
    set_->RegisterProperty("Text", &text_);
    set_->ConnectSignals();
  }

  // Joins the bus as the peer; GetAll is answered by |reply_to_get_all|,
  // Get of "Text" with "got". Each call's method is kept in calls_.
  void StartPeer(std::function<int(sd_bus_message*)> reply_to_get_all) {
    peer_ = std::make_unique<TestPeer>(
        *daemon_, kName, kPath,
        [this, reply_to_get_all](sd_bus_message* call) {
          calls_.push_back(sd_bus_message_get_member(call));
          if (sd_bus_message_is_method_call(call, kProperties, "GetAll")) {
            return reply_to_get_all(call);
          }
          return sd_bus_reply_method_return(call, "v", "s", "got");
        },
        loop_.get());
  }

  // Waits until |count| values have arrived in all.
  void WaitForArrivals(size_t count) {
    RunUntil([&] { return arrived_.size() >= count; });
  }

  std::unique_ptr<ObjectProxy> proxy_;
  Property<bool> flag_;
  Property<std::string> text_;
  std::unique_ptr<PropertySet> set_;
  std::unique_ptr<TestPeer> peer_;
  std::vector<std::string> arrived_;
  std::vector<std::string> calls_;
};

TEST_F(PropertySetTest, ReadsWhenTheServiceComesOrInvalidatesKeepingMistypedValues) {
  LogCapture log;
  set_->GetAll();  // The service is absent: nothing arrives.
  StartPeer([](sd_bus_message* m) {
    return sd_bus_reply_method_return(m, "a{sv}", 3, "Flag", "b", 1, "Other",
                                      "u", 5, "Text", "u", 7);
  });
  WaitForArrivals(1);
  EXPECT_TRUE(flag_.is_valid() && flag_.value());
  EXPECT_FALSE(text_.is_valid());

  sd_bus_emit_signal(peer_->bus(), kPath, kProperties, "PropertiesChanged",
                     "sa{sv}as", "org.tessaly.Test.Elsewhere", 1, "Flag", "b",
                     0, 0);
  sd_bus_emit_signal(peer_->bus(), kPath, kProperties, "PropertiesChanged",
                     "sa{sv}as", kInterface, 2, "Text", "s", "hello", "Flag",
                     "s", "no", 0);
  WaitForArrivals(2);
  EXPECT_TRUE(flag_.value());
  EXPECT_EQ(text_.value(), "hello");

  peer_.reset();
  StartPeer([](sd_bus_message* m) {
    return sd_bus_reply_method_return(m, "a{sv}", 1, "Text", "s", "second");
  });
  WaitForArrivals(3);
  EXPECT_EQ(text_.value(), "second");
  sd_bus_emit_signal(peer_->bus(), kPath, kProperties, "PropertiesChanged",
                     "sa{sv}as", kInterface, 0, 2, "Text", "Unknown");
  WaitForArrivals(4);

  EXPECT_THAT(arrived_, ElementsAre("Flag", "Text", "Text", "Text"));
  EXPECT_EQ(text_.value(), "got");
  EXPECT_THAT(calls_, ElementsAre("GetAll", "GetAll", "Get"));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre(HasSubstr("org.tessaly.Test.Props.Text"),
                          HasSubstr("org.tessaly.Test.Props.Flag: Method "
                                    "parameter type mismatch, keeping")));
}

}  // namespace
}  // namespace morvane::ap
