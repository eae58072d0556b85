// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The folder whose files and sockets stand for the gateway's.
#ifndef TARN_SIM_LAUNCHER_ROOT_H
#define TARN_SIM_LAUNCHER_ROOT_H

#include <string>

#include "descriptor.h"

namespace tarn_sim {

class Root {
 public:
  // Takes the folder, which is made if it is not there, for this launcher only; with an empty path a new one in /tmp,
  // which is removed at the end. Says why when it cannot, and is_ready() is false.
  explicit Root(const std::string &path);
  ~Root();
  Root(const Root &) = delete;
  Root &operator=(const Root &) = delete;

  bool is_ready() const { return lock_.is_open(); }

  // Absolute.
  const std::string &path() const { return path_; }
  std::string below(const char *name) const { return path_ + name; }

 private:
  bool make(const std::string &path);
  bool take();

  std::string path_;
  bool is_temporary_ = false;
  Descriptor lock_;
};

}  // namespace tarn_sim

#endif
