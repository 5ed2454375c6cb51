#include "platform/object_manager_proxy.h"

#include <glog/logging.h>

#include <utility>
#include <vector>

#include "platform/log_text.h"

namespace morvane::ap {
namespace {

constexpr char kObjectManagerInterface[] = "org.freedesktop.DBus.ObjectManager";

}  // namespace

ObjectManagerProxy::ObjectManagerProxy(std::shared_ptr<Bus> bus,
                                       std::string service,
                                       ObjectPath manager_path)
    : bus_(bus),
      service_(std::move(service)),
      manager_proxy_(std::move(bus), service_, std::move(manager_path)) {
  interfaces_added_slot_ = manager_proxy_.ConnectToSignal(
      kObjectManagerInterface, "InterfacesAdded",
      [this](Message* signal) { OnInterfacesAdded(signal); });
  interfaces_removed_slot_ = manager_proxy_.ConnectToSignal(
      kObjectManagerInterface, "InterfacesRemoved",
      [this](Message* signal) { OnInterfacesRemoved(signal); });
  owner_changed_slot_ = manager_proxy_.ConnectToNameOwnerChanged(
      [this](const std::string& old_owner, const std::string& new_owner) {
        // The objects of an owner that left, or moved, are gone with it.
        if (!old_owner.empty()) RemoveAllObjects();
        if (!new_owner.empty()) GetManagedObjects();
      });
  GetManagedObjects();
}

ObjectManagerProxy::~ObjectManagerProxy() = default;

void ObjectManagerProxy::RegisterInterface(const std::string& interface,
                                           Interface* client) {
  clients_[interface] = client;
}

ObjectProxy* ObjectManagerProxy::GetObjectProxy(const ObjectPath& path) const {
  auto it = objects_.find(path.value);
  return it == objects_.end() ? nullptr : it->second.proxy.get();
}

PropertySet* ObjectManagerProxy::GetProperties(
    const ObjectPath& path, const std::string& interface) const {
  auto object = objects_.find(path.value);
  if (object == objects_.end()) return nullptr;
  auto it = object->second.properties.find(interface);
  return it == object->second.properties.end() ? nullptr : it->second.get();
}

void ObjectManagerProxy::GetManagedObjects() {
  get_managed_objects_call_ = manager_proxy_.CallMethod(
      kObjectManagerInterface, "GetManagedObjects",
      [this](Message* reply) { OnGetManagedObjects(reply); },
      [this](const Error* error) {
        // An absent service is read when it arrives.
        if (IsServiceUnknown(error)) return;
        LOG(WARNING) << "Failed to get the objects of " << service_ << ": "
                     << LogText(error->message());
      });
}

void ObjectManagerProxy::OnGetManagedObjects(Message* reply) {
  MessageReader reader(reply);
  ErrorPtr error;
  const bool read = reader.ReadDictionary<ObjectPath>(
      "a{sa{sv}}",
      [&](const ObjectPath& path, ErrorPtr* error) {
        return ReadInterfaces(reader, path, error);
      },
      &error);
  if (!read || !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read the objects of " << service_ << ": "
                 << LogText(error->message()) << ", ignoring the rest";
  }
}

void ObjectManagerProxy::OnInterfacesAdded(Message* signal) {
  MessageReader reader(signal);
  ErrorPtr error;
  ObjectPath path;
  if (!reader.Read(&path, &error) || !ReadInterfaces(reader, path, &error) ||
      !reader.ReadEnd(&error)) {
    LOG(WARNING) << "Failed to read InterfacesAdded of " << service_ << ": "
                 << LogText(error->message()) << ", ignoring the rest";
  }
}

void ObjectManagerProxy::OnInterfacesRemoved(Message* signal) {
  MessageReader reader(signal);
  ErrorPtr error;
  ObjectPath path;
  std::vector<std::string> interfaces;
  if (!ReadArgs(reader, &error, &path, &interfaces)) {
    LOG(WARNING) << "Failed to read InterfacesRemoved of " << service_ << ": "
                 << LogText(error->message()) << ", ignoring it";
    return;
  }
  for (const std::string& interface : interfaces) {
    RemoveInterface(path, interface);
  }
}

bool ObjectManagerProxy::ReadInterfaces(MessageReader& reader,
                                        const ObjectPath& path,
                                        ErrorPtr* error) {
  return reader.ReadDictionary<std::string>(
      "a{sv}",
      [&](const std::string& interface, ErrorPtr* error) {
        auto client = clients_.find(interface);
        if (client == clients_.end()) return reader.Skip(error);
        return AddInterface(reader, path, interface, client->second, error);
      },
      error);
}

bool ObjectManagerProxy::AddInterface(MessageReader& reader,
                                      const ObjectPath& path,
                                      const std::string& interface,
                                      Interface* client, ErrorPtr* error) {
  Object& object = objects_[path.value];
  if (!object.proxy) {
    object.proxy = std::make_unique<ObjectProxy>(bus_, service_, path);
  }
  std::unique_ptr<PropertySet>& properties = object.properties[interface];
  // An interface reported again only brings new values.
  if (properties) return properties->ReadAll(reader, error);
  properties = client->CreateProperties(object.proxy.get(), path, interface);
  properties->ConnectSignals();
  if (!properties->ReadAll(reader, error)) {
    // Not announced: a later report of the object tries again.
    object.properties.erase(interface);
    if (object.properties.empty()) objects_.erase(path.value);
    return false;
  }
  client->ObjectAdded(path, interface);
  return true;
}

void ObjectManagerProxy::RemoveInterface(const ObjectPath& path,
                                         const std::string& interface) {
  auto object = objects_.find(path.value);
  if (object == objects_.end()) return;
  auto properties = object->second.properties.find(interface);
  if (properties == object->second.properties.end()) return;
  clients_[interface]->ObjectRemoved(path, interface);
  object->second.properties.erase(properties);
  if (object->second.properties.empty()) objects_.erase(object);
}

void ObjectManagerProxy::RemoveAllObjects() {
  std::vector<std::pair<ObjectPath, std::string>> known;
  for (const auto& [path, object] : objects_) {
    for (const auto& [interface, properties] : object.properties) {
      known.emplace_back(ObjectPath{path}, interface);
    }
  }
  for (const auto& [path, interface] : known) RemoveInterface(path, interface);
  get_managed_objects_call_.reset();
}

}  // namespace morvane::ap
