#include "common/upstart_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <mutex>

#include "tests/fixtures/bus_test.h"
#include "tests/fixtures/test_peer.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;

// Upstart as far as the client needs it. Jobs: "ok" has the instances a
// and b; "failing" is refused with an error; "stuck" has a and b too, and
// its a refuses to stop.
class UpstartPeer {
 public:
  explicit UpstartPeer(const DbusDaemonFixture& daemon)
      : peer_(daemon, UpstartClient::kServiceName, UpstartClient::kManagerPath,
              [this](sd_bus_message* m) { return Serve(m); }) {}

  std::vector<std::string> calls() {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }

 private:
  int Serve(sd_bus_message* m) {
    const std::string path = sd_bus_message_get_path(m);
    std::string call = path + " " + sd_bus_message_get_member(m);
    const char* text = nullptr;
    int wait = 0;
    if (sd_bus_message_read(m, "s", &text) > 0) call += std::string(" ") + text;
    if (sd_bus_message_enter_container(m, 'a', "s") > 0) {
      const char* env = nullptr;
      while (sd_bus_message_read(m, "s", &env) > 0) call += std::string(" ") + env;
      sd_bus_message_exit_container(m);
    }
    if (sd_bus_message_read(m, "b", &wait) > 0) call += wait ? " wait" : " nowait";
    std::unique_lock<std::mutex> lock(mutex_);
    calls_.push_back(call);
    lock.unlock();
    if (sd_bus_message_is_method_call(m, nullptr, "GetJobByName")) {
      if (std::string(text) == "failing") {
        return sd_bus_reply_method_errorf(m, "com.ubuntu.Upstart0_6.Error.UnknownJob",
                                          "Unknown job: %s", text);
      }
      return sd_bus_reply_method_return(
          m, "o", ("/com/ubuntu/Upstart/jobs/" + std::string(text)).c_str());
    }
    if (sd_bus_message_is_method_call(m, nullptr, "GetAllInstances")) {
      return sd_bus_reply_method_return(m, "ao", 2, (path + "/a").c_str(),
                                        (path + "/b").c_str());
    }
    if (path == "/com/ubuntu/Upstart/jobs/stuck/a") {
      return sd_bus_reply_method_errorf(m, "com.ubuntu.Upstart0_6.Error.Busy",
                                        "busy");
    }
    return sd_bus_reply_method_return(m, "");
  }

  std::mutex mutex_;
  std::vector<std::string> calls_;
  TestPeer peer_;
};

class UpstartClientTest : public BusTest {};

// A reply of the wrong shape and a time-out come from the object proxy,
// whose tests show them.
TEST_F(UpstartClientTest, SendsCommandsAsUpstartTakesThemAndPassesOnItsErrors) {
  UpstartPeer upstart(*daemon_);

  UpstartClient().EmitEvent("ap-wan-online", {}, false);
  UpstartClient client;
  client.EmitEvent("custom", {"A=1", "B=2"}, true);
  ErrorPtr error;
  EXPECT_TRUE(client.StartJob("ok", {"X=y"}, false, &error));
  EXPECT_TRUE(client.StopJob("ok", true, &error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(client.StartJob("failing", {}, false, &error));
  ErrorPtr stop_error;
  EXPECT_FALSE(client.StopJob("stuck", true, &stop_error));

  ASSERT_TRUE(error && stop_error);
  EXPECT_EQ(error->domain(), kDbusErrorDomain);
  EXPECT_EQ(error->code(), "com.ubuntu.Upstart0_6.Error.UnknownJob");
  EXPECT_EQ(error->message(), "Unknown job: failing");
  EXPECT_EQ(stop_error->code(), "com.ubuntu.Upstart0_6.Error.Busy");
  // The instance after the one that failed is stopped all the same.
  EXPECT_THAT(
      upstart.calls(),
      ElementsAre("/com/ubuntu/Upstart EmitEvent ap-wan-online nowait",
                  "/com/ubuntu/Upstart EmitEvent custom A=1 B=2 wait",
                  "/com/ubuntu/Upstart GetJobByName ok",
                  "/com/ubuntu/Upstart/jobs/ok Start X=y nowait",
                  "/com/ubuntu/Upstart GetJobByName ok",
                  "/com/ubuntu/Upstart/jobs/ok GetAllInstances",
                  "/com/ubuntu/Upstart/jobs/ok/a Stop wait",
                  "/com/ubuntu/Upstart/jobs/ok/b Stop wait",
                  "/com/ubuntu/Upstart GetJobByName failing",
                  "/com/ubuntu/Upstart GetJobByName stuck",
                  "/com/ubuntu/Upstart/jobs/stuck GetAllInstances",
                  "/com/ubuntu/Upstart/jobs/stuck/a Stop wait",
                  "/com/ubuntu/Upstart/jobs/stuck/b Stop wait"));
}

}  // namespace
}  // namespace morvane::ap
