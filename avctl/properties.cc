#include "avctl/properties.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdio>

namespace morvane::ap::avctl {
namespace {

// Reads a dictionary with |read|, which reads one |entry| ("{ss}").
template <typename V, typename Read>
int ReadDictionary(sd_bus_message* m, const char* entry, Read read,
                   std::map<std::string, V>* out) {
  out->clear();
  int r = sd_bus_message_enter_container(m, 'a', entry);
  if (r < 0) return r;
  const char* key = nullptr;
  V value{};
  while ((r = read(m, &key, &value)) > 0) out->emplace(key, value);
  if (r < 0) return r;
  return sd_bus_message_exit_container(m);
}

int ReadVariant(sd_bus_message* m, PropertyValue* value) {
  const char* contents = nullptr;
  int r = sd_bus_message_peek_type(m, nullptr, &contents);
  if (r < 0) return r;
  const std::string signature = contents ? contents : "";
  if (signature == "u" || signature == "b") {
    uint32_t number = 0;  // a "b" is read as a 32-bit int too
    r = sd_bus_message_read(m, "v", signature.c_str(), &number);
    value->number = number;
  } else if (signature == "t") {
    r = sd_bus_message_read(m, "v", "t", &value->number);
  } else if (signature == "s") {
    const char* text = nullptr;
    r = sd_bus_message_read(m, "v", "s", &text);
    if (r >= 0) value->text = text;
  } else if (signature == "a{ss}" || signature == "a{st}") {
    r = sd_bus_message_enter_container(m, 'v', signature.c_str());
    if (r < 0) return r;
    if (signature == "a{ss}") {
      r = ReadDictionary<std::string>(
          m, "{ss}",
          [](sd_bus_message* m, const char** key, std::string* v) {
            const char* text = nullptr;
            const int r = sd_bus_message_read(m, "{ss}", key, &text);
            if (r > 0) *v = text;
            return r;
          },
          &value->strings);
    } else {
      r = ReadDictionary<uint64_t>(
          m, "{st}",
          [](sd_bus_message* m, const char** key, uint64_t* v) {
            return sd_bus_message_read(m, "{st}", key, v);
          },
          &value->numbers);
    }
    if (r >= 0) r = sd_bus_message_exit_container(m);
  } else {
    return sd_bus_message_skip(m, "v") < 0 ? -EBADMSG : 0;
  }
  if (r < 0) return r;
  value->type = signature.size() == 1   ? signature[0]
                : signature == "a{ss}" ? 'S'
                                       : 'T';
  return 1;
}

const char* StateName(uint64_t state) {
  switch (state) {
    case 0: return "start-up";
    case 1: return "online";
    case 2: return "WAN failure";
    case 3: return "setup";
    case 4: return "setup activity";
    case 6: return "operation in progress";
    default: return "unknown";
  }
}

// What a timed state is, for the two whose inside names say little; the
// inside name follows, as the properties carry it.
std::string TimedStateName(const std::string& name) {
  if (name == "wan_failure") return "start-up grace period (wan_failure)";
  if (name == "setup_complete") return "online after setup (setup_complete)";
  return name;
}

}  // namespace

int ReadProperties(sd_bus_message* m, Properties* properties) {
  int r = sd_bus_message_enter_container(m, 'a', "{sv}");
  if (r < 0) return r;
  while ((r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
    const char* name = nullptr;
    r = sd_bus_message_read(m, "s", &name);
    if (r < 0) return r;
    PropertyValue value;
    r = ReadVariant(m, &value);
    if (r < 0) return r;
    if (r > 0) (*properties)[name] = std::move(value);
    r = sd_bus_message_exit_container(m);
    if (r < 0) return r;
  }
  if (r < 0) return r;
  return sd_bus_message_exit_container(m);
}

std::string FormatValue(const PropertyValue& value) {
  std::string text;
  switch (value.type) {
    case 'b': return value.number ? "yes" : "no";
    case 's': return value.text;
    case 'S':
      for (const auto& [key, item] : value.strings) {
        text += (text.empty() ? "" : ",") + key + ":" + item;
      }
      return text;
    case 'T':
      for (const auto& [key, item] : value.numbers) {
        text += (text.empty() ? "" : ",") + key + ":" + std::to_string(item);
      }
      return text;
    default: return std::to_string(value.number);
  }
}

std::string FormatStatus(const Properties& properties, int64_t now_wall_us) {
  static const PropertyValue kMissing;
  auto get = [&](const char* name) -> const PropertyValue& {
    auto it = properties.find(name);
    return it == properties.end() ? kMissing : it->second;
  };
  auto yes = [&](const char* name) { return get(name).number != 0; };
  auto line = [](const char* label, const std::string& text) {
    char head[32];
    snprintf(head, sizeof(head), "%16s: ", label);
    return head + text + "\n";
  };

  const auto& deadlines = get("TimedStateDeadlines").numbers;
  // Whole seconds, rounded up: "0 s left" only once the deadline passed.
  auto left = [&](const std::string& name) {
    const auto it = deadlines.find(name);
    if (it == deadlines.end()) return std::string();
    const int64_t left_us = static_cast<int64_t>(it->second) - now_wall_us;
    return ", " +
           std::to_string(left_us > 0 ? (left_us + 999'999) / 1'000'000 : 0) +
           " s left";
  };

  const uint64_t state = get("LightState").number;
  const std::string& input = get("DecidingInput").text;
  // The grace's timed state has an inside name; say what it is.
  const std::string decided_by =
      input == "wan_failure"
          ? "the start-up grace period" + left(input) + ", " + input
          : input;
  std::string out = "avd: light state " + std::to_string(state) + ", " +
                    StateName(state) + " (decided by " + decided_by + ")\n";
  out += line("Brightness", std::to_string(get("Brightness").number) +
                                " of 255, " + get("BrightnessSource").text);
  out += line("Connected",
              std::string(yes("Connected") ? "yes" : "no") + " (WAN " +
                  (yes("WanOnline") ? "online" : "offline") + ", " +
                  (yes("GroupFailure") ? "group failure" : "no group failure") +
                  ")");
  out += line("Setup", std::string(yes("SetupMode") ? "in setup mode"
                                                     : "completed") +
                           (yes("SetupCompleteHold")
                                ? ", holding online after completion"
                                : ""));
  std::string timed;
  for (const auto& [name, value] : get("TimedStates").strings) {
    std::string item = TimedStateName(name);
    if (!value.empty()) item += " \"" + value + "\"";
    item += left(name);
    timed += timed.empty() ? item : "\n" + std::string(18, ' ') + item;
  }
  out += line("Timed states", timed.empty() ? "none" : timed);
  const uint64_t operation = get("LastOperationId").number;
  out += line("Last operation",
              operation ? std::to_string(operation) : std::string("none"));
  const auto& not_read = get("DevicesNotRead").strings;
  auto use = [&](const char* name, const char* device = "") {
    const auto why = not_read.find(device);
    if (yes(name)) return std::string("in use");
    return why == not_read.end() ? std::string("not in use")
                                 : "not in use: " + why->second;
  };
  out += line("Touch device", use("TouchDeviceInUse", "touch"));
  out += line("Proximity sensor", use("ProximitySensorInUse", "proximity"));
  out += line("Audio server", use("AudioServerInUse"));
  return out;
}

}  // namespace morvane::ap::avctl
