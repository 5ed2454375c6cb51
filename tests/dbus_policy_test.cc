// The daemon's system-bus policy, as a real dbus-daemon applies it: who may
// own the name, who may call the Manager methods.

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.ap.AudioVisual";
constexpr char kPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
// Accounts every Debian system has stand in for the policy's: the
// daemon's user avd is played by "daemon", the daemons' group ap by "bin",
// a daemon of that group by the user "bin", a stranger by "nobody". The
// bus must know the accounts (it refuses clients it cannot name) and takes
// group membership from the account database, not from the process.
constexpr char kDaemonUser[] = "daemon";
constexpr char kDaemonsGroup[] = "bin";
constexpr char kMemberUser[] = "bin";
constexpr char kStrangerUser[] = "nobody";

// The default policy of Debian's system bus (nothing allowed that is not
// granted), then the policy file under test, its user and group names
// replaced by the test's accounts; empty without the system bus's file.
std::string Policies() {
  const std::string system = ReadFile("/usr/share/dbus-1/system.conf");
  const size_t start = system.find("<policy context=\"default\">");
  const size_t end = system.find("</policy>", start);
  if (end == std::string::npos) return "";
  std::string body = ReadFile(AVD_POLICY_FILE);
  body = body.substr(body.find("<busconfig>") + strlen("<busconfig>"));
  body = body.substr(0, body.rfind("</busconfig>"));
  body = std::regex_replace(body, std::regex("user=\"avd\""),
                            std::string("user=\"") + kDaemonUser + "\"");
  body = std::regex_replace(body, std::regex("group=\"ap\""),
                            std::string("group=\"") + kDaemonsGroup + "\"");
  return system.substr(start, end - start) + "</policy>\n" + body;
}

class DbusPolicyTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "acting as other users needs root";
    }
    for (const char* user : {kDaemonUser, kMemberUser, kStrangerUser}) {
      ASSERT_TRUE(getpwnam(user)) << "no account " << user;
    }
    ASSERT_TRUE(getgrnam(kDaemonsGroup));
    const std::string policies = Policies();
    ASSERT_FALSE(policies.empty()) << "no /usr/share/dbus-1/system.conf";
    std::string error;
    ASSERT_TRUE(bus_.Start(&error, policies)) << error;
  }

  void TearDown() override {
    if (owner_ > 0) {
      kill(owner_, SIGKILL);
      waitpid(owner_, nullptr, 0);
    }
  }

  // Forks a child that joins the bus as |user| and exits with what |body|
  // returns; with 100 when it cannot take the identity or join, or after
  // 10 s.
  pid_t Fork(const char* user, const std::function<int(sd_bus*)>& body) {
    const passwd* account = getpwnam(user);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    alarm(10);
    sd_bus* bus = nullptr;
    if (setgroups(0, nullptr) != 0 || setgid(account->pw_gid) != 0 ||
        setuid(account->pw_uid) != 0 || !(bus = bus_.Connect())) {
      _exit(100);
    }
    _exit(body(bus));
  }
  int Run(const char* user, const std::function<int(sd_bus*)>& body) {
    int status = 0;
    waitpid(Fork(user, body), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
  }

  // The daemon's stand-in, as the daemon's user: owns the name and answers
  // every call on the Manager's path. Returns once it is on the bus (it
  // stops itself there until continued); fails when the name is not granted.
  void StartOwner() {
    owner_ = Fork(kDaemonUser, [&](sd_bus* bus) {
      auto reply = [](sd_bus_message* m, void*, sd_bus_error*) {
        return sd_bus_reply_method_return(m, "");
      };
      if (sd_bus_add_object(bus, nullptr, kPath, reply, nullptr) < 0 ||
          sd_bus_request_name(bus, kService, 0) < 0) {
        return 2;
      }
      alarm(0);
      raise(SIGSTOP);
      while (sd_bus_process(bus, nullptr) >= 0) sd_bus_wait(bus, UINT64_MAX);
      return 2;
    });
    int status = 0;
    ASSERT_EQ(waitpid(owner_, &status, WUNTRACED), owner_);
    if (!WIFSTOPPED(status)) owner_ = -1;  // reaped: nothing to stop
    ASSERT_GT(owner_, 0) << "the owner did not start";
    kill(owner_, SIGCONT);
  }

  // 0 for success, 1 for access denied, 2 for anything else.
  static int Outcome(int r, bool denied) { return r >= 0 ? 0 : denied ? 1 : 2; }

  // What calling |member| of |interface| on the Manager's path gives as
  // |user|. The owner answers any call, whatever its arguments.
  int CallAs(const char* user, const char* interface, const char* member) {
    return Run(user, [=](sd_bus* bus) {
      sd_bus_error error = SD_BUS_ERROR_NULL;
      const int r = sd_bus_call_method(bus, kService, kPath, interface, member,
                                       &error, nullptr, "s", "x");
      return Outcome(r, sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED));
    });
  }

  DbusDaemonFixture bus_;
  pid_t owner_ = -1;
};

// Only the daemon's user owns the name; only root and the daemons' group
// call the Manager; anyone reads its properties and nobody else sets them.
TEST_F(DbusPolicyTest, OwnershipCallsAndPropertiesAreGrantedAsShipped) {
  EXPECT_EQ(Run(kStrangerUser, [](sd_bus* bus) {
              const int r = sd_bus_request_name(bus, kService, 0);
              return Outcome(r, r == -EACCES);
            }), 1);
  // As the daemon's user.
  StartOwner();
  EXPECT_EQ(CallAs("root", kInterface, "SetLedState"), 0);
  EXPECT_EQ(CallAs(kMemberUser, kInterface, "SetLedState"), 0);
  EXPECT_EQ(CallAs(kStrangerUser, kInterface, "SetLedState"), 1);
  EXPECT_EQ(CallAs(kStrangerUser, kProperties, "GetAll"), 0);
  EXPECT_EQ(CallAs(kStrangerUser, kProperties, "Set"), 1);
}

}  // namespace
}  // namespace morvane::ap
