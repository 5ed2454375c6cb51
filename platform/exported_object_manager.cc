#include "platform/exported_object_manager.h"

#include <systemd/sd-bus.h>

#include <cstring>
#include <utility>

#include "platform/bus.h"

namespace morvane::ap {
namespace {

constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";

}  // namespace

ExportedObjectManager::ExportedObjectManager(std::shared_ptr<Bus> bus,
                                             std::string root_path)
    : bus_(std::move(bus)), root_path_(std::move(root_path)) {}

ExportedObjectManager::~ExportedObjectManager() { sd_bus_slot_unref(slot_); }

bool ExportedObjectManager::Register(ErrorPtr* error) {
  const int r =
      sd_bus_add_object_manager(bus_->raw(), &slot_, root_path_.c_str());
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain, kFailed,
                       "Failed to add the object manager at %s: %s",
                       root_path_.c_str(), strerror(-r));
    return false;
  }
  return true;
}

bool ExportedObjectManager::ObjectAdded(const std::string& path,
                                        ErrorPtr* error) {
  const int r = sd_bus_emit_object_added(bus_->raw(), path.c_str());
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain, kFailed,
                       "Failed to announce the object %s: %s", path.c_str(),
                       strerror(-r));
    return false;
  }
  return true;
}

bool ExportedObjectManager::ObjectRemoved(const std::string& path,
                                          ErrorPtr* error) {
  const int r = sd_bus_emit_object_removed(bus_->raw(), path.c_str());
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain, kFailed,
                       "Failed to announce the removal of %s: %s", path.c_str(),
                       strerror(-r));
    return false;
  }
  return true;
}

}  // namespace morvane::ap
