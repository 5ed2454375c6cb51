#include "platform/logging.h"

#include <glog/logging.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

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

// Sends each line to the local syslog socket as one datagram,
// "<priority>ident[pid]: message"; the receiver adds the time. syslog(3)
// tries a new connection for every line while nobody listens (a socket,
// a failed connect, a close: most of a line's cost), and its time stamp
// costs a time-zone lookup. Here a failed connection is tried again at
// most once a second, on the coarse monotonic clock: logging is below the
// task loop and must work without one.
class SyslogSink : public google::LogSink {
 public:
  static constexpr char kSocketPath[] = "/dev/log";
  static constexpr int64_t kRetryNs = 1'000'000'000;

  void Open(std::string ident, bool with_header) {
    Close();
    ident_ = std::move(ident);
    with_header_ = with_header;
    pid_ = getpid();
    next_attempt_ns_ = 0;
    Connect();
  }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

  void send(google::LogSeverity severity, const char* /*full_filename*/,
            const char* base_filename, int line,
            const google::LogMessageTime& /*time*/, const char* message,
            size_t message_len) override {
    if (fd_ < 0 && !Connect()) return;
    std::string text = "<" +
                       std::to_string(LOG_DAEMON | SyslogPriority(severity)) +
                       ">" + ident_ + "[" + std::to_string(pid_) + "]: ";
    if (with_header_) {
      text += std::string(base_filename) + ":" + std::to_string(line) + "] ";
    }
    text.append(message, message_len);
    // A receiver that went away (restarted) is looked for again later.
    if (::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) < 0) Close();
  }

 private:
  bool Connect() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const int64_t now_ns = now.tv_sec * 1'000'000'000LL + now.tv_nsec;
    if (now_ns < next_attempt_ns_) return false;
    next_attempt_ns_ = now_ns + kRetryNs;
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kSocketPath, sizeof(address.sun_path) - 1);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) <
        0) {
      Close();
      return false;
    }
    return true;
  }

  std::string ident_;
  bool with_header_ = false;
  pid_t pid_ = 0;
  int fd_ = -1;
  int64_t next_attempt_ns_ = 0;
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

// Process-wide, as glog is: it keeps pointers to the name and the sinks.
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
  Sink()->Close();
  // glog works out the zone offset of every line's time with mktime(),
  // which checks /etc/localtime anew for each line unless TZ names the zone.
  // Naming the same file keeps the zone; a change of it shows in the log's
  // times after a restart.
  setenv("TZ", ":/etc/localtime", /*overwrite=*/0);
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
    const std::string name = program_name;
    Sink()->Open(name.substr(name.rfind('/') + 1), (flags & kLogHeader) != 0);
    google::AddLogSink(Sink());
  }
}

}  // namespace morvane::ap
