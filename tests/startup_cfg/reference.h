// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A second generator of startup configuration images, written from their layout without the library.
#ifndef TARN_TESTS_STARTUP_CFG_REFERENCE_H
#define TARN_TESTS_STARTUP_CFG_REFERENCE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tarn_test {

using Bytes = std::vector<uint8_t>;

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

// With a checksum of 0, which means "not yet computed".
inline Bytes unsealed(Bytes image) {
  put(image, 4, 2, 0);
  return image;
}

struct Record {
  uint16_t type;
  Bytes value;
};
using Records = std::vector<Record>;

struct Header {
  uint8_t active = 0;
  uint8_t flag = 0;
  uint32_t version = 0;
};

// A sealed image of exactly its size.
inline Bytes build(const Records &records, const Header &header = {}) {
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

// `image` and, after it, `count` more bytes of `fill`.
inline Bytes with_room(Bytes image, size_t count, uint8_t fill = 0) {
  image.insert(image.end(), count, fill);
  return image;
}

inline Bytes first_bytes(const Bytes &bytes, size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count)};
}

// The walk over the records: their offsets, or the complaint when they do not tile the record area.
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
  if (at != end) return {false, "\r\n Cfg len doesn't mach.", {}};
  return result;
}

}  // namespace tarn_test

#endif
