#include "platform/service_daemon.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <optional>
#include <string>

#include "platform/async_event_sequencer.h"
#include "platform/object_proxy.h"
#include "platform/task_loop.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

constexpr char kServiceName[] = "org.tessaly.Test.Daemon";
constexpr char kRootPath[] = "/org/tessaly/Test";
constexpr int64_t kRegistrationDelayUs = 20'000;
constexpr int64_t kGiveUpUs = 10'000'000;

// Completes its one registration a little later on the loop, and watches
// when the service name gets an owner; then raises SIGTERM.
class TestDaemon : public ServiceDaemon {
 public:
  TestDaemon() : ServiceDaemon(kServiceName, kRootPath) {}

  int register_calls = 0;
  std::optional<bool> owned_before_completion;
  std::optional<bool> completed_when_owned;

 protected:
  void RegisterServiceObjects(AsyncEventSequencer* sequencer) override {
    ++register_calls;
    EXPECT_TRUE(bus() && object_manager() && loop());
    bus_daemon_ = std::make_unique<ObjectProxy>(
        bus(), "org.freedesktop.DBus", ObjectPath{"/org/freedesktop/DBus"});
    service_ = std::make_unique<ObjectProxy>(bus(), kServiceName,
                                             ObjectPath{kRootPath});
    service_->SetNameOwnerChangedCallback(
        [this](const std::string&, const std::string& new_owner) {
          if (new_owner.empty()) return;
          completed_when_owned = completed_;
          loop()->PostTask([] { raise(SIGTERM); });
        });
    auto handler = sequencer->GetHandler("Test.RegisterAsync() failed.", true);
    loop()->PostDelayedTask(
        [this, handler] {
          owned_before_completion = NameHasOwner();
          completed_ = true;
          handler(true);
        },
        kRegistrationDelayUs);
    // Should the name never get an owner, completed_when_owned stays unset.
    loop()->PostDelayedTask([] { raise(SIGTERM); }, kGiveUpUs);
  }

 private:
  bool NameHasOwner() {
    bool has_owner = false;
    std::unique_ptr<Message> reply = bus_daemon_->CallMethodAndBlock(
        "org.freedesktop.DBus", "NameHasOwner",
        ObjectProxy::kTimeoutUseDefault, nullptr, std::string(kServiceName));
    EXPECT_TRUE(reply &&
                ExtractMethodCallResults(reply.get(), nullptr, &has_owner));
    return has_owner;
  }

  std::unique_ptr<ObjectProxy> bus_daemon_;
  std::unique_ptr<ObjectProxy> service_;
  bool completed_ = false;
};

TEST(ServiceDaemonTest, ClaimsTheNameAfterRegistrationAndEndsOnSigterm) {
  DbusDaemonFixture bus_daemon;
  std::string error;
  ASSERT_TRUE(bus_daemon.Start(&error)) << error;
  bus_daemon.ExportAsSystemBus();
  TestDaemon daemon;

  const int exit_code = daemon.Run();

  EXPECT_EQ(exit_code, 0);
  EXPECT_EQ(daemon.register_calls, 1);
  EXPECT_EQ(daemon.owned_before_completion, std::optional<bool>(false));
  EXPECT_EQ(daemon.completed_when_owned, std::optional<bool>(true));
}

}  // namespace
}  // namespace morvane::ap
