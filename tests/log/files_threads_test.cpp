// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Eight threads log while others save, show, clear, set levels and copy out. Each message depends only on its thread
// and its number, so a record that is torn between two threads is detected wherever it is found.

#include "log/file_model.h"
#include "log/threads.h"

using namespace tarn_test;

namespace {

using LogFilesThreads = StartedLogFiles;

unsigned module_of(unsigned thread) { return thread % 2 == 0 ? thread : 16 + thread / 2; }
unsigned level_of(unsigned number) { return number % 9; }

// "3#17#", a line end, which a save replaces with a blank, and "ddd...".
std::string text_of_message(unsigned thread, unsigned number) {
  return std::to_string(thread) + '#' + std::to_string(number) + "#\n" +
         std::string(number * 13 % 200, static_cast<char>('a' + thread));
}

bool is_whole(unsigned module, unsigned level, std::string text) {
  unsigned thread = 0;
  unsigned number = 0;
  if (sscanf(text.c_str(), "%u#%u#", &thread, &number) != 2 || thread >= kThreads) return false;
  std::string expected = text_of_message(thread, number);
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::replace(expected.begin(), expected.end(), '\n', ' ');
  return text == expected && module == module_of(thread) && level == level_of(number);
}

void expect_whole_records(const mup_log_rec *ring, size_t size) {
  for (size_t i = 0; i < size; i++) {
    if (ring[i].text[0] == '\0') continue;
    ASSERT_TRUE(is_whole(ring[i].module, ring[i].level, text_of(ring[i]))) << text_of(ring[i]);
  }
}

// Checks every line after the marker of a log file or of a copy. Returns their number.
size_t expect_whole_lines(const std::string &file, const std::string &marker) {
  const size_t begin = file.find(marker);
  if (begin == std::string::npos) {
    EXPECT_EQ(file, "");
    return 0;
  }
  size_t count = 0;
  size_t at = begin + marker.size();
  if (file.substr(at) == std::string(1, '\0')) return 0;  // as start-up makes it
  while (at < file.size()) {
    const size_t end = file.find('\n', at);
    EXPECT_NE(end, std::string::npos);
    if (end == std::string::npos) return count;
    Record record;
    const std::string line = file.substr(at, end - at);
    EXPECT_EQ(parse_line(line, numbered_names(), record), Line::kRecord) << line;
    EXPECT_TRUE(is_whole(record.module, record.level, record.text)) << line;
    at = end + 1;
    count++;
  }
  return count;
}

std::function<void()> logger(unsigned thread, unsigned count) {
  return [=] {
    for (unsigned i = 0; i < count; i++) log_text(module_of(thread), level_of(i), text_of_message(thread, i));
  };
}

}  // namespace

TEST_F(LogFilesThreads, WhatIsLoggedWhileFilesAreSavedIsInTheLastSave) {
  constexpr unsigned kEach = 110;  // neither ring wraps
  std::vector<std::function<void()>> bodies;
  for (unsigned i = 0; i < kThreads; i++) bodies.push_back(logger(i, kEach));
  bodies.emplace_back([] {
    for (int i = 0; i < 40; i++) save();
  });
  {
    const Console console;
    run_together(bodies);
  }
  save();
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(expect_whole_lines(bytes_of(sys()), kSysMarker), kThreads / 2 * kEach);
  EXPECT_EQ(expect_whole_lines(bytes_of(usr()), kUsrMarker), kThreads / 2 * kEach);
  EXPECT_EQ(ctrl->sys_idx, kThreads / 2 * kEach);
  EXPECT_EQ(ctrl->usr_idx, kThreads / 2 * kEach);
}

TEST_F(LogFilesThreads, EverythingAtOnceLeavesWholeRecordsAndWholeFiles) {
  const mup_log_usr_header headers[2] = {{"aaaa", "bbbb", "cccc", "dddd", "eeee", "ffff"},
                                         {"AAAAAAAA", "BBBBBBBB", "CCCCCCCC", "DDDDDDDD", "EEEEEEEE", "FFFFFFFF"}};
  EXPECT_EQ(mup_log_usr_header_set(&headers[0]), 0);
  std::vector<std::function<void()>> bodies;
  for (unsigned i = 0; i < kThreads; i++) bodies.push_back(logger(i, 200));
  bodies.emplace_back([&] {
    for (int i = 0; i < 60; i++) {
      save();
      mup_log_usr_header header;
      EXPECT_EQ(mup_log_usr_header_set(&headers[i % 2]), 0);
      EXPECT_EQ(mup_log_usr_header_get(&header), 0);
      EXPECT_EQ(memcmp(&header, &headers[i % 2], sizeof header), 0);
    }
  });
  bodies.emplace_back([&] {
    for (int i = 0; i < 12; i++) {
      EXPECT_EQ(mup_log_show(0, 0), 0);
      const char *module = i % 3 == 0 ? nullptr : "m16";
      EXPECT_EQ(mup_log_file_get(out().c_str(), 1, module, 9), 0);
      const std::string copy = bytes_of(out());
      if (copy.find(headers[1].manufacturer) == std::string::npos) {
        EXPECT_EQ(copy.find(headers[1].sw_ver), std::string::npos);  // all of one header
      }
      expect_whole_lines(copy, kUsrMarker);
      EXPECT_EQ(mup_log_file_get(out().c_str(), 0, module, 9), 0);
      expect_whole_lines(bytes_of(out()), kSysMarker);
    }
  });
  bodies.emplace_back([] {
    for (int i = 0; i < 60; i++) {
      EXPECT_EQ(mup_log_level_set(0, ("m" + std::to_string(i % 21)).c_str(), MUP_LOG_SET_RECORD,
                                  static_cast<uint8_t>(8 - i % 3)),
                0);
      EXPECT_EQ(mup_log_usr_set(1), 0);
      if (i % 15 == 0) mup_log_usr_clean();
      if (i % 20 == 0) mup_log_show(0, 1);
    }
  });
  {
    const Console console;
    run_together(bodies);
  }
  expect_whole_records(ctrl->sys_ring, MUP_LOG_SYS_NUM);
  expect_whole_records(ctrl->usr_ring, MUP_LOG_USR_NUM);
  ctrl->dirty = 3;
  save();
  expect_whole_lines(bytes_of(sys()), kSysMarker);
  expect_whole_lines(bytes_of(usr()), kUsrMarker);
}

TEST_F(LogFilesThreads, TheTimerSavesWhileEightThreadsLog) {
  constexpr unsigned kEach = 100;
  std::vector<std::function<void()>> bodies;
  for (unsigned i = 0; i < kThreads; i++) bodies.push_back(logger(i, kEach));
  {
    const Console console;
    bodies.emplace_back([this] { clock.scan(1200); });  // twelve seconds: four saves and the first
    run_together(bodies);
  }
  clock.scan(300);
  EXPECT_EQ(ctrl->dirty, 0);
  EXPECT_EQ(expect_whole_lines(bytes_of(sys()), kSysMarker), kThreads / 2 * kEach);
  EXPECT_EQ(expect_whole_lines(bytes_of(usr()), kUsrMarker), kThreads / 2 * kEach);
}
