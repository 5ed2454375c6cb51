#include "sim/simulator.h"

#include <vector>

#include "platform/event_loop.h"
#include "sim/library_log.h"
#include "peers/peer_bus.h"

namespace morvane::ap {
namespace {

// An attribute's content without its line end.
std::string Content(const std::string& text) {
  return text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
}

}  // namespace

Simulator::Simulator(EventLoop* loop, Options options, Observer* observer)
    : loop_(loop), options_(std::move(options)), observer_(observer) {
  state_.setup_completed = options_.setup_completed;
  state_.wan_online = options_.wan_online;
}

Simulator::~Simulator() { Shutdown(); }

void Simulator::Report(const std::string& line) { observer_->OnLine(line); }

void Simulator::Changed() { observer_->OnStateChanged(); }

bool Simulator::Start(ErrorPtr* error) {
  SimDirectoryOptions dir_options;
  dir_options.developer = options_.developer;
  dir_options.simulate_verified = options_.simulate_verified;
  directory_ = SimDirectory::Create(dir_options, error);
  if (!directory_) return false;
  Report("sim dir " + directory_->root());
  if (!options_.sysfs_lights_dir.empty() &&
      !(sysfs_board_ = SysfsBoard::Create(directory_.get(),
                                          options_.sysfs_lights_dir, error))) {
    return false;
  }
  if (!WriteWholeFile(directory_->ambient_file(),
                      std::to_string(state_.ambient) + "\n", error) ||
      !(bus_daemon_ = StartBusDaemon(
            loop_->event(), directory_->bus_config(),
            [this](int status) {
              Report("bus exited " + DescribeWaitStatus(status));
              loop_->Quit(1);
            },
            &state_.bus_address, error))) {
    return false;
  }
  const std::string& address = state_.bus_address;
  Report("bus started pid=" + std::to_string(bus_daemon_->pid()) +
         " address=" + address);
  daemon_client_ = std::make_unique<DaemonClient>(
      loop_, address, [this](const std::string& line) { Report(line); },
      [this](bool ready) {
        state_.avd_ready = ready;
        Changed();
      },
      [this](uint32_t id) {
        state_.last_operation_id = id;
        Changed();
      });
  if (!daemon_client_->Connect(error)) return false;

  controller_ = std::make_unique<ControllerPeer>(
      loop_->event(), address, [this](const std::string& line) {
        Report(line);
        SyncConfiguration();
      });
  DeviceConfiguration config;
  config.set_light_intensity(state_.light_intensity);
  config.set_enable_automatic_intensity(false);
  config.mutable_default_prioritized_device()->set_mac_address(
      "02:00:00:5e:00:01");
  config.mutable_default_prioritized_device()->set_expiration_time(600);
  controller_->SetConfiguration(config);
  RuntimeState runtime_state;
  runtime_state.set_wan_interface("wan0");
  controller_->SetRuntimeState(runtime_state);
  controller_->SetSetupCompleted(state_.setup_completed);
  SyncConfiguration();
  group_monitor_ = std::make_unique<GroupMonitorPeer>(loop_->event(), address);
  connection_manager_ =
      std::make_unique<ConnectionManagerPeer>(loop_->event(), address);
  connection_manager_->SetConnectionState(state_.wan_online ? "online"
                                                            : "offline");
  upstart_ = std::make_unique<UpstartPeer>(
      loop_->event(), address, [this](const std::string& line) { Report(line); });
  if (!controller_->Start(error) || !group_monitor_->Join(error) ||
      !connection_manager_->Start(error) || !upstart_->Start(error)) {
    return false;
  }

  device_ = std::make_unique<DeviceControls>(
      *directory_, sysfs_board_.get(), &state_,
      [this](const std::string& line) { Report(line); }, [this] { Changed(); });
  if (!device_->Open(error) || !WatchFiles(error)) {
    return false;
  }
  const bool capture_sound =
      options_.sound == SoundOutput::kCapture ||
      (options_.sound == SoundOutput::kAuto && !SoundCardAvailable());
  Report(capture_sound
             ? "audio output capture " + directory_->pavo_capture_file()
             : std::string("audio output card"));
  std::vector<std::string> overrides =
      directory_->DaemonEnvironment(address, options_.preload_path);
  if (capture_sound) {
    overrides.push_back("PAVO_CAPTURE=" + directory_->pavo_capture_file());
  }
  if (sysfs_board_) {
    const std::vector<std::string> board = sysfs_board_->Environment();
    overrides.insert(overrides.end(), board.begin(), board.end());
  }
  daemon_ = std::make_unique<DaemonProcess>(
      loop_, options_.avd_path, EnvironmentWith(overrides),
      directory_->avd_log(), &state_,
      DaemonProcess::Hooks{[this](const std::string& l) { Report(l); },
                           [this] { device_->Drain(); },
                           [this] { if (watcher_) watcher_->Poll(); },
                           [this] { Changed(); }});
  daemon_->Start();
  Changed();
  return true;
}

bool Simulator::WatchFiles(ErrorPtr* error) {
  watcher_ = std::make_unique<FileWatcher>(loop_);
  const SimDirectory& dir = *directory_;
  const size_t chime = dir.network_creation_bytes();
  const size_t click = dir.touch_feedback_bytes();
  // The stand-in libraries' logs and the daemon's output, as lines.
  const std::pair<std::string, FileWatcher::LineCallback> logs[] = {
      {dir.lightcontrol_log(),
       [this](const std::string& l) {
         const LibraryOutcome out = TranslateLightControlLine(l);
         if (out.light_state) state_.light_state = *out.light_state;
         if (out.brightness) state_.brightness = *out.brightness;
         Report(out.line);
         Changed();
       }},
      {dir.pavo_log(),
       [this, chime, click](const std::string& l) {
         const LibraryOutcome out = TranslatePavoLine(l, chime, click);
         if (out.line.starts_with("sound ")) {
           state_.last_sound = out.line.substr(6, out.line.find(' ', 6) - 6);
           Changed();
         }
         Report(out.line);
       }},
      {dir.metrics_log(),
       [this](const std::string& l) { Report(TranslateMetricsLine(l).line); }},
      {dir.avd_log(), [this](const std::string& l) { Report("avd: " + l); }},
  };
  if (!watcher_->Init(error)) return false;
  for (const auto& [path, on_line] : logs) {
    if (!watcher_->TailLines(path, on_line, error)) return false;
  }
  if (sysfs_board_ &&
      !sysfs_board_->Watch(
          loop_, watcher_.get(),
          [this](const RingView& view) {
            state_.ring_colours = view.colours;
            state_.ring_mode = view.mode;
            state_.brightness = view.level;
            Report(view.line);
            Changed();
          },
          error)) {
    return false;
  }
  for (size_t i = 0; i < std::size(kSensorAttributes); ++i) {
    const std::string name = kSensorAttributes[i];
    if (!watcher_->WatchContent(
            dir.iio_sysfs_dir() + "/" + name,
            [this, name, i](const std::string& content) {
              Report("sysfs " + name + " " + Content(content));
              state_.calibration[i] = Content(content);
              Changed();
            },
            error)) {
      return false;
    }
  }
  return true;
}

void Simulator::RestartAvd() {
  Report("inject restart avd");
  daemon_->Restart();
}

void Simulator::Shutdown() {
  if (shut_down_) return;
  shut_down_ = true;
  // The daemon is asked first, so that it ends without seeing its peers
  // leave (and saying so); the peers go next, after at most 2 s: a daemon
  // blocked on a call to one of them gets its answer (an error) and can end.
  if (daemon_) daemon_->AskToStop(2'000'000);
  upstart_.reset();
  connection_manager_.reset();
  group_monitor_.reset();
  controller_.reset();
  // Kept, stopped, for daemon_failed().
  if (daemon_) daemon_->Stop();
  daemon_client_.reset();
  watcher_.reset();
  device_.reset();
  sysfs_board_.reset();
  bus_daemon_.reset();
  directory_.reset();
}

void Simulator::Quit() {
  // The daemon first: the loop's end closes the peers' connections (sd-bus
  // closes a bus whose loop exits), which a running daemon would report.
  if (daemon_) daemon_->AskToStop(2'000'000);
  loop_->Quit(0);
}

void Simulator::SetWan(bool online) {
  state_.wan_online = online;
  connection_manager_->SetConnectionState(online ? "online" : "offline");
  Report(std::string("inject wan ") + (online ? "online" : "offline"));
  Changed();
}

bool Simulator::SetGroup(const std::string& what) {
  ErrorPtr error;
  if (what == "failure") {
    group_monitor_->SetIsRoot(false);
    group_monitor_->SetConnectedToRoot(false);
  } else if (what == "ok") {
    group_monitor_->SetConnectedToRoot(true);
  } else if (what == "root") {
    group_monitor_->SetIsRoot(true);
  } else if (what == "nonroot") {
    group_monitor_->SetIsRoot(false);
  } else if (what == "leave") {
    group_monitor_->Leave();
  } else if (what == "join") {
    if (!group_monitor_->Join(&error)) {
      Report("error " + error->message());
    }
  } else {
    return false;
  }
  state_.is_root = group_monitor_->is_root();
  state_.connected_to_root = group_monitor_->connected_to_root();
  state_.group_joined = group_monitor_->joined();
  Report("inject group " + what);
  Changed();
  return true;
}

void Simulator::SetSetupCompleted(bool completed) {
  state_.setup_completed = completed;
  controller_->SetSetupCompleted(completed);
  Report(std::string("inject setup ") + (completed ? "completed" : "reset"));
  Changed();
}

void Simulator::ChangeConfiguration(
    const std::string& what,
    const std::function<void(DeviceConfiguration*)>& change) {
  DeviceConfiguration config = controller_->configuration();
  change(&config);
  controller_->SetConfiguration(config);
  Report("inject config " + what);
  SyncConfiguration();
}

void Simulator::SyncConfiguration() {
  const DeviceConfiguration config = controller_->configuration();
  state_.light_intensity = config.light_intensity();
  state_.automatic_intensity = config.enable_automatic_intensity();
  state_.bridge_mode = config.enable_bridge_mode();
  state_.default_device =
      config.has_default_prioritized_device()
          ? config.default_prioritized_device().mac_address() + " for " +
                std::to_string(
                    config.default_prioritized_device().expiration_time()) +
                " s"
          : "";
  Changed();
}

bool Simulator::RestartPeer(const std::string& which) {
  if (which != "controller" && which != "group" && which != "connman") {
    return false;
  }
  // Each leaves the bus first.
  ErrorPtr error;
  const bool started = which == "controller" ? controller_->Start(&error)
                       : which == "group"    ? group_monitor_->Join(&error)
                                             : connection_manager_->Start(&error);
  Report("inject restart " + which);
  if (!started) Report("error " + error->message());
  state_.controller_running = controller_->running();
  state_.group_joined = group_monitor_->joined();
  Changed();
  return true;
}

void Simulator::SetUpstartAnswering(bool answering) {
  upstart_->set_answering(answering);
  Report(std::string("inject upstart ") + (answering ? "answer" : "hang"));
}

void Simulator::PublishWrongTypes() {
  Report("inject wrongtypes");
  group_monitor_->PublishWrongTypes();
  connection_manager_->SignalWrongType();
  controller_->PublishWrongType();
}

}  // namespace morvane::ap
