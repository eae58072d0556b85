// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A descriptor that its owner's destructor closes.
#ifndef TARN_SIM_LAUNCHER_DESCRIPTOR_H
#define TARN_SIM_LAUNCHER_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace tarn_sim {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    if (this != &other) {
      shut();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  ~Descriptor() { shut(); }

  int get() const { return number_; }
  bool is_open() const { return number_ >= 0; }
  void reset() { *this = Descriptor(); }

 private:
  void shut() const {
    if (number_ >= 0) (void)close(number_);
  }

  int number_;
};

}  // namespace tarn_sim

#endif
