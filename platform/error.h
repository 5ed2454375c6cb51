#ifndef PLATFORM_ERROR_H_
#define PLATFORM_ERROR_H_

#include <memory>
#include <string>

namespace morvane::ap {

// Where an error was added: the function, file and line of the caller.
struct Location {
  const char* function = "";
  const char* file = "";
  int line = 0;
};

#define FROM_HERE ::morvane::ap::Location{__func__, __FILE__, __LINE__}

class Error;
using ErrorPtr = std::unique_ptr<Error>;

// The domain of errors that carry a D-Bus error name as their code.
inline constexpr char kDbusErrorDomain[] = "dbus";

// One entry of an error chain: (domain, code, message, location). Each
// caller that adds context puts a new entry in front of the chain; the entry
// it replaced becomes the new one's inner error.
class Error {
 public:
  Error(const Location& location, std::string domain, std::string code,
        std::string message, ErrorPtr inner_error);
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  // Puts a new entry in front of |*error|. A null |error| means the caller
  // does not want to know; the call then does nothing.
  static void AddTo(ErrorPtr* error, const Location& location,
                    const std::string& domain, const std::string& code,
                    const std::string& message);
  static void AddToPrintf(ErrorPtr* error, const Location& location,
                          const std::string& domain, const std::string& code,
                          const char* format, ...)
      __attribute__((format(printf, 5, 6)));

  const std::string& domain() const { return domain_; }
  const std::string& code() const { return code_; }
  const std::string& message() const { return message_; }
  const Location& location() const { return location_; }
  const Error* inner_error() const { return inner_error_.get(); }

  // True if this entry or any inner one has |domain| and |code|.
  bool HasError(const std::string& domain, const std::string& code) const;

 private:
  const Location location_;
  const std::string domain_;
  const std::string code_;
  const std::string message_;
  const ErrorPtr inner_error_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_ERROR_H_
