#include "sim/commands.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "common/storage.pb.h"
#include "sim/simulator.h"

namespace morvane::ap {
namespace {

constexpr int kIntensityStep = 10;

std::string Trim(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  const size_t end = text.find_last_not_of(" \t\r\n");
  return text.substr(begin, end - begin + 1);
}

// 64 bits: a long is 32 on the device, too narrow for the full range of a
// D-Bus duration in seconds.
bool ParseNumber(const std::string& text, int64_t min, int64_t max,
                 int64_t* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  const long long value = strtoll(text.c_str(), &end, 10);
  if (*end != '\0' || value < min || value > max) return false;
  *out = value;
  return true;
}

}  // namespace

const char kCommandHelp[] =
    "commands:\n"
    "  wave                      hand wave over the proximity sensor\n"
    "  press                     one touch button press and release\n"
    "  wan online|offline        connection manager's ConnectionState\n"
    "  group failure|ok|root|nonroot|leave|join\n"
    "  setup completed|reset     the controller's setup-completed flag\n"
    "  intensity up|down|N       light_intensity (N up to 255) via the "
    "controller\n"
    "  auto on|off               enable_automatic_intensity\n"
    "  bridge on|off             enable_bridge_mode\n"
    "  default MAC SECONDS|none  default_prioritized_device\n"
    "  ambient N|fail            ambient light level 0..255\n"
    "  audio down|up             the audio server refuses connections\n"
    "  vpd remove|restore        the VPD cache goes away (and the sensor's\n"
    "                            calibration with it) or comes back\n"
    "  op start|succeed|fail     SetOperation* on the daemon's Manager\n"
    "  led NAME VALUE SECONDS    SetLedState on the daemon's Manager\n"
    "  restart controller|group|connman|avd\n"
    "                            a peer leaves the bus and comes back, or\n"
    "                            the daemon restarts\n"
    "  upstart hang|answer       Upstart stops answering EmitEvent, or not\n"
    "  wrongtypes                the peers publish values of wrong types\n"
    "  unplug touch|sensor       the device goes away for good\n"
    "  flood N                   N malformed Manager calls from a client\n"
    "                            that leaves before the replies\n"
    "  echo TEXT                 prints \"echo TEXT\"\n"
    "  help, quit\n";


bool ExecuteCommand(Simulator* sim, const std::string& command_line) {
  std::istringstream in(command_line);
  std::string command;
  std::string arg;
  in >> command >> arg;
  std::string rest;
  std::getline(in >> std::ws, rest);
  int64_t number = 0;

  if (command.empty() || command[0] == '#') return true;
  if (sim->shut_down() && command != "quit") {
    sim->Report("error simulator is shut down");
    return false;
  }
  if (command == "wave") {
    sim->InjectWave();
  } else if (command == "press") {
    sim->InjectPress();
  } else if (command == "wan" && (arg == "online" || arg == "offline")) {
    sim->SetWan(arg == "online");
  } else if (command == "group" && sim->SetGroup(arg)) {
  } else if (command == "setup" && (arg == "completed" || arg == "reset")) {
    sim->SetSetupCompleted(arg == "completed");
  } else if (command == "intensity" &&
             (arg == "up" || arg == "down" || ParseNumber(arg, 0, 255, &number))) {
    const int percent =
        arg == "up"     ? std::min(100, sim->state().light_intensity + kIntensityStep)
        : arg == "down" ? std::max(0, sim->state().light_intensity - kIntensityStep)
                        : static_cast<int>(number);
    sim->ChangeConfiguration("light_intensity=" + std::to_string(percent),
                        [percent](DeviceConfiguration* config) {
                          config->set_light_intensity(percent);
                        });
  } else if (command == "auto" && (arg == "on" || arg == "off")) {
    sim->ChangeConfiguration("enable_automatic_intensity=" +
                            std::string(arg == "on" ? "1" : "0"),
                        [on = arg == "on"](DeviceConfiguration* config) {
                          config->set_enable_automatic_intensity(on);
                        });
  } else if (command == "bridge" && (arg == "on" || arg == "off")) {
    sim->ChangeConfiguration("enable_bridge_mode=" +
                            std::string(arg == "on" ? "1" : "0"),
                        [on = arg == "on"](DeviceConfiguration* config) {
                          config->set_enable_bridge_mode(on);
                        });
  } else if (command == "default" && arg == "none") {
    sim->ChangeConfiguration("default_prioritized_device=none",
                        [](DeviceConfiguration* config) {
                          config->clear_default_prioritized_device();
                        });
  } else if (command == "default" && !arg.empty() &&
             ParseNumber(rest, 0, INT32_MAX, &number)) {
    sim->ChangeConfiguration(
        "default_prioritized_device=" + arg + " " + rest,
        [arg, number](DeviceConfiguration* config) {
          config->mutable_default_prioritized_device()->set_mac_address(arg);
          config->mutable_default_prioritized_device()->set_expiration_time(
              static_cast<int32_t>(number));
        });
  } else if (command == "ambient" && arg == "fail") {
    sim->SetAmbient(-1);
  } else if (command == "ambient" && ParseNumber(arg, 0, 255, &number)) {
    sim->SetAmbient(static_cast<int>(number));
  } else if (command == "vpd" && (arg == "remove" || arg == "restore")) {
    sim->SetVpdCache(arg == "restore");
  } else if (command == "audio" && (arg == "down" || arg == "up")) {
    sim->SetAudioDown(arg == "down");
  } else if (command == "op" && arg == "start") {
    sim->StartOperation();
  } else if (command == "op" && arg == "succeed") {
    sim->SucceedOperation();
  } else if (command == "op" && arg == "fail") {
    sim->FailOperation();
  } else if (command == "led" && !arg.empty()) {
    std::istringstream args(rest);
    std::string value;
    std::string seconds;
    args >> value >> seconds;
    if (!ParseNumber(seconds, 0, UINT32_MAX, &number)) {
      sim->Report("error usage: led NAME VALUE SECONDS");
      return false;
    }
    sim->SetLedState(arg, value, static_cast<uint32_t>(number));
  } else if (command == "restart" && arg != "avd" && sim->RestartPeer(arg)) {
  } else if (command == "upstart" && (arg == "hang" || arg == "answer")) {
    sim->SetUpstartAnswering(arg == "answer");
  } else if (command == "unplug" && (arg == "touch" || arg == "sensor")) {
    sim->Unplug(arg == "touch");
  } else if (command == "wrongtypes") {
    sim->PublishWrongTypes();
  } else if (command == "flood" && ParseNumber(arg, 1, 1'000'000, &number)) {
    sim->Flood(static_cast<int>(number));
  } else if (command == "restart" && arg == "avd") {
    sim->RestartAvd();
  } else if (command == "echo") {
    sim->Report(Trim("echo " + arg + " " + rest));
  } else if (command == "help") {
    std::istringstream help(kCommandHelp);
    for (std::string line; std::getline(help, line);) sim->Report(line);
  } else if (command == "quit") {
    sim->Quit();
  } else {
    sim->Report("error unknown command: " + Trim(command_line));
    return false;
  }
  return true;
}

}  // namespace morvane::ap
