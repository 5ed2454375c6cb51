#include "dbus/manager_adaptor.h"

#include "platform/exported_object.h"

namespace org::tessaly::ap::AudioVisual {

ManagerAdaptor::ManagerAdaptor(ManagerInterface* interface)
    : interface_(interface) {}

void ManagerAdaptor::RegisterWithDBusObject(::morvane::ap::ExportedObject* object) {
  ::morvane::ap::ExportedInterface* itf = object->AddOrGetInterface(kManagerInterface);
  itf->AddMethodHandler("SetOperationInProgress", {"ignored"}, {"operation_id"},
                        interface_, &ManagerInterface::SetOperationInProgress);
  itf->AddMethodHandler("SetOperationSucceeded", {"operation_id"}, {},
                        interface_, &ManagerInterface::SetOperationSucceeded);
  itf->AddMethodHandler("SetOperationFailed", {"operation_id"}, {}, interface_,
                        &ManagerInterface::SetOperationFailed);
  itf->AddMethodHandler("SetLedState", {"state", "value", "duration_seconds"},
                        {}, interface_, &ManagerInterface::SetLedState);
}

}  // namespace org::tessaly::ap::AudioVisual
