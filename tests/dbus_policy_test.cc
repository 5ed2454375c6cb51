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
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "sim/peer_bus.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.ap.AudioVisual";
constexpr char kPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kInterface[] = "org.tessaly.ap.AudioVisual.Manager";
// Accounts every Debian system has stand in for the policy's: the
// daemon's user avd is played by "daemon", the daemons' group ap by "bin",
// a daemon of that group by the user "bin", a stranger by "nobody". The
// bus must know the accounts (it refuses clients it cannot name) and takes
// group membership from the account database, not from the process.
constexpr char kDaemonUser[] = "daemon";
constexpr char kDaemonsGroup[] = "bin";
constexpr char kMemberUser[] = "bin";
constexpr char kStrangerUser[] = "nobody";

uid_t Uid(const char* name) {
  const passwd* entry = getpwnam(name);
  return entry ? entry->pw_uid : static_cast<uid_t>(-1);
}

gid_t PrimaryGid(const char* name) {
  const passwd* entry = getpwnam(name);
  return entry ? entry->pw_gid : static_cast<gid_t>(-1);
}

gid_t Gid(const char* name) {
  const group* entry = getgrnam(name);
  return entry ? entry->gr_gid : static_cast<gid_t>(-1);
}

// A system bus as Debian sets it up (nothing allowed that is not granted),
// with the policy file under test included, its user and group names
// replaced by the test's numeric identities.
std::string BusConfig(const std::string& dir) {
  std::ifstream in(AVD_POLICY_FILE);
  std::stringstream policy;
  policy << in.rdbuf();
  std::string body = policy.str();
  body = body.substr(body.find("<busconfig>") + strlen("<busconfig>"));
  body = body.substr(0, body.rfind("</busconfig>"));
  body = std::regex_replace(body, std::regex("user=\"avd\""),
                            std::string("user=\"") + kDaemonUser + "\"");
  body = std::regex_replace(body, std::regex("group=\"ap\""),
                            std::string("group=\"") + kDaemonsGroup + "\"");
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=)" + dir + R"(/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
  </policy>
)" + body + "</busconfig>\n";
}

sd_bus* Connect(const std::string& address) {
  sd_bus* bus = nullptr;
  if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, address.c_str()) < 0 ||
      sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0) {
    sd_bus_unref(bus);
    return nullptr;
  }
  return bus;
}

// Runs |body| in a child process as |uid| with |groups| and returns its exit
// status; 100 when the child could not take the identity or took too long.
int RunAs(uid_t uid, gid_t gid, std::vector<gid_t> groups,
          const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(10);
    if (setgroups(groups.size(), groups.data()) != 0 || setgid(gid) != 0 ||
        setuid(uid) != 0) {
      _exit(100);
    }
    _exit(body());
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

class DbusPolicyTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "acting as other users needs root";
    }
    for (const char* user : {kDaemonUser, kMemberUser, kStrangerUser}) {
      ASSERT_NE(Uid(user), static_cast<uid_t>(-1)) << "no account " << user;
    }
    ASSERT_NE(Gid(kDaemonsGroup), static_cast<gid_t>(-1));
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    char dir[] = "/tmp/avd_policy_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    // The bus runs as root and must reach the socket; so must the callers.
    std::filesystem::permissions(dir_, std::filesystem::perms::all);
    std::ofstream(dir_ + "/bus.conf") << BusConfig(dir_);
    ASSERT_GE(sd_event_new(&event_), 0);
    ErrorPtr error;
    bus_ = StartBusDaemon(event_, dir_ + "/bus.conf", nullptr, &address_,
                          &error);
    ASSERT_TRUE(bus_) << error->message();
  }

  void TearDown() override {
    if (owner_ > 0) {
      kill(owner_, SIGKILL);
      waitpid(owner_, nullptr, 0);
    }
    bus_.reset();
    sd_event_unref(event_);
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  // The daemon's stand-in, as the daemon's user: owns the name and answers
  // SetLedState. Returns once it is on the bus.
  void StartOwner() {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    owner_ = fork();
    if (owner_ == 0) {
      close(ready[0]);
      if (setgroups(0, nullptr) != 0 || setgid(Gid(kDaemonsGroup)) != 0 ||
          setuid(Uid(kDaemonUser)) != 0) {
        _exit(1);
      }
      static const sd_bus_vtable kVtable[] = {
          SD_BUS_VTABLE_START(0),
          SD_BUS_METHOD("SetLedState", "ssu", "",
                        [](sd_bus_message* m, void*, sd_bus_error*) {
                          return sd_bus_reply_method_return(m, "");
                        },
                        SD_BUS_VTABLE_UNPRIVILEGED),
          SD_BUS_VTABLE_END};
      sd_bus* bus = Connect(address_);
      if (!bus ||
          sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kVtable,
                                   nullptr) < 0 ||
          sd_bus_request_name(bus, kService, 0) < 0) {
        _exit(2);
      }
      (void)!write(ready[1], "x", 1);
      while (true) {
        if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, UINT64_MAX);
      }
    }
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the owner did not start";
    close(ready[0]);
  }

  // What calling SetLedState gives as |uid| in |groups|: 0 for a reply,
  // 1 for AccessDenied, 2 for anything else.
  int CallAs(const char* user, std::vector<gid_t> groups) {
    const std::string address = address_;
    return RunAs(Uid(user), PrimaryGid(user), std::move(groups), [address] {
      sd_bus* bus = Connect(address);
      if (!bus) return 2;
      sd_bus_error error = SD_BUS_ERROR_NULL;
      const int r = sd_bus_call_method(bus, kService, kPath, kInterface,
                                       "SetLedState", &error, nullptr, "ssu",
                                       "vox", "in_progress", 30);
      const bool denied =
          sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED);
      sd_bus_error_free(&error);
      return r >= 0 ? 0 : denied ? 1 : 2;
    });
  }

  // What requesting the daemon's name gives as |uid|: 0 owned, 1 denied,
  // 2 anything else.
  int OwnAs(const char* user) {
    const std::string address = address_;
    return RunAs(Uid(user), PrimaryGid(user), {}, [address] {
      sd_bus* bus = Connect(address);
      if (!bus) return 2;
      const int r = sd_bus_request_name(bus, kService, 0);
      return r >= 0 ? 0 : r == -EACCES ? 1 : 2;
    });
  }

  std::string dir_;
  sd_event* event_ = nullptr;
  std::unique_ptr<ChildProcess> bus_;
  std::string address_;
  pid_t owner_ = -1;
};

TEST_F(DbusPolicyTest, OnlyTheDaemonsUserOwnsTheName) {
  EXPECT_EQ(OwnAs(kStrangerUser), 1);
  EXPECT_EQ(OwnAs(kDaemonUser), 0);
}

TEST_F(DbusPolicyTest, OnlyRootAndTheDaemonsGroupCallTheManager) {
  StartOwner();

  EXPECT_EQ(CallAs("root", {}), 0);
  EXPECT_EQ(CallAs(kMemberUser, {}), 0);
  EXPECT_EQ(CallAs(kStrangerUser, {}), 1);
}

}  // namespace
}  // namespace morvane::ap
