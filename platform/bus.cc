#include "platform/bus.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstring>
#include <utility>

#include "platform/event_loop.h"

namespace morvane::ap {
namespace {

constexpr char kFailed[] = "org.freedesktop.DBus.Error.Failed";

// Replies of RequestName without the queue flag.
constexpr uint32_t kPrimaryOwner = 1;
constexpr uint32_t kAlreadyOwner = 4;

struct NameRequest {
  std::string name;
  Bus::RequestNameCallback done;
};

int OnRequestNameReply(sd_bus_message* reply, void* userdata, sd_bus_error*) {
  auto* request = static_cast<NameRequest*>(userdata);
  ErrorPtr error;
  const sd_bus_error* bus_error = sd_bus_message_get_error(reply);
  uint32_t result = 0;
  if (bus_error) {
    Error::AddTo(&error, FROM_HERE, kDbusErrorDomain, bus_error->name,
                 bus_error->message ? bus_error->message : "");
  } else if (sd_bus_message_read_basic(reply, 'u', &result) <= 0) {
    Error::AddTo(&error, FROM_HERE, kDbusErrorDomain, kFailed,
                 "Malformed reply to RequestName");
  } else if (result != kPrimaryOwner && result != kAlreadyOwner) {
    Error::AddToPrintf(&error, FROM_HERE, kDbusErrorDomain, kFailed,
                       "The name %s is owned by another connection",
                       request->name.c_str());
  }
  // Move the callback out: it may destroy the bus, and with it this request.
  Bus::RequestNameCallback done = std::move(request->done);
  done(!error, error.get());
  return 0;
}

void DeleteNameRequest(void* userdata) {
  delete static_cast<NameRequest*>(userdata);
}

}  // namespace

std::shared_ptr<Bus> Bus::ConnectSystemBus(EventLoop* loop, ErrorPtr* error) {
  sd_bus* bus = nullptr;
  const int r = sd_bus_open_system(&bus);
  return Wrap(loop, bus, r, "the system bus", error);
}

std::shared_ptr<Bus> Bus::Connect(EventLoop* loop, const std::string& address,
                                  ErrorPtr* error) {
  sd_bus* bus = nullptr;
  int r = sd_bus_new(&bus);
  if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
  if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
  if (r >= 0) r = sd_bus_start(bus);
  return Wrap(loop, bus, r, address, error);
}

std::shared_ptr<Bus> Bus::Wrap(EventLoop* loop, sd_bus* bus, int r,
                               const std::string& what, ErrorPtr* error) {
  if (r >= 0 && loop) {
    r = sd_bus_attach_event(bus, loop->event(), SD_EVENT_PRIORITY_NORMAL);
  }
  if (r < 0) {
    sd_bus_flush_close_unref(bus);
    sd_bus_error bus_error = SD_BUS_ERROR_NULL;
    sd_bus_error_set_errno(&bus_error, r);
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain, bus_error.name,
                       "Failed to connect to %s: %s", what.c_str(),
                       strerror(-r));
    sd_bus_error_free(&bus_error);
    return nullptr;
  }
  return std::shared_ptr<Bus>(new Bus(loop, bus));
}

Bus::Bus(EventLoop* loop, sd_bus* bus) : loop_(loop), bus_(bus) {}

Bus::~Bus() {
  sd_bus_detach_event(bus_);
  sd_bus_flush_close_unref(bus_);
}

void Bus::RequestNameAsync(const std::string& name, RequestNameCallback done) {
  auto* request = new NameRequest{name, std::move(done)};
  sd_bus_slot* slot = nullptr;
  const int r = sd_bus_request_name_async(bus_, &slot, name.c_str(), 0,
                                          &OnRequestNameReply, request);
  if (r < 0) {
    auto error = std::make_shared<ErrorPtr>();
    Error::AddToPrintf(error.get(), FROM_HERE, kDbusErrorDomain, kFailed,
                       "Failed to request the name %s: %s", name.c_str(),
                       strerror(-r));
    loop_->PostTask([done = std::move(request->done), error] {
      done(false, error->get());
    });
    delete request;
    return;
  }
  // The bus owns the slot from here; it frees the request after the reply or
  // when the connection closes.
  sd_bus_slot_set_destroy_callback(slot, &DeleteNameRequest);
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
}

TaskLoop* Bus::loop() const { return loop_; }

BusSlot::BusSlot(BusSlot&& other) noexcept { *this = std::move(other); }

BusSlot& BusSlot::operator=(BusSlot&& other) noexcept {
  if (this != &other) {
    reset();
    std::swap(slot_, other.slot_);
    std::swap(loop_, other.loop_);
    std::swap(task_, other.task_);
  }
  return *this;
}

void BusSlot::reset() {
  slot_ = sd_bus_slot_unref(slot_);
  if (task_) loop_->CancelTask(task_);
  task_ = 0;
}

}  // namespace morvane::ap
