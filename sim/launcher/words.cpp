// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "words.h"

#include "hex.h"

namespace tarn_sim {

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

class Splitter {
 public:
  Splitter(std::string_view line, Fault *fault) : line_(line), fault_(fault) {}

  std::optional<std::vector<Word>> run() {
    std::vector<Word> words;
    for (;;) {
      while (at_ < line_.size() && is_blank(line_[at_])) at_++;
      if (at_ == line_.size() || line_[at_] == '#') return words;
      Word word = {"", at_ + 1, line_[at_] == '"'};
      if (!(word.is_quoted ? take_quoted(&word.text) : take_plain(&word.text))) return std::nullopt;
      words.push_back(std::move(word));
    }
  }

 private:
  bool fail(std::size_t at, const char *reason) {
    *fault_ = {at + 1, reason};
    return false;
  }

  bool ends_here() const { return at_ == line_.size() || is_blank(line_[at_]) || line_[at_] == '#'; }

  bool take_plain(std::string *text) {
    for (; !ends_here(); at_++) {
      if (line_[at_] == '"') return fail(at_, "a quote within a word");
      *text += line_[at_];
    }
    return true;
  }

  bool take_quoted(std::string *text) {
    const std::size_t begin = at_++;
    while (at_ < line_.size() && line_[at_] != '"') {
      if (line_[at_] != '\\') {
        *text += line_[at_++];
      } else if (!take_escape(text)) {
        return false;
      }
    }
    if (at_ == line_.size()) return fail(begin, "the string has no end");
    at_++;
    return ends_here() || fail(at_, "a blank is missing after the string");
  }

  bool take_escape(std::string *text) {
    const std::string_view rest = line_.substr(at_ + 1);
    const char kind = rest.empty() ? '\0' : rest[0];
    if (kind == '"' || kind == '\\') {
      *text += kind;
    } else if (kind == 'n') {
      *text += '\n';
    } else if (kind != 'x' || !append_hex(rest.substr(1, 2), text)) {
      return fail(at_, R"(an unknown escape: there are \" \\ \n \xNN)");
    }
    at_ += kind == 'x' ? 4 : 2;
    return true;
  }

  std::string_view line_;
  Fault *fault_;
  std::size_t at_ = 0;
};

}  // namespace

std::optional<std::vector<Word>> split(std::string_view line, Fault *fault) { return Splitter(line, fault).run(); }

}  // namespace tarn_sim
