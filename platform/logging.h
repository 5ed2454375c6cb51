#ifndef PLATFORM_LOGGING_H_
#define PLATFORM_LOGGING_H_

namespace morvane::ap {

// Where log lines go; combine with |.
enum LogFlags {
  // Every line also goes to syslog (facility daemon, tagged with the
  // program's base name and pid). While no syslog daemon listens, lines go
  // only elsewhere and a connection is tried again at most once a second.
  kLogToSyslog = 1,
  // Every line goes to standard error.
  kLogToStderr = 2,
  // Lines keep the header: severity, time, thread id and file:line on
  // standard error; file:line in syslog, which adds its own time and pid.
  kLogHeader = 4,
};

// Sets up glog (LOG, VLOG, CHECK) for the process: no log files are ever
// written, lines go where |flags| say, and without kLogToStderr only fatal
// lines reach standard error. A failed CHECK or LOG(FATAL) always prints its
// condition and message to standard error and aborts.
//
// When standard error is the journal's stream (systemd's JOURNAL_STREAM
// names it) and both syslog and standard error are asked for, each line is
// written once, to standard error, as "<priority>file:line] message" (the
// header part only with kLogHeader): the journal would otherwise get every
// line from both.
//
// Sets TZ to ":/etc/localtime" when it is unset, so that a line's time
// costs no check of the time-zone file: a change of zone shows in the
// log's times after a restart.
//
// Call once at start-up, before anything logs. It sets glog's flag
// variables directly, so it needs no command-line parsing before it; glog
// flags parsed after it override it. A later call replaces the settings of
// the earlier one.
void InitLogging(const char* program_name, int flags);

}  // namespace morvane::ap

#endif  // PLATFORM_LOGGING_H_
