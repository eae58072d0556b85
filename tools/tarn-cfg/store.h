// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The library's view of an image: an instance over a private copy.
#ifndef TARN_TOOLS_CFG_STORE_H
#define TARN_TOOLS_CFG_STORE_H

#include "image.h"

namespace tarn_tools::cfg {

// An image in a buffer of its own, opened by the library. The image has to be sound: the library prints what it finds
// wrong, and blanks what is no image.
class Store {
 public:
  // `room` is what the image may come to take. The buffer has 16 bytes more, which the library may write to.
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

// Throws a Failure where an image of `size` bytes is longer than `room`.
void require_room(const std::string &path, size_t size, size_t room);

// A file's new bytes: the image `image`, then what came after an image of `old_size`. Where something did, the file
// keeps its size. Throws a Failure where the image has no room within `room`, before bytes that are not padding, or
// before the last byte of the padding: that byte stays, or nobody could know later that the file was padded, and with
// what.
Bytes put_in_file(const std::string &path, View file, size_t old_size, View image, size_t room);

// An image of the header's values and of records, sealed.
class Builder {
 public:
  explicit Builder(const tlv_hdr &header);
  void add(uint16_t key, View value);
  // The records as they are.
  void add_bytes(View records);
  [[nodiscard]] Bytes sealed() const;
  // With a checksum of 0, which means that it is not yet computed.
  [[nodiscard]] Bytes unsealed() const;

 private:
  Bytes image_;
};

}  // namespace tarn_tools::cfg

#endif
