#include "dbus/status_adaptor.h"

#include "platform/exported_object.h"

namespace org::tessaly::ap::AudioVisual {

using ::morvane::ap::EmitsChangedSignal;

StatusAdaptor::StatusAdaptor(::morvane::ap::ExportedObject* object) {
  // In the order of the interface file, which introspection keeps.
  ::morvane::ap::ExportedInterface* itf =
      object->AddOrGetInterface(kStatusInterface);
  light_state_ = itf->AddProperty<uint32_t>("LightState");
  deciding_input_ = itf->AddProperty<std::string>("DecidingInput");
  brightness_ = itf->AddProperty<uint32_t>("Brightness");
  brightness_source_ = itf->AddProperty<std::string>("BrightnessSource");
  connected_ = itf->AddProperty<bool>("Connected");
  wan_online_ = itf->AddProperty<bool>("WanOnline");
  group_failure_ = itf->AddProperty<bool>("GroupFailure");
  setup_mode_ = itf->AddProperty<bool>("SetupMode");
  setup_complete_hold_ = itf->AddProperty<bool>("SetupCompleteHold");
  timed_states_ =
      itf->AddProperty<std::map<std::string, std::string>>("TimedStates");
  timed_state_deadlines_ =
      itf->AddComputedProperty<std::map<std::string, uint64_t>>(
          "TimedStateDeadlines");
  last_operation_id_ = itf->AddProperty<uint32_t>("LastOperationId",
                                                 EmitsChangedSignal::kFalse);
  touch_device_in_use_ = itf->AddProperty<bool>("TouchDeviceInUse");
  proximity_sensor_in_use_ = itf->AddProperty<bool>("ProximitySensorInUse");
  audio_server_in_use_ = itf->AddProperty<bool>("AudioServerInUse");
  devices_not_read_ =
      itf->AddProperty<std::map<std::string, std::string>>("DevicesNotRead");
}

}  // namespace org::tessaly::ap::AudioVisual
