// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Converts images to JSON and back, byte for byte. The images are made here from the description of the format, and the
// library loads the results.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tarn/platform.h"
#include "tarn/startup_cfg.h"
#include "tools/tarn-cfg/document.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr unsigned kImagesPerTest = 2500;

void append16(Bytes &bytes, unsigned number) {
  bytes.push_back(static_cast<uint8_t>(number >> 8));
  bytes.push_back(static_cast<uint8_t>(number));
}

// The folded one's complement sum of the 16-bit words, RFC 1071, of an image whose checksum field is 0.
unsigned folded_sum(const Bytes &bytes) {
  uint64_t sum = 0;
  for (size_t i = 0; i < bytes.size(); i++) sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<unsigned>(sum);
}

// Generates random files with images of every kind that the library loads.
class Images {
 public:
  explicit Images(unsigned seed) : random_(seed) {}

  Bytes file() {
    Bytes records;
    for (unsigned count = below(12); count > 0; count--) add_record(records);
    Bytes bytes = {0x84, 0x73, 0x94, 0x58, 0, 0, byte(), byte()};
    append16(bytes, static_cast<unsigned>(records.size() >> 16));
    append16(bytes, static_cast<unsigned>(records.size()));
    for (int i = 0; i < 4; i++) bytes.push_back(byte());
    bytes.insert(bytes.end(), records.begin(), records.end());
    seal(bytes);
    add_tail(bytes);
    return bytes;
  }

 private:
  unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
  uint8_t byte() { return static_cast<uint8_t>(below(256)); }

  // Sealed, unsealed, or with a right checksum that is 0.
  void seal(Bytes &bytes) {
    const unsigned kind = below(8);
    if (kind == 0) return;
    if (kind == 1) {
      bytes[14] = bytes[15] = 0;
      const unsigned missing = 0xFFFF - folded_sum(bytes);
      bytes[14] = static_cast<uint8_t>(missing >> 8);
      bytes[15] = static_cast<uint8_t>(missing);
    }
    const unsigned checksum = 0xFFFF - folded_sum(bytes);
    bytes[4] = static_cast<uint8_t>(checksum >> 8);
    bytes[5] = static_cast<uint8_t>(checksum);
  }

  void add_record(Bytes &records) {
    constexpr unsigned kSizes[] = {1, 2, 4, 4, 8, 32};
    const unsigned size = below(20) == 0 ? 1 + below(3000) : below(3) == 0 ? 1 + below(40) : kSizes[below(6)];
    append16(records, below(3) == 0 ? below(4) : below(65536));  // few keys, so that some are repeated
    append16(records, size);
    const unsigned used = below(2) == 0 ? size : below(size + 1);
    const unsigned kind = below(4);
    for (unsigned i = 0; i < size; i++) {
      const uint8_t value = kind == 0 ? byte() : static_cast<uint8_t>(' ' + below(95));
      records.push_back(i < used ? value : uint8_t{0});
    }
    constexpr uint8_t kTwoBytes[] = {0xC3, 0xBC};  // a letter that is not ASCII; cut in half if it does not fit
    if (kind == 2) std::copy_n(kTwoBytes, std::min(size, 2U), records.end() - size);
  }

  void add_tail(Bytes &bytes) {
    const unsigned kind = below(5);
    if (kind > 2) return;
    const unsigned size = 1 + below(100);
    const uint8_t fill = byte();
    for (unsigned i = 0; i < size; i++) bytes.push_back(kind == 0 ? byte() : fill);
  }

  std::mt19937 random_;
};

bool loads(Bytes file) {
  tlv_inst *instance = tlv_inst_init(file.data(), static_cast<uint32_t>(file.size()), nullptr);
  const bool result = instance != nullptr && tlv_load(instance) == 0;
  if (instance != nullptr) mu_free(instance->field_tbl);
  mu_free(instance);
  return result;
}

class TarnCfgJson : public testing::TestWithParam<unsigned> {};

TEST_P(TarnCfgJson, RandomImagesComeBackByteForByteAndLoad) {
  Images images(GetParam());
  for (unsigned i = 0; i < kImagesPerTest; i++) {
    SCOPED_TRACE(i);
    const Bytes file = images.file();
    const tarn_tools::cfg::Survey found = tarn_tools::cfg::survey(file);
    ASSERT_TRUE(found.faults.empty()) << found.faults[0].text;
    const Bytes back = tarn_tools::cfg::file_from_json("json", tarn_tools::cfg::file_to_json(file, found));
    ASSERT_EQ(back, file);
    ASSERT_TRUE(loads(back));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, TarnCfgJson, testing::Range(1U, 5U));

}  // namespace
