// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The folder whose files and sockets replace those of the gateway.
#ifndef TARN_SIM_LAUNCHER_ROOT_H
#define TARN_SIM_LAUNCHER_ROOT_H

#include <string>

#include "descriptor.h"

namespace tarn_sim {

class Root {
 public:
  // Creates the folder if it does not exist, and locks it for this launcher. With an empty path, creates a new one in
  // /tmp, which is removed at the end. On failure, reports the reason, and is_ready() is false.
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
