#ifndef STUBS_STUB_LOG_H_
#define STUBS_STUB_LOG_H_

// Appends one formatted line, newline added, to the file named by the
// environment variable |variable|; does nothing when it is unset or empty.
// Each line is one write() on a descriptor opened with O_APPEND, so a reader
// tailing the file sees whole lines only. Lines longer than 4 KiB are cut.
// Failures to log are ignored: the stand-in libraries cannot report them and
// their callers would do nothing about them.
__attribute__((visibility("hidden"), format(printf, 2, 3)))
void StubLogLine(const char* variable, const char* format, ...);

#endif  // STUBS_STUB_LOG_H_
