#include "stubs/clips/clips.h"

#include <cmath>
#include <cstdint>

namespace morvane::ap {
namespace {

constexpr int kRate = 48000;
constexpr double kPi = 3.14159265358979323846;

void AppendSample(std::string* out, double value) {
  const int16_t sample = static_cast<int16_t>(
      std::lround(std::fmax(-1.0, std::fmin(1.0, value)) * 32767.0));
  const uint16_t bits = static_cast<uint16_t>(sample);
  out->push_back(static_cast<char>(bits & 0xff));
  out->push_back(static_cast<char>(bits >> 8));
}

// A sine tone of |hz| that starts at |start_s| and decays with |tau_s|.
double Tone(double t, double start_s, double hz, double tau_s) {
  if (t < start_s) return 0.0;
  const double local = t - start_s;
  return std::sin(2 * kPi * hz * local) * std::exp(-local / tau_s);
}

}  // namespace

std::string MakeClickClip() {
  constexpr int kFrames = kRate * 20 / 1000;
  std::string out;
  out.reserve(kFrames * 2);
  for (int i = 0; i < kFrames; ++i) {
    const double t = static_cast<double>(i) / kRate;
    AppendSample(&out, 0.6 * Tone(t, 0.0, 2000.0, 0.004));
  }
  return out;
}

std::string MakeChimeClip() {
  constexpr int kFrames = kRate * 700 / 1000;
  std::string out;
  out.reserve(kFrames * 4);
  for (int i = 0; i < kFrames; ++i) {
    const double t = static_cast<double>(i) / kRate;
    const double low = Tone(t, 0.0, 659.25, 0.15);
    const double high = Tone(t, 0.18, 880.0, 0.2);
    AppendSample(&out, 0.4 * low + 0.25 * high);
    AppendSample(&out, 0.25 * low + 0.4 * high);
  }
  return out;
}

}  // namespace morvane::ap
