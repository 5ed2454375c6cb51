#include "platform/dbus_message.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/bus.h"

namespace morvane::ap {
namespace {

constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr char kTooFew[] = "Too few parameters in a method call";
constexpr char kTooMany[] = "Too many parameters in a method call";
constexpr char kMismatch[] = "Method parameter type mismatch";

void AddInvalidArgs(ErrorPtr* error, const Location& location,
                    const char* message) {
  Error::AddTo(error, location, kDbusErrorDomain, kInvalidArgs, message);
}

}  // namespace

std::unique_ptr<Message> Message::Adopt(sd_bus_message* message) {
  return std::unique_ptr<Message>(new Message(message));
}

std::unique_ptr<Message> Message::Ref(sd_bus_message* message) {
  return Adopt(sd_bus_message_ref(message));
}

std::unique_ptr<Message> Message::NewMethodCall(
    Bus* bus, const std::string& service, const std::string& path,
    const std::string& interface, const std::string& method, ErrorPtr* error) {
  sd_bus_message* message = nullptr;
  const int r = sd_bus_message_new_method_call(
      bus->raw(), &message, service.c_str(), path.c_str(), interface.c_str(),
      method.c_str());
  if (r < 0) {
    Error::AddToPrintf(
        error, FROM_HERE, kDbusErrorDomain, "org.freedesktop.DBus.Error.Failed",
        "Failed to create a call of %s.%s on %s %s: %s", interface.c_str(),
        method.c_str(), service.c_str(), path.c_str(), strerror(-r));
    return nullptr;
  }
  return Adopt(message);
}

Message::Message(sd_bus_message* message) : message_(message) {}

Message::~Message() { sd_bus_message_unref(message_); }

bool Message::IsError() const {
  uint8_t type = 0;
  return sd_bus_message_get_type(message_, &type) >= 0 &&
         type == SD_BUS_MESSAGE_METHOD_ERROR;
}

std::string Message::error_name() const {
  const sd_bus_error* e = sd_bus_message_get_error(message_);
  return e && e->name ? e->name : "";
}

std::string Message::error_message() const {
  const sd_bus_error* e = sd_bus_message_get_error(message_);
  return e && e->message ? e->message : "";
}

MessageReader::MessageReader(Message* message) : message_(message->raw()) {
  sd_bus_message_rewind(message_, 1);
}

bool MessageReader::CheckNext(const char* signature, ErrorPtr* error) {
  char type = 0;
  const char* contents = nullptr;
  const int r = sd_bus_message_peek_type(message_, &type, &contents);
  if (r == 0) {
    AddInvalidArgs(error, FROM_HERE, kTooFew);
    return false;
  }
  const bool matches =
      r > 0 && type == signature[0] &&
      (signature[1] == '\0' ? contents == nullptr
                            : contents && strcmp(contents, signature + 1) == 0);
  if (!matches) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::ReadBasic(char type, void* value, ErrorPtr* error) {
  const char signature[] = {type, '\0'};
  if (!CheckNext(signature, error)) return false;
  if (sd_bus_message_read_basic(message_, type, value) <= 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::Read(uint32_t* value, ErrorPtr* error) {
  return ReadBasic('u', value, error);
}

bool MessageReader::Read(int32_t* value, ErrorPtr* error) {
  return ReadBasic('i', value, error);
}

bool MessageReader::Read(bool* value, ErrorPtr* error) {
  int b = 0;  // sd-bus reads booleans as int.
  if (!ReadBasic('b', &b, error)) return false;
  *value = b != 0;
  return true;
}

bool MessageReader::Read(std::string* value, ErrorPtr* error) {
  const char* s = nullptr;
  if (!ReadBasic('s', &s, error)) return false;
  *value = s;
  return true;
}

bool MessageReader::Read(ObjectPath* value, ErrorPtr* error) {
  const char* s = nullptr;
  if (!ReadBasic('o', &s, error)) return false;
  value->value = s;
  return true;
}

bool MessageReader::Read(std::vector<uint8_t>* value, ErrorPtr* error) {
  if (!CheckNext("ay", error)) return false;
  const void* data = nullptr;
  size_t size = 0;
  if (sd_bus_message_read_array(message_, 'y', &data, &size) < 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  const auto* bytes = static_cast<const uint8_t*>(data);
  value->assign(bytes, bytes + size);
  return true;
}

bool MessageReader::Read(std::vector<std::string>* value, ErrorPtr* error) {
  if (!CheckNext("as", error)) return false;
  char** strv = nullptr;
  if (sd_bus_message_read_strv(message_, &strv) < 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  value->clear();
  for (char** s = strv; s && *s; ++s) {
    value->emplace_back(*s);
    free(*s);
  }
  free(strv);
  return true;
}

bool MessageReader::Read(std::vector<ObjectPath>* value, ErrorPtr* error) {
  if (!CheckNext("ao", error)) return false;
  if (sd_bus_message_enter_container(message_, 'a', "o") <= 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  value->clear();
  const char* s = nullptr;
  int r;
  while ((r = sd_bus_message_read_basic(message_, 'o', &s)) > 0) {
    value->push_back(ObjectPath{s});
  }
  if (r < 0 || sd_bus_message_exit_container(message_) < 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::EnterContainer(char type, const std::string& contents,
                                   ErrorPtr* error) {
  const std::string signature = type + contents;
  if (!CheckNext(signature.c_str(), error)) return false;
  if (sd_bus_message_enter_container(message_, type, contents.c_str()) <= 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::EnterVariant(const char* contents, ErrorPtr* error) {
  char type = 0;
  const bool is_variant =
      sd_bus_message_peek_type(message_, &type, nullptr) > 0 &&
      type == SD_BUS_TYPE_VARIANT;
  if (EnterContainer(SD_BUS_TYPE_VARIANT, contents, error)) return true;
  if (is_variant) sd_bus_message_skip(message_, nullptr);
  return false;
}

bool MessageReader::ExitContainer(ErrorPtr* error) {
  int r = 0;
  while ((r = sd_bus_message_peek_type(message_, nullptr, nullptr)) > 0) {
    if ((r = sd_bus_message_skip(message_, nullptr)) < 0) break;
  }
  if (r < 0 || sd_bus_message_exit_container(message_) < 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::Skip(ErrorPtr* error) {
  const int r = sd_bus_message_skip(message_, nullptr);
  if (r == 0 || r == -ENXIO) {
    AddInvalidArgs(error, FROM_HERE, kTooFew);
    return false;
  }
  if (r < 0) {
    AddInvalidArgs(error, FROM_HERE, kMismatch);
    return false;
  }
  return true;
}

bool MessageReader::HasMoreData() {
  return sd_bus_message_peek_type(message_, nullptr, nullptr) > 0;
}

bool MessageReader::ReadEnd(ErrorPtr* error) {
  if (!HasMoreData()) return true;
  AddInvalidArgs(error, FROM_HERE, kTooMany);
  return false;
}

MessageWriter::MessageWriter(Message* message) : message_(message->raw()) {}

bool MessageWriter::Append(uint32_t value) {
  return sd_bus_message_append_basic(message_, 'u', &value) >= 0;
}

bool MessageWriter::Append(uint64_t value) {
  return sd_bus_message_append_basic(message_, 't', &value) >= 0;
}

bool MessageWriter::Append(int32_t value) {
  return sd_bus_message_append_basic(message_, 'i', &value) >= 0;
}

bool MessageWriter::Append(bool value) {
  const int b = value;
  return sd_bus_message_append_basic(message_, 'b', &b) >= 0;
}

bool MessageWriter::Append(const std::string& value) {
  return Append(value.c_str());
}

bool MessageWriter::Append(const char* value) {
  return sd_bus_message_append_basic(message_, 's', value) >= 0;
}

bool MessageWriter::Append(const ObjectPath& value) {
  return sd_bus_message_append_basic(message_, 'o', value.value.c_str()) >= 0;
}

bool MessageWriter::Append(const std::vector<uint8_t>& value) {
  return sd_bus_message_append_array(message_, 'y', value.data(),
                                     value.size()) >= 0;
}

bool MessageWriter::Append(const std::vector<std::string>& value) {
  if (sd_bus_message_open_container(message_, 'a', "s") < 0) return false;
  for (const std::string& s : value) {
    if (!Append(s)) return false;
  }
  return sd_bus_message_close_container(message_) >= 0;
}

bool MessageWriter::Append(const std::vector<ObjectPath>& value) {
  if (sd_bus_message_open_container(message_, 'a', "o") < 0) return false;
  for (const ObjectPath& path : value) {
    if (!Append(path)) return false;
  }
  return sd_bus_message_close_container(message_) >= 0;
}

bool MessageWriter::Append(const std::map<std::string, std::string>& value) {
  return AppendDictionary(value);
}

bool MessageWriter::Append(const std::map<std::string, uint64_t>& value) {
  return AppendDictionary(value);
}

template <typename V>
bool MessageWriter::AppendDictionary(const std::map<std::string, V>& value) {
  const std::string entry = std::string("s") + DbusType<V>::kSignature;
  if (sd_bus_message_open_container(message_, 'a', ("{" + entry + "}").c_str()) < 0) {
    return false;
  }
  for (const auto& [key, item] : value) {
    if (sd_bus_message_open_container(message_, 'e', entry.c_str()) < 0 ||
        !Append(key) || !Append(item) ||
        sd_bus_message_close_container(message_) < 0) {
      return false;
    }
  }
  return sd_bus_message_close_container(message_) >= 0;
}

}  // namespace morvane::ap
