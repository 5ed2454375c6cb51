#ifndef PLATFORM_EXPORTED_PROPERTY_H_
#define PLATFORM_EXPORTED_PROPERTY_H_

#include <functional>
#include <string>
#include <utility>

#include "platform/dbus_message.h"

namespace morvane::ap {

// How clients learn that a property changed; introspection shows it as the
// annotation "org.freedesktop.DBus.Property.EmitsChangedSignal".
enum class EmitsChangedSignal {
  // PropertiesChanged carries the new value.
  kTrue,
  // PropertiesChanged only names the property; clients Get it.
  kInvalidates,
  // No signal: for a value that changes too often to announce, which
  // clients Get when they need it.
  kFalse,
};

// A read-only property of an exported interface (see
// ExportedInterface::AddProperty), answered to Get and GetAll.
class ExportedPropertyBase {
 public:
  ExportedPropertyBase(const ExportedPropertyBase&) = delete;
  ExportedPropertyBase& operator=(const ExportedPropertyBase&) = delete;
  virtual ~ExportedPropertyBase() = default;

  const std::string& name() const { return name_; }
  EmitsChangedSignal emits() const { return emits_; }
  virtual const char* signature() const = 0;
  // Appends the current value; false when it cannot go on the wire.
  virtual bool AppendValue(MessageWriter* writer) const = 0;

 protected:
  ExportedPropertyBase(std::string name, EmitsChangedSignal emits,
                       std::function<void()> on_changed)
      : name_(std::move(name)),
        emits_(emits),
        on_changed_(std::move(on_changed)) {}

  void Changed() { on_changed_(); }

 private:
  const std::string name_;
  const EmitsChangedSignal emits_;
  const std::function<void()> on_changed_;
};

// A property holding a T (one of the types MessageWriter appends), T{}
// until first set.
template <typename T>
class ExportedProperty : public ExportedPropertyBase {
 public:
  ExportedProperty(std::string name, EmitsChangedSignal emits,
                   std::function<void()> on_changed)
      : ExportedPropertyBase(std::move(name), emits, std::move(on_changed)) {}

  // Stores |value|. Only a value different from the held one is a change,
  // announced as emits() says once the object is on the bus; an equal one
  // costs a comparison and nothing else.
  void SetValue(const T& value) {
    if (value == value_) return;
    value_ = value;
    Changed();
  }

  const T& value() const { return value_; }

  const char* signature() const override { return DbusType<T>::kSignature; }
  bool AppendValue(MessageWriter* writer) const override {
    return writer->Append(value_);
  }

 private:
  T value_{};
};

// A read-only property computed when a client asks, never announced: for
// a value that moves on every call (a deadline), cheaper to derive on the
// rare Get than to keep up to date on every call.
template <typename T>
class ComputedProperty : public ExportedPropertyBase {
 public:
  explicit ComputedProperty(std::string name)
      : ExportedPropertyBase(std::move(name), EmitsChangedSignal::kFalse,
                             [] {}) {}

  // |compute| answers from now on; without one the value is T{}. Whoever
  // sets it clears it (nullptr) before |compute| becomes invalid.
  void SetSource(std::function<T()> compute) { compute_ = std::move(compute); }

  T value() const { return compute_ ? compute_() : T{}; }

  const char* signature() const override { return DbusType<T>::kSignature; }
  bool AppendValue(MessageWriter* writer) const override {
    return writer->Append(value());
  }

 private:
  std::function<T()> compute_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_EXPORTED_PROPERTY_H_
