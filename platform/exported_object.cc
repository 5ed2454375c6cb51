#include "platform/exported_object.h"

#include <glog/logging.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstring>

#include "platform/bus.h"
#include "platform/exported_object_manager.h"

namespace morvane::ap {
namespace {

constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";
constexpr char kGenericFailure[] = "The method call failed";

}  // namespace

MethodResponse::MethodResponse(Message* call) : call_(call) {}

MethodResponse::~MethodResponse() {
  if (!sent_) SendError(nullptr);
}

std::unique_ptr<Message> MethodResponse::CreateReturn() {
  sd_bus_message* reply = nullptr;
  if (sd_bus_message_new_method_return(call_->raw(), &reply) < 0) {
    return nullptr;
  }
  return Message::Adopt(reply);
}

void MethodResponse::Send(std::unique_ptr<Message> reply) {
  CHECK(!sent_) << "A method call is answered once";
  sent_ = true;
  if (sd_bus_send(nullptr, reply->raw(), nullptr) < 0) {
    // The connection is gone or the queue is full; the caller's time-out
    // tells it the rest.
    LOG(WARNING) << "Failed to send a method return, dropping it";
  }
}

void MethodResponse::SendError(const Error* error) {
  CHECK(!sent_) << "A method call is answered once";
  sent_ = true;
  int r = -1;
  if (error) {
    const bool is_dbus = error->domain() == kDbusErrorDomain;
    const sd_bus_error bus_error = SD_BUS_ERROR_MAKE_CONST(
        is_dbus ? error->code().c_str() : kFailed, error->message().c_str());
    r = sd_bus_reply_method_error(call_->raw(), &bus_error);
  }
  if (r < 0) {
    const sd_bus_error generic =
        SD_BUS_ERROR_MAKE_CONST(kFailed, kGenericFailure);
    r = sd_bus_reply_method_error(call_->raw(), &generic);
  }
  if (r < 0) LOG(WARNING) << "Failed to send an error reply, dropping it";
}

ExportedInterface::ExportedInterface(std::string name)
    : name_(std::move(name)) {}

ExportedInterface::~ExportedInterface() = default;

void ExportedInterface::AddHandler(
    const std::string& name, std::string in_signature,
    std::string out_signature, const std::vector<std::string>& in_arg_names,
    const std::vector<std::string>& out_arg_names,
    std::unique_ptr<MethodHandlerInterface> handler) {
  CHECK(!object_) << "Method " << name_ << "." << name
                      << " added after the object was registered";
  // sd-bus pairs names with the signature's complete types, one by one.
  CHECK_EQ(in_arg_names.size(),
           in_signature.size() -
               std::count(in_signature.begin(), in_signature.end(), 'a'))
      << "Wrong number of argument names for " << name;
  CHECK_EQ(out_arg_names.size(),
           out_signature.size() -
               std::count(out_signature.begin(), out_signature.end(), 'a'))
      << "Wrong number of result names for " << name;
  Method* found = FindMethod(name);
  if (!found) {
    found = methods_.emplace_back(std::make_unique<Method>()).get();
    found->name = name;
  }
  Method& method = *found;
  method.in_signature = std::move(in_signature);
  method.out_signature = std::move(out_signature);
  method.arg_names.clear();
  for (const auto* names : {&in_arg_names, &out_arg_names}) {
    for (const std::string& arg : *names) {
      method.arg_names += arg;
      method.arg_names += '\0';
    }
  }
  method.handler = std::move(handler);
}

ExportedInterface::Method* ExportedInterface::FindMethod(
    std::string_view name) {
  for (const std::unique_ptr<Method>& method : methods_) {
    if (method->name == name) return method.get();
  }
  return nullptr;
}

void ExportedInterface::AddProperty(
    std::unique_ptr<ExportedPropertyBase> property) {
  CHECK(!object_) << "Property " << name_ << "." << property->name()
                  << " added after the object was registered";
  CHECK(!FindProperty(property->name()))
      << "Property " << name_ << "." << property->name() << " added twice";
  properties_.push_back(std::move(property));
}

ExportedPropertyBase* ExportedInterface::FindProperty(std::string_view name) {
  for (const std::unique_ptr<ExportedPropertyBase>& property : properties_) {
    if (property->name() == name) return property.get();
  }
  return nullptr;
}

void ExportedInterface::OnPropertyChanged(const std::string& name) {
  // Before registration there is nobody to tell: GetAll gives the value.
  if (!object_) return;
  if (FindProperty(name)->emits() == EmitsChangedSignal::kFalse) return;
  if (std::find(changed_.begin(), changed_.end(), name) != changed_.end()) {
    return;
  }
  changed_.push_back(name);
  object_->SchedulePropertiesChanged();
}

bool ExportedInterface::HandleMethodCall(Message* call,
                                         std::string_view member) {
  Method* method = FindMethod(member);
  if (!method) return false;
  MethodResponse response(call);
  method->handler->HandleMethod(call, &response);
  return true;
}

struct ExportedObject::Trampolines {
  static int OnMethodCall(sd_bus_message* message, void* userdata,
                          sd_bus_error*) {
    std::unique_ptr<Message> call = Message::Ref(message);
    return static_cast<ExportedObject*>(userdata)->HandleMethodCall(call.get())
               ? 1
               : 0;
  }

  static int OnGetProperty(sd_bus*, const char*, const char*,
                           const char* name, sd_bus_message* reply,
                           void* userdata, sd_bus_error*) {
    ExportedPropertyBase* property =
        static_cast<ExportedInterface*>(userdata)->FindProperty(name);
    if (!property) return -ENOENT;
    std::unique_ptr<Message> message = Message::Ref(reply);
    MessageWriter writer(message.get());
    return property->AppendValue(&writer) ? 0 : -ENOMEM;
  }

  // Not reached while OnMethodCall takes every call of our methods first;
  // kept correct should sd-bus ever dispatch here.
  static int OnVtableMethodCall(sd_bus_message* message, void* userdata,
                                sd_bus_error*) {
    std::unique_ptr<Message> call = Message::Ref(message);
    const char* member = sd_bus_message_get_member(message);
    return static_cast<ExportedInterface*>(userdata)->HandleMethodCall(
               call.get(), member ? member : "")
               ? 1
               : 0;
  }
};

// What the bus holds for a registered object: the raw object callback,
// then one vtable per interface, with the tables themselves.
struct ExportedObject::Registration {
  ~Registration() {
    for (sd_bus_slot* slot : slots) sd_bus_slot_unref(slot);
  }

  std::vector<sd_bus_slot*> slots;
  std::vector<std::vector<sd_bus_vtable>> vtables;
};

ExportedObject::ExportedObject(ExportedObjectManager* object_manager,
                               std::shared_ptr<Bus> bus, std::string path)
    : object_manager_(object_manager),
      bus_(std::move(bus)),
      path_(std::move(path)) {}

ExportedObject::~ExportedObject() {
  if (pending_completion_ != 0) bus_->loop()->CancelTask(pending_completion_);
  if (pending_properties_changed_ != 0) {
    bus_->loop()->CancelTask(pending_properties_changed_);
  }
  // The bus closes itself when the loop ends; then nobody is left to tell.
  if (!registration_ || !object_manager_ || sd_bus_is_open(bus_->raw()) <= 0) {
    return;
  }
  ErrorPtr error;
  if (!object_manager_->ObjectRemoved(path_, &error)) {
    LOG(WARNING) << error->message() << ", removing it anyway";
  }
}

ExportedInterface* ExportedObject::AddOrGetInterface(const std::string& name) {
  std::unique_ptr<ExportedInterface>& interface = interfaces_[name];
  if (!interface) interface = std::make_unique<ExportedInterface>(name);
  return interface.get();
}

void ExportedObject::RegisterAsync(
    std::function<void(bool success)> completion) {
  CHECK(!registration_ && pending_completion_ == 0)
      << "Object " << path_ << " registered twice";
  const bool success = Register();
  pending_completion_ = bus_->loop()->PostTask(
      [this, success, completion = std::move(completion)] {
        pending_completion_ = 0;
        completion(success);
      });
}

bool ExportedObject::Register() {
  auto registration = std::make_unique<Registration>();
  sd_bus_slot* slot = nullptr;
  int r = sd_bus_add_object(bus_->raw(), &slot, path_.c_str(),
                            &Trampolines::OnMethodCall, this);
  if (r < 0) {
    LOG(ERROR) << "Failed to export " << path_ << ": " << strerror(-r);
    return false;
  }
  registration->slots.push_back(slot);

  for (auto& [name, interface] : interfaces_) {
    std::vector<sd_bus_vtable>& vtable = registration->vtables.emplace_back();
    vtable.push_back(SD_BUS_VTABLE_START(0));
    for (const auto& method : interface->methods_) {
      sd_bus_vtable entry{};
      entry.type = _SD_BUS_VTABLE_METHOD;
      entry.flags = 0;
      entry.x.method.member = method->name.c_str();
      entry.x.method.signature = method->in_signature.c_str();
      entry.x.method.result = method->out_signature.c_str();
      entry.x.method.handler = &Trampolines::OnVtableMethodCall;
      entry.x.method.offset = 0;
      entry.x.method.names = method->arg_names.c_str();
      vtable.push_back(entry);
    }
    for (const auto& property : interface->properties_) {
      sd_bus_vtable entry{};
      entry.type = _SD_BUS_VTABLE_PROPERTY;
      switch (property->emits()) {
        case EmitsChangedSignal::kTrue:
          entry.flags = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
          break;
        case EmitsChangedSignal::kInvalidates:
          entry.flags = SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION;
          break;
        case EmitsChangedSignal::kFalse:
          entry.flags = 0;
          break;
      }
      entry.x.property.member = property->name().c_str();
      entry.x.property.signature = property->signature();
      entry.x.property.get = &Trampolines::OnGetProperty;
      entry.x.property.set = nullptr;
      entry.x.property.offset = 0;
      vtable.push_back(entry);
    }
    vtable.push_back(SD_BUS_VTABLE_END);
    r = sd_bus_add_object_vtable(bus_->raw(), &slot, path_.c_str(),
                                 name.c_str(), vtable.data(), interface.get());
    if (r < 0) {
      LOG(ERROR) << "Failed to export " << name << " at " << path_ << ": "
                 << strerror(-r);
      return false;
    }
    registration->slots.push_back(slot);
  }
  for (auto& [name, interface] : interfaces_) interface->object_ = this;
  registration_ = std::move(registration);

  ErrorPtr error;
  if (object_manager_ && !object_manager_->ObjectAdded(path_, &error)) {
    LOG(WARNING) << error->message() << ", serving it unannounced";
  }
  return true;
}

void ExportedObject::SchedulePropertiesChanged() {
  if (pending_properties_changed_ != 0) return;
  pending_properties_changed_ = bus_->loop()->PostTask([this] {
    pending_properties_changed_ = 0;
    EmitPropertiesChanged();
  });
}

void ExportedObject::EmitPropertiesChanged() {
  for (auto& [name, interface] : interfaces_) {
    if (interface->changed_.empty()) continue;
    std::vector<char*> names;
    for (std::string& changed : interface->changed_) {
      names.push_back(changed.data());
    }
    names.push_back(nullptr);
    const int r = sd_bus_emit_properties_changed_strv(
        bus_->raw(), path_.c_str(), name.c_str(), names.data());
    // Clients that missed it still read the values with Get.
    if (r < 0) {
      LOG(WARNING) << "Failed to announce changed properties of " << name
                   << ": " << strerror(-r);
    }
    interface->changed_.clear();
  }
}

bool ExportedObject::HandleMethodCall(Message* call) {
  const char* member = sd_bus_message_get_member(call->raw());
  if (!member) return false;
  const char* interface = sd_bus_message_get_interface(call->raw());
  if (interface) {
    auto it = interfaces_.find(std::string_view(interface));
    // Interfaces of sd-bus's own (Introspectable, Properties, Peer) go on to
    // it.
    return it != interfaces_.end() &&
           it->second->HandleMethodCall(call, member);
  }
  // A call without an interface names the first method of that name.
  for (auto& [name, exported] : interfaces_) {
    if (exported->HandleMethodCall(call, member)) return true;
  }
  return false;
}

}  // namespace morvane::ap
