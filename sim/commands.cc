#include "sim/commands.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <vector>

#include "common/storage.pb.h"
#include "sim/simulator.h"

namespace morvane::ap {
namespace {

constexpr int kIntensityStep = 10;

using Words = std::vector<std::string>;

// One command: its name, the forms of its arguments as help shows them and
// what it does. |run| gets the words after the name and returns why they
// are wrong, or an empty text when the command ran. Without |run| the
// usage lists the only words allowed ("a|b", or none) and |choose| gets
// the index of the one given.
struct Command {
  const char* name;
  const char* usage;
  const char* help;
  std::string (*run)(Simulator* sim, const Words& args);
  void (*choose)(Simulator* sim, int choice) = nullptr;
};

std::string Trim(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::string Arg(const Words& args, size_t i) {
  return i < args.size() ? args[i] : "";
}

// Which of "a|b|c" |word| is; -1 when none.
int Choice(const std::string& word, const std::string& choices) {
  std::istringstream in(choices);
  int i = 0;
  for (std::string choice; std::getline(in, choice, '|'); ++i) {
    if (choice == word) return i;
  }
  return -1;
}

void SetFlag(Simulator* sim, const std::string& field, bool on,
             void (DeviceConfiguration::*set)(bool)) {
  sim->ChangeConfiguration(field + "=" + (on ? "1" : "0"),
                           [on, set](DeviceConfiguration* config) {
                             (config->*set)(on);
                           });
}

std::string Intensity(Simulator* sim, const Words& args) {
  const std::string arg = Arg(args, 0);
  int64_t number = 0;
  const int now = sim->state().light_intensity;
  if (arg == "up") {
    number = std::min(100, now + kIntensityStep);
  } else if (arg == "down") {
    number = std::max(0, now - kIntensityStep);
  } else if (!ParseNumber(arg, 0, 255, &number)) {
    return "expected up, down or N in 0..255";
  }
  const int percent = static_cast<int>(number);
  sim->ChangeConfiguration("light_intensity=" + std::to_string(percent),
                           [percent](DeviceConfiguration* config) {
                             config->set_light_intensity(percent);
                           });
  return "";
}

std::string DefaultDevice(Simulator* sim, const Words& args) {
  if (args.size() == 1 && args[0] == "none") {
    sim->ChangeConfiguration("default_prioritized_device=none",
                             [](DeviceConfiguration* config) {
                               config->clear_default_prioritized_device();
                             });
    return "";
  }
  static const std::regex kMac("([0-9a-fA-F]{2}:){5}[0-9a-fA-F]{2}");
  int64_t seconds = 0;
  if (args.size() != 2 || !std::regex_match(args[0], kMac)) {
    return "expected none, or a MAC address like 02:00:00:5e:00:01 and "
           "SECONDS";
  }
  if (!ParseNumber(args[1], 0, INT32_MAX, &seconds)) {
    return "SECONDS must be 0..2147483647";
  }
  const std::string mac = args[0];
  sim->ChangeConfiguration(
      "default_prioritized_device=" + mac + " " + args[1],
      [mac, seconds](DeviceConfiguration* config) {
        config->mutable_default_prioritized_device()->set_mac_address(mac);
        config->mutable_default_prioritized_device()->set_expiration_time(
            static_cast<int32_t>(seconds));
      });
  return "";
}

std::string Led(Simulator* sim, const Words& args) {
  int64_t seconds = 0;
  if (args.size() != 3) return "expected NAME VALUE SECONDS";
  if (!ParseNumber(args[2], 0, UINT32_MAX, &seconds)) {
    return "SECONDS must be 0..4294967295";
  }
  // Other names go to the daemon too, which refuses them.
  sim->daemon_client()->SetLedState(args[0], args[1],
                                    static_cast<uint32_t>(seconds));
  return "";
}

const Command kCommands[] = {
    {"wave", "", "hand wave over the proximity sensor", nullptr,
     [](Simulator* sim, int) { sim->device()->InjectWave(); }},
    {"press", "", "one touch button press and release", nullptr,
     [](Simulator* sim, int) { sim->device()->InjectPress(); }},
    {"wan", "online|offline", "connection manager's ConnectionState", nullptr,
     [](Simulator* sim, int c) { sim->SetWan(c == 0); }},
    {"group", "failure|ok|root|nonroot|leave|join", "the group monitor",
     nullptr, [](Simulator* sim, int c) {
       const char* const kWhat[] = {"failure", "ok",    "root",
                                    "nonroot", "leave", "join"};
       sim->SetGroup(kWhat[c]);
     }},
    {"setup", "completed|reset", "the controller's setup-completed flag",
     nullptr, [](Simulator* sim, int c) { sim->SetSetupCompleted(c == 0); }},
    {"intensity", "up|down|N", "light_intensity, N in 0..255", Intensity},
    {"auto", "on|off", "enable_automatic_intensity", nullptr,
     [](Simulator* sim, int c) {
       SetFlag(sim, "enable_automatic_intensity", c == 0,
               &DeviceConfiguration::set_enable_automatic_intensity);
     }},
    {"bridge", "on|off", "enable_bridge_mode", nullptr,
     [](Simulator* sim, int c) {
       SetFlag(sim, "enable_bridge_mode", c == 0,
               &DeviceConfiguration::set_enable_bridge_mode);
     }},
    {"default", "MAC SECONDS|none", "default_prioritized_device",
     DefaultDevice},
    {"ambient", "N|fail", "ambient light level, N in 0..255",
     [](Simulator* sim, const Words& args) {
       int64_t level = -1;
       if (Arg(args, 0) != "fail" && !ParseNumber(Arg(args, 0), 0, 255, &level)) {
         return std::string("expected fail or N in 0..255");
       }
       sim->device()->SetAmbient(static_cast<int>(level));
       return std::string();
     }},
    {"audio", "down|up", "the audio server refuses connections, or not",
     nullptr, [](Simulator* sim, int c) { sim->device()->SetAudioDown(c == 0); }},
    {"vpd", "remove|restore",
     "the VPD cache (and the sensor's calibration)\ngoes away or comes back",
     nullptr, [](Simulator* sim, int c) { sim->device()->SetVpdCache(c == 1); }},
    {"op", "start|succeed|fail", "SetOperation* on the daemon's Manager",
     nullptr, [](Simulator* sim, int c) {
       // The operation is the last one the daemon gave.
       const uint32_t id = sim->state().last_operation_id;
       if (c == 0) sim->daemon_client()->SetOperationInProgress();
       if (c == 1) sim->daemon_client()->SetOperationSucceeded(id);
       if (c == 2) sim->daemon_client()->SetOperationFailed(id);
     }},
    {"led", "NAME VALUE SECONDS",
     "SetLedState on the daemon's Manager. NAME: vox\n"
     "(VALUE in_progress; completed plays the\n"
     "transition) or setup_activity (any VALUE, shown\n"
     "in setup). SECONDS 0..4294967295, 0 ends it",
     Led},
    {"restart", "controller|group|connman|avd",
     "a peer leaves the bus and comes back, or the\ndaemon restarts", nullptr,
     [](Simulator* sim, int c) {
       const char* const kPeers[] = {"controller", "group", "connman"};
       if (c == 3) sim->RestartAvd();
       else sim->RestartPeer(kPeers[c]);
     }},
    {"upstart", "hang|answer", "Upstart stops answering EmitEvent, or not",
     nullptr, [](Simulator* sim, int c) { sim->SetUpstartAnswering(c == 1); }},
    {"wrongtypes", "", "the peers publish values of wrong types", nullptr,
     [](Simulator* sim, int) { sim->PublishWrongTypes(); }},
    {"unplug", "touch|sensor", "the device goes away for good", nullptr,
     [](Simulator* sim, int c) { sim->device()->Unplug(c == 0); }},
    {"flood", "N",
     "N malformed Manager calls (1..1000000) from a\nclient that leaves before the replies",
     [](Simulator* sim, const Words& args) {
       int64_t calls = 0;
       if (!ParseNumber(Arg(args, 0), 1, 1'000'000, &calls)) {
         return std::string("N must be 1..1000000");
       }
       sim->daemon_client()->Flood(static_cast<int>(calls));
       return std::string();
     }},
};

// What script mode adds (sim/script_ui.h), listed with the rest.
constexpr char kScriptHelp[] =
    "  wait ready [SECONDS]       until the daemon is on the bus\n"
    "  wait PATTERN [SECONDS]     until an output line contains PATTERN\n"
    "                             (quote it when it has spaces); 10 s\n"
    "  sleep MS                   pauses the script, MS in 0..600000\n"
    "  timeline FILE.svg          writes the session's timeline\n"
    "  echo TEXT                  prints \"echo TEXT\"\n"
    "  help, quit                 quit lets what is under way arrive\n";

}  // namespace

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

std::string CommandHelp() {
  std::string text = "commands:\n";
  for (const Command& command : kCommands) {
    const std::string head = std::string(command.name) +
                             (*command.usage ? " " : "") + command.usage;
    std::istringstream help(command.help);
    std::string line;
    std::getline(help, line);
    // A long form gets a row of its own.
    text += "  " + head +
            (head.size() > 26 ? "\n" + std::string(29, ' ')
                              : std::string(27 - head.size(), ' ')) +
            line + "\n";
    while (std::getline(help, line)) text += std::string(29, ' ') + line + "\n";
  }
  return text + kScriptHelp;
}

bool ExecuteCommand(Simulator* sim, const std::string& command_line) {
  std::istringstream in(command_line);
  std::string name;
  in >> name;
  Words args;
  for (std::string word; in >> word;) args.push_back(word);

  if (name.empty() || name[0] == '#') return true;
  if (sim->shut_down() && name != "quit") {
    sim->Report("error simulator is shut down");
    return false;
  }
  if (name == "echo") {
    sim->Report(Trim(command_line));
    return true;
  }
  if (name == "help") {
    std::istringstream help(CommandHelp());
    for (std::string line; std::getline(help, line);) sim->Report(line);
    return true;
  }
  if (name == "quit") {
    sim->Quit();
    return true;
  }
  for (const Command& command : kCommands) {
    if (name != command.name) continue;
    std::string why;
    if (command.run) {
      why = command.run(sim, args);
    } else {
      const int choice = *command.usage ? Choice(Arg(args, 0), command.usage) : 0;
      if (choice < 0 || args.size() != (*command.usage ? 1u : 0u)) {
        why = *command.usage ? "expected one of " +
                                   std::regex_replace(command.usage,
                                                      std::regex("\\|"), ",")
                             : "expected no arguments";
      } else {
        command.choose(sim, choice);
      }
    }
    if (why.empty()) return true;
    sim->Report("error " + Trim(command_line) + ": " + why);
    return false;
  }
  sim->Report("error unknown command: " + Trim(command_line));
  return false;
}

}  // namespace morvane::ap
