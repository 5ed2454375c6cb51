#ifndef DBUS_MANAGER_ADAPTOR_H_
#define DBUS_MANAGER_ADAPTOR_H_

#include <cstdint>
#include <string>

#include "platform/error.h"

namespace morvane::ap {
class ExportedObject;
}  // namespace morvane::ap

namespace org::tessaly::ap::AudioVisual {

using ::morvane::ap::ErrorPtr;

inline constexpr char kManagerInterface[] = "org.tessaly.ap.AudioVisual.Manager";
inline constexpr char kManagerPath[] = "/org/tessaly/ap/AudioVisual/Manager";

// The methods of org.tessaly.ap.AudioVisual.Manager (see
// dbus/org.tessaly.ap.AudioVisual.Manager.xml). Each returns true on
// success; on false the reply is an error built from |error|, or a generic
// failure when |error| was left empty. Arguments reach these methods only
// after they were decoded and checked.
class ManagerInterface {
 public:
  virtual ~ManagerInterface() = default;

  virtual bool SetOperationInProgress(ErrorPtr* error, uint32_t in_ignored,
                                      uint32_t* out_operation_id) = 0;
  virtual bool SetOperationSucceeded(ErrorPtr* error,
                                     uint32_t in_operation_id) = 0;
  virtual bool SetOperationFailed(ErrorPtr* error,
                                  uint32_t in_operation_id) = 0;
  virtual bool SetLedState(ErrorPtr* error, const std::string& in_state,
                           const std::string& in_value,
                           uint32_t in_duration_seconds) = 0;
};

// Adds the four Manager methods to an exported object, each dispatching
// through |interface|.
class ManagerAdaptor {
 public:
  // |interface| must outlive every object this adaptor registers with.
  explicit ManagerAdaptor(ManagerInterface* interface);
  ManagerAdaptor(const ManagerAdaptor&) = delete;
  ManagerAdaptor& operator=(const ManagerAdaptor&) = delete;

  // Adds the interface and its methods to |object|; call before the
  // object is registered on the bus.
  void RegisterWithDBusObject(::morvane::ap::ExportedObject* object);

 private:
  ManagerInterface* const interface_;
};

}  // namespace org::tessaly::ap::AudioVisual

#endif  // DBUS_MANAGER_ADAPTOR_H_
