// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "namespace.h"

#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "descriptor.h"
#include "sim/wire.h"

namespace tarn_sim {

namespace {

bool write_file(const char *path, const std::string &text) {
  const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
  return write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Maps this user and group to themselves in the new user namespace.
bool map_itself(uid_t user, gid_t group) {
  const auto line = [](unsigned id) { return std::to_string(id) + ' ' + std::to_string(id) + " 1\n"; };
  return write_file("/proc/self/uid_map", line(user)) && write_file("/proc/self/setgroups", "deny\n") &&
         write_file("/proc/self/gid_map", line(group));
}

bool unshare_network() {
  if (unshare(CLONE_NEWNET) == 0) return true;
  const uid_t user = geteuid();
  const gid_t group = getegid();
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && map_itself(user, group);
}

bool bring_up_loopback() {
  const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  memcpy(request.ifr_name, "lo", sizeof "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(sock.get(), SIOCSIFFLAGS, &request) == 0;
}

// What `ip route add local default dev lo` sends.
struct RouteRequest {
  nlmsghdr header;
  rtmsg route;
  rtattr attribute;
  std::uint32_t interface;
};

struct RouteAnswer {
  nlmsghdr header;
  nlmsgerr error;
};

bool make_every_address_local() {
  RouteRequest request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_NEWROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_ACK;
  request.route.rtm_family = AF_INET;
  request.route.rtm_table = RT_TABLE_LOCAL;
  request.route.rtm_protocol = RTPROT_BOOT;
  request.route.rtm_scope = RT_SCOPE_HOST;
  request.route.rtm_type = RTN_LOCAL;
  request.attribute.rta_len = RTA_LENGTH(sizeof request.interface);
  request.attribute.rta_type = RTA_OIF;
  request.interface = if_nametoindex("lo");
  const Descriptor sock(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  RouteAnswer answer = {};
  return send(sock.get(), &request, sizeof request, 0) == sizeof request &&
         recv(sock.get(), &answer, sizeof answer, 0) >= static_cast<ssize_t>(sizeof answer) &&
         answer.header.nlmsg_type == NLMSG_ERROR && answer.error.error == 0;
}

bool can_bind_low_port() {
  const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(kCollectorPort);
  return bind(sock.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

bool enter() { return unshare_network() && bring_up_loopback() && make_every_address_local() && can_bind_low_port(); }

}  // namespace

bool enter_own_network() {
  // A child tries first, because a half-finished change cannot be undone.
  const pid_t child = fork();
  if (child == 0) _exit(enter() ? 0 : 1);
  int status = 1;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return child > 0 && status == 0 && enter();
}

}  // namespace tarn_sim
