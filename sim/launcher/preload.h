// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The path of the shim for LD_PRELOAD.
#ifndef TARN_SIM_LAUNCHER_PRELOAD_H
#define TARN_SIM_LAUNCHER_PRELOAD_H

#include <string>

namespace tarn_sim {

class Preload {
 public:
  // Finds the shim. For the loader, a blank or a colon ends a path: if the path has one, a link in a new folder of /tmp
  // replaces it. On failure, reports the reason, and is_ready() is false.
  Preload();
  ~Preload();
  Preload(const Preload &) = delete;
  Preload &operator=(const Preload &) = delete;

  bool is_ready() const { return !path_.empty(); }
  const std::string &path() const { return path_; }

 private:
  void link_to(const std::string &shim);

  std::string path_;
  std::string folder_;  // of the link, which is removed at the end
};

}  // namespace tarn_sim

#endif
