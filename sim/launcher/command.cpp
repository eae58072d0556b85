// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "command.h"

#include <charconv>

#include "hex.h"

namespace tarn_sim {

namespace {

constexpr std::uint32_t kMostTimes = 1000000000;
constexpr std::uint32_t kMostModule = 99;  // two digits of a frame
constexpr std::uint32_t kMostLevel = 8;
constexpr std::size_t kLongestData = 65535;  // the length field of a header

std::string with_article(const std::string &what) { return (what[0] == 'e' ? "an " : "a ") + what; }

std::string not_a(const char *what, const std::string &text, std::uint32_t most) {
  return "'" + text + "' is not " + with_article(what) + " from 0 to " + std::to_string(most);
}

std::string too_many(const Word &word) {
  const std::string reason = "'" + word.text + "' is one word too many";
  if (word.is_quoted || !parse_number(word.text, kMostTimes)) return reason;
  return reason + ": a number of times is written '" + word.text + " times'";
}

std::string no_command(const Word &verb) {
  const auto is = [&verb](const char *text) { return !verb.is_quoted && verb.text == text; };
  if (is("every")) return "'every' only begins a line: give the time to the line before it, as in 'at 1s say now'";
  if (is("at") || is("after") || is("await")) return "'" + verb.text + "' only begins a line";
  return "'" + verb.text + "' is not a command";
}

class Parser {
 public:
  Parser(std::span<const Word> words, std::size_t end, Names *names, Fault *fault)
      : words_(words), end_(end), names_(names), fault_(fault) {}

  std::optional<Counted> run() {
    Counted counted;
    if (!take_times(&counted.times)) return std::nullopt;
    Command &command = counted.command;
    const Word *verb = take("a command");
    if (verb == nullptr || !run_verb(*verb, &counted)) return std::nullopt;
    if (!words_.empty()) {
      (void)fail(words_[0].column, too_many(words_[0]));
      return std::nullopt;
    }
    // Last: a faulty line changes nothing.
    if (command.kind == Command::Kind::kName && !names_->set(command.type, command.text)) {
      (void)fail(name_column_, "another event type has the name '" + command.text + "'");
      return std::nullopt;
    }
    return counted;
  }

 private:
  bool fail(std::size_t column, const std::string &reason) {
    *fault_ = {column, reason};
    return false;
  }

  const Word *take(const char *what) {
    if (words_.empty()) {
      (void)fail(end_, std::string(what) + " is missing");
      return nullptr;
    }
    const Word *word = words_.data();
    words_ = words_.subspan(1);
    return word;
  }

  // "N times" at the end, if it is there.
  bool take_times(std::optional<std::uint32_t> *times) {
    if (words_.size() < 2 || words_.back().text != "times" || words_.back().is_quoted) return true;
    const Word &number = words_[words_.size() - 2];
    *times = parse_number(number.text, kMostTimes);
    if (!*times || number.is_quoted) {
      return fail(number.column, not_a("number of times", number.text, kMostTimes));
    }
    end_ = number.column;
    words_ = words_.first(words_.size() - 2);
    return true;
  }

  bool take_number(const char *what, std::uint32_t most, std::uint32_t *number) {
    const Word *word = take(with_article(what).c_str());
    if (word == nullptr) return false;
    const auto value = parse_number(word->text, most);
    if (!value) {
      return fail(word->column, not_a(what, word->text, most));
    }
    *number = *value;
    return true;
  }

  bool take_type(std::uint32_t *type) {
    if (words_.empty()) return fail(end_, "an event type is missing");
    if (Names::is_name(words_[0].text)) {
      const auto found = names_->find(words_[0].text);
      if (!found) return fail(words_[0].column, "no event type is called '" + words_[0].text + "'");
      *type = *found;
      words_ = words_.subspan(1);
      return true;
    }
    return take_number("event type", names_->types() - 1, type);
  }

  bool take_text(std::string *text) {
    const Word *word = take("a text");
    if (word == nullptr) return false;
    *text = word->text;
    return true;
  }

  // All remaining words.
  bool take_bytes(std::string *bytes) {
    if (words_.empty()) return fail(end_, "bytes in hexadecimal are missing");
    for (const Word &word : words_) {
      if (!append_hex(word.text, bytes))
        return fail(word.column, "'" + word.text + "' is not hexadecimal, two digits a byte");
    }
    words_ = {};
    return true;
  }

  bool run_verb(const Word &verb, Counted *counted) {
    using Kind = Command::Kind;
    Command *command = &counted->command;
    const auto is = [&verb, command](const char *name, Kind kind) {
      if (verb.is_quoted || verb.text != name) return false;
      command->kind = kind;
      return true;
    };
    if (is("event", Kind::kEvent)) return run_event(command);
    if (is("name", Kind::kName)) return run_name(command);
    if (is("kmsg", Kind::kKernelLine)) return run_kmsg(command);
    if (is("raw-kmsg", Kind::kKernelBytes)) return take_text(&command->text);
    if (is("raw-datagram", Kind::kDatagram)) return take_bytes(&command->text);
    if (is("fail", Kind::kFail)) return run_fail(counted);
    if (is("say", Kind::kSay)) return take_text(&command->text);
    if (is("dump", Kind::kDump) || is("stop", Kind::kStop)) return true;
    return fail(verb.column, no_command(verb));
  }

  // event TYPE [device N | port N] [data HEX... | text STRING]
  bool run_event(Command *command) {
    if (!take_type(&command->type)) return false;
    if (next_is("device") || next_is("port")) {
      words_ = words_.subspan(1);
      std::uint32_t device = 0;
      if (!take_number("device", UINT16_MAX, &device)) return false;
      command->device = static_cast<std::uint16_t>(device);
    }
    const std::size_t column = words_.empty() ? end_ : words_[0].column;
    if (next_is("data")) {
      words_ = words_.subspan(1);
      if (!take_bytes(&command->text)) return false;
    } else if (next_is("text")) {
      words_ = words_.subspan(1);
      if (!take_text(&command->text)) return false;
    }
    return command->text.size() <= kLongestData ||
           fail(column, "more than " + std::to_string(kLongestData) + " bytes of data");
  }

  bool run_name(Command *command) {
    if (!take_number("event type", names_->types() - 1, &command->type)) return false;
    const Word *name = take("a name");
    if (name == nullptr) return false;
    if (!Names::is_name(name->text)) {
      return fail(name->column,
                  "'" + name->text + "' is not a name: a letter, then letters, digits, '-', '_', 32 at most");
    }
    command->text = name->text;
    name_column_ = name->column;
    return true;
  }

  // kmsg STRING, or kmsg MODULE LEVEL STRING
  bool run_kmsg(Command *command) {
    if (words_.size() <= 1) return take_text(&command->text);
    command->kind = Command::Kind::kDriverLine;
    std::uint32_t module = 0;
    std::uint32_t level = 0;
    if (!take_number("module", kMostModule, &module) || !take_number("level", kMostLevel, &level)) return false;
    command->module = static_cast<std::uint8_t>(module);
    command->level = static_cast<std::uint8_t>(level);
    return take_text(&command->text);
  }

  // fail CALL [N times]: the first number belongs to the command; a second one repeats the command.
  bool run_fail(Counted *counted) {
    std::optional<std::uint32_t> own;
    if (!take_times(&own)) return false;
    if (!own) own.swap(counted->times);
    counted->command.count = own.value_or(1);
    const Word *name = take("ioctl, open, bind or socket");
    if (name == nullptr) return false;
    for (std::size_t call = 0; call < kCalls; call++) {
      if (name->text != kCallNames[call]) continue;
      counted->command.call = static_cast<Call>(call);
      return true;
    }
    return fail(name->column, "'" + name->text + "' is not one of ioctl, open, bind, socket");
  }

  bool next_is(const char *text) const { return !words_.empty() && !words_[0].is_quoted && words_[0].text == text; }

  std::span<const Word> words_;
  std::size_t end_;
  Names *names_;
  Fault *fault_;
  std::size_t name_column_ = 0;  // of a `name`
};

}  // namespace

std::optional<std::uint32_t> parse_number(const std::string &text, std::uint32_t most) {
  std::uint32_t value = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value > most) return std::nullopt;
  return value;
}

std::optional<Counted> parse_command(std::span<const Word> words, std::size_t end, Names *names, Fault *fault) {
  return Parser(words, end, names, fault).run();
}

}  // namespace tarn_sim
