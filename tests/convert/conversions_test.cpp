// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Properties of all conversions: no heap, no output except the dump's, no state, errno unchanged, any thread.

#include <atomic>
#include <cerrno>
#include <set>
#include <thread>

#include "convert/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace tarn_test;

namespace {

// Every parser and printer once, including failures and overflows; their results, in one text.
std::string call_them_all(unsigned seed) {
  const std::string n = std::to_string(seed % 200 + 1);
  uint32_t u32 = 0;
  uint64_t u64 = 0;
  uint8_t bytes[16] = {};
  char text[40] = {};
  const std::string pair = std::to_string(seed % 100);
  const std::string numbers[] = {n, "0x" + n, n + "x", std::string(30, '9') + n, ""};
  const std::string quads[] = {n + ".2.3." + n, n + ".2.3", "300.1.1.1"};
  const std::string addresses[] = {"::" + n + ":1.2.3." + n, n + "::", n + ":" + n, ":"};
  const std::string lists[] = {pair + ":2:3:4:5:" + pair, pair + ":2:3:4:5:6:", pair + ":g"};
  std::string all;
  const auto note = [&](uint64_t value) { all += std::to_string(value) + ' '; };
  for (const std::string &number : numbers) {
    note(mu_atoi(number.c_str()));
    note(static_cast<uint64_t>(mu_str2dec(number.c_str(), &u32)));
    note(u32);
    note(static_cast<uint64_t>(mu_str2decl(number.c_str(), &u64)));
    note(u64);
    note(mu_strtol(number.c_str()));
    note(mu_strtoll(number.c_str()));
  }
  note(mu_strtoul(n.c_str(), nullptr, 10));
  note(mu_inter_to64(seed, seed));
  for (const std::string &address : quads) {
    note(static_cast<uint64_t>(mu_str2ip(address.c_str(), &u32)));
    note(u32);
    mu_ip2str(text, u32);
    all += text;
  }
  for (const std::string &address : addresses) {
    note(static_cast<uint64_t>(mu_str2ipv6(address.c_str(), bytes)));
    mu_ipv6tostr(text, bytes);
    all += text;
  }
  for (const std::string &list : lists) {
    note(static_cast<uint64_t>(mu_str2mac(list.c_str(), bytes)));
    note(static_cast<uint64_t>(mu_str2hex(list.c_str(), bytes, 6)));
    for (const uint8_t byte : bytes) note(byte);
  }
  return all;
}

}  // namespace

TEST(Conversions, AllocateNothing) {
  const Bytes bytes(100, 7);
  Console console;
  int seen = 0;
  {
    FailingMalloc none(1, 1000000);
    call_them_all(1);
    mu_buffer_dump("title", bytes.data(), 100);
    seen = none.seen();
  }
  const std::string printed = console.take();
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(printed.substr(0, 12), "\r\ntitle\n07 0");
}

TEST(Conversions, PrintNothingButTheDump) {
  std::string printed;
  {
    Console console;
    call_them_all(1);
    printed = console.take();
  }
  EXPECT_EQ(printed, "");
}

TEST(Conversions, LeaveErrnoUntouched) {
  for (const int before : {0, EDOM}) {
    errno = before;
    call_them_all(1);
    EXPECT_EQ(errno, before);
  }
}

TEST(Conversions, KeepNoState) {
  const std::string first = call_them_all(1);
  for (unsigned seed = 0; seed < 50; seed++) {
    call_them_all(seed);
    EXPECT_EQ(call_them_all(1), first);
  }
}

TEST(Conversions, MayBeCalledFromAnyThread) {
  constexpr unsigned kThreads = 4;
  std::vector<std::string> expected;
  for (unsigned seed = 0; seed < kThreads; seed++) expected.push_back(call_them_all(seed));
  std::atomic<unsigned> differences = 0;
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < kThreads; seed++) {
    threads.emplace_back([&, seed] {
      for (int round = 0; round < 100; round++) {
        if (call_them_all(seed) != expected[seed]) differences++;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(differences, 0u);
}

// The exhaustive tests rely on these.
TEST(Texts, AreAllThatThereAre) {
  std::multiset<std::string> texts;
  for_each_text("abc", 4, [&](const std::string &text) { texts.insert(text); });
  EXPECT_EQ(texts.size(), 1u + 3 + 9 + 27 + 81);
  EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
  texts.clear();
  for_each_neighbour("xy", [&](const std::string &text) { texts.insert(text); });
  // 255 replacements at two places, 255 insertions at three, two removals; "xy" itself at the end.
  EXPECT_EQ(texts.size(), 2u * 255 + 3 * 255 + 2 + 255);
  for (const char *text : {"xy", "x", "y", "zy", "xz", "zxy", "xzy", "xyz"})
    EXPECT_EQ(texts.count(text) != 0, true) << text;
}
