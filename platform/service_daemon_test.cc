#include "platform/service_daemon.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/async_event_sequencer.h"
#include "platform/event_loop.h"
#include "platform/task_loop.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

constexpr char kServiceName[] = "org.tessaly.Test.Daemon";
constexpr char kRootPath[] = "/org/tessaly/Test";
constexpr int64_t kRegistrationDelayUs = 20'000;
constexpr int64_t kGiveUpUs = 10'000'000;

// Completes its one registration a little later on the loop, and watches
// from a peer connection when the service name gets an owner; then raises
// SIGTERM.
class TestDaemon : public ServiceDaemon {
 public:
  explicit TestDaemon(const DbusDaemonFixture* bus_daemon)
      : ServiceDaemon(kServiceName, kRootPath), bus_daemon_(bus_daemon) {}
  ~TestDaemon() override { sd_bus_flush_close_unref(peer_); }

  int register_calls = 0;
  std::optional<bool> owned_before_completion;
  std::optional<bool> completed_when_owned;
  bool gave_up = false;

 protected:
  void RegisterServiceObjects(AsyncEventSequencer* sequencer) override {
    ++register_calls;
    EXPECT_TRUE(bus() && object_manager() && loop());
    peer_ = bus_daemon_->Connect();
    ASSERT_TRUE(peer_);
    ASSERT_GE(sd_bus_attach_event(peer_, event_loop()->event(), 0), 0);
    ASSERT_GE(sd_bus_match_signal(peer_, nullptr, "org.freedesktop.DBus",
                                  "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "NameOwnerChanged",
                                  &TestDaemon::OnNameOwnerChanged, this),
              0);
    auto handler = sequencer->GetHandler("Test.RegisterAsync() failed.", true);
    loop()->PostDelayedTask(
        [this, handler] {
          owned_before_completion = NameHasOwner();
          completed_ = true;
          handler(true);
        },
        kRegistrationDelayUs);
    loop()->PostDelayedTask(
        [this] {
          gave_up = true;
          raise(SIGTERM);
        },
        kGiveUpUs);
  }

 private:
  bool NameHasOwner() {
    sd_bus_message* reply = nullptr;
    int has_owner = 0;
    EXPECT_GE(
        sd_bus_call_method(peer_, "org.freedesktop.DBus",
                           "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "NameHasOwner", nullptr, &reply, "s", kServiceName),
        0);
    if (reply) sd_bus_message_read(reply, "b", &has_owner);
    sd_bus_message_unref(reply);
    return has_owner;
  }

  static int OnNameOwnerChanged(sd_bus_message* m, void* userdata,
                                sd_bus_error*) {
    auto* self = static_cast<TestDaemon*>(userdata);
    const char* name = nullptr;
    const char* old_owner = nullptr;
    const char* new_owner = nullptr;
    if (sd_bus_message_read(m, "sss", &name, &old_owner, &new_owner) < 0 ||
        std::string(name) != kServiceName || !*new_owner) {
      return 0;
    }
    self->completed_when_owned = self->completed_;
    self->loop()->PostTask([] { raise(SIGTERM); });
    return 0;
  }

  const DbusDaemonFixture* const bus_daemon_;
  sd_bus* peer_ = nullptr;
  bool completed_ = false;
};

TEST(ServiceDaemonTest, ClaimsTheNameAfterRegistrationAndEndsOnSigterm) {
  DbusDaemonFixture bus_daemon;
  std::string error;
  ASSERT_TRUE(bus_daemon.Start(&error)) << error;
  bus_daemon.ExportAsSystemBus();
  TestDaemon daemon(&bus_daemon);

  const int exit_code = daemon.Run();

  EXPECT_EQ(exit_code, 0);
  EXPECT_FALSE(daemon.gave_up);
  EXPECT_EQ(daemon.register_calls, 1);
  EXPECT_EQ(daemon.owned_before_completion, std::optional<bool>(false));
  EXPECT_EQ(daemon.completed_when_owned, std::optional<bool>(true));
}

TEST(ServiceDaemonTest, RunFailsWithoutABus) {
  const char* old = getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::optional<std::string> saved =
      old ? std::optional<std::string>(old) : std::nullopt;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/avd-test-socket",
         1);
  TestDaemon daemon(nullptr);

  const int exit_code = daemon.Run();

  EXPECT_NE(exit_code, 0);
  EXPECT_EQ(daemon.register_calls, 0);
  if (saved) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", saved->c_str(), 1);
  } else {
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  }
}

}  // namespace
}  // namespace morvane::ap
