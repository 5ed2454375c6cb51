#include "sim/library_log.h"

#include <cstdlib>
#include <sstream>

#include "sim/commands.h"

namespace morvane::ap {
namespace {

// Parses a whole decimal integer; nullopt for anything else.
std::optional<int> ParseInt(const std::string& text) {
  int64_t value = 0;
  if (!ParseNumber(text, INT32_MIN, INT32_MAX, &value)) return std::nullopt;
  return static_cast<int>(value);
}

}  // namespace

LibraryOutcome TranslateLightControlLine(const std::string& raw) {
  std::istringstream in(raw);
  std::string call;
  in >> call;
  std::string rest;
  std::getline(in >> std::ws, rest);

  LibraryOutcome out;
  if (call == "light_set_state") {
    out.line = "light state " + rest;
    out.light_state = ParseInt(rest);
  } else if (call == "light_set_state_with_transition") {
    out.line = "light transition " + rest;
    out.light_state = ParseInt(rest.substr(0, rest.find(' ')));
  } else if (call == "light_init") {
    out.line = "light init " + rest;
  } else if (call == "light_set_master_brightness") {
    out.line = "brightness " + rest;
    out.brightness = ParseInt(rest);
  } else if (call == "light_get_ambient_brightness") {
    out.line = "ambient read " + rest;
  } else if (call == "light_get_proximity_device_path") {
    out.line = "proximity path " + rest;
  } else {
    out.line = "light " + raw;
  }
  return out;
}

LibraryOutcome TranslatePavoLine(const std::string& raw,
                                 size_t network_creation_bytes,
                                 size_t touch_feedback_bytes) {
  LibraryOutcome out;
  if (!raw.starts_with("play ")) {
    out.line = "audio " + raw;
    return out;
  }
  std::string clip = "unknown";
  const size_t bytes_at = raw.find(" bytes=");
  if (bytes_at != std::string::npos) {
    const size_t bytes = strtoul(raw.c_str() + bytes_at + 7, nullptr, 10);
    if (bytes == network_creation_bytes) {
      clip = "network_creation";
    } else if (bytes == touch_feedback_bytes) {
      clip = "touch_feedback";
    }
  }
  out.line = "sound " + clip + " " + raw.substr(5);
  return out;
}

LibraryOutcome TranslateMetricsLine(const std::string& raw) {
  LibraryOutcome out;
  out.line = raw.starts_with("enum ") ? "metric " + raw.substr(5)
                                      : "metric " + raw;
  return out;
}

}  // namespace morvane::ap
