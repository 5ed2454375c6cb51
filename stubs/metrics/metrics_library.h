#ifndef STUBS_METRICS_METRICS_LIBRARY_H_
#define STUBS_METRICS_METRICS_LIBRARY_H_

#include <string>

namespace metrics {

// Sends samples to the platform's metrics service. This build is the
// stand-in for machines without that service: with METRICS_LOG=<file> set
// (read at each call) every sample appends one line to <file>, e.g.
// "enum AccessPoint.PrioritizeEvent 1 3", written with a single write() on
// an O_APPEND descriptor; otherwise the sample is logged at info level.
// The methods are virtual so that tests can replace the library.
class MetricsLibrary {
 public:
  MetricsLibrary() = default;
  MetricsLibrary(const MetricsLibrary&) = delete;
  MetricsLibrary& operator=(const MetricsLibrary&) = delete;
  virtual ~MetricsLibrary() = default;

  // Prepares the library; call once before sending.
  virtual void Init();

  // Sends |sample| of the enumerated metric |name|, whose values run from 0
  // to |exclusive_max| - 1. Returns false when the sample could not be
  // recorded (METRICS_LOG names a file that cannot be written).
  virtual bool SendEnumToUMA(const std::string& name, int sample,
                             int exclusive_max);
};

}  // namespace metrics

#endif  // STUBS_METRICS_METRICS_LIBRARY_H_
