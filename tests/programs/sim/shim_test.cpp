// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The desktop shim, linked into this program and preloaded into another.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/sandbox.h"

using namespace tarn_test;

namespace {

// What the probe prints with the shim preloaded.
std::string run_probe() {
  const std::string command = std::string(TARN_RUN_PROBE) + " 2>&1";
  FILE *output = popen(command.c_str(), "r");
  std::string text;
  char line[256];
  while (fgets(line, sizeof line, output) != nullptr) text += line;
  const int status = pclose(output);
  EXPECT_EQ(status, 0) << text;
  return text;
}

int udp_socket() { return socket(AF_INET, SOCK_DGRAM, 0); }

sockaddr_in port_514(in_addr_t address) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  result.sin_port = htons(514);
  result.sin_addr.s_addr = htonl(address);
  return result;
}

}  // namespace

TEST(Shim, RedirectsAPreloadedProgram) {
  Sandbox sandbox;
  Collector collector;
  std::ofstream(sandbox.root() + "/proc/kmsg") << "x";
  std::ofstream(sandbox.root() + "/dev/mu_pal_ioctl") << "x";
  EXPECT_EQ(run_probe(),
            "read /overlay/file: kept\n"
            "access: ok\n"
            "unlink: ok\n"
            "access: No such file or directory\n"
            "create: ok\n"
            "/proc/kmsg: ok\n"
            "/dev/mulog-ioctl-dev: No such file or directory\n"
            "/dev/mu_pal_ioctl: ok\n"
            "/overlayer: No such file or directory\n"
            "/proc/kmsg2: No such file or directory\n"
            "/proc/self/stat: ok\n"
            "/dev/null: ok\n"
            "sent 8\n");
  EXPECT_TRUE(std::filesystem::exists(sandbox.root() + "/overlay/made"));
  EXPECT_EQ(collector.next(), "datagram");
}

TEST(Shim, WithoutARootOrACollectorTouchesNothing) {
  const bool host_has_overlay = std::filesystem::exists(std::filesystem::path("/") / "overlay");
  EXPECT_EQ(run_probe().substr(0, 54), "write /overlay/file: No such file or directory\naccess:");
  EXPECT_NE(run_probe().find("/proc/kmsg: No such file or directory\n"), std::string::npos);
  EXPECT_NE(run_probe().find("sent 8\n"), std::string::npos);  // dropped
  EXPECT_EQ(std::filesystem::exists(std::filesystem::path("/") / "overlay"), host_has_overlay);
}

TEST(Shim, KeepsTheModeOfAFileThatIsMade) {
  Sandbox sandbox;
  umask(0);
  close(open("/overlay/made", O_CREAT | O_WRONLY, 0640));
  struct stat status {};
  ASSERT_EQ(stat((sandbox.root() + "/overlay/made").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST(Shim, LeavesAPathThatDoesNotFitNowhere) {
  Sandbox sandbox;
  const std::string path = "/overlay/" + std::string(4090, 'x');
  EXPECT_EQ(fopen(path.c_str(), "w"), nullptr);
}

TEST(Shim, RedirectsTheRootOfTheTreeItself) {
  Sandbox sandbox;
  EXPECT_EQ(access("/overlay", R_OK), 0);
  EXPECT_EQ(access("/overlay/", R_OK), 0);
}

TEST(Shim, LetsACollectorBindPort514) {
  setenv("TARN_SIM_COLLECTOR_PORT", "0", 1);  // any free port
  const int sock = udp_socket();
  const sockaddr_in wanted = port_514(INADDR_ANY);
  ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr *>(&wanted), sizeof wanted), 0);
  sockaddr_in bound = {};
  socklen_t size = sizeof bound;
  getsockname(sock, reinterpret_cast<sockaddr *>(&bound), &size);
  EXPECT_EQ(ntohl(bound.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_NE(ntohs(bound.sin_port), 514);

  setenv("TARN_SIM_COLLECTOR_PORT", std::to_string(ntohs(bound.sin_port)).c_str(), 1);
  const sockaddr_in to = port_514(0xC0A801FE);
  const int sender = udp_socket();
  EXPECT_EQ(sendto(sender, "abc", 3, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to), 3);
  char data[8];
  EXPECT_EQ(recv(sock, data, sizeof data, MSG_DONTWAIT), 3);
  close(sender);
  close(sock);
}

TEST(Shim, LeavesOtherPortsAlone) {
  setenv("TARN_SIM_COLLECTOR_PORT", "1", 1);
  const int receiver = udp_socket();
  sockaddr_in address = port_514(INADDR_LOOPBACK);
  address.sin_port = 0;
  ASSERT_EQ(bind(receiver, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  socklen_t size = sizeof address;
  getsockname(receiver, reinterpret_cast<sockaddr *>(&address), &size);
  const int sender = udp_socket();
  EXPECT_EQ(sendto(sender, "abc", 3, 0, reinterpret_cast<const sockaddr *>(&address), sizeof address), 3);
  char data[8];
  EXPECT_EQ(recv(receiver, data, sizeof data, MSG_DONTWAIT), 3);
  close(sender);
  close(receiver);
}
