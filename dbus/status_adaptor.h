#ifndef DBUS_STATUS_ADAPTOR_H_
#define DBUS_STATUS_ADAPTOR_H_

#include <cstdint>
#include <map>
#include <string>

#include "platform/exported_property.h"

namespace morvane::ap {
class ExportedObject;
}  // namespace morvane::ap

namespace org::tessaly::ap::AudioVisual {

using ::morvane::ap::ComputedProperty;
using ::morvane::ap::ExportedProperty;

inline constexpr char kStatusInterface[] = "org.tessaly.ap.AudioVisual.Status";
inline constexpr char kStatusPath[] = "/org/tessaly/ap/AudioVisual/Status";

// The read-only properties of org.tessaly.ap.AudioVisual.Status (see
// dbus/org.tessaly.ap.AudioVisual.Status.xml). Whoever holds a value sets
// it; a changed value is announced once the object is on the bus, an equal
// one costs nothing. Before registration the values are only kept, so
// components can feed an adaptor whose object never reaches a bus.
class StatusAdaptor {
 public:
  // Adds the interface and its properties to |object|, which must outlive
  // the adaptor and not be registered yet.
  explicit StatusAdaptor(::morvane::ap::ExportedObject* object);
  StatusAdaptor(const StatusAdaptor&) = delete;
  StatusAdaptor& operator=(const StatusAdaptor&) = delete;

  ExportedProperty<uint32_t>& light_state() { return *light_state_; }
  ExportedProperty<std::string>& deciding_input() { return *deciding_input_; }
  ExportedProperty<uint32_t>& brightness() { return *brightness_; }
  ExportedProperty<std::string>& brightness_source() {
    return *brightness_source_;
  }
  ExportedProperty<bool>& connected() { return *connected_; }
  ExportedProperty<bool>& wan_online() { return *wan_online_; }
  ExportedProperty<bool>& group_failure() { return *group_failure_; }
  ExportedProperty<bool>& setup_mode() { return *setup_mode_; }
  ExportedProperty<bool>& setup_complete_hold() {
    return *setup_complete_hold_;
  }
  ExportedProperty<std::map<std::string, std::string>>& timed_states() {
    return *timed_states_;
  }
  ComputedProperty<std::map<std::string, uint64_t>>& timed_state_deadlines() {
    return *timed_state_deadlines_;
  }
  ExportedProperty<uint32_t>& last_operation_id() {
    return *last_operation_id_;
  }
  ExportedProperty<bool>& touch_device_in_use() {
    return *touch_device_in_use_;
  }
  ExportedProperty<bool>& proximity_sensor_in_use() {
    return *proximity_sensor_in_use_;
  }
  ExportedProperty<bool>& audio_server_in_use() {
    return *audio_server_in_use_;
  }
  ExportedProperty<std::map<std::string, std::string>>& devices_not_read() {
    return *devices_not_read_;
  }

 private:
  ExportedProperty<uint32_t>* light_state_;
  ExportedProperty<std::string>* deciding_input_;
  ExportedProperty<uint32_t>* brightness_;
  ExportedProperty<std::string>* brightness_source_;
  ExportedProperty<bool>* connected_;
  ExportedProperty<bool>* wan_online_;
  ExportedProperty<bool>* group_failure_;
  ExportedProperty<bool>* setup_mode_;
  ExportedProperty<bool>* setup_complete_hold_;
  ExportedProperty<std::map<std::string, std::string>>* timed_states_;
  ComputedProperty<std::map<std::string, uint64_t>>* timed_state_deadlines_;
  ExportedProperty<uint32_t>* last_operation_id_;
  ExportedProperty<bool>* touch_device_in_use_;
  ExportedProperty<bool>* proximity_sensor_in_use_;
  ExportedProperty<bool>* audio_server_in_use_;
  ExportedProperty<std::map<std::string, std::string>>* devices_not_read_;
};

}  // namespace org::tessaly::ap::AudioVisual

#endif  // DBUS_STATUS_ADAPTOR_H_
