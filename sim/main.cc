// ap-sim: the whole access point on a workstation around the production
// daemon. docs/simulator.md tells the commands, keys and output lines.

#include <fcntl.h>
#include <gflags/gflags.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/command_line.h"
#include "platform/event_loop.h"
#include "sim/record.h"
#include "sim/script_ui.h"
#include "sim/simulator.h"
#include "sim/terminal_ui.h"

DEFINE_bool(script, false,
            "Read commands from stdin (or FILE) and print events as lines; unset, the "
            "mode is chosen by whether stdin and stdout are terminals");
DEFINE_string(avd, "",
              "Path of the daemon binary; empty: the build tree's av/avd "
              "next to this program, else avd in PATH");
DEFINE_string(preload, "",
              "Path of the IIO preload library; empty: the one next to this "
              "program; \"none\": run without it");
DEFINE_bool(developer, true,
            "Simulate a developer device (is_developer_end_user exits 0)");
DEFINE_bool(verified, false,
            "Create the marker that makes a developer device act verified");
DEFINE_bool(setup_completed, true, "Start with the device's setup completed");
DEFINE_bool(wan_online, false, "Start with the WAN online");
DEFINE_string(sound, "auto",
              "Where sounds go: \"card\" (the default ALSA device), "
              "\"capture\" (a file in the sim directory), \"auto\" (the "
              "card when one opens, else capture)");
DEFINE_bool(keep, false,
            "Keep the run's directory (logs, events.log, captured sound) "
            "and print its path at quit");
DEFINE_string(timeline, "",
              "Write the session's timeline as an SVG picture to this file "
              "at quit");
DEFINE_bool(sysfs_lights, false,
            "Run avd with liblightcontrol-sysfs (from this build tree) "
            "against a simulated LED class and IIO sensor");

namespace morvane::ap {
namespace {

// The exit statuses, as --help tells them.
constexpr int kExitFailed = 1;        // The simulator itself failed.
constexpr int kExitCommandFailed = 2;  // A command failed or a wait timed out.
constexpr int kExitDaemonFailed = 3;   // The daemon ended unasked.
constexpr char kUsage[] =
    "Platform simulator: runs avd against simulated peers and devices.\n"
    "Exit status: 0 when quit as asked; 1 when the simulator could not run\n"
    "(its bus, its directory, its output); 2 when a script command failed\n"
    "or a wait timed out; 3 when the daemon ended, or could not start,\n"
    "without being asked (a crash), which wins over 2";

std::string ExecutableDirectory() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? "." : exe.parent_path().string();
}

std::string DefaultAvdPath() {
  const std::string built = ExecutableDirectory() + "/../av/avd";
  return access(built.c_str(), X_OK) == 0 ? built : "avd";
}

int Main(bool script) {
  // Children are watched through SIGCHLD on the loop; a closed stdout must
  // not kill the simulator before it cleaned up.
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGCHLD);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  signal(SIGPIPE, SIG_IGN);

  ErrorPtr error;
  std::unique_ptr<EventLoop> loop = EventLoop::Create(&error);
  if (!loop || !loop->QuitOnSignal(SIGINT, &error) ||
      !loop->QuitOnSignal(SIGTERM, &error) ||
      !loop->QuitOnSignal(SIGHUP, &error)) {
    fprintf(stderr, "ap-sim: %s\n", error->message().c_str());
    return kExitFailed;
  }

  Simulator::Options options;
  options.avd_path = FLAGS_avd.empty() ? DefaultAvdPath() : FLAGS_avd;
  options.preload_path = FLAGS_preload.empty()
                             ? ExecutableDirectory() + "/libsim_iio_preload.so"
                             : FLAGS_preload == "none" ? "" : FLAGS_preload;
  options.developer = FLAGS_developer;
  options.simulate_verified = FLAGS_verified;
  options.setup_completed = FLAGS_setup_completed;
  options.wan_online = FLAGS_wan_online;
  if (!ParseSoundOutput(FLAGS_sound, &options.sound)) {
    fprintf(stderr, "ap-sim: --sound must be auto, card or capture\n");
    return 1;
  }
  if (FLAGS_sysfs_lights) {
    options.sysfs_lights_dir = ExecutableDirectory() + "/../lightcontrol_sysfs";
  }

  auto script_ui = script ? std::make_unique<ScriptUi>(loop.get()) : nullptr;
  auto terminal_ui =
      script ? nullptr : std::make_unique<TerminalUi>(loop.get());
  Record record(script ? static_cast<Simulator::Observer*>(script_ui.get())
                       : terminal_ui.get());
  int code = 0;
  {
    Simulator simulator(loop.get(), options, &record);
    record.Follow(&simulator.state());
    if (terminal_ui && !terminal_ui->Start(&simulator, &error)) {
      fprintf(stderr, "ap-sim: %s\n", error->message().c_str());
      return kExitFailed;
    }
    if (!simulator.Start(&error) ||
        !record.OpenLog(simulator.directory()->events_log(), &error)) {
      terminal_ui.reset();
      fprintf(stderr, "ap-sim: %s\n", error->message().c_str());
      return kExitFailed;
    }
    const std::string dir = simulator.directory()->root();
    if (FLAGS_keep) simulator.directory()->Keep();
    if (script_ui) script_ui->Start(&simulator, &record);
    code = loop->Run();
    // The loop has ended: the screen is left first, so that what the
    // shutdown reports is printed, not posted as a redraw to no loop.
    if (terminal_ui) terminal_ui->Stop();
    simulator.Shutdown();
    if (!FLAGS_timeline.empty()) {
      if (!record.WriteTimeline(FLAGS_timeline, &error)) {
        record.OnLine("error " + error->message());
        code = kExitFailed;
      } else {
        record.OnLine("timeline " + FLAGS_timeline);
      }
    }
    if (FLAGS_keep) record.OnLine("kept " + dir);
    if (code == 0 && simulator.daemon_failed()) code = kExitDaemonFailed;
    record.Follow(nullptr);  // The state goes with the simulator.
  }
  if (code == 0 && script_ui && script_ui->failed()) code = kExitCommandFailed;
  record.OnLine("bye");
  return code;
}

}  // namespace
}  // namespace morvane::ap

int main(int argc, char** argv) {
  morvane::ap::ParseCommandLine(
      &argc, &argv,
      {.summary = morvane::ap::kUsage,
       .usage = "ap-sim [--script] [FLAGS...] [FILE]",
       .details = "FILE holds script commands, one a line; it makes the run a "
                  "script, as --script\nwith the commands on standard input "
                  "does.\n",
       .flags_file = __FILE__,
       .max_arguments = 1});
  bool script = FLAGS_script;
  if (argc == 2) {
    // The script's commands come from FILE in place of standard input.
    const int fd = open(argv[1], O_RDONLY | O_CLOEXEC);
    if (fd < 0 || dup2(fd, STDIN_FILENO) < 0) {
      fprintf(stderr, "ap-sim: Failed to open the script %s: %s\n", argv[1],
              strerror(errno));
      return morvane::ap::kExitFailed;
    }
    close(fd);
    script = true;
  } else if (gflags::GetCommandLineFlagInfoOrDie("script").is_default) {
    script = !isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO);
  }
  return morvane::ap::Main(script);
}
