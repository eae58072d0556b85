// A second maker of startup configuration images, written from the layout alone, and what the contract tests share.
#ifndef TARN_TESTS_STARTUP_CFG_CONTRACT_REFERENCE_H
#define TARN_TESTS_STARTUP_CFG_CONTRACT_REFERENCE_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarn/platform.h"
#include "tarn/startup_cfg.h"

namespace tarn_reference {

using Bytes = std::vector<uint8_t>;

// ---- Messages -------------------------------------------------------------------------------------------------------

inline const std::string kNotLoaded = "\r\n Maybe startup-cfg hasn't been loaded.";
inline const std::string kInvalid = "\r\n Input an invalid parameter.";
inline const std::string kCrcMismatch = "\r\n Startup-cfg CRC doesn't match.";
inline const std::string kOverrun = "\r\n Cfg len doesn't mach.";
inline const std::string kWalkFailed = "\r\n Startup-cfg field check failed.";

// ---- The image ------------------------------------------------------------------------------------------------------

constexpr size_t kHeaderSize = 16;
constexpr size_t kRecordHeadSize = 4;

inline void put(Bytes &bytes, size_t at, size_t size, uint32_t value) {
  for (size_t i = 0; i < size; i++) bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * (size - 1 - i)));
}

inline uint32_t get(const Bytes &bytes, size_t at, size_t size) {
  uint32_t value = 0;
  for (size_t i = 0; i < size; i++) value = value << 8 | bytes.at(at + i);
  return value;
}

inline Bytes big_endian(size_t size, uint32_t value) {
  Bytes bytes(size);
  put(bytes, 0, size, value);
  return bytes;
}

// The byte-pair loop of RFC 1071, its sum kept in 32 bits and folded at the end.
inline uint32_t checksum(const uint8_t *data, size_t size) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < size; i += 2) sum += data[i] * 256u + data[i + 1];
  if (size % 2 != 0) sum += data[size - 1] * 256u;
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return ~sum;
}

inline size_t image_size(const Bytes &image) { return size_t{get(image, 8, 4)} + kHeaderSize; }

// Stores the checksum of the first `size` bytes.
inline void seal(Bytes &image, size_t size) {
  put(image, 4, 2, 0);
  put(image, 4, 2, checksum(image.data(), size) & 0xFFFF);
}

inline void seal(Bytes &image) { seal(image, image_size(image)); }

struct Record {
  uint16_t type;
  Bytes value;
};

struct Header {
  uint8_t active = 0;
  uint8_t flag = 0;
  uint32_t version = 0;
};

// A sealed image of exactly its size.
inline Bytes build(const std::vector<Record> &records, const Header &header = {}) {
  Bytes image(kHeaderSize);
  for (const Record &record : records) {
    const size_t at = image.size();
    image.resize(at + kRecordHeadSize);
    put(image, at, 2, record.type);
    put(image, at + 2, 2, static_cast<uint32_t>(record.value.size()));
    image.insert(image.end(), record.value.begin(), record.value.end());
  }
  put(image, 0, 4, 0x84739458);
  image[6] = header.active;
  image[7] = header.flag;
  put(image, 8, 4, static_cast<uint32_t>(image.size() - kHeaderSize));
  put(image, 12, 4, header.version);
  seal(image);
  return image;
}

// `image` with `count` more bytes of `fill` behind it.
inline Bytes with_room(Bytes image, size_t count, uint8_t fill = 0) {
  image.insert(image.end(), count, fill);
  return image;
}

// Offsets of the records that start inside the record area; false when they do not tile it.
struct Walk {
  bool tiles = true;
  std::string message;
  std::vector<size_t> at;
};

inline Walk walk(const Bytes &image) {
  Walk result;
  const size_t end = image_size(image);
  size_t at = kHeaderSize;
  while (at < end && at + kRecordHeadSize <= end) {
    if (get(image, at + 2, 2) == 0) {
      uint16_t type_in_own_order = 0;
      memcpy(&type_in_own_order, &image.at(at), sizeof type_in_own_order);
      return {false, "\r\n The max len of field(" + std::to_string(type_in_own_order) + ") is 0.", {}};
    }
    result.at.push_back(at);
    at += kRecordHeadSize + get(image, at + 2, 2);
  }
  if (at != end) return {false, kOverrun, {}};
  return result;
}

// ---- The library's side ---------------------------------------------------------------------------------------------

struct Save {
  const uint8_t *base;
  Bytes bytes;
};

// What the save function was given, the bytes as they were at that time.
inline std::vector<Save> saves;

inline int32_t record_save(const uint8_t *base, uint32_t size) {
  saves.push_back({base, Bytes(base, base + size)});
  return -1;  // ignored
}

// An instance over a heap block of exactly the content's size: the address sanitizer sees any access behind it.
class Store {
 public:
  explicit Store(const Bytes &content) : Store(content, content.size()) {}
  Store(const Bytes &content, size_t max_size, tlv_save_cb save = record_save)
      : size_(content.size()), block_(new uint8_t[content.size()]) {
    std::copy(content.begin(), content.end(), block_.get());
    inst_ = tlv_inst_init(block_.get(), static_cast<uint32_t>(max_size), save);
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
  uint8_t *data() const { return block_.get(); }
  Bytes bytes() const { return Bytes(block_.get(), block_.get() + size_); }
  int32_t load() const { return tlv_load(inst_); }

  // Offsets in the image that the index points at.
  std::vector<size_t> index() const {
    std::vector<size_t> offsets;
    for (uint32_t i = 0; i < inst_->field_num; i++)
      offsets.push_back(static_cast<size_t>(reinterpret_cast<uint8_t *>(inst_->field_tbl[i]) - block_.get()));
    return offsets;
  }

 private:
  size_t size_;
  std::unique_ptr<uint8_t[]> block_;
  tlv_inst *inst_;
};

}  // namespace tarn_reference

#endif
