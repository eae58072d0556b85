// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Log files copied out: filters, and times in the reader's zone.

#include <cerrno>
#include <cstring>

#include "store_files.h"

using namespace tarn_test;

namespace {

class LogFileGet : public LogStoreTest {
 protected:
  LogFileGet() { start(); }

  // What a copy of the system file with this content holds.
  std::string copy(const std::string &content, const char *module = nullptr, uint8_t level_count = 0) {
    write_file(sys_file, content);
    EXPECT_EQ(mup_log_file_get(out.c_str(), 0, module, level_count), 0);
    return read_file(out).value_or("no file");
  }

  const std::string out = overlay("copy.txt");
};

}  // namespace

TEST_F(LogFileGet, CopiesEitherFile) {
  write_file(sys_file, "SysLog:\n");
  write_file(usr_file, "Manufacturer:;\n");
  EXPECT_EQ(mup_log_file_get(out.c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(read_file(out), "SysLog:\n");
  EXPECT_EQ(mup_log_file_get(out.c_str(), -1, nullptr, 0), 0);
  EXPECT_EQ(read_file(out), "Manufacturer:;\n");
}

TEST_F(LogFileGet, RefusesANullPathAndALongModule) {
  {
    Console console;
    EXPECT_EQ(mup_log_file_get(nullptr, 0, nullptr, 0), 2);
    EXPECT_EQ(console.take().rfind("mup_log_file_get() _", 0), 0u);
  }
  EXPECT_EQ(mup_log_file_get(out.c_str(), 0, std::string(33, 'm').c_str(), 9), 2);
  EXPECT_FALSE(read_file(out));
  EXPECT_EQ(mup_log_file_get(out.c_str(), 0, std::string(32, 'm').c_str(), 9), 0);
}

TEST_F(LogFileGet, NeedsTheLog) {
  control().inited = 0;
  EXPECT_EQ(mup_log_file_get(out.c_str(), 0, nullptr, 0), 1);
  EXPECT_FALSE(read_file(out));
}

TEST_F(LogFileGet, ReturnsZeroWhenAFileDoesNotOpen) {
  Console console;
  EXPECT_EQ(mup_log_file_get(overlay("missing/copy.txt").c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  mup_log_file_remove();
  console.take();
  EXPECT_EQ(mup_log_file_get(out.c_str(), 0, nullptr, 0), 0);
  EXPECT_EQ(console.take(), "open file fail \n");
  EXPECT_EQ(read_file(out), "");
}

TEST_F(LogFileGet, TurnsTimesIntoLocalTime) {
  set_zone("XXX-2");
  EXPECT_EQ(copy("SysLog:\n2026-01-02 10:00:00[Error]m0:a\n2026-12-31 23:30:00[Error]m0:b\n"),
            "SysLog:\n2026-01-02 12:00:00[Error]m0:a\n2027-01-01 01:30:00[Error]m0:b\n");
}

TEST_F(LogFileGet, FollowsTheZonesClock) {
  set_zone("CET-1CEST,M3.5.0,M10.5.0/3");  // set forward on 2026-03-29, back on 2026-10-25, both at 01:00 UTC
  EXPECT_EQ(copy("2026-03-29 00:59:59[Error]m0:a\n2026-03-29 01:00:00[Error]m0:b\n"
                 "2026-10-25 00:59:59[Error]m0:c\n2026-10-25 01:00:00[Error]m0:d\n"),
            "2026-03-29 01:59:59[Error]m0:a\n2026-03-29 03:00:00[Error]m0:b\n"
            "2026-10-25 02:59:59[Error]m0:c\n2026-10-25 02:00:00[Error]m0:d\n");
}

// The day count against the system's own, for the first of each month and the last of February of 800 years.
TEST_F(LogFileGet, CountsDaysAsTheCalendarDoes) {
  set_zone("UTC0");
  std::string content;
  for (int year = 1600; year < 2400; year++) {
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    char line[80];
    for (int month = 1; month <= 12; month++) {
      snprintf(line, sizeof line, "%04d-%02d-01 12:34:56[Error]m0:x\n", year, month);
      content += line;
    }
    snprintf(line, sizeof line, "%04d-02-%d 00:00:00[Error]m0:x\n", year, leap ? 29 : 28);
    content += line;
  }
  EXPECT_EQ(copy(content), content);
}

TEST_F(LogFileGet, LeavesLinesAloneThatAreNoRecords) {
  const std::string content =
      "SysLog:\n"
      "2026-01-02 03:04:0\n"              // too short
      "2026-01-02 03.04.05[Error]m0:a\n"  // no stamp
      "2026/01-02 03:04:05[Error]m0:a\n"  // no first dash
      "2026-01/02 03:04:05[Error]m0:a\n"  // no second
      "\n"
      "2026-01";
  set_zone("XXX-2");
  EXPECT_EQ(copy(content), content);
  EXPECT_EQ(copy(content, "m1", 9), content);  // whatever the filter
}

TEST_F(LogFileGet, FiltersByModuleAndLevel) {
  const std::string head = "SysLog:\n";
  std::string all = head, errors = head;
  for (const char *level : {"Off", "Emergency", "Alert", "Critical", "Error", "Warning", "Notice", "Info", "Debug"}) {
    const std::string line = std::string("2026-01-02 03:04:05[") + level + "]m1:text\n";
    all += line;
    if (strchr("OEAC", level[0]) != nullptr) errors += line;
  }
  const std::string other =
      "2026-01-02 03:04:05[Error]m2:text\n"
      "2026-01-02 03:04:05[Error]m11:text\n";
  EXPECT_EQ(copy(all + other, "m1", 5), errors);
  EXPECT_EQ(copy(all + other, "m1", 9), all);
  EXPECT_EQ(copy(all + other, "m1", 255), all);  // as 9
  EXPECT_EQ(copy(all + other, "m1", 0), head);
}

TEST_F(LogFileGet, FindsALevelAnywhereInTheLine) {
  const std::string line = "2026-01-02 03:04:05[Debug]m1:an Error message\n";
  EXPECT_EQ(copy(line, "m1", 4), "");
  EXPECT_EQ(copy(line, "m1", 5), line);
}

TEST_F(LogFileGet, TakesLongLinesInPieces) {
  set_zone("XXX-2");
  const std::string first = "2026-01-02 03:04:05[Error]m1:" + std::string(290, 'x');  // 319 bytes: a piece
  const std::string second = "2026-01-02 03:04:05[Error]m2:y\n";                      // looks like a record
  const std::string moved = "2026-01-02 05:04:05";
  EXPECT_EQ(copy(first + second), moved + first.substr(19) + moved + second.substr(19));
  EXPECT_EQ(copy(first + second, "m1", 9), moved + first.substr(19));
}

TEST_F(LogFileGet, CutsAYearOfFiveDigitsToTheWidthOfTheStamp) {
  set_zone("XXX-2");
  EXPECT_EQ(copy("9999-12-31 23:00:00[Error]m1:x\n"), "10000-01-01 01:00:0[Error]m1:x\n");
}
