// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The random number generator of the tests: seeded, so a failing series can be run again.
#ifndef TARN_TESTS_SUPPORT_RANDOM_H
#define TARN_TESTS_SUPPORT_RANDOM_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_test {

// The same numbers on every processor and with every standard library: splitmix64, from its published constants.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t number() {
    uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
    z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
    return z ^ (z >> 31);
  }
  // From 0 to `limit` - 1.
  uint64_t below(uint64_t limit) { return number() % limit; }
  bool chance(unsigned per_mille) { return below(1000) < per_mille; }

  // Of 1 to 64 significant bits; each number of bits is equally frequent.
  uint64_t of_any_width() { return number() >> below(64); }

  uint8_t byte() { return static_cast<uint8_t>(number() >> 56); }
  std::vector<uint8_t> bytes(size_t count) {
    std::vector<uint8_t> bytes(count);
    for (uint8_t &one : bytes) one = byte();
    return bytes;
  }

  char of(std::string_view alphabet) { return alphabet[below(alphabet.size())]; }
  std::string text(std::string_view alphabet, size_t length) {
    std::string text(length, '\0');
    for (char &c : text) c = of(alphabet);
    return text;
  }

 private:
  uint64_t state_;
};

}  // namespace tarn_test

#endif
