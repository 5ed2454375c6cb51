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
  std::unique_ptr<Message> SealedRaw(
      const std::function<void(Message*)>& append) {
    std::unique_ptr<Message> message = Message::NewMethodCall(
        bus_.get(), "org.tessaly.Test", "/", "org.tessaly.Test", "M", nullptr);
    append(message.get());
    EXPECT_GE(sd_bus_message_seal(message->raw(), 1, 0), 0);
    return message;
  }

  template <typename... T>
  std::unique_ptr<Message> Sealed(const T&... args) {
    return SealedRaw([&](Message* message) {
      MessageWriter writer(message);
      EXPECT_TRUE((writer.Append(args) && ...));
    });
  }
};

TEST_F(MessageTest, ReadsBackEveryTypeItWrote) {
  const auto written = std::make_tuple(
      uint32_t{7}, int32_t{-3}, true, std::string("text"), ObjectPath{"/a/b"},
      std::vector<uint8_t>{1, 0, 255}, std::vector<std::string>{"x", ""},
      std::vector<ObjectPath>{{"/p"}, {"/q"}});
  auto message = std::apply([&](const auto&... v) { return Sealed(v...); }, written);
  std::remove_const_t<decltype(written)> read;
  ErrorPtr error;
  MessageReader reader(message.get());

  ASSERT_TRUE(std::apply(
      [&](auto&... v) { return ReadArgs(reader, &error, &v...); }, read));

  EXPECT_EQ(read, written);
  EXPECT_FALSE(error);
}

TEST_F(MessageTest, ReportsMissingArgumentsAndMismatchedElements) {
  struct Case {
    const char* name;
    std::unique_ptr<Message> message;
    std::function<bool(MessageReader&, ErrorPtr*)> read;
    const char* expected;
  };
  uint32_t u = 0;
  std::string s;
  std::vector<uint8_t> ay;
  // No argument at all, a plain mismatch and two for one reach the reply
  // of an exported method, and are checked there.
  Case cases[] = {
      {"one of two", Sealed(std::string("a")),
       [&](MessageReader& r, ErrorPtr* e) { return ReadArgs(r, e, &s, &u); },
       "Too few parameters in a method call"},
      {"as for ay", Sealed(std::vector<std::string>{"a"}),
       [&](MessageReader& r, ErrorPtr* e) { return ReadArgs(r, e, &ay); },
       "Method parameter type mismatch"},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    ErrorPtr error;
    MessageReader reader(c.message.get());

    EXPECT_FALSE(c.read(reader, &error));

    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), kDbusErrorDomain);
    EXPECT_EQ(error->code(), kInvalidArgs);
    EXPECT_EQ(error->message(), c.expected);
  }
}

TEST_F(MessageTest, WalksDictionariesOfVariantsAndSkipsAMismatchedValue) {
  // a{sv} with a value of the wrong type; the nested dictionaries of
  // GetManagedObjects are read in the exported object's tests.
  auto message = SealedRaw([](Message* m) {
    sd_bus_message_append(m->raw(), "a{sv}", 3, "On", "b", 1, "Level", "s",
                          "high", "Name", "s", "ring");
  });
  MessageReader reader(message.get());
  std::vector<std::string> seen;
  bool on = false;
  ErrorPtr level_error;

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
  EXPECT_TRUE(reader.ReadEnd(nullptr));
  EXPECT_THAT(seen, ElementsAre("On", "Level", "Name"));
  EXPECT_TRUE(on);
  ASSERT_TRUE(level_error);
  EXPECT_EQ(level_error->message(), "Method parameter type mismatch");
  ErrorPtr wrong_container;
  MessageReader again(message.get());
  EXPECT_FALSE(again.ReadDictionary<ObjectPath>(
      "v", [](const ObjectPath&, ErrorPtr*) { return true; },
      &wrong_container));
  ASSERT_TRUE(wrong_container);
  EXPECT_EQ(wrong_container->message(), "Method parameter type mismatch");
}

TEST_F(MessageTest, MismatchLeavesTheValueToBeReadAsItsOwnType) {
  auto message = Sealed(std::string("kept"));
  MessageReader reader(message.get());
  uint32_t u = 0;
  std::string s;

  EXPECT_FALSE(reader.Read(&u, nullptr));

  EXPECT_TRUE(reader.Read(&s, nullptr));
  EXPECT_EQ(s, "kept");
  EXPECT_TRUE(reader.ReadEnd(nullptr));
}

}  // namespace
}  // namespace morvane::ap
