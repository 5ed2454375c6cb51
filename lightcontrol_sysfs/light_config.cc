#include "lightcontrol_sysfs/light_config.h"

#include <optional>
#include <sstream>

namespace morvane::ap {
namespace {

constexpr int kMaxState = 15;
constexpr int kMaxTransition = 255;
constexpr int kMaxDurationMs = 60'000;
constexpr int kMaxRepeat = 1000;

const struct {
  const char* name;
  Rgb colour;
} kColourNames[] = {
    {"off", {0, 0, 0}},         {"white", {255, 255, 255}},
    {"red", {255, 0, 0}},       {"green", {0, 255, 0}},
    {"blue", {0, 0, 255}},      {"amber", {255, 96, 0}},
    {"yellow", {255, 200, 0}},  {"cyan", {0, 255, 255}},
    {"purple", {160, 0, 255}},
};

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

std::string Trim(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// A whole decimal number in [min, max].
std::optional<int> Number(const std::string& text, int min, int max) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value < min || value > max) return std::nullopt;
  return value;
}

std::optional<Rgb> Colour(const std::string& text) {
  for (const auto& named : kColourNames) {
    if (text == named.name) return named.colour;
  }
  if (text.size() != 7 || text[0] != '#') return std::nullopt;
  int channels[3];
  for (int i = 0; i < 3; ++i) {
    const std::string hex = text.substr(1 + 2 * i, 2);
    if (hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      return std::nullopt;
    }
    channels[i] = std::stoi(hex, nullptr, 16);
  }
  return Rgb{static_cast<uint8_t>(channels[0]), static_cast<uint8_t>(channels[1]),
             static_cast<uint8_t>(channels[2])};
}

// Parses an animation from |words| starting at |at|: "solid", "blink MS",
// "breathe MS" or "pattern LEVEL MS [LEVEL MS ...]". Blink starts dark and
// ends lit, so a finite blink leaves the LED on.
std::optional<std::vector<PatternStep>> Animation(
    const std::vector<std::string>& words, size_t at, std::string* why) {
  const std::string kind = at < words.size() ? words[at] : "solid";
  const size_t args = words.size() - std::min(at + 1, words.size());
  if (kind == "solid" && args == 0) return std::vector<PatternStep>{};
  if ((kind == "blink" || kind == "breathe") && args == 1) {
    const std::optional<int> period = Number(words[at + 1], 2, kMaxDurationMs);
    if (!period) {
      *why = "the period must be 2.." + std::to_string(kMaxDurationMs) + " ms";
      return std::nullopt;
    }
    const int half = *period / 2;
    if (kind == "breathe") return std::vector<PatternStep>{{0, half}, {255, half}};
    return std::vector<PatternStep>{{0, half}, {0, 0}, {255, half}, {255, 0}};
  }
  if (kind == "pattern" && args >= 4 && args % 2 == 0) {
    std::vector<PatternStep> steps;
    int total_ms = 0;
    for (size_t i = at + 1; i < words.size(); i += 2) {
      const std::optional<int> level = Number(words[i], 0, 255);
      const std::optional<int> ms = Number(words[i + 1], 0, kMaxDurationMs);
      if (!level || !ms) {
        *why = "pattern levels must be 0..255 and durations 0..60000 ms";
        return std::nullopt;
      }
      steps.push_back({*level, *ms});
      total_ms += *ms;
    }
    if (total_ms == 0) {
      *why = "a pattern needs a step that lasts";
      return std::nullopt;
    }
    return steps;
  }
  *why = "expected solid, blink MS, breathe MS or pattern LEVEL MS LEVEL MS...";
  return std::nullopt;
}

// Applies one "key = value" pair; false with |why| set when it is invalid.
bool Apply(const std::string& key, const std::string& value,
           LightConfig* config, std::string* why) {
  const std::vector<std::string> words = Words(value);
  const size_t dot = key.find('.');
  const std::string prefix = key.substr(0, dot);
  if (key == "ring") {
    for (const std::string& name : words) {
      if (name.find('/') != std::string::npos || name == "." || name == "..") {
        *why = "\"" + name + "\" is not an LED name";
        return false;
      }
    }
    config->ring = words;
    return true;
  }
  if (key == "ambient_full_scale_lux") {
    const std::optional<int> lux = Number(value, 1, 1'000'000);
    if (!lux) {
      *why = "expected a whole number of lux, 1..1000000";
      return false;
    }
    config->ambient_full_scale_lux = *lux;
    return true;
  }
  if (dot == std::string::npos || (prefix != "state" && prefix != "transition")) {
    *why = "unknown key \"" + key + "\"";
    return false;
  }
  const bool is_state = prefix == "state";
  const std::optional<int> index =
      Number(key.substr(dot + 1), 0, is_state ? kMaxState : kMaxTransition);
  if (!index) {
    *why = "\"" + key + "\" needs a number 0.." +
           std::to_string(is_state ? kMaxState : kMaxTransition);
    return false;
  }
  if (words.empty()) {
    *why = "\"" + key + "\" has no value";
    return false;
  }
  if (is_state) {
    const std::optional<Rgb> colour = Colour(words[0]);
    if (!colour) {
      *why = "\"" + words[0] + "\" is not a colour (#rrggbb or a name)";
      return false;
    }
    std::optional<std::vector<PatternStep>> pattern = Animation(words, 1, why);
    if (!pattern) return false;
    config->states[*index] = {*colour, std::move(*pattern)};
    return true;
  }
  const std::optional<int> repeat = Number(words[0], 1, kMaxRepeat);
  if (!repeat) {
    *why = "a transition starts with its count, 1.." + std::to_string(kMaxRepeat);
    return false;
  }
  std::optional<std::vector<PatternStep>> pattern = Animation(words, 1, why);
  if (!pattern) return false;
  if (pattern->empty()) {
    *why = "a transition needs blink, breathe or pattern";
    return false;
  }
  config->transitions[*index] = {*repeat, std::move(*pattern)};
  return true;
}

}  // namespace

LightConfig DefaultLightConfig() {
  LightConfig config;
  std::vector<std::string> ignored;
  ParseLightConfig(
      "state.0 = white breathe 3000\n"
      "state.1 = green solid\n"
      "state.2 = amber blink 1000\n"
      "state.3 = blue breathe 1500\n"
      "state.4 = cyan blink 300\n"
      "state.6 = purple breathe 800\n"
      "transition.0 = 2 blink 200\n",
      &config, &ignored);
  return config;
}

void ParseLightConfig(const std::string& text, LightConfig* config,
                      std::vector<std::string>* problems) {
  std::istringstream in(text);
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    // Only whole lines are comments: '#' also starts a colour.
    const std::string content = Trim(line);
    if (content.empty() || content[0] == '#') continue;
    const size_t equals = content.find('=');
    std::string why = "expected key = value";
    if (equals != std::string::npos &&
        Apply(Trim(content.substr(0, equals)), Trim(content.substr(equals + 1)),
              config, &why)) {
      continue;
    }
    problems->push_back("line " + std::to_string(number) + ": " + why);
  }
}

}  // namespace morvane::ap
