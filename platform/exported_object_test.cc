#include "platform/exported_object.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <optional>
#include <set>
#include <utility>

#include "platform/bus.h"
#include "platform/event_loop.h"
#include "platform/exported_object_manager.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char kRoot[] = "/org/tessaly/Test";
constexpr char kPath[] = "/org/tessaly/Test/Object";
constexpr char kInterface[] = "org.tessaly.Test.Lights";
constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr int64_t kWaitUs = 5'000'000;

using Append = std::function<void(sd_bus_message*)>;

class ExportedObjectTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    object_manager_ = std::make_unique<ExportedObjectManager>(bus_, kRoot);
    ASSERT_TRUE(object_manager_->Register(nullptr));
    client_ = daemon_->Connect();
    ASSERT_TRUE(client_);
    ASSERT_GE(sd_bus_attach_event(client_, loop_->event(), 0), 0);
    ASSERT_GE(sd_bus_match_signal(client_, nullptr, nullptr, kRoot,
                                  "org.freedesktop.DBus.ObjectManager", nullptr,
                                  &ExportedObjectTest::OnSignal, this),
              0);
  }

  void TearDown() override {
    object_.reset();
    sd_bus_flush_close_unref(client_);
  }

  // Exports kPath with kInterface and its three methods, and waits for the
  // registration to complete.
  void Export() {
    object_ =
        std::make_unique<ExportedObject>(object_manager_.get(), bus_, kPath);
    ExportedInterface* interface = object_->AddOrGetInterface(kInterface);
    interface->AddMethodHandler(
        "Next", {"base"}, {"next"},
        std::function<bool(ErrorPtr*, uint32_t, uint32_t*)>(
            [this](ErrorPtr*, uint32_t base, uint32_t* next) {
              calls_.push_back("Next");
              *next = base + 1;
              return true;
            }));
    interface->AddMethodHandler(
        "Set", {"level"}, {},
        std::function<bool(ErrorPtr*, uint32_t)>(
            [this](ErrorPtr*, uint32_t level) {
              calls_.push_back("Set " + std::to_string(level));
              return true;
            }));
    interface->AddMethodHandler(
        "SetState", {"state", "value", "duration_seconds"}, {},
        std::function<bool(ErrorPtr*, const std::string&, const std::string&,
                           uint32_t)>(
            [this](ErrorPtr* error, const std::string& state,
                   const std::string& value, uint32_t seconds) {
              calls_.push_back("SetState " + state + " " + value + " " +
                               std::to_string(seconds));
              if (state == "named") {
                Error::AddTo(error, FROM_HERE, kDbusErrorDomain,
                             "org.tessaly.Test.Error.Named", "named failure");
              }
              return state == "ok";
            }));
    std::optional<bool> result;
    object_->RegisterAsync([&](bool success) { result = success; });
    EXPECT_FALSE(result) << "completion ran inside RegisterAsync";
    RunUntil([&] { return result.has_value(); });
    ASSERT_EQ(result, std::optional<bool>(true));
  }

  // Calls |member| of |interface| at |path| from the client and returns the
  // reply, a method return or an error.
  std::unique_ptr<Message> Call(const char* path, const char* interface,
                                const char* member, const Append& append) {
    sd_bus_message* call = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(
                  client_, &call, ServiceUniqueName(), path, interface, member),
              0);
    append(call);
    std::unique_ptr<Message> reply;
    sd_bus_slot* slot = nullptr;
    auto on_reply = [](sd_bus_message* m, void* userdata, sd_bus_error*) {
      *static_cast<std::unique_ptr<Message>*>(userdata) = Message::Ref(m);
      return 0;
    };
    EXPECT_GE(
        sd_bus_call_async(client_, &slot, call, on_reply, &reply, kWaitUs), 0);
    sd_bus_message_unref(call);
    RunUntil([&] { return reply != nullptr; });
    sd_bus_slot_unref(slot);
    return reply;
  }

  std::unique_ptr<Message> CallLights(const char* member,
                                      const Append& append) {
    return Call(kPath, kInterface, member, append);
  }

  const char* ServiceUniqueName() {
    const char* name = nullptr;
    sd_bus_get_unique_name(bus_->raw(), &name);
    return name ? name : "";
  }

  static int OnSignal(sd_bus_message* m, void* userdata, sd_bus_error*) {
    auto* self = static_cast<ExportedObjectTest*>(userdata);
    const char* path = nullptr;
    sd_bus_message_read(m, "o", &path);
    self->signals_.emplace_back(sd_bus_message_get_member(m), path);
    return 0;
  }

  std::unique_ptr<ExportedObjectManager> object_manager_;
  std::unique_ptr<ExportedObject> object_;
  sd_bus* client_ = nullptr;
  std::vector<std::string> calls_;
  std::vector<std::pair<std::string, std::string>> signals_;
};


TEST_F(ExportedObjectTest, MethodsOfEachShapeAnswer) {
  Export();

  std::unique_ptr<Message> next = CallLights(
      "Next", [](sd_bus_message* m) { sd_bus_message_append(m, "u", 41); });
  std::unique_ptr<Message> set = CallLights(
      "Set", [](sd_bus_message* m) { sd_bus_message_append(m, "u", 7); });
  std::unique_ptr<Message> set_state =
      CallLights("SetState", [](sd_bus_message* m) {
        sd_bus_message_append(m, "ssu", "ok", "in_progress", 30);
      });

  ASSERT_TRUE(next && set && set_state);
  uint32_t value = 0;
  MessageReader next_reader(next.get());
  EXPECT_TRUE(ReadArgs(next_reader, nullptr, &value));
  EXPECT_EQ(value, 42u);
  for (Message* reply : {set.get(), set_state.get()}) {
    EXPECT_FALSE(reply->IsError()) << reply->error_message();
    EXPECT_TRUE(MessageReader(reply).ReadEnd(nullptr));
  }
  EXPECT_THAT(calls_, testing::ElementsAre("Next", "Set 7",
                                           "SetState ok in_progress 30"));
}

TEST_F(ExportedObjectTest, BadArgumentsAreRejectedWithoutCallingTheMethod) {
  Export();
  const struct {
    const char* member;
    Append append;
    const char* expected;
  } kCases[] = {
      {"Next", [](sd_bus_message*) {}, "Too few parameters in a method call"},
      {"Next", [](sd_bus_message* m) { sd_bus_message_append(m, "s", "1"); },
       "Method parameter type mismatch"},
      {"Set", [](sd_bus_message* m) { sd_bus_message_append(m, "uu", 1, 2); },
       "Too many parameters in a method call"},
      {"SetState",
       [](sd_bus_message* m) { sd_bus_message_append(m, "ss", "ok", "v"); },
       "Too few parameters in a method call"},
      {"SetState",
       [](sd_bus_message* m) {
         sd_bus_message_append(m, "ssi", "ok", "v", 30);
       },
       "Method parameter type mismatch"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.member) + ": " + c.expected);

    std::unique_ptr<Message> reply = CallLights(c.member, c.append);

    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->IsError());
    EXPECT_EQ(reply->error_name(), kInvalidArgs);
    EXPECT_EQ(reply->error_message(), c.expected);
  }
  EXPECT_TRUE(calls_.empty());
}

TEST_F(ExportedObjectTest, FailedMethodGetsAnErrorReply) {
  Export();

  std::unique_ptr<Message> unnamed = CallLights(
      "SetState",
      [](sd_bus_message* m) { sd_bus_message_append(m, "ssu", "bad", "", 1); });
  std::unique_ptr<Message> named =
      CallLights("SetState", [](sd_bus_message* m) {
        sd_bus_message_append(m, "ssu", "named", "", 1);
      });

  ASSERT_TRUE(unnamed && named);
  EXPECT_TRUE(unnamed->IsError());
  EXPECT_EQ(unnamed->error_name(), "org.freedesktop.DBus.Error.Failed");
  EXPECT_TRUE(named->IsError());
  EXPECT_EQ(named->error_name(), "org.tessaly.Test.Error.Named");
  EXPECT_EQ(named->error_message(), "named failure");
}

TEST_F(ExportedObjectTest, StandardInterfacesDescribeTheObject) {
  Export();

  std::unique_ptr<Message> introspection =
      Call(kPath, "org.freedesktop.DBus.Introspectable", "Introspect",
           [](sd_bus_message*) {});
  std::unique_ptr<Message> properties = Call(
      kPath, "org.freedesktop.DBus.Properties", "GetAll",
      [](sd_bus_message* m) { sd_bus_message_append(m, "s", kInterface); });
  std::unique_ptr<Message> ping =
      Call(kPath, "org.freedesktop.DBus.Peer", "Ping", [](sd_bus_message*) {});
  std::unique_ptr<Message> managed =
      Call(kRoot, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects",
           [](sd_bus_message*) {});

  ASSERT_TRUE(introspection && properties && ping && managed);
  std::string xml;
  ASSERT_TRUE(MessageReader(introspection.get()).Read(&xml, nullptr));
  EXPECT_THAT(xml, HasSubstr("<interface name=\"org.tessaly.Test.Lights\">"));
  EXPECT_THAT(xml, HasSubstr("<method name=\"SetState\">\n"
                             "   <arg type=\"s\" name=\"state\" "
                             "direction=\"in\"/>"));
  EXPECT_THAT(xml, HasSubstr("<arg type=\"u\" name=\"next\" "
                             "direction=\"out\"/>"));
  EXPECT_FALSE(properties->IsError()) << properties->error_message();
  EXPECT_FALSE(ping->IsError()) << ping->error_message();

  // a{oa{sa{sv}}}: object paths with their interfaces.
  std::set<std::pair<std::string, std::string>> objects;
  MessageReader reader(managed.get());
  EXPECT_TRUE(reader.ReadDictionary<ObjectPath>(
      "a{sa{sv}}",
      [&](const ObjectPath& path, ErrorPtr* error) {
        return reader.ReadDictionary<std::string>(
            "a{sv}",
            [&](const std::string& interface, ErrorPtr* error) {
              objects.emplace(path.value, interface);
              return reader.Skip(error);
            },
            error);
      },
      nullptr));
  EXPECT_TRUE(objects.count({kPath, kInterface})) << "not managed";
}

TEST_F(ExportedObjectTest, AdditionAndRemovalAreAnnounced) {
  Export();
  RunUntil([&] { return !signals_.empty(); });
  ASSERT_THAT(signals_, testing::ElementsAre(Pair("InterfacesAdded", kPath)));

  object_.reset();
  RunUntil([&] { return signals_.size() == 2; });

  EXPECT_THAT(signals_, testing::ElementsAre(Pair("InterfacesAdded", kPath),
                                             Pair("InterfacesRemoved", kPath)));
  std::unique_ptr<Message> gone = CallLights(
      "Set", [](sd_bus_message* m) { sd_bus_message_append(m, "u", 1); });
  ASSERT_TRUE(gone);
  EXPECT_TRUE(gone->IsError());
  EXPECT_TRUE(calls_.empty());
}

}  // namespace
}  // namespace morvane::ap
