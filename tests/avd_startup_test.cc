// Start-up of the real avd binary against a private bus.

#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/fixtures/avd_process.h"
#include "tests/fixtures/dbus_daemon_fixture.h"
#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr char kClip[] = "/usr/share/sounds/ap/network_creation.raw";

using AvdStartupTest = AvdTest;

// SIGHUP and SIGUSR1 come first: either of them ending the daemon would show
// as death by that signal instead of the exit with 0.
TEST_F(AvdStartupTest, InitialisesTheLightInItsModeShowsStartupAndEndsOnSignal) {
  const struct {
    const char* name;
    SimDirectoryOptions options;
    bool command_missing;
    const char* init;
    int signo;
  } kCases[] = {
      {"developer", {true, false}, false, "light_init 1", SIGTERM},
      {"developer simulating verified", {true, true}, false, "light_init 0",
       SIGINT},
      {"command fails", {false, false}, false, "light_init 0", SIGTERM},
      {"command missing", {true, false}, true, "light_init 0", SIGINT},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AvdProcess avd(bus_.address(), c.options);
    if (c.command_missing) {
      std::filesystem::remove(avd.dir().bin_dir() + "/is_developer_end_user");
    }
    avd.Start();

    ASSERT_TRUE(avd.WaitUntil([&] { return avd.LightCalls().size() >= 4; }))
        << avd.Stderr();
    avd.Signal(SIGHUP);
    avd.Signal(SIGUSR1);
    avd.Signal(c.signo);
    const std::optional<int> status = avd.WaitForExit();

    // 30 is the record's default intensity as it is, not scaled to 76. No
    // proximity device: nothing more.
    EXPECT_THAT(avd.LightCalls(),
                ElementsAre(c.init, "light_set_master_brightness 30",
                            "light_set_state 0",
                            "light_get_proximity_device_path null"));
    ASSERT_TRUE(status.has_value()) << "avd did not exit";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0)
        << avd.Stderr();
  }
}

// Once the name is owned the Manager is in place: a client that sees the
// name appear may call it at once.
TEST_F(AvdStartupTest, ManagerAndStatusAreListedAndIntrospectableOnceTheNameIsOwned) {
  AvdProcess avd(bus_.address());
  avd.Start();
  ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();
  const std::string root = "/org/tessaly/ap/AudioVisual";
  const auto introspect = [&](const std::string& path) {
    std::string xml;
    const auto reply = Call(path, "org.freedesktop.DBus.Introspectable", "Introspect");
    EXPECT_TRUE(reply && MessageReader(reply.get()).Read(&xml, nullptr)) << path;
    return xml;
  };
  const auto objects =
      Call(root, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
  ASSERT_TRUE(objects);
  MessageReader reader(objects.get());
  std::vector<std::string> paths;
  ASSERT_TRUE(reader.ReadDictionary<ObjectPath>(
      "a{sa{sv}}",
      [&](const ObjectPath& path, ErrorPtr* error) {
        paths.push_back(path.value);
        return reader.Skip(error);
      },
      nullptr));

  EXPECT_THAT(paths, UnorderedElementsAre(root + "/Manager", root + "/Status"));
  // Deadlines move on every repeated call: never announced.
  EXPECT_THAT(introspect(root + "/Status"),
              HasSubstr("<property name=\"TimedStateDeadlines\" "
                        "type=\"a{st}\" access=\"read\">\n"
                        "   <annotation name=\"org.freedesktop.DBus."
                        "Property.EmitsChangedSignal\" value=\"false\"/>"));
  const std::string xml = introspect(root + "/Manager");
  EXPECT_THAT(xml, HasSubstr("<interface name=\"org.tessaly.ap.AudioVisual.Manager\">"));
  EXPECT_THAT(xml, HasSubstr("<arg type=\"u\" name=\"operation_id\" direction=\"out\"/>"));
  EXPECT_THAT(xml, HasSubstr("<arg type=\"u\" name=\"duration_seconds\" direction=\"in\"/>"));
}

TEST_F(AvdStartupTest, MissingClipEndsTheProcessBeforeAnyLightCall) {
  AvdProcess avd(bus_.address());
  const std::string clip = avd.dir().sysroot() + kClip;
  std::filesystem::remove(clip);
  avd.Start();

  const std::optional<int> status = avd.WaitForExit();

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGABRT);
  EXPECT_THAT(avd.Stderr(),
              HasSubstr("Check failed: ReadFileToString("
                        "kNetworkCreationAudioFilename, &system_setup_audio_) "
                        "Failed to read file: " + clip +
                        ": No such file or directory"));
  EXPECT_THAT(avd.LightCalls(), IsEmpty());
}

// Under systemd both syslog and standard error end in the journal, whose
// stream systemd names in JOURNAL_STREAM. The daemon runs in a mount
// namespace whose /dev is a directory of the test, with the nodes it needs
// bound in and a socket of the test as syslog's /dev/log. Without the
// variable, or when it names another file, the line goes to both, which
// shows that the socket works.
TEST_F(AvdStartupTest, WritesEachLineOnceWhenStandardErrorIsTheJournal) {
  if (geteuid() != 0) GTEST_SKIP() << "a mount namespace needs root";
  const std::regex line("Ignoring SIGHUP");
  // JOURNAL_STREAM: unset; standard error's device and inode; its device
  // with another inode.
  for (int named : {0, 1, 2}) {
    const bool journal = named == 1;
    SCOPED_TRACE(named);
    TempDir dev;
    for (const char* node : {"null", "zero", "urandom"}) dev.Write(node, "");
    const int syslog = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    dev.Path("log").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(syslog, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    AvdProcess avd(bus_.address());
    struct stat log {};
    ASSERT_EQ(stat(avd.dir().avd_log().c_str(), &log), 0);
    if (named != 0) {
      avd.SetEnv("JOURNAL_STREAM", std::to_string(log.st_dev) + ":" +
                                       std::to_string(log.st_ino + named - 1));
    }
    avd.Start({"unshare", "--mount", "sh", "-c",
               "for n in null zero urandom; do mount --bind /dev/$n $0/$n; done;"
               " mount --bind $0 /dev && exec \"$@\"",
               dev.path()});
    ASSERT_TRUE(avd.WaitForName(client_)) << avd.Stderr();

    avd.Signal(SIGHUP);
    avd.Signal(SIGTERM);
    ASSERT_TRUE(avd.WaitForExit().has_value());

    std::string syslogged;
    char datagram[4096];
    for (ssize_t n; (n = recv(syslog, datagram, sizeof(datagram), 0)) > 0;) {
      syslogged.append(datagram, n).append("\n");
    }
    close(syslog);
    const std::string out = avd.Stderr();
    const auto count = [&](const std::string& text) {
      return std::distance(std::sregex_iterator(text.begin(), text.end(), line),
                           std::sregex_iterator());
    };
    EXPECT_EQ(count(out), 1) << out;
    EXPECT_EQ(count(syslogged), journal ? 0 : 1) << syslogged;
    EXPECT_EQ(out.find("<6>service_daemon.cc:") != std::string::npos, journal);
  }
}

// The init system restarts a daemon that ends: one without its bus must
// end, with a reason, rather than linger unreachable.
TEST(AvdWithoutBusTest, EndsWithAFailureWithoutABusOrWhenItGoesAway) {
  auto bus = std::make_unique<DbusDaemonFixture>();
  std::string error;
  ASSERT_TRUE(bus->Start(&error)) << error;
  AvdProcess nowhere("unix:path=/nonexistent/avd-test-bus");
  AvdProcess avd(bus->address());
  sd_bus* client = bus->Connect();
  ASSERT_NE(client, nullptr);
  nowhere.Start();
  avd.Start();
  // Serving, past the name claim: a bus lost during the claim fails the
  // claim instead (a slow machine, qemu, gets there).
  ASSERT_TRUE(avd.WaitForName(client)) << avd.Stderr();
  sd_bus_flush_close_unref(client);

  bus.reset();

  for (AvdProcess* ended : {&nowhere, &avd}) {
    const std::optional<int> status = ended->WaitForExit();
    ASSERT_TRUE(status.has_value()) << "avd did not exit";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) != 0)
        << ended->Stderr();
  }
  EXPECT_THAT(nowhere.Stderr(), HasSubstr("system bus"));
  EXPECT_THAT(nowhere.LightCalls(), IsEmpty());
  EXPECT_THAT(avd.Stderr(), HasSubstr("Lost the system bus, exiting"));
}

}  // namespace
}  // namespace morvane::ap
