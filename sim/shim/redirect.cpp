// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "redirect.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "link.h"
#include "sim/wire.h"

namespace tarn_sim {

namespace {

constexpr const char *kTree = "/overlay";
constexpr const char *kDevices[] = {kKernelMessages, kLogDevice, kPlatformDevice};
// Does not exist and cannot be created.
constexpr const char *kNoRoot = "/proc/self/TARN_SIM_ROOT-is-not-set";

bool is_in_tree(const char *path) {
  const size_t tree_length = strlen(kTree);
  return strncmp(path, kTree, tree_length) == 0 && (path[tree_length] == '\0' || path[tree_length] == '/');
}

bool is_device(const char *path) {
  for (const char *device : kDevices) {
    if (strcmp(path, device) == 0) return true;
  }
  return false;
}

}  // namespace

RedirectedPath::RedirectedPath(const char *path) : path_(path) {
  if (path == nullptr) return;
  is_device_ = is_device(path);
  if (!is_device_ && !is_in_tree(path)) return;
  const char *root = getenv("TARN_SIM_ROOT");
  if (root == nullptr) root = kNoRoot;
  const int length = snprintf(below_root_, sizeof below_root_, "%s%s", root, path);
  // A path that does not fit must not lead anywhere else.
  path_ = length < static_cast<int>(sizeof below_root_) ? below_root_ : kNoRoot;
}

bool RedirectedPath::is_simulated() const { return is_device_ && is_socket(path_); }

bool is_collector(const sockaddr *address, socklen_t size) {
  if (address == nullptr || size < sizeof(sockaddr_in) || address->sa_family != AF_INET) return false;
  sockaddr_in internet;
  memcpy(&internet, address, sizeof internet);
  return ntohs(internet.sin_port) == kCollectorPort;
}

bool collector_is_there() {
  const char *port = getenv("TARN_SIM_COLLECTOR_PORT");
  return port != nullptr && strcmp(port, kCollectorIsThere) == 0;
}

in_port_t collector_port() {
  const char *port = getenv("TARN_SIM_COLLECTOR_PORT");
  return port == nullptr ? in_port_t{0} : static_cast<in_port_t>(strtoul(port, nullptr, 10));
}

sockaddr_in loopback(in_port_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace tarn_sim
