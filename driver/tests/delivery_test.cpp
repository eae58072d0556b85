// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The delivery of events from the driver to the subscribers.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "platform.h"
#include "tarn/event.h"

using namespace driver_test;

namespace {

// A field of /proc/self/task/THREAD/stat, counted from 1. The name of the thread may contain blanks.
long thread_stat(pid_t thread, int field) {
  const std::string text = file_text(("/proc/self/task/" + std::to_string(thread) + "/stat").c_str());
  std::istringstream words(text.substr(text.rfind(')') + 1));
  std::string word;
  for (int i = 3; i <= field; i++) words >> word;
  return atol(word.c_str());
}

bool receives(size_t count) {
  return eventually([count] { return received().size() >= count; });
}

}  // namespace

TEST(DriverEvents, OfEveryTypeReachTheirSubscribers) {
  ASSERT_TRUE(start_channel());
  for (uint32_t type = 0; type < MUP_EVENT_NUM; type++) {
    const std::string number = std::to_string(type);
    ASSERT_EQ(control("event " + number + " " + std::to_string(100 + type) + " 0a0b" + hex({"\x7f", 1})), 0);
  }
  ASSERT_TRUE(receives(MUP_EVENT_NUM));
  const std::vector<Occurrence> all = received();
  ASSERT_EQ(all.size(), static_cast<size_t>(MUP_EVENT_NUM));
  for (uint32_t type = 0; type < MUP_EVENT_NUM; type++) {
    EXPECT_EQ(all[type].type, type);
    EXPECT_EQ(all[type].device, 100 + type);
    EXPECT_EQ(all[type].data, "\x0a\x0b\x7f");
    EXPECT_EQ(all[type].length, 3u);
    EXPECT_EQ(all[type].reserved, 0u);
  }
}

TEST(DriverEvents, AreDeliveredOnARoundRobinThreadOfPriority80) {
  ASSERT_TRUE(start_channel());
  ASSERT_EQ(control("event 1 0"), 0);
  ASSERT_TRUE(receives(1));
  const pid_t thread = received()[0].thread;
  EXPECT_NE(thread, gettid());
  EXPECT_EQ(thread_stat(thread, 41), SCHED_RR);
  EXPECT_EQ(thread_stat(thread, 40), 80);
}

TEST(DriverEvents, OfATypeBehindTheTableReachNobody) {
  ASSERT_TRUE(start_channel());
  EXPECT_EQ(control("event 20 0"), EINVAL);  // the driver has as many types as the registry
  ASSERT_EQ(control("datagram " + hex(datagram(20, 0, 0))), 0);
  ASSERT_EQ(control("datagram " + hex(datagram(65535, 0, 0))), 0);
  ASSERT_EQ(control("event 19 5"), 0);
  ASSERT_TRUE(receives(1));
  EXPECT_EQ(received().size(), 1u);
  EXPECT_EQ(received()[0].device, 5);
}

TEST(DriverEvents, WithoutADestinationAreCountedAndGoNowhere) {
  EXPECT_EQ(status_number("destination"), 0);  // no daemon has set one
  ASSERT_EQ(control("event 1 0\nevent 1 0"), 0);
  EXPECT_EQ(status_number("undirected"), 2);
  EXPECT_EQ(status_number("sent"), 0);
}

TEST(DriverEvents, ForAPortThatNobodyHasAreCounted) {
  mu_event_dest_set(4000000);  // above every process id
  const long before = status_number("refused");
  ASSERT_EQ(control("event 1 0"), 0);
  EXPECT_EQ(status_number("refused"), before + 1);
}

TEST(DriverDatagrams, Of23BytesAreIgnoredAndOf24AreEvents) {
  ASSERT_TRUE(start_channel());
  const std::string whole = datagram(3, 9, 0);
  for (size_t size = 1; size < 24; size++) {
    ASSERT_EQ(control("datagram " + hex(whole.substr(0, size))), 0);
  }
  ASSERT_EQ(control("datagram " + hex(whole)), 0);
  ASSERT_TRUE(receives(1));
  EXPECT_EQ(received().size(), 1u);
  EXPECT_EQ(received()[0].device, 9);
}

TEST(DriverDatagrams, AreDeliveredWithTheLengthThatTheyClaim) {
  ASSERT_TRUE(start_channel());
  ASSERT_EQ(control("datagram " + hex(datagram(3, 1, 100))), 0);
  ASSERT_EQ(control("datagram " + hex(datagram(3, 2, 65535, "xyz"))), 0);
  ASSERT_EQ(control("datagram " + hex(datagram(3, 3, 1, "xyz"))), 0);
  ASSERT_TRUE(receives(3));
  EXPECT_EQ(received()[0].length, 100u);
  EXPECT_EQ(received()[1].length, 65535u);
  EXPECT_EQ(received()[1].data.substr(0, 3), "xyz");
  EXPECT_EQ(received()[2].length, 1u);
  EXPECT_EQ(received()[2].data, "x");
}

TEST(DriverDatagrams, AreReceivedUpTo2048Bytes) {
  ASSERT_TRUE(start_channel());
  std::string data(MU_PAL_DATAGRAM_MAX - sizeof(mu_pal_hdr_t), '\0');
  for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<char>(i * 7);
  ASSERT_EQ(control("datagram " + hex(datagram(3, 0, 2024, data))), 0);
  ASSERT_EQ(control("datagram " + hex(datagram(3, 0, 4072, data + std::string(2048, 'z')))), 0);  // 4096 bytes
  ASSERT_EQ(control("event 4 0 01"), 0);
  ASSERT_TRUE(receives(3));
  EXPECT_EQ(received()[0].length, 2024u);
  EXPECT_EQ(received()[0].data, data);
  EXPECT_EQ(received()[1].length, 4072u);
  EXPECT_EQ(received()[1].data, data);  // the rest is cut off
  EXPECT_EQ(received()[2].data, "\x01");
}
