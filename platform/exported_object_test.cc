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
#include "platform/object_proxy.h"
#include "tests/fixtures/bus_test.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;

constexpr char kRoot[] = "/org/tessaly/Test";
constexpr char kPath[] = "/org/tessaly/Test/Object";
constexpr char kInterface[] = "org.tessaly.Test.Lights";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";

class ExportedObjectTest : public BusTest {
 protected:
  // Exports kPath with kInterface, whose methods SetState (added first) and
  // Next are below, and waits for the registration to complete.
  void SetUp() override {
    BusTest::SetUp();
    if (HasFatalFailure()) return;
    object_manager_ = std::make_unique<ExportedObjectManager>(bus_, kRoot);
    ASSERT_TRUE(object_manager_->Register(nullptr));
    client_ = daemon_->Connect();
    ASSERT_TRUE(client_);
    ASSERT_GE(sd_bus_attach_event(client_, loop_->event(), 0), 0);
    ASSERT_GE(sd_bus_get_unique_name(bus_->raw(), &service_), 0);
    ASSERT_GE(sd_bus_match_signal(client_, nullptr, service_, nullptr, nullptr,
                                  nullptr, &ExportedObjectTest::OnSignal, this),
              0);

    object_ =
        std::make_unique<ExportedObject>(object_manager_.get(), bus_, kPath);
    ExportedInterface* interface = object_->AddOrGetInterface(kInterface);
    interface->AddMethodHandler("SetState",
                                {"state", "value", "duration_seconds"}, {},
                                this, &ExportedObjectTest::SetState);
    interface->AddMethodHandler("Next", {"base"}, {"next"}, this,
                                &ExportedObjectTest::Next);
    level_ = interface->AddProperty<uint32_t>("Level");
    deadline_ = interface->AddProperty<uint64_t>("Deadline",
                                                 EmitsChangedSignal::kFalse);
    std::optional<bool> result;
    object_->RegisterAsync([&](bool success) { result = success; });
    EXPECT_FALSE(result) << "completion ran inside RegisterAsync";
    RunUntil([&] { return result.has_value(); });
    ASSERT_EQ(result, std::optional<bool>(true));
  }

  void TearDown() override {
    object_.reset();
    sd_bus_flush_close_unref(client_);
  }

  // Succeeds for state "ok" only, with a named error for "named".
  bool SetState(ErrorPtr* error, const std::string& state,
                const std::string& value, uint32_t seconds) {
    calls_.push_back("SetState " + state + " " + value + " " +
                     std::to_string(seconds));
    if (state == "named") {
      Error::AddTo(error, FROM_HERE, kDbusErrorDomain,
                   "org.tessaly.Test.Error.Named", "named failure");
    }
    return state == "ok";
  }

  bool Next(ErrorPtr*, uint32_t base, uint32_t* next) {
    calls_.push_back("Next " + std::to_string(base));
    *next = base + 1;
    return true;
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
    std::unique_ptr<Message> reply;
    auto on_reply = [](sd_bus_message* m, void* userdata, sd_bus_error*) {
      *static_cast<std::unique_ptr<Message>*>(userdata) = Message::Ref(m);
      return 0;
    };
    sd_bus_slot* slot = nullptr;
    EXPECT_GE(sd_bus_call_method_async(client_, &slot, service_, kPath,
                                       interface, member, on_reply, &reply,
                                       types, args...),
              0);
    RunUntil([&] { return reply != nullptr; });
    sd_bus_slot_unref(slot);
    return reply;
  }

  // Records each signal of the service: "Member path" for the object
  // manager's, "Name=value" for each property of type "u" that a
  // PropertiesChanged carries.
  static int OnSignal(sd_bus_message* m, void* userdata, sd_bus_error*) {
    auto* self = static_cast<ExportedObjectTest*>(userdata);
    const char* text = nullptr;
    uint32_t value = 0;
    if (!sd_bus_message_is_signal(m, kProperties, "PropertiesChanged")) {
      sd_bus_message_read(m, "o", &text);
      self->signals_.push_back(std::string(sd_bus_message_get_member(m)) +
                               " " + text);
      return 0;
    }
    sd_bus_message_skip(m, "s");
    sd_bus_message_enter_container(m, 'a', "{sv}");
    while (sd_bus_message_read(m, "{sv}", &text, "u", &value) > 0) {
      self->signals_.push_back(std::string(text) + "=" + std::to_string(value));
    }
    return 0;
  }

  std::unique_ptr<ExportedObjectManager> object_manager_;
  std::unique_ptr<ExportedObject> object_;
  sd_bus* client_ = nullptr;
  const char* service_ = nullptr;
  std::vector<std::string> calls_;
  std::vector<std::string> signals_;
  ExportedProperty<uint32_t>* level_ = nullptr;
  ExportedProperty<uint64_t>* deadline_ = nullptr;
};

// Arguments that do not fit are rejected before the method is called.
TEST_F(ExportedObjectTest, MethodsAnswerWithTheirResultsOrErrorsInTheOrderAdded) {
  constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";

  auto next = Call("Next", "u", 41);
  auto introspection =
      CallOn("org.freedesktop.DBus.Introspectable", "Introspect", "");
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
  EXPECT_TRUE(ExtractMethodCallResults(next.get(), nullptr, &value));
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
  // Introspection lists the methods in the order they were added.
  ASSERT_TRUE(introspection);
  std::string xml;
  ASSERT_TRUE(ExtractMethodCallResults(introspection.get(), nullptr, &xml));
  EXPECT_LT(xml.find("\"SetState\""), xml.find("\"Next\"")) << xml;
}

TEST_F(ExportedObjectTest, AnnouncesAdditionATurnsPropertyChangesAndRemoval) {
  RunUntil([&] { return !signals_.empty(); });

  level_->SetValue(7);
  level_->SetValue(8);
  deadline_->SetValue(99);
  RunUntil([&] { return signals_.size() == 2; });
  level_->SetValue(8);
  deadline_->SetValue(100);
  auto all = CallOn(kProperties, "GetAll", "s", kInterface);
  ASSERT_TRUE(all);
  const char* names[2] = {};
  uint32_t level = 0;
  uint64_t deadline = 0;
  EXPECT_GE(sd_bus_message_read(all->raw(), "a{sv}", 2, &names[0], "u", &level,
                                &names[1], "t", &deadline),
            0);
  EXPECT_EQ(level, 8u);
  EXPECT_EQ(deadline, 100u);

  object_.reset();
  RunUntil([&] { return signals_.size() == 3; });

  EXPECT_THAT(signals_, ElementsAre(std::string("InterfacesAdded ") + kPath,
                                    "Level=8",
                                    std::string("InterfacesRemoved ") + kPath));
  auto gone = Call("Next", "u", 1);
  ASSERT_TRUE(gone);
  EXPECT_TRUE(gone->IsError());
  EXPECT_TRUE(calls_.empty());
}

}  // namespace
}  // namespace morvane::ap
