#include "platform/service_daemon.h"

#include <glog/logging.h>
#include <signal.h>
#include <string.h>
#include <sysexits.h>

#include <utility>

#include "platform/async_event_sequencer.h"
#include "platform/bus.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/exported_object_manager.h"
#include "platform/object_proxy.h"

namespace morvane::ap {

ServiceDaemon::ServiceDaemon(std::string service_name, std::string root_path)
    : service_name_(std::move(service_name)),
      root_path_(std::move(root_path)) {}

ServiceDaemon::~ServiceDaemon() = default;

TaskLoop* ServiceDaemon::loop() const { return loop_.get(); }

int ServiceDaemon::Run() {
  CHECK(!loop_) << "ServiceDaemon::Run() called twice";
  // A write to a pipe whose reader went away (standard error under an init
  // system whose logger restarted) must cost that line, not the process.
  signal(SIGPIPE, SIG_IGN);
  ErrorPtr error;
  loop_ = EventLoop::Create(&error);
  CHECK(loop_) << error->message();
  CHECK(loop_->QuitOnSignal(SIGTERM, &error) &&
        loop_->QuitOnSignal(SIGINT, &error))
      << error->message();
  // By default SIGHUP and SIGUSR1 end the process, and systemd counts an end
  // by SIGHUP as a clean one that Restart=on-failure leaves alone: a
  // reflexive `kill -HUP` would leave the device without its service. The
  // service has nothing to reload, so they are said and ignored here, the
  // same under any init system.
  for (int signo : {SIGHUP, SIGUSR1, SIGUSR2}) {
    CHECK(loop_->HandleSignal(
        signo,
        [signo] {
          LOG(INFO) << "Ignoring SIG" << sigabbrev_np(signo)
                    << ": nothing to reload";
        },
        &error))
        << error->message();
  }

  bus_ = Bus::ConnectSystemBus(loop_.get(), &error);
  if (!bus_) {
    LOG(ERROR) << error->message();
    return EX_UNAVAILABLE;
  }
  // sd-bus tells of a lost connection with a signal of its own.
  bus_lost_slot_ =
      ObjectProxy(bus_, "org.freedesktop.DBus.Local",
                  ObjectPath{"/org/freedesktop/DBus/Local"})
          .ConnectToSignal("org.freedesktop.DBus.Local", "Disconnected",
                           [this](Message*) {
                             LOG(ERROR) << "Lost the system bus, exiting";
                             loop_->Quit(EX_UNAVAILABLE);
                           });
  object_manager_ = std::make_unique<ExportedObjectManager>(bus_, root_path_);
  if (!object_manager_->Register(&error)) {
    LOG(ERROR) << error->message();
    return EX_UNAVAILABLE;
  }

  sequencer_ = std::make_unique<AsyncEventSequencer>();
  RegisterServiceObjects(sequencer_.get());
  sequencer_->OnAllTasksCompletedCall([this](bool) { ClaimServiceName(); });
  return loop_->Run();
}

void ServiceDaemon::ClaimServiceName() {
  bus_->RequestNameAsync(
      service_name_, [this](bool success, const Error* error) {
        if (success) return;
        LOG(ERROR) << "Failed to claim the service name " << service_name_
                   << ": " << (error ? error->message() : "unknown cause");
        loop_->Quit(EX_UNAVAILABLE);
      });
}

}  // namespace morvane::ap
