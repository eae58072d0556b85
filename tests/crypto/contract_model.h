// AES-128 and CMAC a second time, as their standards write them and with no thought of speed, and what the contract
// tests share.
#ifndef TARN_TESTS_CRYPTO_CONTRACT_MODEL_H
#define TARN_TESTS_CRYPTO_CONTRACT_MODEL_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace crypto_contract {

using Bytes = std::vector<uint8_t>;

constexpr size_t kBlock = 16;
constexpr size_t kRoundKeys = 176;

// ---- Bytes ----------------------------------------------------------------------------------------------------------

inline uint8_t digit_value(char digit) { return static_cast<uint8_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10); }

// Of lower-case digits as the standards print them, blanks between them ignored.
inline Bytes bytes(std::string_view digits) {
  std::string packed;
  std::copy_if(digits.begin(), digits.end(), std::back_inserter(packed), [](char c) { return c != ' '; });
  Bytes out;
  for (size_t i = 0; i + 1 < packed.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(digit_value(packed[i]) << 4 | digit_value(packed[i + 1])));
  }
  return out;
}

inline std::string hex(const uint8_t *data, size_t size) {
  std::string out;
  for (size_t i = 0; i < size; i++) {
    out += "0123456789abcdef"[data[i] >> 4];
    out += "0123456789abcdef"[data[i] & 15];
  }
  return out;
}

inline std::string hex(const Bytes &data) { return hex(data.data(), data.size()); }

inline Bytes part(const Bytes &whole, size_t at, size_t size) {
  const auto first = whole.begin() + static_cast<std::ptrdiff_t>(at);
  return {first, first + static_cast<std::ptrdiff_t>(size)};
}

inline Bytes operator^(const Bytes &a, const Bytes &b) {
  Bytes out = a;
  for (size_t i = 0; i < out.size(); i++) out[i] = static_cast<uint8_t>(out[i] ^ b.at(i));
  return out;
}

// The same bytes in every run.
class Random {
 public:
  explicit Random(uint32_t seed) : generator_(seed) {}
  Bytes operator()(size_t size) {
    Bytes out(size);
    for (uint8_t &byte : out) byte = static_cast<uint8_t>(generator_() >> 24);
    return out;
  }

 private:
  std::mt19937 generator_;
};

// Zeros, ones, every single bit, then random ones: 16-byte values for keys and blocks.
inline std::vector<Bytes> telling_blocks(uint32_t seed) {
  std::vector<Bytes> all = {Bytes(kBlock, 0x00), Bytes(kBlock, 0xFF)};
  for (size_t bit = 0; bit < 8 * kBlock; bit++) {
    Bytes one(kBlock);
    one[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
    all.push_back(one);
  }
  Random random(seed);
  for (int i = 0; i < 100; i++) all.push_back(random(kBlock));
  return all;
}

// ---- FIPS 197 -------------------------------------------------------------------------------------------------------

// Section 4.2: the product in GF(2^8), modulo x^8 + x^4 + x^3 + x + 1.
inline uint8_t product(unsigned a, unsigned b) {
  unsigned sum = 0;
  for (; b != 0; b >>= 1) {
    if ((b & 1) != 0) sum ^= a;
    a <<= 1;
    if ((a & 0x100) != 0) a ^= 0x11B;
  }
  return static_cast<uint8_t>(sum);
}

// Section 5.1.1: the multiplicative inverse, then the affine transformation, bit by bit.
inline uint8_t substitute_by_definition(unsigned byte) {
  unsigned inverse = 0;
  for (unsigned candidate = 1; candidate < 256; candidate++) {
    if (product(byte, candidate) == 1) inverse = candidate;
  }
  unsigned out = 0;
  for (unsigned i = 0; i < 8; i++) {
    const unsigned bit = inverse >> i ^ inverse >> (i + 4) % 8 ^ inverse >> (i + 5) % 8 ^ inverse >> (i + 6) % 8 ^
                         inverse >> (i + 7) % 8 ^ 0x63 >> i;
    out |= (bit & 1) << i;
  }
  return static_cast<uint8_t>(out);
}

struct Substitution {
  Substitution() {
    for (unsigned byte = 0; byte < 256; byte++) {
      forth[byte] = substitute_by_definition(byte);
      back[forth[byte]] = static_cast<uint8_t>(byte);
    }
  }
  std::array<uint8_t, 256> forth{};
  std::array<uint8_t, 256> back{};
};

inline const Substitution &substitution() {
  static const Substitution table;
  return table;
}

// Section 5.2, with Nk = 4 and Nr = 10, word by word.
inline Bytes expand_key(const Bytes &key) {
  std::array<std::array<uint8_t, 4>, 44> w{};
  for (size_t i = 0; i < 4; i++) std::copy_n(&key[4 * i], 4, w[i].begin());
  uint8_t rcon = 1;  // x^(i/Nk - 1)
  for (size_t i = 4; i < 44; i++) {
    std::array<uint8_t, 4> temp = w[i - 1];
    if (i % 4 == 0) {
      std::rotate(temp.begin(), temp.begin() + 1, temp.end());
      for (uint8_t &byte : temp) byte = substitution().forth[byte];
      temp[0] = static_cast<uint8_t>(temp[0] ^ rcon);
      rcon = product(rcon, 2);
    }
    for (size_t b = 0; b < 4; b++) w[i][b] = static_cast<uint8_t>(w[i - 4][b] ^ temp[b]);
  }
  Bytes out;
  for (const auto &word : w) out.insert(out.end(), word.begin(), word.end());
  return out;
}

// Section 3.4: the state, s[row][column].
class State {
 public:
  explicit State(const Bytes &in) {
    for (size_t i = 0; i < kBlock; i++) s_[i % 4][i / 4] = in[i];
  }

  Bytes out() const {
    Bytes bytes(kBlock);
    for (size_t i = 0; i < kBlock; i++) bytes[i] = s_[i % 4][i / 4];
    return bytes;
  }

  void add_round_key(const Bytes &round_keys, size_t round) {
    for (size_t i = 0; i < kBlock; i++) s_[i % 4][i / 4] ^= round_keys[kBlock * round + i];
  }

  void sub_bytes(const std::array<uint8_t, 256> &box) {
    for (auto &row : s_) {
      for (uint8_t &byte : row) byte = box[byte];
    }
  }

  // Row r moves r columns to the left, or to the right.
  void shift_rows(bool left) {
    for (size_t r = 0; r < 4; r++) {
      const size_t by = left ? r : (4 - r) % 4;
      std::rotate(s_[r].begin(), s_[r].begin() + static_cast<std::ptrdiff_t>(by), s_[r].end());
    }
  }

  // Each column times the polynomial whose coefficients for the first row are `a`.
  void mix_columns(const std::array<uint8_t, 4> &a) {
    for (size_t c = 0; c < 4; c++) {
      std::array<uint8_t, 4> mixed{};
      for (size_t r = 0; r < 4; r++) {
        for (size_t i = 0; i < 4; i++) mixed[r] ^= product(s_[i][c], a[(i + 4 - r) % 4]);
      }
      for (size_t r = 0; r < 4; r++) s_[r][c] = mixed[r];
    }
  }

 private:
  std::array<std::array<uint8_t, 4>, 4> s_{};
};

// Section 5.1.
inline Bytes encipher(const Bytes &round_keys, const Bytes &in) {
  State state(in);
  state.add_round_key(round_keys, 0);
  for (size_t round = 1; round <= 10; round++) {
    state.sub_bytes(substitution().forth);
    state.shift_rows(true);
    if (round < 10) state.mix_columns({2, 3, 1, 1});
    state.add_round_key(round_keys, round);
  }
  return state.out();
}

// Section 5.3.
inline Bytes decipher(const Bytes &round_keys, const Bytes &in) {
  State state(in);
  state.add_round_key(round_keys, 10);
  for (size_t round = 10; round-- > 0;) {
    state.shift_rows(false);
    state.sub_bytes(substitution().back);
    state.add_round_key(round_keys, round);
    if (round > 0) state.mix_columns({0x0E, 0x0B, 0x0D, 0x09});
  }
  return state.out();
}

// ---- SP 800-38B -----------------------------------------------------------------------------------------------------

inline bool bit_of(const Bytes &block, size_t bit) { return (block[bit / 8] >> (7 - bit % 8) & 1) != 0; }

// Every bit takes the place of the one before it.
inline Bytes shifted(const Bytes &in) {
  Bytes out(kBlock);
  for (size_t bit = 0; bit + 1 < 8 * kBlock; bit++) {
    if (bit_of(in, bit + 1)) out[bit / 8] |= static_cast<uint8_t>(0x80 >> bit % 8);
  }
  return out;
}

inline const Bytes kRb = bytes("00000000000000000000000000000087");

// Section 6.1, steps 2 and 3.
inline Bytes doubled(const Bytes &in, const Bytes &rb = kRb) { return bit_of(in, 0) ? shifted(in) ^ rb : shifted(in); }

struct Subkeys {
  explicit Subkeys(const Bytes &key, const Bytes &rb = kRb)
      : l(encipher(expand_key(key), Bytes(kBlock))), k1(doubled(l, rb)), k2(doubled(k1, rb)) {}
  Bytes l, k1, k2;
};

// Section 6.2, with the whole tag. `block`: the cipher.
inline Bytes cmac(const Bytes &key, const Bytes &message, const Bytes &rb = kRb,
                  Bytes (*block)(const Bytes &round_keys, const Bytes &in) = encipher) {
  const Bytes round_keys = expand_key(key);
  const Subkeys subkeys(key, rb);
  Bytes padded = message;
  const bool complete = !message.empty() && message.size() % kBlock == 0;
  if (!complete) padded.push_back(0x80);
  while (padded.size() % kBlock != 0) padded.push_back(0);
  Bytes c(kBlock);
  for (size_t at = 0; at < padded.size(); at += kBlock) {
    c = c ^ part(padded, at, kBlock);
    if (at + kBlock == padded.size()) c = c ^ (complete ? subkeys.k1 : subkeys.k2);
    c = block(round_keys, c);
  }
  return c;
}

// ---- Where buffers stand --------------------------------------------------------------------------------------------

enum class Edge { kFirst, kLast };
constexpr Edge kEdges[] = {Edge::kFirst, Edge::kLast};

// Bytes of whose pages the neighbours cannot be touched: a byte read or written before the first (at the edge kFirst)
// or behind the last (at the edge kLast) ends the test. An input can be sealed, so that no byte of it can be written.
class Fenced {
 public:
  Fenced(const Bytes &content, Edge edge) : size_(content.size()) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    room_ = (size_ / page + 1) * page;
    whole_ = room_ + 2 * page;
    map_ = static_cast<uint8_t *>(mmap(nullptr, whole_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (map_ == MAP_FAILED || mprotect(map_ + page, room_, PROT_READ | PROT_WRITE) != 0) abort();
    area_ = map_ + page;
    data_ = edge == Edge::kFirst ? area_ : area_ + room_ - size_;
    std::copy(content.begin(), content.end(), data_);
  }
  ~Fenced() { munmap(map_, whole_); }
  Fenced(const Fenced &) = delete;
  Fenced &operator=(const Fenced &) = delete;

  uint8_t *data() const { return data_; }
  Bytes content() const { return {data_, data_ + size_}; }
  const uint8_t *sealed() const {
    if (mprotect(area_, room_, PROT_READ) != 0) abort();
    return data_;
  }
  // An address at which nothing can be read or written.
  uint8_t *forbidden() const { return area_ + room_; }

 private:
  size_t size_;
  size_t room_;
  size_t whole_;
  uint8_t *map_;
  uint8_t *area_;
  uint8_t *data_;
};

// ---- Both paths -----------------------------------------------------------------------------------------------------

// The choice stays for a process: it is made before the test's first call.
class EitherPath : public testing::TestWithParam<const char *> {
 protected:
  EitherPath() {
    if (std::string(GetParam()) == "portable") {
      setenv("TARN_AES", "portable", 1);
    } else {
      unsetenv("TARN_AES");
    }
  }
};

inline auto both_paths() { return testing::Values("processor", "portable"); }

inline std::string path_name(const testing::TestParamInfo<const char *> &path) { return path.param; }

}  // namespace crypto_contract

#endif
