#include "platform/logging.h"

#include <glog/logging.h>
#include <syslog.h>

#include <string>

namespace morvane::ap {
namespace {

int SyslogPriority(google::LogSeverity severity) {
  switch (severity) {
    case google::GLOG_INFO:
      return LOG_INFO;
    case google::GLOG_WARNING:
      return LOG_WARNING;
    case google::GLOG_ERROR:
      return LOG_ERR;
    default:
      return LOG_CRIT;
  }
}

class SyslogSink : public google::LogSink {
 public:
  void set_with_header(bool with_header) { with_header_ = with_header; }

  void send(google::LogSeverity severity, const char* /*full_filename*/,
            const char* base_filename, int line,
            const google::LogMessageTime& /*time*/, const char* message,
            size_t message_len) override {
    const int length = static_cast<int>(message_len);
    if (with_header_) {
      syslog(SyslogPriority(severity), "%s:%d] %.*s", base_filename, line,
             length, message);
    } else {
      syslog(SyslogPriority(severity), "%.*s", length, message);
    }
  }

 private:
  bool with_header_ = false;
};

// Process-wide, as glog and syslog are: glog keeps pointers to the name and
// the sink, and openlog() keeps the ident pointer.
std::string& ProgramName() {
  static auto* name = new std::string;
  return *name;
}

SyslogSink* Sink() {
  static auto* sink = new SyslogSink;
  return sink;
}

}  // namespace

void InitLogging(const char* program_name, int flags) {
  if (!google::IsGoogleLoggingInitialized()) {
    ProgramName() = program_name;
    google::InitGoogleLogging(ProgramName().c_str());
  }

  // An empty destination turns a severity's log file off, so nothing is
  // ever written under /tmp or --log_dir.
  for (google::LogSeverity s = google::GLOG_INFO; s < google::NUM_SEVERITIES;
       ++s) {
    google::SetLogDestination(s, "");
  }
  FLAGS_logtostdout = false;
  FLAGS_alsologtostderr = false;
  FLAGS_logtostderr = (flags & kLogToStderr) != 0;
  // Without stderr logging a fatal line must still explain the abort.
  FLAGS_stderrthreshold = google::GLOG_FATAL;
  FLAGS_log_prefix = (flags & kLogHeader) != 0;

  google::RemoveLogSink(Sink());
  closelog();
  if (flags & kLogToSyslog) {
    static std::string* ident = new std::string;
    const std::string name = program_name;
    *ident = name.substr(name.rfind('/') + 1);
    openlog(ident->c_str(), LOG_PID, LOG_DAEMON);
    Sink()->set_with_header((flags & kLogHeader) != 0);
    google::AddLogSink(Sink());
  }
}

}  // namespace morvane::ap
