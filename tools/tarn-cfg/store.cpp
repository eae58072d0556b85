// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Images that the library opens, and images that are built anew.
//
// The library changes and appends fields. It cannot remove fields, and its change of a buffer field's length breaks the
// image: for these, the records are joined here, and the library seals them.

#include "store.h"

#include <algorithm>
#include <cstring>

#include "common/report.h"
#include "file.h"
#include "tarn/platform.h"

namespace tarn_tools::cfg {

namespace {

constexpr size_t kLeastFill = 1;

}  // namespace

Store::Store(View image, size_t room)
    : buffer_(room + kHeaderSize), instance_(tlv_inst_init(buffer_.data(), static_cast<uint32_t>(room), nullptr)) {
  std::copy(image.begin(), image.end(), buffer_.begin());
  // Not a fault of a file: images are surveyed before.
  if (instance_ == nullptr || tlv_load(instance_) != 0) fail("internal: the image does not load");
}

Store::~Store() {
  if (instance_ != nullptr) mu_free(instance_->field_tbl);
  mu_free(instance_);
}

Bytes Store::image() const {
  const size_t size = kHeaderSize + get32(buffer_.data() + offsetof(tlv_hdr, cfg_len));
  return {buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(size)};
}

void require_room(const std::string &path, size_t size, size_t room) {
  if (size <= room) return;
  fail("%s: at 0x%zx: no room: the image would take %s, there are %zu", path.c_str(), room,
       counted(size, "byte").c_str(), room);
}

Bytes put_in_file(const std::string &path, View file, size_t old_size, View image, size_t room) {
  const Tail old = tail_after(file, old_size);
  room = std::min<size_t>(room, kMaxFileSize);
  if (old.size != 0) room = std::min(room, old.fill ? file.size() - kLeastFill : old_size);
  require_room(path, image.size(), room);
  if (old.size == 0) return {image.begin(), image.end()};
  Bytes bytes(file.begin(), file.end());
  std::fill_n(bytes.begin(), old_size, old.fill.value_or(0));
  std::copy(image.begin(), image.end(), bytes.begin());
  return bytes;
}

Builder::Builder(const tlv_hdr &header) : image_(kHeaderSize) {
  memcpy(image_.data(), &header, kHeaderSize);
  put32(image_.data() + offsetof(tlv_hdr, magic), TLV_MAGIC);
  put16(image_.data() + offsetof(tlv_hdr, crc), 0);
}

void Builder::add(uint16_t key, View value) {
  uint8_t head[kHeadSize];
  put16(head + offsetof(tlv_field, type), key);
  put16(head + offsetof(tlv_field, max_len), static_cast<uint16_t>(value.size()));
  add_bytes(head);
  add_bytes(value);
}

void Builder::add_bytes(View records) { image_.insert(image_.end(), records.begin(), records.end()); }

Bytes Builder::unsealed() const {
  Bytes image = image_;
  put32(image.data() + offsetof(tlv_hdr, cfg_len), static_cast<uint32_t>(image.size() - kHeaderSize));
  (void)Store(image, image.size());  // it loads
  return image;
}

Bytes Builder::sealed() const {
  const Bytes image = unsealed();
  return Store(image, image.size()).image();
}

}  // namespace tarn_tools::cfg
