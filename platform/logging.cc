#include "platform/logging.h"

#include <glog/logging.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
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

// Writes each line to standard error with the syslog priority in front
// ("<4>"), which the journal reads as the line's priority and strips. One
// write() per line, so that lines of a crash are not interleaved.
class JournalSink : public google::LogSink {
 public:
  void set_with_header(bool with_header) { with_header_ = with_header; }

  void send(google::LogSeverity severity, const char* /*full_filename*/,
            const char* base_filename, int line,
            const google::LogMessageTime& /*time*/, const char* message,
            size_t message_len) override {
    std::string text = "<" + std::to_string(SyslogPriority(severity)) + ">";
    if (with_header_) {
      text += std::string(base_filename) + ":" + std::to_string(line) + "] ";
    }
    text.append(message, message_len);
    text += '\n';
    // Nothing to do about a failed write: there is nowhere else to say it.
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, text.data(), text.size());
  }

 private:
  bool with_header_ = false;
};

// systemd connects standard error to the journal and names that stream in
// JOURNAL_STREAM ("<device>:<inode>"). A child that inherited the variable
// but not the stream does not match.
bool StderrIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  unsigned long long device = 0;
  unsigned long long inode = 0;
  char extra = 0;
  if (!stream ||
      std::sscanf(stream, "%llu:%llu%c", &device, &inode, &extra) != 2) {
    return false;
  }
  struct stat st {};
  return fstat(STDERR_FILENO, &st) == 0 && st.st_dev == device &&
         st.st_ino == inode;
}

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

JournalSink* Journal() {
  static auto* sink = new JournalSink;
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
  google::RemoveLogSink(Journal());
  closelog();
  // Under systemd both syslog and standard error end in the journal, and
  // every line would be there twice. Standard error is the one kept: it
  // also carries what is not a log line (an uncaught exception's text,
  // glog's stack trace of a failed check, the light library's own lines),
  // and the priority prefix keeps `journalctl -p` working as syslog did.
  if ((flags & kLogToSyslog) && (flags & kLogToStderr) && StderrIsJournal()) {
    FLAGS_logtostderr = false;
    // The sink has the fatal line already.
    FLAGS_stderrthreshold = google::NUM_SEVERITIES;
    Journal()->set_with_header((flags & kLogHeader) != 0);
    google::AddLogSink(Journal());
    return;
  }
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
