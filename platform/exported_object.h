#ifndef PLATFORM_EXPORTED_OBJECT_H_
#define PLATFORM_EXPORTED_OBJECT_H_

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/dbus_message.h"
#include "platform/error.h"
#include "platform/exported_property.h"
#include "platform/task_loop.h"

namespace morvane::ap {

class Bus;
class ExportedObject;
class ExportedObjectManager;

// Sends the one reply to a method call. If nothing was sent by the time it
// is destroyed, a generic failure goes out, so a caller always gets an
// answer.
class MethodResponse {
 public:
  // |call| must outlive the response.
  explicit MethodResponse(Message* call);
  MethodResponse(const MethodResponse&) = delete;
  MethodResponse& operator=(const MethodResponse&) = delete;
  ~MethodResponse();

  // An empty method return for the call, to fill and pass to Send(). Null
  // when out of memory.
  std::unique_ptr<Message> CreateReturn();

  void Send(std::unique_ptr<Message> reply);

  // An error reply: an error of domain "dbus" gives its code as the D-Bus
  // error name and its message as the text; any other error is sent as
  // "org.freedesktop.DBus.Error.Failed" with its message; a null |error|,
  // or a name the bus refuses, as a fixed generic failure.
  void SendError(const Error* error);

 private:
  Message* const call_;
  bool sent_ = false;
};

// Handles the calls of one exported method.
class MethodHandlerInterface {
 public:
  virtual ~MethodHandlerInterface() = default;

  // Decodes the arguments of |call|, runs the method and answers through
  // |response|, exactly once.
  virtual void HandleMethod(Message* call, MethodResponse* response) = 0;
};

namespace internal {

// Parameters of a method callback after the error: in-arguments by value or
// const reference, then out-arguments as pointers.
template <typename T>
struct MethodArg {
  using Value = std::decay_t<T>;
  static constexpr bool kIsOut = false;
};
template <typename T>
struct MethodArg<T*> {
  using Value = T;
  static constexpr bool kIsOut = true;
};

template <typename... Args>
constexpr bool InArgsComeFirst() {
  bool seen_out = false;
  bool ok = true;
  ((MethodArg<Args>::kIsOut ? (seen_out = true) : (ok = ok && !seen_out)), ...);
  return ok;
}

template <typename... Args>
std::string MethodSignature(bool out) {
  std::string signature;
  ((MethodArg<Args>::kIsOut == out
        ? (void)(signature +=
                 DbusType<typename MethodArg<Args>::Value>::kSignature)
        : (void)0),
   ...);
  return signature;
}

}  // namespace internal

// The handler of a method whose callback takes the error first, then its
// in-arguments, then pointers to its out-arguments, and returns true on
// success: bool(ErrorPtr*, uint32_t, uint32_t*) reads one "u" and answers
// with one "u". Bad arguments are answered with InvalidArgs (see
// MessageReader) and the callback is not called. The callback gets a fresh,
// empty error; when it returns false the reply is an error reply made from
// that error, never a method return.
template <typename... Args>
class TypedMethodHandler : public MethodHandlerInterface {
 public:
  using Callback = std::function<bool(ErrorPtr*, Args...)>;
  static_assert(internal::InArgsComeFirst<Args...>(),
                "out-arguments must follow the in-arguments");

  explicit TypedMethodHandler(Callback callback)
      : callback_(std::move(callback)) {}

  void HandleMethod(Message* call, MethodResponse* response) override {
    Values values;
    ErrorPtr read_error;
    MessageReader reader(call);
    if (!ReadIns(reader, values, &read_error, kIndices) ||
        !reader.ReadEnd(&read_error)) {
      response->SendError(read_error.get());
      return;
    }
    ErrorPtr error;
    if (!Invoke(values, &error, kIndices)) {
      response->SendError(error.get());
      return;
    }
    std::unique_ptr<Message> reply = response->CreateReturn();
    if (!reply || !AppendOuts(reply.get(), values, kIndices)) {
      response->SendError(nullptr);
      return;
    }
    response->Send(std::move(reply));
  }

 private:
  using Values = std::tuple<typename internal::MethodArg<Args>::Value...>;
  static constexpr auto kIndices = std::index_sequence_for<Args...>();

  template <size_t... I>
  static bool ReadIns(MessageReader& reader, Values& values, ErrorPtr* error,
                      std::index_sequence<I...>) {
    return ((internal::MethodArg<Args>::kIsOut ||
             reader.Read(&std::get<I>(values), error)) &&
            ...);
  }

  template <typename A, typename V>
  static decltype(auto) Pass(V& value) {
    if constexpr (internal::MethodArg<A>::kIsOut) {
      return &value;
    } else {
      return (value);
    }
  }

  template <size_t... I>
  bool Invoke(Values& values, ErrorPtr* error, std::index_sequence<I...>) {
    return callback_(error, Pass<Args>(std::get<I>(values))...);
  }

  template <size_t... I>
  static bool AppendOuts(Message* reply, Values& values,
                         std::index_sequence<I...>) {
    MessageWriter writer(reply);
    return ((!internal::MethodArg<Args>::kIsOut ||
             writer.Append(std::get<I>(values))) &&
            ...);
  }

  const Callback callback_;
};

// One D-Bus interface of an exported object: its methods and their
// handlers, and its read-only properties. Methods and properties are added
// before the object is registered.
class ExportedInterface {
 public:
  explicit ExportedInterface(std::string name);
  ExportedInterface(const ExportedInterface&) = delete;
  ExportedInterface& operator=(const ExportedInterface&) = delete;
  ~ExportedInterface();

  // Adds the method |name|; its D-Bus signature comes from the callback's
  // parameter types (see TypedMethodHandler). The argument names are shown
  // by introspection; there must be one per argument. A second handler for
  // the same name replaces the first.
  template <typename... Args>
  void AddMethodHandler(const std::string& name,
                        const std::vector<std::string>& in_arg_names,
                        const std::vector<std::string>& out_arg_names,
                        std::function<bool(ErrorPtr*, Args...)> callback) {
    AddHandler(
        name, internal::MethodSignature<Args...>(false),
        internal::MethodSignature<Args...>(true), in_arg_names, out_arg_names,
        std::make_unique<TypedMethodHandler<Args...>>(std::move(callback)));
  }

  // The same, calling |method| on |object|, which must outlive the
  // interface. Virtual methods dispatch virtually.
  template <typename Object, typename... Args>
  void AddMethodHandler(const std::string& name,
                        const std::vector<std::string>& in_arg_names,
                        const std::vector<std::string>& out_arg_names,
                        Object* object,
                        bool (Object::*method)(ErrorPtr*, Args...)) {
    AddMethodHandler(name, in_arg_names, out_arg_names,
                     std::function<bool(ErrorPtr*, Args...)>(
                         [object, method](ErrorPtr* error, Args... args) {
                           return (object->*method)(error, args...);
                         }));
  }

  // Adds the read-only property |name| of type T, holding T{} until set.
  // The interface owns it. While the object is on the bus, the changes made
  // in one turn of the loop go out as one PropertiesChanged, posted to the
  // loop (see EmitsChangedSignal).
  template <typename T>
  ExportedProperty<T>* AddProperty(
      const std::string& name,
      EmitsChangedSignal emits = EmitsChangedSignal::kTrue) {
    auto property = std::make_unique<ExportedProperty<T>>(
        name, emits, [this, name] { OnPropertyChanged(name); });
    ExportedProperty<T>* raw = property.get();
    AddProperty(std::move(property));
    return raw;
  }

  // Adds a property computed when asked (see ComputedProperty).
  template <typename T>
  ComputedProperty<T>* AddComputedProperty(const std::string& name) {
    auto property = std::make_unique<ComputedProperty<T>>(name);
    ComputedProperty<T>* raw = property.get();
    AddProperty(std::move(property));
    return raw;
  }

  const std::string& name() const { return name_; }

 private:
  friend class ExportedObject;

  struct Method {
    std::string name;
    std::string in_signature;
    std::string out_signature;
    // NUL-separated in- then out-argument names, as sd-bus takes them.
    std::string arg_names;
    std::unique_ptr<MethodHandlerInterface> handler;
  };

  void AddHandler(const std::string& name, std::string in_signature,
                  std::string out_signature,
                  const std::vector<std::string>& in_arg_names,
                  const std::vector<std::string>& out_arg_names,
                  std::unique_ptr<MethodHandlerInterface> handler);

  // Handles |call| if it names one of this interface's methods; returns
  // false, having sent nothing, otherwise.
  bool HandleMethodCall(Message* call, std::string_view member);

  // The method |name|, or null.
  Method* FindMethod(std::string_view name);

  void AddProperty(std::unique_ptr<ExportedPropertyBase> property);
  ExportedPropertyBase* FindProperty(std::string_view name);
  // Queues |name| for the next PropertiesChanged while on the bus.
  void OnPropertyChanged(const std::string& name);

  const std::string name_;
  // In the order they were added, which introspection shows. Each method
  // stays where it was allocated, so the bus may keep pointers to its name
  // and signatures.
  std::vector<std::unique_ptr<Method>> methods_;
  std::vector<std::unique_ptr<ExportedPropertyBase>> properties_;
  // Set once the object is on the bus.
  ExportedObject* object_ = nullptr;
  // Properties changed since the last PropertiesChanged, each once.
  std::vector<std::string> changed_;
};

// An object exported on the bus at one path, with its interfaces. Its
// methods answer with the exact texts of our handlers: calls are taken from
// the bus before sd-bus checks signatures, while a vtable beside them gives
// introspection and the object manager's listing.
class ExportedObject {
 public:
  // |object_manager| (may be null: no announcements) must outlive this
  // object.
  ExportedObject(ExportedObjectManager* object_manager,
                 std::shared_ptr<Bus> bus, std::string path);
  ExportedObject(const ExportedObject&) = delete;
  ExportedObject& operator=(const ExportedObject&) = delete;
  // Announces the removal (InterfacesRemoved) while the bus is open and
  // takes the object off the bus. A pending completion is dropped.
  ~ExportedObject();

  // The interface |name|, created empty on first use. The object owns it.
  ExportedInterface* AddOrGetInterface(const std::string& name);

  // Puts the object and its interfaces on the bus and announces them
  // (InterfacesAdded). |completion| runs later on the loop, never inside
  // this call, with false when the bus refused the object (then nothing of
  // it stays on the bus). Call once, after all methods were added.
  void RegisterAsync(std::function<void(bool success)> completion);

  const std::string& path() const { return path_; }

 private:
  friend class ExportedInterface;
  struct Registration;
  // The sd-bus callbacks.
  struct Trampolines;

  bool Register();
  // Handles |call| if it is one of our methods; false sends nothing.
  bool HandleMethodCall(Message* call);
  // Posts the announcement of changed properties, once per turn.
  void SchedulePropertiesChanged();
  void EmitPropertiesChanged();

  ExportedObjectManager* const object_manager_;
  const std::shared_ptr<Bus> bus_;
  const std::string path_;
  std::map<std::string, std::unique_ptr<ExportedInterface>, std::less<>>
      interfaces_;
  std::unique_ptr<Registration> registration_;
  TaskId pending_completion_ = 0;
  TaskId pending_properties_changed_ = 0;
};

}  // namespace morvane::ap

#endif  // PLATFORM_EXPORTED_OBJECT_H_
