// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "script.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace tarn_sim {

namespace {

constexpr std::uint64_t kTickUs = kTickMs * 1000;
constexpr std::size_t kMostDigits = 9;  // before the point; after it, more could not be a multiple of 10 ms

struct Unit {
  const char *name;
  std::uint64_t us;
};
constexpr Unit kUnits[] = {{"ms", 1000}, {"s", 1000000}, {"m", 60000000}};

std::string_view take_digits(std::string_view *text) {
  const std::size_t count = std::min(text->find_first_not_of("0123456789"), text->size());
  const std::string_view digits = text->substr(0, count);
  text->remove_prefix(count);
  return digits;
}

std::uint64_t value_of(std::string_view digits) {
  std::uint64_t value = 0;
  for (const char digit : digits) value = value * 10 + static_cast<std::uint64_t>(digit - '0');
  return value;
}

// The value of the "5" in "1.5s": half a second. Nothing if it is not a whole number of us.
std::optional<std::uint64_t> fraction_us(std::string_view digits, std::uint64_t unit_us) {
  const std::size_t last = digits.find_last_not_of('0');
  digits = digits.substr(0, last == std::string_view::npos ? 0 : last + 1);
  if (digits.size() > kMostDigits) return std::nullopt;
  std::uint64_t scale = 1;
  for (std::size_t i = 0; i < digits.size(); i++) scale *= 10;
  const std::uint64_t parts = value_of(digits) * unit_us;
  if (parts % scale != 0) return std::nullopt;
  return parts / scale;
}

class LineParser {
 public:
  LineParser(std::vector<Word> words, std::size_t end, Names *names, Fault *fault)
      : words_(std::move(words)), end_(end), names_(names), fault_(fault) {}

  std::optional<Line> run() {
    Line line;
    if (is(0, "await")) return run_await();
    bool repeats = false;
    if (is(0, "at") || is(0, "after")) {
      line.when = is(0, "at") ? Line::When::kAt : Line::When::kAfter;
      if (!take_time(&line.ticks)) return std::nullopt;
    } else if (is(0, "every")) {
      repeats = true;
      if (!take_period(&line.period)) return std::nullopt;
    }
    const auto rest = std::span<const Word>(words_).subspan(used_);
    auto counted = parse_command(rest, end_, names_, fault_);
    if (!counted) return std::nullopt;
    if (counted->times == 0U) return refuse(rest[0].column, "0 times means never: write 1 times or more");
    line.times = counted->times.value_or(repeats ? 0 : 1);
    line.command = std::move(counted->command);
    return line;
  }

 private:
  bool fail(std::size_t column, const std::string &reason) {
    *fault_ = {column, reason};
    return false;
  }

  std::nullopt_t refuse(std::size_t column, const std::string &reason) {
    (void)fail(column, reason);
    return std::nullopt;
  }

  bool is(std::size_t index, const char *text) const {
    return index < words_.size() && !words_[index].is_quoted && words_[index].text == text;
  }

  std::optional<Line> run_await() {
    Line line;
    if (is(1, "channel")) line.awaited = Awaited::kChannel;
    if (is(1, "settings")) line.awaited = Awaited::kSettings;
    if (line.awaited == Awaited::kNothing) {
      return refuse(words_.size() > 1 ? words_[1].column : end_, "only 'channel' and 'settings' can be awaited");
    }
    if (words_.size() > 2) return refuse(words_[2].column, "'" + words_[2].text + "' is one word too many");
    return line;
  }

  bool take_time(std::uint64_t *ticks) {
    if (words_.size() < 2) return fail(end_, "a time is missing");
    std::string reason;
    const auto time = parse_time(words_[1].text, &reason);
    if (!time) return fail(words_[1].column, reason);
    *ticks = *time;
    used_ = 2;
    return true;
  }

  bool take_period(std::uint64_t *ticks) {
    if (!take_time(ticks)) return false;
    return *ticks > 0 || fail(words_[1].column, "a period is at least 10ms");
  }

  std::vector<Word> words_;
  std::size_t end_;
  Names *names_;
  Fault *fault_;
  std::size_t used_ = 0;
};

}  // namespace

std::optional<std::uint64_t> parse_time(const std::string &text, std::string *reason) {
  std::string_view rest = text;
  const std::string_view whole = take_digits(&rest);
  std::string_view fraction;
  const bool has_point = !rest.empty() && rest[0] == '.';
  if (has_point) {
    rest.remove_prefix(1);
    fraction = take_digits(&rest);
  }
  *reason = "'" + text + "' is not a time: try 250ms, 1.5s or 2m";
  if (whole.empty() || whole.size() > kMostDigits || (has_point && fraction.empty())) return std::nullopt;
  for (const Unit &unit : kUnits) {
    if (rest != unit.name) continue;
    *reason = "'" + text + "' is not a multiple of 10 ms";
    const auto part = fraction_us(fraction, unit.us);
    if (!part) return std::nullopt;
    const std::uint64_t us = value_of(whole) * unit.us + *part;
    if (us % kTickUs != 0) return std::nullopt;
    return us / kTickUs;
  }
  return std::nullopt;
}

std::optional<Line> parse_line(std::string_view text, Names *names, bool *is_blank, Fault *fault) {
  auto words = split(text, fault);
  *is_blank = words && words->empty();
  if (!words || words->empty()) return std::nullopt;
  return LineParser(std::move(*words), text.size() + 1, names, fault).run();
}

std::vector<Line> read_script(const std::string &path, Names *names, std::vector<std::string> *faults) {
  std::ifstream file(path);
  std::vector<Line> lines;
  std::string text;
  std::size_t number = 0;
  while (std::getline(file, text)) {
    number++;
    bool is_blank = false;
    Fault found;
    auto line = parse_line(text, names, &is_blank, &found);
    if (is_blank) continue;
    if (!line) {
      faults->push_back(path + ':' + std::to_string(number) + ':' + std::to_string(found.column) + ": " + found.reason);
      continue;
    }
    lines.push_back(std::move(*line));
  }
  if (!file.eof()) faults->push_back(path + ": " + strerror(errno));  // a folder, or a file that is not there
  return lines;
}

}  // namespace tarn_sim
