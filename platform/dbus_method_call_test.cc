#include "platform/dbus_method_call.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <thread>

#include "platform/bus.h"
#include "platform/event_loop.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

constexpr char kPeerName[] = "org.tessaly.Test.Peer";
constexpr char kPeerPath[] = "/org/tessaly/Test/Peer";
constexpr char kPeerInterface[] = "org.tessaly.Test.Peer";
constexpr char kBoom[] = "org.tessaly.Test.Error.Boom";
constexpr uint64_t kShortTimeoutUs = 300'000;

// A peer on its own connection and thread, since the calls under test block
// the caller's thread. Echo(u) -> u; Extra() -> u, u; Fail() -> an error
// reply; Hang() is received and never answered.
class TestPeer {
 public:
  explicit TestPeer(const DbusDaemonFixture& daemon) : bus_(daemon.Connect()) {
    if (!bus_ || sd_bus_request_name(bus_, kPeerName, 0) < 0 ||
        sd_bus_add_object(bus_, nullptr, kPeerPath, &TestPeer::OnCall, this) <
            0) {
      ADD_FAILURE() << "Failed to set up the test peer";
      return;
    }
    thread_ = std::thread([this] {
      while (!stop_) {
        if (sd_bus_process(bus_, nullptr) > 0) continue;
        // The bound only lets the destructor's stop request through.
        sd_bus_wait(bus_, 50'000);
      }
    });
  }
  ~TestPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    sd_bus_flush_close_unref(bus_);
  }

  bool hang_received() const { return hang_received_; }

 private:
  static int OnCall(sd_bus_message* m, void* userdata, sd_bus_error*) {
    auto* self = static_cast<TestPeer*>(userdata);
    const std::string member = sd_bus_message_get_member(m);
    if (member == "Echo") {
      uint32_t value = 0;
      sd_bus_message_read(m, "u", &value);
      return sd_bus_reply_method_return(m, "u", value);
    }
    if (member == "Extra") return sd_bus_reply_method_return(m, "uu", 1, 2);
    if (member == "Fail") {
      return sd_bus_reply_method_errorf(m, kBoom, "it broke at %d", 3);
    }
    if (member == "Hang") {
      self->hang_received_ = true;
      return 1;
    }
    return 0;
  }

  sd_bus* const bus_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> hang_received_{false};
  std::thread thread_;
};

class MethodCallTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    peer_ = std::make_unique<TestPeer>(*daemon_);
  }

  void TearDown() override { peer_.reset(); }

  template <typename... Args>
  std::unique_ptr<Message> Call(const char* method, ErrorPtr* error,
                                const Args&... args) {
    return CallMethodAndBlock(bus_.get(), kPeerName, kPeerPath, kPeerInterface,
                              method, error, args...);
  }

  std::unique_ptr<TestPeer> peer_;
};


TEST_F(MethodCallTest, ReturnsTheReplyValues) {
  ErrorPtr error;
  std::unique_ptr<Message> reply = Call("Echo", &error, uint32_t{42});
  ASSERT_TRUE(reply) << error->message();

  uint32_t value = 0;
  EXPECT_TRUE(ExtractMethodCallResults(reply.get(), &error, &value));
  EXPECT_EQ(value, 42u);
}

TEST_F(MethodCallTest, ErrorReplyBecomesADbusError) {
  ErrorPtr error;

  EXPECT_FALSE(Call("Fail", &error));

  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kDbusErrorDomain);
  EXPECT_EQ(error->code(), kBoom);
  EXPECT_EQ(error->message(), "it broke at 3");
}

TEST_F(MethodCallTest, ReplyWithOtherValuesThanExpectedFailsToExtract) {
  ErrorPtr call_error;
  std::unique_ptr<Message> reply = Call("Extra", &call_error);
  ASSERT_TRUE(reply);
  uint32_t a = 0, b = 0, c = 0;

  ErrorPtr too_many;
  EXPECT_FALSE(ExtractMethodCallResults(reply.get(), &too_many, &a));
  ErrorPtr too_few;
  EXPECT_FALSE(ExtractMethodCallResults(reply.get(), &too_few, &a, &b, &c));
  ErrorPtr exact;
  EXPECT_TRUE(ExtractMethodCallResults(reply.get(), &exact, &a, &b));

  ASSERT_TRUE(too_many);
  EXPECT_EQ(too_many->code(), "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(too_many->message(), "Too many parameters in a method call");
  ASSERT_TRUE(too_few);
  EXPECT_EQ(too_few->message(), "Too few parameters in a method call");
  EXPECT_EQ(a, 1u);
  EXPECT_EQ(b, 2u);
}

TEST_F(MethodCallTest, ErrorMessageIsExtractedAsADbusError) {
  std::unique_ptr<Message> call = Message::NewMethodCall(
      bus_.get(), kPeerName, kPeerPath, kPeerInterface, "Fail", nullptr);
  ASSERT_GE(sd_bus_message_seal(call->raw(), 1, 0), 0);
  sd_bus_message* raw_error = nullptr;
  ASSERT_GE(
      sd_bus_message_new_method_errorf(call->raw(), &raw_error, kBoom, "bad"),
      0);
  std::unique_ptr<Message> reply = Message::Adopt(raw_error);
  uint32_t value = 0;
  ErrorPtr error;

  EXPECT_FALSE(ExtractMethodCallResults(reply.get(), &error, &value));

  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kDbusErrorDomain);
  EXPECT_EQ(error->code(), kBoom);
  EXPECT_EQ(error->message(), "bad");
}

TEST_F(MethodCallTest, HungPeerEndsTheCallWithATimeOutError) {
  ErrorPtr explicit_error;
  EXPECT_FALSE(CallMethodAndBlockWithTimeout(
      kShortTimeoutUs, bus_.get(), kPeerName, kPeerPath, kPeerInterface, "Hang",
      &explicit_error));

  // The default leaves the time-out to the connection, 25 s unless changed;
  // shortened here so the test does not wait for it.
  uint64_t library_default_us = 0;
  ASSERT_GE(sd_bus_get_method_call_timeout(bus_->raw(), &library_default_us),
            0);
  EXPECT_EQ(library_default_us, 25'000'000u);
  ASSERT_GE(sd_bus_set_method_call_timeout(bus_->raw(), kShortTimeoutUs), 0);
  ErrorPtr default_error;
  EXPECT_FALSE(Call("Hang", &default_error));

  EXPECT_TRUE(peer_->hang_received());
  for (const ErrorPtr* error : {&explicit_error, &default_error}) {
    ASSERT_TRUE(*error);
    EXPECT_EQ((*error)->domain(), kDbusErrorDomain);
    EXPECT_EQ((*error)->code(), "org.freedesktop.DBus.Error.Timeout");
    EXPECT_EQ((*error)->message(), "Connection timed out");
  }
}

TEST(MethodCallDeathTest, NullReplyIsFatal) {
  uint32_t value = 0;
  EXPECT_DEATH(ExtractMethodCallResults(nullptr, nullptr, &value),
               "Unable to extract parameters from a NULL message\\.");
}

}  // namespace
}  // namespace morvane::ap
