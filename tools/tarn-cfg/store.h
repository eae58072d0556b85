// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The library's view of an image: an instance over a private copy.
#ifndef TARN_TOOLS_CFG_STORE_H
#define TARN_TOOLS_CFG_STORE_H

#include "image.h"

namespace tarn_tools::cfg {

// An image in a separate buffer, opened by the library. The image must be sound: the library prints faults, and
// replaces anything that is not an image by a blank one.
class Store {
 public:
  // `room` is the largest size of the image. The buffer has 16 bytes more, which the library may write to.
  Store(View image, size_t room);
  ~Store();
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  [[nodiscard]] tlv_inst *instance() const { return instance_; }
  [[nodiscard]] Bytes image() const;

 private:
  Bytes buffer_;
  tlv_inst *instance_;
};

// Throws a Failure if an image of `size` bytes is longer than `room`.
void require_room(const std::string &path, size_t size, size_t room);

// A file's new bytes: `image`, then the bytes that came after an image of `old_size`. If there were any, the file keeps
// its size. Throws a Failure if the image does not fit into `room`, or would overwrite bytes that are not padding or
// the last byte of the padding. That byte is kept because it shows that the file is padded, and with which value.
Bytes put_in_file(const std::string &path, View file, size_t old_size, View image, size_t room);

// Makes a sealed image of the header's values and of records.
class Builder {
 public:
  explicit Builder(const tlv_hdr &header);
  void add(uint16_t key, View value);
  // Adds the records unchanged.
  void add_bytes(View records);
  [[nodiscard]] Bytes sealed() const;
  // With a checksum of 0, which means that it is not yet computed.
  [[nodiscard]] Bytes unsealed() const;

 private:
  Bytes image_;
};

}  // namespace tarn_tools::cfg

#endif
