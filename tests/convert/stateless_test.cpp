// What holds for all conversions alike.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/console.h"
#include "support/heap.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

// All conversions of one number, there and back. Returns whether each gave it.
bool round_trip(uint32_t number) {
  number |= 0x01000000;  // mu_str2ip takes no first octet of 0
  char text[MU_IPV6_TEXT_SIZE];
  uint32_t ip = 0;
  mu_ip2str(text, number);
  bool same = mu_str2ip(text, &ip) == 0 && ip == number;

  uint8_t address[MU_IPV6_BYTES];
  uint8_t back[MU_IPV6_BYTES];
  for (size_t i = 0; i < sizeof address; i++) address[i] = static_cast<uint8_t>(number >> (i % 4 * 8));
  mu_ipv6tostr(text, address);
  same &= mu_str2ipv6(text, back) == 0 && memcmp(address, back, sizeof back) == 0;

  snprintf(text, sizeof text, "%u", number);
  uint64_t wide = 0;
  uint32_t narrow = 0;
  same &= mu_str2decl(text, &wide) == 0 && wide == number && mu_str2dec(text, &narrow) == 0 && narrow == number;
  same &= mu_atoi(text) == number && mu_strtol(text) == number && mu_strtoll(text) == number;
  same &= mu_strtoul(text, nullptr, 10) == number;

  snprintf(text, sizeof text, "%x:%x.%x:%x.%x:%x", number >> 24, number >> 16 & 0xFF, number >> 8 & 0xFF, number & 0xFF,
           7u, 8u);
  const uint8_t expected[MU_MAC_BYTES] = {static_cast<uint8_t>(number >> 24),
                                          static_cast<uint8_t>(number >> 16),
                                          static_cast<uint8_t>(number >> 8),
                                          static_cast<uint8_t>(number),
                                          7,
                                          8};
  same &= mu_str2mac(text, back) == 0 && memcmp(back, expected, sizeof expected) == 0;
  same &= mu_str2hex(text, back, MU_MAC_BYTES) == 0 && memcmp(back, expected, sizeof expected) == 0;
  return same;
}

}  // namespace

TEST(Conversions, RunInSeveralThreadsAtOnce) {
  std::atomic<unsigned> faults = 0;
  std::vector<std::thread> threads;
  for (uint32_t thread = 0; thread < 4; thread++) {
    threads.emplace_back([thread, &faults] {
      for (uint32_t i = 0; i < 500; i++) faults += round_trip((i * 4 + thread) * 2654435761u) ? 0u : 1u;
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(faults, 0u);
}

TEST(Conversions, AllocateNothing) {
  setvbuf(stdout, nullptr, _IONBF, 0);  // nor does standard output need a buffer then
  Console console;
  HeapWatch heap;
  EXPECT_TRUE(round_trip(0xC0A801FE));
  EXPECT_EQ(mu_buffer_dump("title", reinterpret_cast<const uint8_t *>("bytes"), 5), 0);
  EXPECT_EQ(heap.live() + heap.freed().size(), 0u);
}

TEST(Conversions, PrintNothingButTheDump) {
  Console console;
  uint32_t number = 0;
  uint8_t bytes[MU_IPV6_BYTES];
  EXPECT_TRUE(round_trip(0xC0A801FE));
  EXPECT_EQ(mu_str2ip("x", &number), 1);
  EXPECT_EQ(mu_str2ipv6("x", bytes), 1);
  EXPECT_EQ(mu_str2mac("x", bytes), 1);
  EXPECT_EQ(mu_str2dec("x", &number), 1);
  EXPECT_EQ(console.take(), "");
}

TEST(Conversions, LeaveErrnoAlone) {
  constexpr int kValue = 4711;
  errno = kValue;
  uint64_t wide = 0;
  uint32_t narrow = 0;
  uint8_t bytes[MU_IPV6_BYTES];
  const char *const too_large = "99999999999999999999999999";
  mu_atoi(too_large);
  EXPECT_EQ(mu_str2decl(too_large, &wide), 0);
  EXPECT_EQ(mu_str2dec(too_large, &narrow), 0);
  EXPECT_EQ(mu_str2ip("1.2.3.256", &narrow), 1);
  EXPECT_EQ(mu_str2ipv6("::fffff", bytes), 1);
  EXPECT_EQ(mu_str2mac("1", bytes), 1);
  EXPECT_EQ(errno, kValue);
}
