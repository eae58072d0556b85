// Texts for the parsers: sets of them, and a place where a parser that reads too far is caught.
#ifndef TARN_TESTS_CONVERT_TEXTS_H
#define TARN_TESTS_CONVERT_TEXTS_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_test {

// All that the grammars give a meaning to, and the neighbours of those characters in the character set: the ones before
// and behind the digits and the letters, digits with the top bit set, signs, white space.
inline constexpr std::string_view kRelevant = "0123456789abcdefABCDEFxXgG/:@`.+- \t\xB0\xE1\xFF";

// A text whose NUL is the last byte that can be read: reading on ends the test program.
class Guarded {
 public:
  Guarded() : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    void *block = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) abort();
    base_ = static_cast<char *>(block);
    if (mprotect(base_ + page_, page_, PROT_NONE) != 0) abort();
  }
  ~Guarded() { munmap(base_, 2 * page_); }
  Guarded(const Guarded &) = delete;
  Guarded &operator=(const Guarded &) = delete;

  // Valid until the next call; `text` is shorter than a page.
  const char *operator()(std::string_view text) const {
    char *start = base_ + page_ - text.size() - 1;
    memcpy(start, text.data(), text.size());
    start[text.size()] = '\0';
    return start;
  }

 private:
  size_t page_;
  char *base_;
};

// Calls `check` with every text of that length over the alphabet. Returns how many there were.
template <typename Check>
size_t for_each_text(std::string_view alphabet, size_t length, Check check) {
  std::vector<size_t> letters(length);
  std::string text(length, alphabet[0]);
  for (size_t count = 1;; count++) {
    check(text);
    size_t place = 0;
    while (place < length && ++letters[place] == alphabet.size()) letters[place++] = 0;
    if (place == length) return count;
    for (size_t i = 0; i <= place; i++) text[i] = alphabet[letters[i]];
  }
}

// The same for every length up to `max_length`, the empty text included.
template <typename Check>
size_t for_each_text_up_to(std::string_view alphabet, size_t max_length, Check check) {
  size_t count = 0;
  for (size_t length = 0; length <= max_length; length++) count += for_each_text(alphabet, length, check);
  return count;
}

// Every text that differs from `text` in one character: replaced by any other, left out, or put in before any place
// (one of kRelevant). A text that equals `text` may be among them.
template <typename Check>
void for_each_neighbour(const std::string &text, Check check) {
  for (size_t place = 0; place < text.size(); place++) {
    std::string other = text;
    for (int c = 1; c < 256; c++) {
      other[place] = static_cast<char>(c);
      check(other);
    }
    check(std::string(text).erase(place, 1));
  }
  for (size_t place = 0; place <= text.size(); place++) {
    for (char c : kRelevant) check(std::string(text).insert(place, 1, c));
  }
}

// Every byte but NUL, as an alphabet.
inline std::string all_bytes() {
  std::string bytes;
  for (int c = 1; c < 256; c++) bytes += static_cast<char>(c);
  return bytes;
}

// The same numbers in every run.
class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}
  uint32_t number() { return static_cast<uint32_t>(engine_()); }
  uint32_t below(uint32_t limit) { return number() % limit; }
  // Small values are as frequent as large ones.
  uint64_t of_any_width() {
    const uint64_t value = uint64_t{number()} << 32 | number();
    return value >> below(64);
  }

 private:
  std::mt19937 engine_;
};

inline bool consists_of(std::string_view text, std::string_view characters) {
  return text.find_first_not_of(characters) == std::string_view::npos;
}

inline constexpr std::string_view kDecimal = "0123456789";
inline constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";

// A number in hexadecimal, filled with zeros to `digits` places.
inline std::string hexadecimal(uint64_t value, bool upper_case, int digits = 1) {
  char text[24];
  const auto number = static_cast<unsigned long long>(value);
  (void)(upper_case ? snprintf(text, sizeof text, "%0*llX", digits, number)
                    : snprintf(text, sizeof text, "%0*llx", digits, number));
  return text;
}

// The parts of a text between the separators: one more than there are separators.
inline std::vector<std::string> split(const std::string &text, std::string_view separators) {
  std::vector<std::string> parts(1);
  for (char c : text) {
    if (separators.find(c) != std::string_view::npos) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

}  // namespace tarn_test

#endif
