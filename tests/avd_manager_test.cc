// The Manager interface of the real avd, called over a private bus.

#include <signal.h>
#include <systemd/sd-bus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/avd_process.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr auto kTimeout = std::chrono::seconds(20);
constexpr char kService[] = "org.tessaly.ap.AudioVisual";
constexpr char kPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr char kInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";

struct Reply {
  std::string error_name;  // empty for a method return
  std::string error_message;
  sd_bus_message* message = nullptr;
};

class AvdManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(bus_.Start(&error)) << error;
    client_ = bus_.Connect();
    ASSERT_NE(client_, nullptr);
    avd_ = std::make_unique<AvdProcess>(bus_.address());
    avd_->Start();
    ASSERT_TRUE(WaitUntil([this] { return NameHasOwner(); }, kTimeout))
        << avd_->Stderr();
  }

  void TearDown() override {
    sd_bus_message_unref(reply_.message);
    sd_bus_flush_close_unref(client_);
  }

  bool NameHasOwner() {
    return sd_bus_get_name_creds(client_, kService, 0, nullptr) >= 0;
  }

  // Calls |method| with the arguments |append| adds; the reply stays valid
  // until the next call.
  const Reply& Call(const char* method,
                    const std::function<void(sd_bus_message*)>& append,
                    const char* path = kPath, const char* interface = kInterface) {
    sd_bus_message_unref(reply_.message);
    reply_ = Reply{};
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(client_, &call, kService, path, interface,
                                   method);
    append(call);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    if (sd_bus_call(client_, call, 5'000'000, &error, &reply_.message) < 0) {
      reply_.error_name = error.name ? error.name : "?";
      reply_.error_message = error.message ? error.message : "";
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(call);
    return reply_;
  }

  uint32_t StartOperation() {
    const Reply& reply = Call("SetOperationInProgress", [](sd_bus_message* m) {
      sd_bus_message_append(m, "u", 0u);
    });
    EXPECT_EQ(reply.error_name, "") << reply.error_message;
    uint32_t id = 0;
    if (reply.message) {
      EXPECT_GE(sd_bus_message_read(reply.message, "u", &id), 0);
    }
    return id;
  }

  void ExpectInvalidArgs(const char* method,
                         const std::function<void(sd_bus_message*)>& append,
                         const char* message) {
    SCOPED_TRACE(method);
    const Reply& reply = Call(method, append);
    EXPECT_EQ(reply.error_name, kInvalidArgs);
    EXPECT_EQ(reply.error_message, message);
  }

  // Waits for the light-control log to hold |count| lines and returns them.
  std::vector<std::string> LightCallsAfter(size_t count) {
    EXPECT_TRUE(avd_->WaitForLightCalls(count, kTimeout));
    return avd_->LightCalls();
  }

  DbusDaemonFixture bus_;
  sd_bus* client_ = nullptr;
  std::unique_ptr<AvdProcess> avd_;
  Reply reply_;
};

// The daemon's own light calls before any request.
constexpr size_t kStartupCalls = 4;

TEST_F(AvdManagerTest, OperationsAnswerAndDriveTheRing) {
  EXPECT_EQ(StartOperation(), 1u);
  EXPECT_EQ(StartOperation(), 2u);

  EXPECT_EQ(Call("SetOperationSucceeded",
                 [](sd_bus_message* m) { sd_bus_message_append(m, "u", 2u); })
                .error_name,
            "");
  EXPECT_EQ(StartOperation(), 3u);
  EXPECT_EQ(Call("SetOperationFailed",
                 [](sd_bus_message* m) { sd_bus_message_append(m, "u", 3u); })
                .error_name,
            "");
  EXPECT_EQ(Call("SetLedState",
                 [](sd_bus_message* m) {
                   sd_bus_message_append(m, "ssu", "vox", "in_progress", 30u);
                 })
                .error_name,
            "");

  EXPECT_THAT(LightCallsAfter(kStartupCalls + 5),
              ElementsAre("light_init 1", "light_set_master_brightness 30",
                          "light_set_state 0",
                          "light_get_proximity_device_path null",
                          "light_set_state 6",
                          "light_set_state_with_transition 0 0",
                          "light_set_state 6", "light_set_state 0",
                          "light_set_state 6"));
}

TEST_F(AvdManagerTest, BadArgumentsGetInvalidArgsAndChangeNothing) {
  auto nothing = [](sd_bus_message*) {};
  ExpectInvalidArgs("SetOperationInProgress", nothing,
                    "Too few parameters in a method call");
  ExpectInvalidArgs("SetOperationInProgress",
                    [](sd_bus_message* m) { sd_bus_message_append(m, "s", "1"); },
                    "Method parameter type mismatch");
  ExpectInvalidArgs("SetOperationInProgress",
                    [](sd_bus_message* m) { sd_bus_message_append(m, "uu", 1u, 2u); },
                    "Too many parameters in a method call");
  // The identifier counter did not advance.
  EXPECT_EQ(StartOperation(), 1u);

  ExpectInvalidArgs("SetOperationSucceeded",
                    [](sd_bus_message* m) { sd_bus_message_append(m, "uu", 1u, 1u); },
                    "Too many parameters in a method call");
  ExpectInvalidArgs("SetOperationFailed", nothing,
                    "Too few parameters in a method call");
  ExpectInvalidArgs("SetLedState",
                    [](sd_bus_message* m) { sd_bus_message_append(m, "ss", "vox", "x"); },
                    "Too few parameters in a method call");
  ExpectInvalidArgs("SetLedState",
                    [](sd_bus_message* m) {
                      sd_bus_message_append(m, "ssi", "vox", "completed", 5);
                    },
                    "Method parameter type mismatch");
  ExpectInvalidArgs("SetLedState",
                    [](sd_bus_message* m) {
                      sd_bus_message_append(m, "ssuu", "vox", "", 0u, 0u);
                    },
                    "Too many parameters in a method call");

  // Only the one accepted call reached the ring: the operation is still shown.
  StartOperation();
  EXPECT_THAT(LightCallsAfter(kStartupCalls + 1),
              ElementsAre("light_init 1", "light_set_master_brightness 30",
                          "light_set_state 0",
                          "light_get_proximity_device_path null",
                          "light_set_state 6"));
}

TEST_F(AvdManagerTest, RejectedStateNameGetsAnErrorReply) {
  for (const char* name : {"wan_failure", "setup_complete", "Vox"}) {
    SCOPED_TRACE(name);
    const Reply& reply = Call("SetLedState", [name](sd_bus_message* m) {
      sd_bus_message_append(m, "ssu", name, "", 10u);
    });
    EXPECT_EQ(reply.error_name, "org.freedesktop.DBus.Error.Failed");
  }

  EXPECT_TRUE(WaitUntil(
      [this] {
        return avd_->Stderr().find("Unexpected led state: Vox") != std::string::npos;
      },
      kTimeout));
  EXPECT_THAT(avd_->Stderr(), HasSubstr("Unexpected led state: wan_failure"));
  EXPECT_EQ(avd_->LightCalls().size(), kStartupCalls);
}

TEST_F(AvdManagerTest, ManagerIsListedAndIntrospectableOnceTheNameIsOwned) {
  // SetUp waited for the name only; the object must be there already.
  const Reply& objects = Call(
      "GetManagedObjects", [](sd_bus_message*) {}, "/org/tessaly/ap/AudioVisual",
      "org.freedesktop.DBus.ObjectManager");
  ASSERT_EQ(objects.error_name, "") << objects.error_message;
  const char* path = nullptr;
  ASSERT_GE(sd_bus_message_enter_container(objects.message, 'a', "{oa{sa{sv}}}"), 0);
  ASSERT_GT(sd_bus_message_enter_container(objects.message, 'e', "oa{sa{sv}}"), 0);
  ASSERT_GE(sd_bus_message_read(objects.message, "o", &path), 0);
  EXPECT_STREQ(path, kPath);

  const Reply& xml = Call("Introspect", [](sd_bus_message*) {}, kPath,
                          "org.freedesktop.DBus.Introspectable");
  ASSERT_EQ(xml.error_name, "") << xml.error_message;
  const char* text = nullptr;
  ASSERT_GE(sd_bus_message_read(xml.message, "s", &text), 0);
  const std::string introspection = text;
  EXPECT_THAT(introspection, HasSubstr(kInterface));
  for (const char* method : {"SetOperationInProgress", "SetOperationSucceeded",
                             "SetOperationFailed", "SetLedState"}) {
    EXPECT_THAT(introspection, HasSubstr(std::string("<method name=\"") + method));
  }
  EXPECT_THAT(introspection,
              HasSubstr("<arg type=\"u\" name=\"operation_id\" direction=\"out\"/>"));
  EXPECT_THAT(introspection,
              HasSubstr("<arg type=\"u\" name=\"duration_seconds\" direction=\"in\"/>"));
}

}  // namespace
}  // namespace morvane::ap
