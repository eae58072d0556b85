// The library's view of an image: an instance over a private copy.
#ifndef TARN_CFG_STORE_H
#define TARN_CFG_STORE_H

#include "image.h"

namespace tarn_cfg {

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

// Ends the program where an image of `size` bytes is longer than `room`.
void require_room(const std::string &path, size_t size, size_t room);

// The bytes that --max-size names; without it there is no limit.
size_t room_of(const std::string &max_size);

// A file's new bytes: the image `image` in front of what stood behind an image of `old_size`. Where something did, the
// file keeps its size. Ends the program where the image finds no room before the end of the file, or before bytes that
// are no padding, or within `room`.
Bytes put_in_file(const std::string &path, View file, size_t old_size, View image, size_t room);

// An image of the header's values and of records, sealed.
class Builder {
 public:
  explicit Builder(const tlv_hdr &header);
  void add(uint16_t key, View value);
  // The records as they stand.
  void add_bytes(View records);
  [[nodiscard]] Bytes sealed() const;
  // With a checksum of 0, which means that it is not yet computed.
  [[nodiscard]] Bytes unsealed() const;

 private:
  Bytes image_;
};

}  // namespace tarn_cfg

#endif
