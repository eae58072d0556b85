// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "preload.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "console.h"

namespace tarn_sim {

namespace {

namespace fs = std::filesystem;

constexpr char kShim[] = "tarn-sim-shim.so";

// In a build, it is beside this program; in an installation, in the library folder.
std::string find_shim() {
  std::error_code error;
  const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const char *place : {kShim, TARN_SIM_INSTALLED_SHIM}) {
    const fs::path shim = (here / place).lexically_normal();
    if (fs::exists(shim, error)) return shim.string();
  }
  report((here / kShim).string() + ": is missing");
  return "";
}

}  // namespace

Preload::Preload() {
  const std::string shim = find_shim();
  if (shim.find_first_of(" :") == std::string::npos) {
    path_ = shim;
  } else {
    link_to(shim);
  }
}

Preload::~Preload() {
  if (folder_.empty()) return;
  std::error_code error;
  fs::remove_all(folder_, error);
  if (error) report(folder_ + ": " + error.message());
}

void Preload::link_to(const std::string &shim) {
  std::string pattern = "/tmp/tarn-sim-shim-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) return report(pattern + ": " + strerror(errno));
  folder_ = pattern;
  const std::string link = folder_ + '/' + kShim;
  if (symlink(shim.c_str(), link.c_str()) != 0) return report(link + ": " + strerror(errno));
  path_ = link;
}

}  // namespace tarn_sim
