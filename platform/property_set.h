#ifndef PLATFORM_PROPERTY_SET_H_
#define PLATFORM_PROPERTY_SET_H_

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/bus.h"
#include "platform/dbus_message.h"
#include "platform/error.h"

namespace morvane::ap {

class ObjectProxy;

// One property of a PropertySet: the last value of the right D-Bus type
// that arrived.
class PropertyBase {
 public:
  PropertyBase() = default;
  PropertyBase(const PropertyBase&) = delete;
  PropertyBase& operator=(const PropertyBase&) = delete;
  virtual ~PropertyBase() = default;

  // False until a value has arrived.
  bool is_valid() const { return is_valid_; }

 private:
  friend class PropertySet;

  // Reads the variant the reader is on. On a value of another type returns
  // false, keeps the old value, and leaves the reader after the variant.
  virtual bool ReadValue(MessageReader& reader, ErrorPtr* error) = 0;

  bool is_valid_ = false;
};

// A property of D-Bus type DbusType<T> (bool "b", std::string "s",
// std::vector<uint8_t> "ay", ...); the default T until a value arrives.
template <typename T>
class Property : public PropertyBase {
 public:
  const T& value() const { return value_; }

 private:
  bool ReadValue(MessageReader& reader, ErrorPtr* error) override {
    T value;
    if (!reader.ReadVariant(&value, error)) return false;
    value_ = std::move(value);
    return true;
  }

  T value_{};
};

// The properties of one interface of a remote object, kept up to date:
// read with org.freedesktop.DBus.Properties.GetAll, followed through its
// PropertiesChanged signal, and read again each time the service
// (re)appears on the bus. A property the signal only invalidates is read
// alone with Properties.Get, so its owner hears of that one and no other.
// Derived sets hold the properties as members and register them in their
// constructor.
//
// A value of the wrong D-Bus type is a warning and leaves the old value;
// the other properties of the same message are still taken.
class PropertySet {
 public:
  // Called with the name of each property whose value arrived (also when it
  // is the same as before), always from the loop.
  using PropertyChangedCallback = std::function<void(const std::string& name)>;

  // |proxy| must outlive the set.
  PropertySet(ObjectProxy* proxy, std::string interface,
              PropertyChangedCallback callback);
  PropertySet(const PropertySet&) = delete;
  PropertySet& operator=(const PropertySet&) = delete;
  // No callback runs afterwards.
  virtual ~PropertySet();

  // |property|, which must outlive the set, takes the values of |name|.
  void RegisterProperty(const std::string& name, PropertyBase* property);

  // Starts following PropertiesChanged and the service's arrivals.
  void ConnectSignals();

  // Asks for every property without waiting; the values arrive later. A
  // request still pending is dropped.
  void GetAll();

  // Takes the values of the a{sv} the reader is on (properties that came
  // with an object, say), then calls the callback for each. Returns false
  // and adds to |error| when the dictionary itself is malformed; the values
  // read before stay taken. A callback may destroy the set.
  bool ReadAll(MessageReader& reader, ErrorPtr* error);

  const std::string& interface() const { return interface_; }

 private:
  // Asks for the one property |name| without waiting; a request for it
  // still pending is dropped.
  void Get(const std::string& name);
  void OnGet(const std::string& name, Message* reply);
  void OnGetAll(Message* reply);
  void OnPropertiesChanged(Message* signal);
  // Takes the values of a{sv} and adds the names taken to |arrived|; false
  // only when the message itself is malformed.
  bool ReadProperties(MessageReader& reader, std::vector<std::string>* arrived,
                      ErrorPtr* error);
  // Calls the callback for each of |arrived|; the last use of this set.
  void Notify(const std::vector<std::string>& arrived);

  ObjectProxy* const proxy_;
  const std::string interface_;
  const PropertyChangedCallback callback_;
  std::map<std::string, PropertyBase*> properties_;
  BusSlot properties_changed_slot_;
  BusSlot owner_changed_slot_;
  BusSlot get_all_call_;
  std::map<std::string, BusSlot> get_calls_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_PROPERTY_SET_H_
