#ifndef PLATFORM_DBUS_MESSAGE_H_
#define PLATFORM_DBUS_MESSAGE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"

typedef struct sd_bus_message sd_bus_message;

namespace morvane::ap {

class Bus;

// A D-Bus object path ("o"), kept apart from strings ("s") because the two
// are different types on the wire.
struct ObjectPath {
  std::string value;

  bool operator==(const ObjectPath&) const = default;
};

// The D-Bus signature of each C++ type the readers and writers support.
template <typename T>
struct DbusType;
template <>
struct DbusType<uint32_t> {
  static constexpr char kSignature[] = "u";
};
template <>
struct DbusType<uint64_t> {
  static constexpr char kSignature[] = "t";
};
template <>
struct DbusType<int32_t> {
  static constexpr char kSignature[] = "i";
};
template <>
struct DbusType<bool> {
  static constexpr char kSignature[] = "b";
};
template <>
struct DbusType<std::string> {
  static constexpr char kSignature[] = "s";
};
template <>
struct DbusType<ObjectPath> {
  static constexpr char kSignature[] = "o";
};
template <>
struct DbusType<std::vector<uint8_t>> {
  static constexpr char kSignature[] = "ay";
};
template <>
struct DbusType<std::vector<std::string>> {
  static constexpr char kSignature[] = "as";
};
template <>
struct DbusType<std::vector<ObjectPath>> {
  static constexpr char kSignature[] = "ao";
};
template <>
struct DbusType<std::map<std::string, std::string>> {
  static constexpr char kSignature[] = "a{ss}";
};
template <>
struct DbusType<std::map<std::string, uint64_t>> {
  static constexpr char kSignature[] = "a{st}";
};

// One D-Bus message; holds one reference to it.
class Message {
 public:
  // Takes over the caller's reference to |message|.
  static std::unique_ptr<Message> Adopt(sd_bus_message* message);
  // Takes a reference of its own to |message|.
  static std::unique_ptr<Message> Ref(sd_bus_message* message);

  // A method call to fill with MessageWriter. Returns null and adds to
  // |error| when a name is invalid.
  static std::unique_ptr<Message> NewMethodCall(
      Bus* bus, const std::string& service, const std::string& path,
      const std::string& interface, const std::string& method, ErrorPtr* error);

  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  ~Message();

  // True for an error reply (message type 3).
  bool IsError() const;
  // The error name and text of an error reply; empty for other messages.
  std::string error_name() const;
  std::string error_message() const;

  // For the D-Bus helpers inside platform/ only.
  sd_bus_message* raw() const { return message_; }

 private:
  explicit Message(sd_bus_message* message);

  sd_bus_message* const message_;
};

// Reads the arguments of a message in order, from the first one, walking
// into containers (arrays, dictionary entries, variants) as the caller
// says. Every failure adds to |error| an error of domain "dbus", code
// "org.freedesktop.DBus.Error.InvalidArgs" and one of three messages: "Too
// few parameters in a method call" when no value is left, "Method parameter
// type mismatch" when the next value is of another type (nothing is then
// consumed, but for a variant: see ReadVariant), "Too many parameters in a
// method call" from ReadEnd(). After a failure inside a container the reader
// stays where it failed: read nothing more from that message.
class MessageReader {
 public:
  // |message| must outlive the reader. Rewinds it to the first argument.
  explicit MessageReader(Message* message);
  MessageReader(const MessageReader&) = delete;
  MessageReader& operator=(const MessageReader&) = delete;

  bool Read(uint32_t* value, ErrorPtr* error);
  bool Read(int32_t* value, ErrorPtr* error);
  bool Read(bool* value, ErrorPtr* error);
  bool Read(std::string* value, ErrorPtr* error);
  bool Read(ObjectPath* value, ErrorPtr* error);
  bool Read(std::vector<uint8_t>* value, ErrorPtr* error);
  bool Read(std::vector<std::string>* value, ErrorPtr* error);
  bool Read(std::vector<ObjectPath>* value, ErrorPtr* error);

  // A variant holding exactly a T. A variant holding anything else fails
  // with the mismatch text and is skipped, so that the value after it can
  // still be read.
  template <typename T>
  bool ReadVariant(T* value, ErrorPtr* error) {
    return EnterVariant(DbusType<T>::kSignature, error) && Read(value, error) &&
           ExitContainer(error);
  }

  // A dictionary, an array of entries {K V} where V has the signature
  // |value_signature|: for each entry reads the key and calls
  // |read_value(key, error)| with the reader on the value, which it must
  // read (or skip) and return true, or return false to fail the whole read.
  template <typename K, typename ReadValue>
  bool ReadDictionary(const std::string& value_signature, ReadValue read_value,
                      ErrorPtr* error) {
    const std::string entry = DbusType<K>::kSignature + value_signature;
    if (!EnterContainer('a', "{" + entry + "}", error)) return false;
    while (HasMoreData()) {
      K key;
      if (!EnterContainer('e', entry, error) || !Read(&key, error) ||
          !read_value(key, error) || !ExitContainer(error)) {
        return false;
      }
    }
    return ExitContainer(error);
  }

  // Enters the next argument, which must be a container of |type| ('a' an
  // array, 'e' a dictionary entry, 'v' a variant) whose contents have
  // exactly the signature |contents| ("{sv}", "sv", "b"). Otherwise fails
  // and consumes nothing.
  bool EnterContainer(char type, const std::string& contents, ErrorPtr* error);
  // Skips what is left of the container entered last and leaves it.
  bool ExitContainer(ErrorPtr* error);
  // Skips the next argument, whatever its type.
  bool Skip(ErrorPtr* error);

  // True when at least one more argument is left in the current container.
  bool HasMoreData();

  // Fails when arguments are left over.
  bool ReadEnd(ErrorPtr* error);

 private:
  // As EnterContainer('v', ...), but a variant of other contents is skipped.
  bool EnterVariant(const char* contents, ErrorPtr* error);
  // Fails unless the next argument has exactly |signature|.
  bool CheckNext(const char* signature, ErrorPtr* error);
  bool ReadBasic(char type, void* value, ErrorPtr* error);

  sd_bus_message* const message_;
};

// Reads |values| in order, then checks that nothing is left. Stops at the
// first failure; values read before it keep what was read.
template <typename... T>
bool ReadArgs(MessageReader& reader, ErrorPtr* error, T*... values) {
  return (reader.Read(values, error) && ...) && reader.ReadEnd(error);
}

// Appends arguments to a message that is being built. Append() returns
// false when the value cannot go on the wire (a malformed object path,
// text that is not UTF-8) or memory runs out; the message is then unusable.
class MessageWriter {
 public:
  // |message| must outlive the writer and must not be sealed yet.
  explicit MessageWriter(Message* message);
  MessageWriter(const MessageWriter&) = delete;
  MessageWriter& operator=(const MessageWriter&) = delete;

  bool Append(uint32_t value);
  bool Append(uint64_t value);
  bool Append(int32_t value);
  bool Append(bool value);
  bool Append(const std::string& value);
  bool Append(const char* value);
  bool Append(const ObjectPath& value);
  bool Append(const std::vector<uint8_t>& value);
  bool Append(const std::vector<std::string>& value);
  bool Append(const std::vector<ObjectPath>& value);
  bool Append(const std::map<std::string, std::string>& value);
  bool Append(const std::map<std::string, uint64_t>& value);

 private:
  template <typename V>
  bool AppendDictionary(const std::map<std::string, V>& value);

  sd_bus_message* const message_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_DBUS_MESSAGE_H_
