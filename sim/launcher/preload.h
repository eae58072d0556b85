// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The shim, as LD_PRELOAD can name it.
#ifndef TARN_SIM_LAUNCHER_PRELOAD_H
#define TARN_SIM_LAUNCHER_PRELOAD_H

#include <string>

namespace tarn_sim {

class Preload {
 public:
  // Finds the shim. The loader takes blanks and colons for the end of a path: where the path has some, a link in a new
  // folder of /tmp stands for it. Says why when it cannot, and is_ready() is false.
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
