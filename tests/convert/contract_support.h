// What the contract tests of the conversions share: memory that ends where the caller's does, and texts to try.
#ifndef TARN_TESTS_CONVERT_CONTRACT_SUPPORT_H
#define TARN_TESTS_CONVERT_CONTRACT_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_reference {

using Bytes = std::vector<uint8_t>;

// ---- Memory ---------------------------------------------------------------------------------------------------------

// Pages between two that nobody may touch.
class Pages {
 public:
  explicit Pages(size_t bytes) : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    size_ = (bytes + page_ - 1) / page_ * page_;
    void *map = mmap(nullptr, size_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) abort();
    map_ = static_cast<uint8_t *>(map);
    if (mprotect(begin(), size_, PROT_READ | PROT_WRITE) != 0) abort();
  }
  ~Pages() { munmap(map_, size_ + 2 * page_); }
  Pages(const Pages &) = delete;
  Pages &operator=(const Pages &) = delete;

  uint8_t *begin() const { return map_ + page_; }
  uint8_t *end() const { return begin() + size_; }

 private:
  size_t page_;
  size_t size_ = 0;
  uint8_t *map_ = nullptr;
};

// Texts whose NUL is the last byte that may be read, or whose first character is the first one.
class TextMemory {
 public:
  explicit TextMemory(size_t longest = 4000) : pages_(longest + 1) {}

  const char *at_end(std::string_view text) { return put(text, pages_.end() - text.size() - 1); }
  const char *at_start(std::string_view text) { return put(text, pages_.begin()); }

 private:
  static const char *put(std::string_view text, uint8_t *at) {
    memcpy(at, text.data(), text.size());
    at[text.size()] = 0;
    return reinterpret_cast<const char *>(at);
  }

  Pages pages_;
};

// `size` bytes to write to, filled with kUntouched. Behind them nothing may be touched; before them 64 more such bytes
// stand guard.
class Output {
 public:
  static constexpr uint8_t kUntouched = 0xA5;

  explicit Output(size_t size) : pages_(size + kGuard), size_(size) { reset(); }

  void reset() { memset(data() - kGuard, kUntouched, size_ + kGuard); }
  uint8_t *data() const { return pages_.end() - size_; }
  char *text() const { return reinterpret_cast<char *>(data()); }

  // All `size` bytes; none when the guard was written to.
  Bytes bytes() const {
    const bool intact = std::all_of(data() - kGuard, data(), [](uint8_t byte) { return byte == kUntouched; });
    return intact ? Bytes(data(), data() + size_) : Bytes();
  }

 private:
  static constexpr size_t kGuard = 64;

  Pages pages_;
  size_t size_;
};

// What an output of `size` bytes holds after the first of them were written.
inline Bytes written(Bytes bytes, size_t size) {
  bytes.resize(size, Output::kUntouched);
  return bytes;
}

// The same for a text and its NUL.
inline Bytes written_text(std::string_view text, size_t size) {
  Bytes bytes(text.begin(), text.end());
  bytes.push_back(0);
  return written(bytes, size);
}

// ---- Texts ----------------------------------------------------------------------------------------------------------

// Calls `check` with every text over `alphabet` of at most `longest` characters, until one fails.
template <typename Check>
void for_each_text(std::string_view alphabet, size_t longest, Check check) {
  std::vector<size_t> digits;
  std::string text;
  while (digits.size() <= longest && !testing::Test::HasFailure()) {
    check(text);
    size_t at = 0;
    while (at < digits.size() && ++digits[at] == alphabet.size()) digits[at++] = 0;
    if (at == digits.size()) digits.push_back(0);
    text.resize(digits.size());
    for (size_t i = 0; i < digits.size(); i++) text[i] = alphabet[digits[i]];
  }
}

// The same numbers in every run and with every standard library.
class Random {
 public:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(generator_()) % limit; }
  uint8_t byte() { return static_cast<uint8_t>(generator_()); }
  char of(std::string_view alphabet) { return alphabet[below(static_cast<uint32_t>(alphabet.size()))]; }

  std::string text(std::string_view alphabet, size_t length) {
    std::string text(length, '\0');
    for (char &c : text) c = of(alphabet);
    return text;
  }

  // `text` with a character replaced, inserted or removed.
  std::string damaged(std::string text, std::string_view alphabet) {
    const size_t at = below(static_cast<uint32_t>(text.size()) + 1);
    const uint32_t kind = below(3);
    if (kind == 0 || at == text.size()) return text.insert(at, 1, of(alphabet));
    if (kind == 1) return text.erase(at, 1);
    text[at] = of(alphabet);
    return text;
  }

 private:
  std::mt19937 generator_{20260101};
};

// Every character but the NUL.
inline std::string every_character() {
  std::string all;
  for (int c = 1; c < 256; c++) all.push_back(static_cast<char>(c));
  return all;
}

inline bool is_decimal(char c) { return std::string_view("0123456789").find(c) != std::string_view::npos; }

// -1 for what is no hexadecimal digit.
inline int hex_value(char c) {
  const size_t at = std::string_view("0123456789abcdefABCDEF").find(c);
  if (at == std::string_view::npos) return -1;
  return static_cast<int>(at < 16 ? at : at - 6);
}

}  // namespace tarn_reference

#endif
