#include "common/upstart_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
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
    const std::string member = sd_bus_message_get_member(m);
    std::string call = sd_bus_message_get_path(m) + (" " + member);
    const char* text = nullptr;
    if (member == "EmitEvent" || member == "GetJobByName") {
      sd_bus_message_read(m, "s", &text);
      call += std::string(" ") + text;
    }
    if (member == "EmitEvent" || member == "Start") {
      char** env = nullptr;
      sd_bus_message_read_strv(m, &env);
      for (char** e = env; e && *e; ++e) call += std::string(" ") + *e;
      for (char** e = env; e && *e; ++e) free(*e);
      free(env);
    }
    int wait = 0;
    if (sd_bus_message_read(m, "b", &wait) > 0) call += wait ? " wait" : " nowait";
    {
      std::lock_guard<std::mutex> lock(mutex_);
      calls_.push_back(call);
    }
    if (member == "GetJobByName") {
      const std::string job = text;
      const std::string path = "/com/ubuntu/Upstart/jobs/" + job;
      if (job == "failing") {
        return sd_bus_reply_method_errorf(m, "com.ubuntu.Upstart0_6.Error.UnknownJob",
                                          "Unknown job: %s", text);
      }
      return sd_bus_reply_method_return(m, "o", path.c_str());
    }
    const std::string job = sd_bus_message_get_path(m);
    if (member == "GetAllInstances") {
      return sd_bus_reply_method_return(m, "ao", 2, (job + "/a").c_str(),
                                        (job + "/b").c_str());
    }
    if (job == "/com/ubuntu/Upstart/jobs/stuck/a") {
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

TEST_F(UpstartClientTest, SendsEventsAndJobCommandsAsUpstartTakesThem) {
  UpstartPeer upstart(*daemon_);

  UpstartClient().EmitEvent("ap-wan-online", {}, false);
  UpstartClient client;
  client.EmitEvent("custom", {"A=1", "B=2"}, true);
  ErrorPtr error;
  EXPECT_TRUE(client.StartJob("ok", {"X=y"}, false, &error));
  EXPECT_TRUE(client.StopJob("ok", true, &error));
  EXPECT_FALSE(error);

  EXPECT_THAT(
      upstart.calls(),
      ElementsAre("/com/ubuntu/Upstart EmitEvent ap-wan-online nowait",
                  "/com/ubuntu/Upstart EmitEvent custom A=1 B=2 wait",
                  "/com/ubuntu/Upstart GetJobByName ok",
                  "/com/ubuntu/Upstart/jobs/ok Start X=y nowait",
                  "/com/ubuntu/Upstart GetJobByName ok",
                  "/com/ubuntu/Upstart/jobs/ok GetAllInstances",
                  "/com/ubuntu/Upstart/jobs/ok/a Stop wait",
                  "/com/ubuntu/Upstart/jobs/ok/b Stop wait"));
}

// A reply of the wrong shape and a time-out come from the object proxy,
// whose tests show them.
TEST_F(UpstartClientTest, FailureOfUpstartReachesTheCallerAsItsDbusError) {
  UpstartPeer upstart(*daemon_);
  ErrorPtr error;

  ErrorPtr stop_error;

  EXPECT_FALSE(UpstartClient().StartJob("failing", {}, false, &error));
  const size_t started = upstart.calls().size();
  EXPECT_FALSE(UpstartClient().StopJob("stuck", true, &stop_error));

  ASSERT_TRUE(error && stop_error);
  EXPECT_EQ(error->domain(), kDbusErrorDomain);
  EXPECT_EQ(error->code(), "com.ubuntu.Upstart0_6.Error.UnknownJob");
  EXPECT_EQ(error->message(), "Unknown job: failing");
  EXPECT_EQ(stop_error->code(), "com.ubuntu.Upstart0_6.Error.Busy");
  EXPECT_EQ(started, 1u);
  // The instance after the one that failed is stopped all the same.
  EXPECT_EQ(upstart.calls().back(),
            "/com/ubuntu/Upstart/jobs/stuck/b Stop wait");
}

}  // namespace
}  // namespace morvane::ap
