#ifndef AVCTL_PROPERTIES_H_
#define AVCTL_PROPERTIES_H_

#include <cstdint>
#include <map>
#include <string>

typedef struct sd_bus_message sd_bus_message;

namespace morvane::ap::avctl {

// One property value of the status object, of the types it uses: "u", "t"
// and "b" in |number|, "s" in |text|, "a{ss}" in |strings|, "a{st}" in
// |numbers|.
struct PropertyValue {
  char type = 0;
  uint64_t number = 0;
  std::string text;
  std::map<std::string, std::string> strings;
  std::map<std::string, uint64_t> numbers;
};

using Properties = std::map<std::string, PropertyValue>;

// Reads a dictionary of properties (a{sv}), as GetAll answers it and
// PropertiesChanged carries it, from the current position of |message|
// into |properties|, replacing values of the same names. A value of another
// type is skipped. Returns a negative errno on a malformed message.
int ReadProperties(sd_bus_message* message, Properties* properties);

// One line per value, as `avctl monitor` shows a change:
// "LightState=6", "TimedStates=vox:in_progress,wan_failure:".
std::string FormatValue(const PropertyValue& value);

// The status screen of `avctl status`. |now_wall_us| (microseconds since
// the Unix epoch) turns deadlines into the time left.
std::string FormatStatus(const Properties& properties, int64_t now_wall_us);

}  // namespace morvane::ap::avctl

#endif  // AVCTL_PROPERTIES_H_
