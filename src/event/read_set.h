// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A set of one descriptor for select.
#ifndef TARN_EVENT_READ_SET_H
#define TARN_EVENT_READ_SET_H

#include <sys/select.h>

#include <cstring>

#include "platform/support.h"

namespace tarn::event {

// Works for any descriptor number. FD_SET works only below FD_SETSIZE and may abort above it; a daemon with many open
// files must not end because of that.
class ReadSet {
 public:
  explicit ReadSet(int fd) : fd_(fd) {
    if (fd < FD_SETSIZE) {
      words_ = inline_.fds_bits;
      size_ = sizeof inline_;
    } else {
      const size_t count = static_cast<size_t>(fd) / NFDBITS + 1;
      heap_ = allocate<fd_mask>(count);
      words_ = heap_.get();
      size_ = count * sizeof(fd_mask);
    }
  }

  // False when memory ran out.
  bool exists() const { return words_ != nullptr; }

  // Waits without a timeout. Returns the result of select.
  int wait() {
    memset(words_, 0, size_);
    words_[fd_ / NFDBITS] |= bit();
    return select(fd_ + 1, reinterpret_cast<fd_set *>(words_), nullptr, nullptr, nullptr);
  }

  // Whether the wait left the descriptor in the set.
  bool has_descriptor() const { return (words_[fd_ / NFDBITS] & bit()) != 0; }

 private:
  fd_mask bit() const { return static_cast<fd_mask>(1UL << (fd_ % NFDBITS)); }

  const int fd_;
  fd_mask *words_;
  size_t size_;
  fd_set inline_;
  Owned<fd_mask> heap_;
};

}  // namespace tarn::event

#endif
