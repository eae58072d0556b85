// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the startup configuration.
#ifndef TARN_TESTS_STARTUP_CFG_FIXTURE_H
#define TARN_TESTS_STARTUP_CFG_FIXTURE_H

#include <gtest/gtest.h>

#include <bit>
#include <memory>
#include <span>

#include "startup_cfg/reference.h"
#include "support/console.h"
#include "support/guarded.h"
#include "support/libc.h"
#include "tarn/platform.h"
#include "tarn/startup_cfg.h"

namespace tarn_test {

constexpr bool kLittleEndian = std::endian::native == std::endian::little;

inline const std::string kNotLoaded = "\r\n Maybe startup-cfg hasn't been loaded.";
inline const std::string kInvalid = "\r\n Input an invalid parameter.";
inline const std::string kCrcMismatch = "\r\n Startup-cfg CRC doesn't match.";
inline const std::string kOverrun = "\r\n Cfg len doesn't mach.";
inline const std::string kWalkFailed = "\r\n Startup-cfg field check failed.";

// 0x8473 + 0x9458 is 0x118CB, folded 0x18CC, complemented 0xE733.
inline const Bytes kBlank = {0x84, 0x73, 0x94, 0x58, 0xE7, 0x33, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

inline const Records kThree = {{0x0001, {0x11}}, {0x0203, {0x22, 0x33}}, {0xFFFE, {1, 2, 3, 4, 5, 6, 7}}};
inline const std::vector<size_t> kThreeAt = {16, 16 + 5, 16 + 5 + 6};

struct Save {
  const uint8_t *base;
  Bytes bytes;
};

// The arguments of the save function, with the bytes at that time.
inline std::vector<Save> saves;

inline int32_t record_save(const uint8_t *base, uint32_t size) {
  saves.push_back({base, Bytes(base, base + size)});
  return -1;  // ignored
}

// An instance over a block of exactly the content's size: any access after its last byte is a fault.
class Store {
 public:
  explicit Store(const Bytes &content) : Store(content, content.size()) {}
  Store(const Bytes &content, size_t max_size, tlv_save_cb save = record_save)
      : block_(content), inst_(tlv_inst_init(block_.bytes(), static_cast<uint32_t>(max_size), save)) {
    saves.clear();
  }
  ~Store() {
    mu_free(inst_->field_tbl);
    mu_free(inst_);
  }
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  tlv_inst *inst() const { return inst_; }
  tlv_inst *operator->() const { return inst_; }
  uint8_t *data() const { return block_.bytes(); }
  Bytes bytes() const { return Bytes(data(), data() + block_.size()); }
  void set_bytes(const Bytes &bytes) const { std::copy(bytes.begin(), bytes.end(), data()); }
  int32_t load() const { return tlv_load(inst_); }

  // Offsets in the image that the index points at.
  std::vector<size_t> index() const {
    std::vector<size_t> offsets;
    for (uint32_t i = 0; i < inst_->field_num; i++) {
      offsets.push_back(static_cast<size_t>(reinterpret_cast<uint8_t *>(inst_->field_tbl[i]) - data()));
    }
    return offsets;
  }
  bool is_unloaded() const { return inst_->field_tbl == nullptr && inst_->field_num == 0; }

 private:
  const Guarded block_;
  tlv_inst *const inst_;
};

// The save function received the first `size` bytes in their current state, once.
inline void expect_saved(const Store &store, size_t size) {
  ASSERT_EQ(saves.size(), 1u);
  EXPECT_EQ(saves[0].base, store.data());
  EXPECT_EQ(saves[0].bytes, first_bytes(store.bytes(), size));
  saves.clear();
}

// The sizes of the blocks that the library requests during a call.
template <typename Body>
std::vector<size_t> asked_sizes(const Body &body) {
  std::vector<size_t> asked;
  const Replace malloc(libc::malloc, [&](size_t size) {
    asked.push_back(size);
    return libc::malloc.real(size);
  });
  body();
  return asked;
}

// The writers of fields in one shape. The buffer writer stores four bytes in a value area of eight.
struct Writer {
  const char *name;
  size_t size;
  int32_t (*write)(tlv_inst *inst, uint16_t type, uint32_t value);

  Bytes stored(uint32_t value) const {
    Bytes bytes = big_endian(std::min<size_t>(size, 4), value);
    bytes.resize(size);
    return bytes;
  }
};

inline const Writer kWriters[] = {
    {"char", 1,
     [](tlv_inst *inst, uint16_t type, uint32_t value) {
       return tlv_write_char(inst, type, static_cast<uint8_t>(value));
     }},
    {"short", 2,
     [](tlv_inst *inst, uint16_t type, uint32_t value) {
       return tlv_write_short(inst, type, static_cast<uint16_t>(value));
     }},
    {"int", 4, [](tlv_inst *inst, uint16_t type, uint32_t value) { return tlv_write_int(inst, type, value); }},
    {"buffer", 8,
     [](tlv_inst *inst, uint16_t type, uint32_t value) {
       return tlv_write_buffer(inst, type, 8, 4, big_endian(4, value).data());
     }},
};
inline const std::span kNumberWriters(kWriters, 3);

// A field for each writer, whose type is its size.
inline const Records kFields = {{1, {0x11}}, {2, {0x22, 0x33}}, {4, {1, 2, 3, 4}}, {8, {1, 2, 3, 4, 5, 6, 7, 8}}};
inline const std::vector<size_t> kFieldsAt = {16, 21, 27, 35};
constexpr size_t kFieldsSize = 47;
constexpr size_t kFieldsArea = 31;

inline Records and_one(Records records, uint16_t type, const Bytes &value) {
  records.push_back({type, value});
  return records;
}

}  // namespace tarn_test

#endif
