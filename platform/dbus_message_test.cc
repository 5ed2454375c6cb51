#include "platform/dbus_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <tuple>

#include "platform/bus.h"
#include "platform/event_loop.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;

constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";

class MessageTest : public BusTest {
 protected:
  // A call whose arguments |append| writes, sealed as a receiver gets it.
  std::unique_ptr<Message> Sealed(const std::function<void(Message*)>& append) {
    std::unique_ptr<Message> message = Message::NewMethodCall(
        bus_.get(), "org.tessaly.Test", "/", "org.tessaly.Test", "M", nullptr);
    append(message.get());
    EXPECT_GE(sd_bus_message_seal(message->raw(), 1, 0), 0);
    return message;
  }
};

// Too many arguments reach the reply of an exported method, and are checked
// there; the nested dictionaries of GetManagedObjects in the daemon's
// start-up tests.
TEST_F(MessageTest, ReadsBackEveryTypeItWroteAndReportsWhatDoesNotFit) {
  const auto written = std::make_tuple(
      uint32_t{7}, int32_t{-3}, true, std::string("text"), ObjectPath{"/a/b"},
      std::vector<uint8_t>{1, 0, 255}, std::vector<std::string>{"x", ""},
      std::vector<ObjectPath>{{"/p"}, {"/q"}});
  // After a{sv} with a value of the wrong type.
  auto message = Sealed([&](Message* m) {
    sd_bus_message_append(m->raw(), "a{sv}", 3, "On", "b", 1, "Level", "s",
                          "high", "Name", "s", "ring");
    MessageWriter writer(m);
    EXPECT_TRUE(std::apply(
        [&](const auto&... v) { return (writer.Append(v) && ...); }, written));
  });
  std::remove_const_t<decltype(written)> read;
  int32_t wrong = 0;
  std::vector<std::string> seen;
  bool on = false;
  ErrorPtr mismatch;
  ErrorPtr error;
  ErrorPtr wrong_container;
  ErrorPtr level_error;
  ErrorPtr too_few;
  MessageReader reader(message.get());

  // A mismatch leaves the value to be read as its own type.
  EXPECT_FALSE(reader.Read(&wrong, &mismatch));
  EXPECT_FALSE(reader.ReadDictionary<ObjectPath>(
      "v", [](const ObjectPath&, ErrorPtr*) { return true; },
      &wrong_container));
  ASSERT_TRUE(reader.ReadDictionary<std::string>(
      "v",
      [&](const std::string& key, ErrorPtr* error) {
        seen.push_back(key);
        std::string name;
        if (key == "On") return reader.ReadVariant(&on, error);
        if (key == "Level") {
          bool wrong = false;
          EXPECT_FALSE(reader.ReadVariant(&wrong, &level_error));
          return true;
        }
        return reader.ReadVariant(&name, error) && name == "ring";
      },
      nullptr));
  ASSERT_TRUE(std::apply(
      [&](auto&... v) { return ReadArgs(reader, &error, &v...); }, read));
  EXPECT_FALSE(reader.Read(&wrong, &too_few));

  EXPECT_EQ(read, written);
  EXPECT_FALSE(error);
  EXPECT_THAT(seen, ElementsAre("On", "Level", "Name"));
  EXPECT_TRUE(on);
  ASSERT_TRUE(mismatch && wrong_container && level_error && too_few);
  EXPECT_EQ(mismatch->domain(), kDbusErrorDomain);
  EXPECT_EQ(mismatch->code(), kInvalidArgs);
  EXPECT_EQ(mismatch->message(), "Method parameter type mismatch");
  EXPECT_EQ(wrong_container->message(), "Method parameter type mismatch");
  EXPECT_EQ(level_error->message(), "Method parameter type mismatch");
  EXPECT_EQ(too_few->code(), kInvalidArgs);
  EXPECT_EQ(too_few->message(), "Too few parameters in a method call");
}

}  // namespace
}  // namespace morvane::ap
