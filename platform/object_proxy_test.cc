#include "platform/object_proxy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <optional>

#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;

constexpr char kPeerName[] = "org.tessaly.Test.Peer";
constexpr char kPeerPath[] = "/org/tessaly/Test/Peer";
constexpr char kPeerInterface[] = "org.tessaly.Test.Peer";
constexpr char kBoom[] = "org.tessaly.Test.Error.Boom";
constexpr int kShortTimeoutMs = 300;

// Echo(u) -> u; Fail() -> an error reply; Hang() is received and never
// answered.
int Serve(sd_bus_message* m, std::atomic<bool>* hang_received) {
  const std::string member = sd_bus_message_get_member(m);
  if (member == "Echo") {
    uint32_t value = 0;
    sd_bus_message_read(m, "u", &value);
    return sd_bus_reply_method_return(m, "u", value);
  }
  if (member == "Fail") {
    return sd_bus_reply_method_errorf(m, kBoom, "it broke at %d", 3);
  }
  if (member == "Hang") {
    *hang_received = true;
    return 1;
  }
  return 0;
}

class ObjectProxyTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    proxy_ = std::make_unique<ObjectProxy>(bus_, kPeerName,
                                           ObjectPath{kPeerPath});
  }

  // The peer, served by |loop| for calls that do not block, else by a
  // thread of its own.
  void StartPeer(EventLoop* loop) {
    peer_ = std::make_unique<TestPeer>(
        *daemon_, kPeerName, kPeerPath,
        [this](sd_bus_message* m) { return Serve(m, &hang_received_); }, loop);
  }

  std::unique_ptr<ObjectProxy> proxy_;
  std::atomic<bool> hang_received_{false};
  std::unique_ptr<TestPeer> peer_;
};

// The peer runs on a thread of its own, so that blocking calls get an answer.
TEST_F(ObjectProxyTest, CallsGetTheReplyOrTheErrorAsyncOnesLaterOnTheLoop) {
  StartPeer(nullptr);
  ErrorPtr error;
  ErrorPtr timeout;
  std::vector<std::string> outcomes;
  // Calls |member| with |value|; records the value of the reply, or the
  // name of the error.
  auto call = [&](ObjectProxy& proxy, const char* member, uint32_t value) {
    return proxy.CallMethod(
        kPeerInterface, member,
        [&outcomes](Message* reply) {
          uint32_t echoed = 0;
          ExtractMethodCallResults(reply, nullptr, &echoed);
          outcomes.push_back(std::to_string(echoed));
        },
        [&outcomes](const Error* error) { outcomes.push_back(error->code()); },
        value);
  };
  ObjectProxy absent(bus_, "org.tessaly.Test.Absent", ObjectPath{kPeerPath});

  std::unique_ptr<Message> reply = proxy_->CallMethodAndBlock(
      kPeerInterface, "Echo", ObjectProxy::kTimeoutUseDefault, &error,
      uint32_t{42});
  std::unique_ptr<Message> failed = proxy_->CallMethodAndBlock(
      kPeerInterface, "Fail", ObjectProxy::kTimeoutUseDefault, &error);
  std::unique_ptr<Message> hung = proxy_->CallMethodAndBlock(
      kPeerInterface, "Hang", kShortTimeoutMs, &timeout);
  BusSlot echo = call(*proxy_, "Echo", 7);
  BusSlot fail = call(*proxy_, "Fail", 1);
  BusSlot nobody = call(absent, "Echo", 1);
  BusSlot dropped = call(*proxy_, "Echo", 2);
  dropped.reset();
  EXPECT_TRUE(outcomes.empty()) << "a callback ran inside CallMethod";
  RunUntil([&] { return outcomes.size() >= 3; });
  // One more round trip, so a reply to the dropped call would have come.
  BusSlot last = call(*proxy_, "Echo", 3);
  RunUntil([&] { return outcomes.size() >= 4; });

  ASSERT_TRUE(reply);
  uint32_t value = 0;
  EXPECT_TRUE(ExtractMethodCallResults(reply.get(), nullptr, &value));
  EXPECT_EQ(value, 42u);
  EXPECT_FALSE(failed);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kDbusErrorDomain);
  EXPECT_EQ(error->code(), kBoom);
  EXPECT_EQ(error->message(), "it broke at 3");
  EXPECT_FALSE(hung);
  EXPECT_TRUE(hang_received_);
  ASSERT_TRUE(timeout);
  EXPECT_EQ(timeout->code(), "org.freedesktop.DBus.Error.Timeout");
  EXPECT_THAT(outcomes, testing::UnorderedElementsAre(
                            "7", kBoom,
                            "org.freedesktop.DBus.Error.ServiceUnknown", "3"));
}

TEST_F(ObjectProxyTest, FollowsTheSignalsAndTheOwnerOfTheService) {
  std::vector<std::string> events;
  proxy_->SetNameOwnerChangedCallback(
      [&](const std::string& old_owner, const std::string& new_owner) {
        events.push_back(std::string("owner ") + (old_owner.empty() ? "-" : "a") +
                         (new_owner.empty() ? "-" : "b"));
      });
  BusSlot signal = proxy_->ConnectToSignal(
      kPeerInterface, "Changed", [&](Message* m) {
        std::string text;
        MessageReader(m).Read(&text, nullptr);
        events.push_back("signal " + text);
      });
  ASSERT_TRUE(signal);
  // Another connection sending the same signal is not the service.
  sd_bus* stranger = daemon_->Connect();
  ASSERT_TRUE(stranger);

  StartPeer(loop_.get());
  RunUntil([&] { return events.size() == 1; });
  sd_bus_emit_signal(stranger, kPeerPath, kPeerInterface, "Changed", "s", "x");
  // Sent now: the stranger is on no loop that would write it out later.
  ASSERT_GE(sd_bus_flush(stranger), 0);
  sd_bus_emit_signal(peer_->bus(), kPeerPath, kPeerInterface, "Changed", "s",
                     "one");
  RunUntil([&] { return events.size() == 2; });
  signal.reset();
  sd_bus_emit_signal(peer_->bus(), kPeerPath, kPeerInterface, "Changed", "s",
                     "dropped");
  peer_.reset();
  RunUntil([&] { return events.size() == 3; });
  sd_bus_flush_close_unref(stranger);

  EXPECT_THAT(events, ElementsAre("owner -b", "signal one", "owner a-"));
}

}  // namespace
}  // namespace morvane::ap
