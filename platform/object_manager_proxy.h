#ifndef PLATFORM_OBJECT_MANAGER_PROXY_H_
#define PLATFORM_OBJECT_MANAGER_PROXY_H_

#include <map>
#include <memory>
#include <string>

#include "platform/bus.h"
#include "platform/dbus_message.h"
#include "platform/object_proxy.h"
#include "platform/property_set.h"

namespace morvane::ap {

// The client side of a service's org.freedesktop.DBus.ObjectManager: keeps
// the service's objects, each with a proxy and, for every interface a
// client registered for, a property set filled with the values that came
// with the object. Reads GetManagedObjects when it starts and whenever the
// service (re)appears, follows InterfacesAdded and InterfacesRemoved, and
// drops every object when the service leaves the bus. Interfaces nobody
// registered for are skipped.
class ObjectManagerProxy {
 public:
  // A client of the objects that have one interface. Its calls run from the
  // loop; none may destroy the manager.
  class Interface {
   public:
    virtual ~Interface() = default;

    // Makes the property set of |interface| of the object at |path|, over
    // |object_proxy|. The manager owns it, connects its signals and fills it
    // with the values that came with the object before ObjectAdded().
    virtual std::unique_ptr<PropertySet> CreateProperties(
        ObjectProxy* object_proxy, const ObjectPath& path,
        const std::string& interface) = 0;

    // The object at |path| has |interface|; its properties are filled.
    virtual void ObjectAdded(const ObjectPath& path,
                             const std::string& interface) = 0;

    // The object at |path| lost |interface|, or the service left. Its
    // properties (and, with its last interface, its proxy) go right after.
    virtual void ObjectRemoved(const ObjectPath& path,
                               const std::string& interface) = 0;
  };

  // Follows the object manager at |manager_path| of |service|. |bus| must be
  // attached to the loop.
  ObjectManagerProxy(std::shared_ptr<Bus> bus, std::string service,
                     ObjectPath manager_path);
  ObjectManagerProxy(const ObjectManagerProxy&) = delete;
  ObjectManagerProxy& operator=(const ObjectManagerProxy&) = delete;
  // Drops every object without telling the clients.
  ~ObjectManagerProxy();

  // |client|, which must outlive the manager, gets the objects that have
  // |interface|. Register before returning to the loop after construction:
  // objects already known are not announced again.
  void RegisterInterface(const std::string& interface, Interface* client);

  // The proxy of the object at |path|, or null when none is known there.
  ObjectProxy* GetObjectProxy(const ObjectPath& path) const;

  // The property set of |interface| of the object at |path|, or null.
  PropertySet* GetProperties(const ObjectPath& path,
                             const std::string& interface) const;

 private:
  struct Object {
    std::unique_ptr<ObjectProxy> proxy;
    std::map<std::string, std::unique_ptr<PropertySet>> properties;
  };

  void GetManagedObjects();
  void OnGetManagedObjects(Message* reply);
  void OnInterfacesAdded(Message* signal);
  void OnInterfacesRemoved(Message* signal);
  // Reads the a{sa{sv}} of the object at |path|.
  bool ReadInterfaces(MessageReader& reader, const ObjectPath& path,
                      ErrorPtr* error);
  // Takes the a{sv} the reader is on as |interface| of the object at |path|.
  bool AddInterface(MessageReader& reader, const ObjectPath& path,
                    const std::string& interface, Interface* client,
                    ErrorPtr* error);
  void RemoveInterface(const ObjectPath& path, const std::string& interface);
  void RemoveAllObjects();

  const std::shared_ptr<Bus> bus_;
  const std::string service_;
  ObjectProxy manager_proxy_;
  std::map<std::string, Interface*> clients_;
  // By object path.
  std::map<std::string, Object> objects_;
  BusSlot interfaces_added_slot_;
  BusSlot interfaces_removed_slot_;
  BusSlot owner_changed_slot_;
  BusSlot get_managed_objects_call_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_OBJECT_MANAGER_PROXY_H_
