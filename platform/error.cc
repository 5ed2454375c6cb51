#include "platform/error.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace morvane::ap {

Error::Error(const Location& location, std::string domain, std::string code,
             std::string message, ErrorPtr inner_error)
    : location_(location),
      domain_(std::move(domain)),
      code_(std::move(code)),
      message_(std::move(message)),
      inner_error_(std::move(inner_error)) {}

void Error::AddTo(ErrorPtr* error, const Location& location,
                  const std::string& domain, const std::string& code,
                  const std::string& message) {
  if (!error) return;
  *error = std::make_unique<Error>(location, domain, code, message,
                                   std::move(*error));
}

void Error::AddToPrintf(ErrorPtr* error, const Location& location,
                        const std::string& domain, const std::string& code,
                        const char* format, ...) {
  if (!error) return;
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  const int size = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string message(size > 0 ? size : 0, '\0');
  if (size > 0) std::vsnprintf(message.data(), message.size() + 1, format, args);
  va_end(args);
  AddTo(error, location, domain, code, message);
}

bool Error::HasError(const std::string& domain, const std::string& code) const {
  for (const Error* e = this; e; e = e->inner_error()) {
    if (e->domain() == domain && e->code() == code) return true;
  }
  return false;
}

}  // namespace morvane::ap
