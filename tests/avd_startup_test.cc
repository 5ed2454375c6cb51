// Start-up of the real avd binary against a private bus.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto kTimeout = std::chrono::seconds(20);
constexpr char kClip[] = "/usr/share/sounds/ap/network_creation.raw";
constexpr char kService[] = "org.tessaly.ap.AudioVisual";

std::string ReadAll(const std::string& path) {
  std::stringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return contents.str();
}

// Polls |condition| every 10 ms until it holds (true) or kTimeout passes.
bool WaitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// The production avd binary, run in a sandbox directory that holds its
// sysroot, the stand-in libraries' logs and its stderr. The process is
// killed by pid and reaped at destruction if still running.
class AvdProcess {
 public:
  // |bus_address| becomes DBUS_SYSTEM_BUS_ADDRESS. The sandbox starts with
  // the network-creation clip and an "is_developer_end_user" that exits 0.
  explicit AvdProcess(const std::string& bus_address)
      : bus_address_(bus_address) {
    char tmpl[] = "/tmp/avd-test-XXXXXX";
    dir_ = mkdtemp(tmpl);
    fs::create_directories(dir_ + "/bin");
    WriteSysrootFile(kClip, std::string(4800 * 4, '\x01'));
    SetDeveloperCommand(0);
  }
  AvdProcess(const AvdProcess&) = delete;
  AvdProcess& operator=(const AvdProcess&) = delete;
  ~AvdProcess() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }

  std::string SysrootPath(const std::string& absolute_path) const {
    return dir_ + "/root" + absolute_path;
  }

  void WriteSysrootFile(const std::string& absolute_path,
                        const std::string& contents) const {
    const std::string path = SysrootPath(absolute_path);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << contents;
  }

  // Replaces the "is_developer_end_user" in the daemon's PATH by a script
  // that exits with |status|, or removes it when |status| is empty.
  void SetDeveloperCommand(std::optional<int> status) const {
    const std::string path = dir_ + "/bin/is_developer_end_user";
    fs::remove(path);
    if (!status) return;
    std::ofstream(path) << "#!/bin/sh\nexit " << *status << "\n";
    chmod(path.c_str(), 0755);
  }

  void Start() {
    const std::string err = dir_ + "/stderr";
    pid_ = fork();
    if (pid_ != 0) return;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_address_.c_str(), 1);
    setenv("AVD_SYSROOT", (dir_ + "/root").c_str(), 1);
    setenv("LIGHTCONTROL_LOG", (dir_ + "/lightcontrol.log").c_str(), 1);
    setenv("PAVO_LOG", (dir_ + "/pavo.log").c_str(), 1);
    setenv("PAVO_CAPTURE", (dir_ + "/pavo.pcm").c_str(), 1);
    setenv("METRICS_LOG", (dir_ + "/metrics.log").c_str(), 1);
    unsetenv("LIGHTCONTROL_PROXIMITY_DEVICE");
    unsetenv("LIGHTCONTROL_AMBIENT");
    // Only the sandbox's bin: the host may have its own commands.
    setenv("PATH", (dir_ + "/bin:/usr/bin:/bin").c_str(), 1);
    freopen(err.c_str(), "w", stderr);
    execl(AVD_BINARY, AVD_BINARY, static_cast<char*>(nullptr));
    _exit(127);
  }

  void Signal(int signo) const {
    if (pid_ > 0) kill(pid_, signo);
  }

  // Waits for the daemon to exit; its wait status, or empty on time-out.
  std::optional<int> WaitForExit() {
    int status = 0;
    if (!WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
      return std::nullopt;
    }
    pid_ = -1;
    return status;
  }

  // Lines of LIGHTCONTROL_LOG and of the daemon's stderr so far.
  std::vector<std::string> LightCalls() const {
    std::vector<std::string> lines;
    std::istringstream in(ReadAll(dir_ + "/lightcontrol.log"));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  std::string Stderr() const { return ReadAll(dir_ + "/stderr"); }

 private:
  std::string dir_;
  std::string bus_address_;
  pid_t pid_ = -1;
};

class AvdStartupTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(bus_.Start(&error)) << error;
  }

  DbusDaemonFixture bus_;
};

TEST_F(AvdStartupTest, InitialisesTheLightInItsModeShowsStartupAndEndsOnSignal) {
  const struct {
    const char* name;
    std::optional<int> command_status;
    bool marker;
    const char* init;
    int signo;
  } kCases[] = {
      {"developer", 0, false, "light_init 1", SIGTERM},
      {"developer simulating verified", 0, true, "light_init 0", SIGINT},
      {"command fails", 1, false, "light_init 0", SIGTERM},
      {"command missing", std::nullopt, false, "light_init 0", SIGINT},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AvdProcess avd(bus_.address());
    avd.SetDeveloperCommand(c.command_status);
    if (c.marker) {
      avd.WriteSysrootFile("/usr/local/etc/ap/simulate-verified-mode", "");
    }
    avd.Start();

    ASSERT_TRUE(WaitUntil([&] { return avd.LightCalls().size() >= 4; }))
        << avd.Stderr();
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
TEST_F(AvdStartupTest, ManagerIsListedAndIntrospectableOnceTheNameIsOwned) {
  AvdProcess avd(bus_.address());
  sd_bus* client = bus_.Connect();
  ASSERT_NE(client, nullptr);
  avd.Start();
  ASSERT_TRUE(WaitUntil([&] {
    return sd_bus_get_name_creds(client, kService, 0, nullptr) >= 0;
  })) << avd.Stderr();
  sd_bus_message* objects = nullptr;
  sd_bus_message* introspection = nullptr;
  const char* path = nullptr;
  const char* xml = nullptr;

  ASSERT_GE(sd_bus_call_method(client, kService, "/org/tessaly/ap/AudioVisual",
                               "org.freedesktop.DBus.ObjectManager",
                               "GetManagedObjects", nullptr, &objects, ""),
            0);
  ASSERT_GE(sd_bus_call_method(client, kService,
                               "/org/tessaly/ap/AudioVisual/Manager",
                               "org.freedesktop.DBus.Introspectable",
                               "Introspect", nullptr, &introspection, ""),
            0);

  ASSERT_GT(sd_bus_message_enter_container(objects, 'a', "{oa{sa{sv}}}"), 0);
  ASSERT_GT(sd_bus_message_enter_container(objects, 'e', "oa{sa{sv}}"), 0);
  EXPECT_GE(sd_bus_message_read(objects, "o", &path), 0);
  EXPECT_GE(sd_bus_message_read(introspection, "s", &xml), 0);
  EXPECT_STREQ(path, "/org/tessaly/ap/AudioVisual/Manager");
  EXPECT_THAT(xml, HasSubstr("<interface name=\"org.tessaly.ap.AudioVisual.Manager\">"));
  EXPECT_THAT(xml, HasSubstr("<arg type=\"u\" name=\"operation_id\" direction=\"out\"/>"));
  EXPECT_THAT(xml, HasSubstr("<arg type=\"u\" name=\"duration_seconds\" direction=\"in\"/>"));
  sd_bus_message_unref(objects);
  sd_bus_message_unref(introspection);
  sd_bus_flush_close_unref(client);
}

TEST_F(AvdStartupTest, MissingClipEndsTheProcessBeforeAnyLightCall) {
  AvdProcess avd(bus_.address());
  std::filesystem::remove(avd.SysrootPath(kClip));
  avd.Start();

  const std::optional<int> status = avd.WaitForExit();

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGABRT);
  EXPECT_THAT(avd.Stderr(),
              HasSubstr("Check failed: ReadFileToString("
                        "kNetworkCreationAudioFilename, &system_setup_audio_) "
                        "Failed to read file: " + avd.SysrootPath(kClip)));
  EXPECT_THAT(avd.LightCalls(), IsEmpty());
}

// The init system restarts a daemon that ends: one that lost its bus must
// end, with a reason, rather than linger unreachable.
TEST(AvdWithoutBusTest, EndsWithAFailureWhenTheBusGoesAway) {
  auto bus = std::make_unique<DbusDaemonFixture>();
  std::string error;
  ASSERT_TRUE(bus->Start(&error)) << error;
  AvdProcess avd(bus->address());
  sd_bus* client = bus->Connect();
  ASSERT_NE(client, nullptr);
  avd.Start();
  // Serving, past the name claim: a bus lost during the claim fails the
  // claim instead (a slow machine, qemu, gets there).
  ASSERT_TRUE(WaitUntil([&] {
    return sd_bus_get_name_creds(client, kService, 0, nullptr) >= 0;
  })) << avd.Stderr();
  sd_bus_flush_close_unref(client);

  bus.reset();
  const std::optional<int> status = avd.WaitForExit();

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) != 0) << avd.Stderr();
  EXPECT_THAT(avd.Stderr(), HasSubstr("Lost the system bus, exiting"));
}

TEST(AvdWithoutBusTest, ExitsNonZeroWithAMessage) {
  AvdProcess avd("unix:path=/nonexistent/avd-test-bus");
  avd.Start();

  const std::optional<int> status = avd.WaitForExit();

  ASSERT_TRUE(status.has_value()) << "avd did not exit";
  ASSERT_TRUE(WIFEXITED(*status)) << avd.Stderr();
  EXPECT_NE(WEXITSTATUS(*status), 0);
  EXPECT_THAT(avd.Stderr(), HasSubstr("system bus"));
  EXPECT_THAT(avd.LightCalls(), IsEmpty());
}

}  // namespace
}  // namespace morvane::ap
