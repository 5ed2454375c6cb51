// avctl: shows the audio-visual daemon's status and makes its Manager
// calls, on the system bus (DBUS_SYSTEM_BUS_ADDRESS picks another).

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <signal.h>
#include <time.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "avctl/properties.h"
#include "avd_version.h"

namespace morvane::ap::avctl {
namespace {

constexpr char kService[] = "org.tessaly.ap.AudioVisual";
constexpr char kManagerPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kManagerInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr char kStatusPath[] = "/org/tessaly/ap/AudioVisual/Status";
constexpr char kStatusInterface[] = "org.tessaly.ap.AudioVisual.Status";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 64;  // EX_USAGE

constexpr char kUsage[] =
    "Usage: avctl [OPTIONS...] COMMAND\n"
    "\n"
    "Shows what the audio-visual daemon (avd) shows on the light ring and why,\n"
    "and makes the calls other daemons make.\n"
    "\n"
    "Commands:\n"
    "  status                    Show the light state, its deciding input and\n"
    "                            the daemon's inputs\n"
    "  monitor                   Print each change of the status until stopped;\n"
    "                            waits for avd when it is not running\n"
    "  op start [ID]             Show an operation in progress (30 s); prints\n"
    "                            the new operation id\n"
    "  op succeed|fail [ID]      End the operation (ID defaults to the last)\n"
    "  led NAME VALUE SECONDS    Raise the timed state NAME (\"vox\" or\n"
    "                            \"setup_activity\") for SECONDS; 0 ends it\n"
    "\n"
    "Options:\n"
    "  -h --help, help           Show this help\n"
    "     --version              Show the version\n"
    "\n"
    "The system bus is DBUS_SYSTEM_BUS_ADDRESS when set. Exit status: 0 on\n"
    "success, 1 when the daemon or the bus failed the request, 64 on a usage\n"
    "error.\n";

int Usage(const std::string& problem) {
  fprintf(stderr, "avctl: %s\nTry 'avctl --help'.\n", problem.c_str());
  return kExitUsage;
}

// Prints why |what| failed, naming a daemon that is not running plainly.
int Fail(const std::string& what, const sd_bus_error* error, int r) {
  if (error && sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                      SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
    fprintf(stderr, "avctl: Failed to %s: avd is not running (%s is not on "
                    "the bus)\n", what.c_str(), kService);
  } else if (error && sd_bus_error_is_set(error)) {
    fprintf(stderr, "avctl: Failed to %s: %s (%s)\n", what.c_str(),
            error->message ? error->message : "", error->name);
  } else {
    fprintf(stderr, "avctl: Failed to %s: %s\n", what.c_str(), strerror(-r));
  }
  return kExitFailure;
}

// No system bus to connect to: the usual case on a workstation.
int NoBus(int r) {
  Fail("connect to the system bus", nullptr, r);
  fputs("avctl: Run it inside the simulator (scripts/sim shows the bus "
        "address), or set DBUS_SYSTEM_BUS_ADDRESS to the bus avd is on.\n",
        stderr);
  return kExitFailure;
}

int64_t WallNowUs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1'000;
}

// Parses a whole unsigned 32-bit number, 0 to 4294967295.
bool ParseU32(const char* text, uint32_t* value) {
  errno = 0;
  char* end = nullptr;
  const unsigned long long parsed = strtoull(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || text[0] == '-' ||
      parsed > UINT32_MAX) {
    return false;
  }
  *value = static_cast<uint32_t>(parsed);
  return true;
}

int GetStatus(sd_bus* bus, Properties* properties) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(bus, kService, kStatusPath, kProperties, "GetAll",
                             &error, &reply, "s", kStatusInterface);
  if (r >= 0) r = ReadProperties(reply, properties);
  const int result = r < 0 ? Fail("read the status", &error, r) : 0;
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
  return result;
}

int Status(sd_bus* bus) {
  Properties properties;
  if (const int r = GetStatus(bus, &properties)) return r;
  fputs(FormatStatus(properties, WallNowUs()).c_str(), stdout);
  return 0;
}

// Calls the Manager's |method|; |reply| (may be null) receives the answer.
template <typename... Args>
int CallManager(sd_bus* bus, const char* method, sd_bus_message** reply,
                const char* types, Args... args) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  const int r = sd_bus_call_method(bus, kService, kManagerPath,
                                   kManagerInterface, method, &error, reply,
                                   types, args...);
  const int result = r < 0 ? Fail(std::string("call ") + method, &error, r) : 0;
  sd_bus_error_free(&error);
  return result;
}

// A command line, checked before anything goes on the bus.
struct Request {
  std::string command;
  // op: "start", "succeed" or "fail", and the ID if given.
  std::string op;
  bool has_id = false;
  uint32_t id = 0;
  // led: NAME VALUE SECONDS.
  std::string name;
  std::string value;
  uint32_t seconds = 0;
};

// Fills |request| from the words after the options; 0, or the usage
// error's exit status.
int Parse(const std::vector<std::string>& words, Request* request) {
  if (words.empty()) return Usage("missing command");
  request->command = words[0];
  const std::vector<std::string> args(words.begin() + 1, words.end());
  if (request->command == "status" || request->command == "monitor") {
    return args.empty() ? 0 : Usage(request->command + " takes no arguments");
  }
  if (request->command == "op") {
    if (args.empty() || args.size() > 2 ||
        (args[0] != "start" && args[0] != "succeed" && args[0] != "fail")) {
      return Usage("op takes start, succeed or fail, and an optional ID");
    }
    request->op = args[0];
    request->has_id = args.size() == 2;
    if (request->has_id && !ParseU32(args[1].c_str(), &request->id)) {
      return Usage("invalid operation ID " + args[1] +
                   ": a number from 0 to 4294967295");
    }
    return 0;
  }
  if (request->command == "led") {
    if (args.size() != 3) return Usage("led takes NAME VALUE SECONDS");
    request->name = args[0];
    request->value = args[1];
    if (!ParseU32(args[2].c_str(), &request->seconds)) {
      return Usage("invalid number of seconds " + args[2] +
                   ": a number from 0 to 4294967295");
    }
    return 0;
  }
  return Usage("unknown command " + request->command);
}

int Operation(sd_bus* bus, const Request& request) {
  if (request.op == "start") {
    sd_bus_message* reply = nullptr;
    if (const int r = CallManager(bus, "SetOperationInProgress", &reply, "u",
                                  request.id)) {
      return r;
    }
    uint32_t new_id = 0;
    const int r = sd_bus_message_read(reply, "u", &new_id);
    sd_bus_message_unref(reply);
    if (r < 0) return Fail("read the operation id", nullptr, r);
    printf("%u\n", new_id);
    return 0;
  }
  uint32_t id = request.id;
  if (!request.has_id) {
    Properties properties;
    if (const int r = GetStatus(bus, &properties)) return r;
    id = static_cast<uint32_t>(properties["LastOperationId"].number);
  }
  return CallManager(bus,
                     request.op == "succeed" ? "SetOperationSucceeded"
                                             : "SetOperationFailed",
                     nullptr, "u", id);
}

int Led(sd_bus* bus, const Request& request) {
  const int r = CallManager(bus, "SetLedState", nullptr, "ssu",
                            request.name.c_str(), request.value.c_str(),
                            request.seconds);
  // The daemon's refusal of a name does not say what it accepts.
  if (r != 0 && request.name != "vox" && request.name != "setup_activity") {
    fprintf(stderr, "avctl: avd accepts the names \"vox\" and "
                    "\"setup_activity\"\n");
  }
  return r;
}

int OnPropertiesChanged(sd_bus_message* m, void*, sd_bus_error*) {
  Properties changed;
  if (sd_bus_message_skip(m, "s") < 0 || ReadProperties(m, &changed) < 0) {
    return 0;
  }
  std::string line;
  for (const auto& [name, value] : changed) {
    line += (line.empty() ? "" : " ") + name + "=" + FormatValue(value);
  }
  printf("%s\n", line.c_str());
  fflush(stdout);
  return 0;
}

// Whether avd owns its name on |bus| now.
bool AvdOnBus(sd_bus* bus) {
  sd_bus_message* reply = nullptr;
  int has_owner = 0;
  if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "NameHasOwner", nullptr,
                         &reply, "s", kService) >= 0) {
    sd_bus_message_read(reply, "b", &has_owner);
  }
  sd_bus_message_unref(reply);
  return has_owner;
}

// A daemon that comes shows its whole status; one that leaves is waited for.
int OnNameOwnerChanged(sd_bus_message* m, void* bus, sd_bus_error*) {
  const char* name = nullptr;
  const char* old_owner = nullptr;
  const char* new_owner = nullptr;
  if (sd_bus_message_read(m, "sss", &name, &old_owner, &new_owner) < 0) {
    return 0;
  }
  if (new_owner[0]) {
    printf("avd is on the bus\n");
    Status(static_cast<sd_bus*>(bus));
  } else {
    printf("avd left the bus; waiting for it (Ctrl-C stops)\n");
  }
  fflush(stdout);
  return 0;
}

// Prints the status once, then each change, until SIGINT or SIGTERM; waits
// for a daemon that is not running.
int Monitor(sd_bus* bus) {
  sd_event* event = nullptr;
  int r = sd_event_default(&event);
  if (r >= 0) r = sd_bus_attach_event(bus, event, 0);
  if (r >= 0) {
    r = sd_bus_match_signal(bus, nullptr, kService, kStatusPath, kProperties,
                            "PropertiesChanged", OnPropertiesChanged, nullptr);
  }
  if (r >= 0) {
    const std::string match =
        std::string("type='signal',sender='org.freedesktop.DBus',"
                    "member='NameOwnerChanged',arg0='") + kService + "'";
    r = sd_bus_add_match(bus, nullptr, match.c_str(), OnNameOwnerChanged,
                         bus);
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  if (r >= 0) r = sd_event_add_signal(event, nullptr, SIGINT, nullptr, nullptr);
  if (r >= 0) r = sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr);
  if (r < 0) {
    sd_event_unref(event);
    return Fail("watch the status", nullptr, r);
  }
  // After subscribing: no change falls between the snapshot and the signals.
  int status = 0;
  if (AvdOnBus(bus)) {
    status = Status(bus);
  } else {
    printf("avd is not on the bus; waiting for it (Ctrl-C stops)\n");
  }
  if (status == 0) {
    fflush(stdout);
    r = sd_event_loop(event);
  }
  sd_bus_detach_event(bus);
  sd_event_unref(event);
  if (status != 0) return status;
  return r < 0 ? Fail("watch the status", nullptr, r) : 0;
}

int Run(int argc, char** argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help" || (i == 1 && arg == "help")) {
      fputs(kUsage, stdout);
      return 0;
    }
    if (arg == "--version") {
      printf("avctl %s\n", AVD_VERSION);
      return 0;
    }
    // "-1" is a (refused) number, not an option.
    if (arg.size() > 1 && arg[0] == '-' && !isdigit(arg[1])) {
      return Usage("unknown option " + std::string(arg));
    }
    args.emplace_back(arg);
  }
  Request request;
  if (const int r = Parse(args, &request)) return r;

  sd_bus* bus = nullptr;
  int r = sd_bus_open_system(&bus);
  if (r < 0) return NoBus(r);
  int result = 0;
  if (request.command == "status") result = Status(bus);
  if (request.command == "monitor") result = Monitor(bus);
  if (request.command == "op") result = Operation(bus, request);
  if (request.command == "led") result = Led(bus, request);
  sd_bus_flush_close_unref(bus);
  return result;
}

}  // namespace
}  // namespace morvane::ap::avctl

int main(int argc, char** argv) { return morvane::ap::avctl::Run(argc, argv); }
