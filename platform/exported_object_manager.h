#ifndef PLATFORM_EXPORTED_OBJECT_MANAGER_H_
#define PLATFORM_EXPORTED_OBJECT_MANAGER_H_

#include <memory>
#include <string>

#include "platform/error.h"

typedef struct sd_bus_slot sd_bus_slot;

namespace morvane::ap {

class Bus;

// The org.freedesktop.DBus.ObjectManager of a service at its root path:
// GetManagedObjects lists every object exported below the root with its
// interfaces, and objects announce themselves with InterfacesAdded and
// InterfacesRemoved.
class ExportedObjectManager {
 public:
  ExportedObjectManager(std::shared_ptr<Bus> bus, std::string root_path);
  ExportedObjectManager(const ExportedObjectManager&) = delete;
  ExportedObjectManager& operator=(const ExportedObjectManager&) = delete;
  // Removes the object manager from the bus.
  ~ExportedObjectManager();

  // Adds the object manager at the root path. Returns false and adds to
  // |error| when the bus refuses.
  bool Register(ErrorPtr* error);

  // Emit InterfacesAdded / InterfacesRemoved for every interface of the
  // object at |path|. ObjectRemoved must run while the object's interfaces
  // are still on the bus. Returns false and adds to |error| on failure.
  bool ObjectAdded(const std::string& path, ErrorPtr* error);
  bool ObjectRemoved(const std::string& path, ErrorPtr* error);

  const std::shared_ptr<Bus>& bus() const { return bus_; }
  const std::string& root_path() const { return root_path_; }

 private:
  const std::shared_ptr<Bus> bus_;
  const std::string root_path_;
  sd_bus_slot* slot_ = nullptr;
};

}  // namespace morvane::ap

#endif  // PLATFORM_EXPORTED_OBJECT_MANAGER_H_
