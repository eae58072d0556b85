// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/sandbox.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace tarn_test {

Sandbox::Sandbox() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
  root_ = mkdtemp(pattern.data());
  for (const char *folder : {"overlay", "proc", "dev"}) std::filesystem::create_directory(root_ + '/' + folder);
  setenv("TARN_SIM_ROOT", root_.c_str(), 1);
}

Sandbox::~Sandbox() {
  unsetenv("TARN_SIM_ROOT");
  std::error_code ignored;  // files that remain in the temporary folder do no harm
  std::filesystem::remove_all(root_, ignored);
}

Collector::Collector() : sock_(socket(AF_INET, SOCK_DGRAM, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(sock_, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
      getsockname(sock_, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
    abort();
  }
  setenv("TARN_SIM_COLLECTOR_PORT", std::to_string(ntohs(address.sin_port)).c_str(), 1);
}

Collector::~Collector() {
  unsetenv("TARN_SIM_COLLECTOR_PORT");
  close(sock_);
}

std::optional<std::string> Collector::next() {
  char data[65536];
  const ssize_t size = recv(sock_, data, sizeof data, MSG_DONTWAIT);
  if (size < 0) return std::nullopt;
  return std::string(data, static_cast<size_t>(size));
}

}  // namespace tarn_test
