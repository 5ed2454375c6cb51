// D-Bus messages as they come off the wire: sd-bus makes messages of
// arbitrary bytes on a real connection, and MessageReader reads each one
// the way a program drawn from the same input says: every type it
// decodes, variants, dictionaries, entering, leaving and skipping
// containers, and property sets taking their a{sv}, alone and in the
// shapes of GetManagedObjects and InterfacesAdded.
//
// Input: one byte N, N bytes of program, then the bytes on the wire. Each
// message takes the program up to its next ReadEnd. Every failure must come
// with one of the reader's three InvalidArgs texts.

#include <glog/logging.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/dbus_wire.h"
#include "fuzz/fuzz_support.h"
#include "platform/dbus_message.h"
#include "platform/property_set.h"

namespace morvane::ap {
namespace {

// Larger inputs say nothing new and would not fit the socket's buffer.
constexpr size_t kMaxInput = 64 * 1024;

// The properties the daemon follows, one of each type a property has.
class Properties : public PropertySet {
 public:
  Properties()
      : PropertySet(nullptr, "org.example.Fuzz", [](const std::string&) {}) {
    RegisterProperty("IsRoot", &is_root_);
    RegisterProperty("ConnectionState", &state_);
    RegisterProperty("DeviceConfiguration", &record_);
  }

 private:
  Property<bool> is_root_;
  Property<std::string> state_;
  Property<std::vector<uint8_t>> record_;
};

void CheckError(const ErrorPtr& error) {
  CHECK(error) << "a failure without an error";
  CHECK_EQ(error->domain(), kDbusErrorDomain);
  CHECK_EQ(error->code(), "org.freedesktop.DBus.Error.InvalidArgs");
  const std::string& text = error->message();
  CHECK(text == "Too few parameters in a method call" ||
        text == "Method parameter type mismatch" ||
        text == "Too many parameters in a method call")
      << text;
}

class Program {
 public:
  Program(const uint8_t* ops, size_t size) : ops_(ops), size_(size) {}

  // Reads |raw| with the next part of the program: up to and including its
  // next ReadEnd, or to the first failure after which the reader's contract
  // says to stop (the rest of that part is then passed over).
  void Run(sd_bus_message* raw) {
    raw_ = raw;
    depth_ = 0;
    error_.reset();
    std::unique_ptr<Message> message = Message::Ref(raw);
    MessageReader reader(message.get());
    while (at_ < size_) {
      const bool last = ops_[at_] % kOps == kReadEnd;
      if (!Step(reader)) break;
      if (last) return;
    }
    while (at_ < size_ && ops_[at_++] % kOps != kReadEnd) {
    }
  }

 private:
  static constexpr int kOps = 25;
  static constexpr int kReadEnd = 20;

  template <typename T>
  bool Read(MessageReader& reader) {
    T value{};
    return reader.Read(&value, &error_);
  }

  // A mismatched variant is skipped: reading goes on after it.
  template <typename T>
  bool ReadVariant(MessageReader& reader) {
    T value{};
    if (reader.ReadVariant(&value, &error_)) return true;
    CheckError(error_);
    error_.reset();
    return true;
  }

  // Enters whatever container comes next, as the message says it is.
  bool EnterNext(MessageReader& reader) {
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(raw_, &type, &contents) <= 0 || !contents) {
      return reader.EnterContainer('a', "s", &error_);
    }
    return reader.EnterContainer(type, contents, &error_);
  }

  // The interfaces of one object, as InterfacesAdded carries them.
  bool ReadInterfaces(MessageReader& reader, ErrorPtr* error) {
    return reader.ReadDictionary<std::string>(
        "a{sv}",
        [&](const std::string&, ErrorPtr* error) {
          return properties_.ReadAll(reader, error);
        },
        error);
  }

  // Inside a dictionary entry only reads of one whole value are allowed:
  // the entry is the dictionary's to leave.
  bool Step(MessageReader& reader, bool whole_value = false) {
    static constexpr uint8_t kWholeValue[] = {0,  1,  2,  3,  4,  5,  6,
                                              7,  8,  9,  10, 11, 12, 13,
                                              14, 15, 18, 21, 22, 23, 24};
    uint8_t op = ops_[at_++] % kOps;
    if (whole_value) op = kWholeValue[op % std::size(kWholeValue)];
    bool ok = true;
    switch (op) {
      case 0: ok = Read<uint32_t>(reader); break;
      case 1: ok = Read<int32_t>(reader); break;
      case 2: ok = Read<bool>(reader); break;
      case 3: ok = Read<std::string>(reader); break;
      case 4: ok = Read<ObjectPath>(reader); break;
      case 5: ok = Read<std::vector<uint8_t>>(reader); break;
      case 6: ok = Read<std::vector<std::string>>(reader); break;
      case 7: ok = Read<std::vector<ObjectPath>>(reader); break;
      case 8: ok = ReadVariant<uint32_t>(reader); break;
      case 9: ok = ReadVariant<int32_t>(reader); break;
      case 10: ok = ReadVariant<bool>(reader); break;
      case 11: ok = ReadVariant<std::string>(reader); break;
      case 12: ok = ReadVariant<ObjectPath>(reader); break;
      case 13: ok = ReadVariant<std::vector<uint8_t>>(reader); break;
      case 14: ok = ReadVariant<std::vector<std::string>>(reader); break;
      case 15: ok = ReadVariant<std::vector<ObjectPath>>(reader); break;
      case 16:
        ok = EnterNext(reader);
        depth_ += ok;
        break;
      case 17:
        if (depth_ == 0) break;
        ok = reader.ExitContainer(&error_);
        --depth_;
        break;
      case 18: ok = reader.Skip(&error_); break;
      case 19: reader.HasMoreData(); break;
      case kReadEnd: ok = reader.ReadEnd(&error_); break;
      case 21:
        // Each value read by the next operation of the program.
        ok = reader.ReadDictionary<std::string>(
            "v",
            [&](const std::string&, ErrorPtr*) {
              return at_ < size_ ? Step(reader, true) : reader.Skip(&error_);
            },
            &error_);
        break;
      case 22:
        // GetManagedObjects.
        ok = reader.ReadDictionary<ObjectPath>(
            "a{sa{sv}}",
            [&](const ObjectPath&, ErrorPtr* error) {
              return ReadInterfaces(reader, error);
            },
            &error_);
        break;
      case 23: ok = properties_.ReadAll(reader, &error_); break;
      case 24: ok = ReadInterfaces(reader, &error_); break;
    }
    if (!ok) CheckError(error_);
    return ok;
  }

  const uint8_t* const ops_;
  const size_t size_;
  size_t at_ = 0;
  sd_bus_message* raw_ = nullptr;
  int depth_ = 0;
  ErrorPtr error_;
  Properties properties_;
};

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  if (size == 0 || size > kMaxInput) return 0;
  const size_t program_size = std::min<size_t>(data[0], size - 1);
  const uint8_t* ops = data + 1;
  Program reads(ops, program_size);
  ReceiveMessages(ops + program_size, size - 1 - program_size,
                  [&](sd_bus_message* message) { reads.Run(message); });
  return 0;
}
