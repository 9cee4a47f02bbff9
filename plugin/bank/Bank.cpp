#include "bank/Bank.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <cmath>

#include "common/Messages.h"

namespace pelma {
namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
    text.remove_prefix(1);
  }
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  return text;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

std::optional<std::size_t> parameterIndex(std::string_view symbol) {
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    if (kParameters[i].symbol == symbol) return i;
  }
  return std::nullopt;
}

// A finite number, or a choice's label; nothing when the text is neither.
std::optional<float> parseValue(const Parameter& parameter, std::string_view text) {
  float number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() && std::isfinite(number)) {
    return number;
  }
  if (error == std::errc::result_out_of_range && end == text.data() + text.size()) {
    return text.front() == '-' ? parameter.minimum : parameter.maximum;
  }
  for (std::size_t i = 0; i < parameter.choices.size(); ++i) {
    if (!parameter.choices[i].empty() && equalsIgnoringCase(parameter.choices[i], text)) {
      return static_cast<float>(i);
    }
  }
  return std::nullopt;
}

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

std::optional<KeyValue> splitKeyValue(std::string_view line) {
  auto equals = line.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  KeyValue kv{trim(line.substr(0, equals)), trim(line.substr(equals + 1))};
  if (kv.key.empty()) return std::nullopt;
  return kv;
}

// Applies one "symbol = value" line to a patch. False when a known parameter gets a bad value;
// unknown symbols are ignored.
bool applyParameterLine(const KeyValue& kv, ParameterValues& values) {
  auto index = parameterIndex(kv.key);
  if (!index) return true;
  auto value = parseValue(kParameters[*index], kv.value);
  if (!value) return false;
  values[*index] = clampParameter(*index, *value);
  return true;
}

std::string formatValue(std::size_t index, float value) {
  const Parameter& p = kParameters[index];
  if (p.kind == Kind::Choice) {
    auto choice = static_cast<std::size_t>(clampParameter(index, value));
    if (choice < p.choices.size() && !p.choices[choice].empty()) {
      return std::string(p.choices[choice]);
    }
  }
  return fmt::format("{}", value);
}

// Walks the text line by line; lines end at '\n', a '\r' before it is dropped.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}
  bool next(std::string_view& line) {
    if (rest_.empty()) return false;
    auto end = rest_.find('\n');
    line = rest_.substr(0, end);
    rest_ = end == std::string_view::npos ? std::string_view() : rest_.substr(end + 1);
    ++number_;
    line = trim(line);
    return true;
  }
  int number() const { return number_; }

 private:
  std::string_view rest_;
  int number_ = 0;
};

bool isIgnorable(std::string_view line) {
  return line.empty() || line.front() == '#';
}

}  // namespace

std::optional<Bank> parseBank(std::string_view text, std::string_view fallbackName,
                              std::string_view origin) {
  Lines lines(text);
  std::string_view line;
  bool sawHeader = false;
  while (lines.next(line)) {
    if (isIgnorable(line)) continue;
    constexpr std::string_view kMagic = "pelma-bank";
    if (line.substr(0, kMagic.size()) != kMagic) break;
    auto versionText = trim(line.substr(kMagic.size()));
    int version = 0;
    auto [end, error] =
        std::from_chars(versionText.data(), versionText.data() + versionText.size(), version);
    if (error != std::errc() || end != versionText.data() + versionText.size() || version < 1) {
      break;
    }
    if (version > kBankFormatVersion) {
      message("Bank {} skipped: format {} needs a newer Pelma", origin, version);
      return std::nullopt;
    }
    sawHeader = true;
    break;
  }
  if (!sawHeader) {
    message("Bank {} skipped: it does not start with \"pelma-bank 1\"", origin);
    return std::nullopt;
  }

  Bank bank;
  std::optional<Patch> patch;  // the patch being read
  bool patchValid = true;
  bool tooMany = false;
  auto finishPatch = [&] {
    if (!patch) return;
    if (!patchValid) {
      message("Bank {}: patch \"{}\" skipped: it has a value that is not understood", origin,
              patch->name);
    } else if (bank.patches.size() >= kMaxPatchesPerBank) {
      tooMany = true;
    } else {
      bank.patches.push_back(std::move(*patch));
    }
    patch.reset();
  };

  bool ended = false;
  int badLine = 0;
  while (lines.next(line)) {
    if (isIgnorable(line)) continue;
    if (line == "end") {
      ended = true;
      break;
    }
    if (line.front() == '[' && line.back() == ']' && line.size() > 2) {
      finishPatch();
      auto name = trim(line.substr(1, line.size() - 2));
      if (name.empty()) {
        badLine = lines.number();
        break;
      }
      patch = Patch{std::string(name)};
      patchValid = true;
      continue;
    }
    auto kv = splitKeyValue(line);
    if (!kv) {
      badLine = lines.number();
      break;
    }
    if (patch) {
      patchValid = applyParameterLine(*kv, patch->values) && patchValid;
    } else if (kv->key == "name") {
      bank.name = std::string(kv->value);
    } else if (kv->key == "version") {
      bank.version = std::string(kv->value);
    }
  }
  if (badLine != 0) {
    message("Bank {} skipped: line {} is not understood", origin, badLine);
    return std::nullopt;
  }
  if (!ended) {
    message("Bank {} skipped: it is truncated (no \"end\" line)", origin);
    return std::nullopt;
  }
  finishPatch();
  if (tooMany) {
    message("Bank {}: patches after the first {} ignored", origin, kMaxPatchesPerBank);
  }
  if (bank.name.empty()) bank.name = std::string(fallbackName);
  if (bank.name.empty()) {
    message("Bank {} skipped: it has no name", origin);
    return std::nullopt;
  }
  return bank;
}

std::string formatParameterValues(const ParameterValues& values) {
  std::string text;
  for (std::size_t i = 0; i < kParameterCount; ++i) {
    text += fmt::format("{} = {}\n", kParameters[i].symbol, formatValue(i, values[i]));
  }
  return text;
}

std::optional<ParameterValues> parseParameterValues(std::string_view text) {
  ParameterValues values = defaultParameterValues();
  Lines lines(text);
  std::string_view line;
  while (lines.next(line)) {
    if (isIgnorable(line)) continue;
    auto kv = splitKeyValue(line);
    if (!kv || !applyParameterLine(*kv, values)) return std::nullopt;
  }
  return values;
}

std::string formatBank(const Bank& bank) {
  std::string text = fmt::format("pelma-bank {}\nname = {}\n", kBankFormatVersion, bank.name);
  if (!bank.version.empty()) text += fmt::format("version = {}\n", bank.version);
  for (const Patch& patch : bank.patches) {
    text += fmt::format("\n[{}]\n", patch.name);
    text += formatParameterValues(patch.values);
  }
  text += "\nend\n";
  return text;
}

}  // namespace pelma
