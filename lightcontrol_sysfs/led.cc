#include "lightcontrol_sysfs/led.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

namespace morvane::ap {
namespace {

constexpr char kLedClass[] = "/sys/class/leds/";

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// |value| (0..255) on a 0..|top| scale, rounded up so that a lit colour
// never rounds to dark on an LED with few levels (a GPIO LED has one).
int Scale(int value, int top) { return (value * top + 254) / 255; }

// The part of |colour| that an LED of colour |name| shows. In a multicolour
// LED a white element shows what the three have in common; a single-colour
// LED that is not red, green or blue shows the colour's lightness.
int Component(const std::string& name, Rgb colour, bool multicolour) {
  if (name == "red") return colour.r;
  if (name == "green") return colour.g;
  if (name == "blue") return colour.b;
  if (multicolour) {
    return name == "white" ? std::min({colour.r, colour.g, colour.b}) : 0;
  }
  return std::max({colour.r, colour.g, colour.b});
}

}  // namespace

bool Led::IsMulticolour(const Sysfs& sysfs, const std::string& name) {
  struct stat st {};
  return stat(sysfs.Path(kLedClass + name + "/multi_index").c_str(), &st) == 0;
}

std::unique_ptr<Led> Led::Probe(Sysfs* sysfs, const std::string& name) {
  const std::string dir = sysfs->Path(kLedClass + name);
  struct stat st {};
  const bool found = stat(dir.c_str(), &st) == 0;
  if (!found || !S_ISDIR(st.st_mode)) {
    sysfs->ReportOnce(dir, "Failed to find LED " + name + " (" + dir + "): " +
                               strerror(found ? ENOTDIR : errno) +
                               "; the ring goes on without it");
    return nullptr;
  }
  std::unique_ptr<Led> led(new Led(sysfs, name, dir));
  int error = 0;
  const std::optional<std::string> max = sysfs->Read(dir + "/max_brightness", &error);
  const std::optional<long> parsed = max ? ParseInteger(*max) : std::nullopt;
  if (parsed && *parsed > 0 && *parsed <= 1'000'000) {
    led->max_brightness_ = static_cast<int>(*parsed);
  } else {
    sysfs->ReportOnce(dir + "/max_brightness",
                      "Failed to read " + dir + "/max_brightness: " +
                          (max ? "not a positive number" : strerror(error)) +
                          "; assuming 255");
  }
  if (const std::optional<std::string> index = sysfs->Read(dir + "/multi_index")) {
    led->multi_index_ = Words(*index);
  }
  if (const std::optional<std::string> triggers = sysfs->Read(dir + "/trigger")) {
    led->has_trigger_ = true;
    // The list marks the active trigger as "[name]".
    for (const std::string& word : Words(*triggers)) {
      if (word == "pattern" || word == "[pattern]") led->has_pattern_trigger_ = true;
      if (word == "[pattern]") led->pattern_active_ = true;
    }
  }
  const size_t colon = name.find(':');
  if (colon != std::string::npos) {
    led->colour_ = name.substr(colon + 1, name.find(':', colon + 1) - colon - 1);
  }
  return led;
}

bool Led::Write(const char* attribute, const std::string& value) {
  return sysfs_->Write(dir_ + "/" + attribute, value);
}

bool Led::Show(Rgb colour, int master, const std::vector<PatternStep>& pattern,
               int repeat) {
  bool ok = true;
  int component = Component(colour_, colour, false);
  if (multicolour()) {
    std::string intensities;
    for (const std::string& element : multi_index_) {
      if (!intensities.empty()) intensities += ' ';
      intensities += std::to_string(
          Scale(Component(element, colour, true), max_brightness_));
    }
    ok = Write("multi_intensity", intensities);
    // Hue is in multi_intensity; brightness only dims the whole LED.
    component = colour == Rgb{} ? 0 : 255;
  }
  const int top = Scale(Scale(component, master), max_brightness_);

  // Once an LED runs the pattern trigger it keeps it. Setting a trigger
  // makes the trigger's attributes anew, owned by root: a daemon that is
  // not root can write them only once udev has handed them over on the
  // trigger's change event, which comes after the writes that follow at
  // once. A steady level is then a pattern played once and held.
  const bool animated = !pattern.empty() && top > 0;
  if (has_pattern_trigger_ && !pattern_active_ && animated) {
    pattern_active_ = Write("trigger", "pattern");
  }
  if (pattern_active_) {
    const std::vector<PatternStep> held = {{255, 1}, {255, 1}};
    std::string steps;
    for (const PatternStep& step : animated ? pattern : held) {
      if (!steps.empty()) steps += ' ';
      steps += std::to_string(Scale(step.level, top)) + " " +
               std::to_string(step.duration_ms);
    }
    // The pattern (re)starts with the repeat count in force: write it first.
    ok = Write("repeat", std::to_string(animated ? repeat : 1)) && ok;
    return Write("pattern", steps) && ok;
  }
  // Steady: no trigger may go on changing the brightness.
  if (has_trigger_) ok = Write("trigger", "none") && ok;
  return Write("brightness", std::to_string(top)) && ok;
}

}  // namespace morvane::ap
