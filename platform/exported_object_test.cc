#include "platform/exported_object.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <optional>
#include <tuple>
#include <utility>

#include "platform/bus.h"
#include "platform/event_loop.h"
#include "platform/exported_object_manager.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;
using testing::Pair;

constexpr char kRoot[] = "/org/tessaly/Test";
constexpr char kPath[] = "/org/tessaly/Test/Object";
constexpr char kInterface[] = "org.tessaly.Test.Lights";
constexpr int64_t kWaitUs = 5'000'000;

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

  // Exports kPath with kInterface, whose "SetState" (added first) succeeds for state "ok" only, with a named error for
  // "named", and whose "Next" answers |base| + 1; waits for the
  // registration to complete.
  void Export() {
    object_ =
        std::make_unique<ExportedObject>(object_manager_.get(), bus_, kPath);
    ExportedInterface* interface = object_->AddOrGetInterface(kInterface);
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
    interface->AddMethodHandler(
        "Next", {"base"}, {"next"},
        std::function<bool(ErrorPtr*, uint32_t, uint32_t*)>(
            [this](ErrorPtr*, uint32_t base, uint32_t* next) {
              calls_.push_back("Next " + std::to_string(base));
              *next = base + 1;
              return true;
            }));
    level_ = interface->AddProperty<uint32_t>("Level");
    deadline_ = interface->AddProperty<uint64_t>("Deadline",
                                                 EmitsChangedSignal::kFalse);
    std::optional<bool> result;
    object_->RegisterAsync([&](bool success) { result = success; });
    EXPECT_FALSE(result) << "completion ran inside RegisterAsync";
    RunUntil([&] { return result.has_value(); });
    ASSERT_EQ(result, std::optional<bool>(true));
  }

  // Calls |member| of kInterface with the arguments |types| describes (see
  // sd_bus_message_append) and returns the reply: a method return or an
  // error.
  template <typename... Args>
  std::unique_ptr<Message> Call(const char* member, const char* types,
                                Args... args) {
    return CallOn(kInterface, member, types, args...);
  }
  template <typename... Args>
  std::unique_ptr<Message> CallOn(const char* interface, const char* member,
                                  const char* types, Args... args) {
    const char* service = nullptr;
    sd_bus_get_unique_name(bus_->raw(), &service);
    sd_bus_message* call = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(client_, &call, service, kPath,
                                             interface, member),
              0);
    EXPECT_GE(sd_bus_message_append(call, types, args...), 0);
    std::unique_ptr<Message> reply;
    auto on_reply = [](sd_bus_message* m, void* userdata, sd_bus_error*) {
      *static_cast<std::unique_ptr<Message>*>(userdata) = Message::Ref(m);
      return 0;
    };
    sd_bus_slot* slot = nullptr;
    EXPECT_GE(
        sd_bus_call_async(client_, &slot, call, on_reply, &reply, kWaitUs), 0);
    sd_bus_message_unref(call);
    RunUntil([&] { return reply != nullptr; });
    sd_bus_slot_unref(slot);
    return reply;
  }

  static int OnSignal(sd_bus_message* m, void* userdata, sd_bus_error*) {
    auto* self = static_cast<ExportedObjectTest*>(userdata);
    const char* path = nullptr;
    sd_bus_message_read(m, "o", &path);
    self->signals_.emplace_back(sd_bus_message_get_member(m), path);
    return 0;
  }

  // Records "Name=value" for each property of type "u" a PropertiesChanged
  // of kPath carries.
  static int OnPropertiesChanged(sd_bus_message* m, void* userdata,
                                 sd_bus_error*) {
    auto* self = static_cast<ExportedObjectTest*>(userdata);
    const char* name = nullptr;
    uint32_t value = 0;
    sd_bus_message_skip(m, "s");
    sd_bus_message_enter_container(m, 'a', "{sv}");
    while (sd_bus_message_read(m, "{sv}", &name, "u", &value) > 0) {
      self->changes_.push_back(std::string(name) + "=" + std::to_string(value));
    }
    return 0;
  }

  std::unique_ptr<ExportedObjectManager> object_manager_;
  std::unique_ptr<ExportedObject> object_;
  sd_bus* client_ = nullptr;
  std::vector<std::string> calls_;
  std::vector<std::pair<std::string, std::string>> signals_;
  std::vector<std::string> changes_;
  ExportedProperty<uint32_t>* level_ = nullptr;
  ExportedProperty<uint64_t>* deadline_ = nullptr;
};

// Arguments that do not fit are rejected before the method is called.
TEST_F(ExportedObjectTest, MethodsAnswerWithTheirResultsOrTheirErrors) {
  Export();
  constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";

  auto next = Call("Next", "u", 41);
  auto ok = Call("SetState", "ssu", "ok", "in_progress", 30);
  const std::tuple<std::unique_ptr<Message>, const char*, const char*> kErrors[] = {
      {Call("SetState", "ssu", "bad", "", 1), "org.freedesktop.DBus.Error.Failed",
       "The method call failed"},
      {Call("SetState", "ssu", "named", "", 1), "org.tessaly.Test.Error.Named",
       "named failure"},
      {Call("Next", ""), kInvalidArgs, "Too few parameters in a method call"},
      {Call("Next", "uu", 1, 2), kInvalidArgs, "Too many parameters in a method call"},
      {Call("SetState", "ssi", "ok", "v", 3), kInvalidArgs, "Method parameter type mismatch"},
      // A name is matched whole.
      {Call("Nex", "u", 1), "org.freedesktop.DBus.Error.UnknownMethod",
       "Unknown method Nex or interface org.tessaly.Test.Lights."},
  };

  ASSERT_TRUE(next && ok);
  uint32_t value = 0;
  MessageReader next_reader(next.get());
  EXPECT_TRUE(ReadArgs(next_reader, nullptr, &value));
  EXPECT_EQ(value, 42u);
  EXPECT_FALSE(ok->IsError()) << ok->error_message();
  EXPECT_TRUE(MessageReader(ok.get()).ReadEnd(nullptr));
  for (const auto& [reply, name, message] : kErrors) {
    SCOPED_TRACE(message);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->error_name(), name);
    EXPECT_EQ(reply->error_message(), message);
  }
  EXPECT_THAT(calls_, ElementsAre("Next 41", "SetState ok in_progress 30",
                                  "SetState bad  1", "SetState named  1"));
}

TEST_F(ExportedObjectTest, IntrospectionListsMethodsInTheOrderAdded) {
  Export();

  auto reply = CallOn("org.freedesktop.DBus.Introspectable", "Introspect", "");

  ASSERT_TRUE(reply);
  std::string xml;
  MessageReader reader(reply.get());
  ASSERT_TRUE(ReadArgs(reader, nullptr, &xml));
  EXPECT_LT(xml.find("\"SetState\""), xml.find("\"Next\"")) << xml;
}

TEST_F(ExportedObjectTest, PropertiesAnnounceATurnsChangesInOneSignal) {
  Export();
  ASSERT_GE(sd_bus_match_signal(client_, nullptr, nullptr, kPath,
                                "org.freedesktop.DBus.Properties",
                                "PropertiesChanged",
                                &ExportedObjectTest::OnPropertiesChanged, this),
            0);

  level_->SetValue(7);
  level_->SetValue(8);
  deadline_->SetValue(99);
  RunUntil([&] { return !changes_.empty(); });
  level_->SetValue(8);
  deadline_->SetValue(100);
  auto level = CallOn("org.freedesktop.DBus.Properties", "Get", "ss",
                      kInterface, "Level");
  auto deadline = CallOn("org.freedesktop.DBus.Properties", "Get", "ss",
                         kInterface, "Deadline");

  EXPECT_THAT(changes_, ElementsAre("Level=8"));
  ASSERT_TRUE(level && deadline);
  uint32_t level_value = 0;
  uint64_t deadline_value = 0;
  EXPECT_GE(sd_bus_message_read(level->raw(), "v", "u", &level_value), 0);
  EXPECT_GE(sd_bus_message_read(deadline->raw(), "v", "t", &deadline_value), 0);
  EXPECT_EQ(level_value, 8u);
  EXPECT_EQ(deadline_value, 100u);
}

TEST_F(ExportedObjectTest, AdditionAndRemovalAreAnnounced) {
  Export();
  RunUntil([&] { return !signals_.empty(); });
  ASSERT_THAT(signals_, ElementsAre(Pair("InterfacesAdded", kPath)));

  object_.reset();
  RunUntil([&] { return signals_.size() == 2; });

  EXPECT_THAT(signals_, ElementsAre(Pair("InterfacesAdded", kPath),
                                    Pair("InterfacesRemoved", kPath)));
  auto gone = Call("Next", "u", 1);
  ASSERT_TRUE(gone);
  EXPECT_TRUE(gone->IsError());
  EXPECT_TRUE(calls_.empty());
}

}  // namespace
}  // namespace morvane::ap
