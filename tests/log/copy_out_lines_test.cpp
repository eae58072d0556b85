// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mup_log_file_get: the lines of a copy, whole or in pieces, and the times in them.

#include "log/file_model.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

using LogFileGet = StartedLogFiles;

}  // namespace

TEST_F(LogFileGet, LinesOfEveryLengthAreCopiedWhole) {
  for (const size_t size :
       std::vector<size_t>{300, 317, 318, 319, 320, 321, 500, 637, 638, 639, 640, 956, 957, 958, 1000}) {
    SCOPED_TRACE(size);
    std::string line = line_of("Error", "m1", "");
    line.insert(line.size() - 1, size - line.size(), 'x');
    const std::string file = std::string(kSysMarker).append(line).append(line_of("Error", "m1", "next")).append(line);
    ASSERT_EQ(copy_of(file), file);
    ASSERT_EQ(copy_of(file, "m1", 9), file);
    // The pieces after the first are not records: a filter that drops the record keeps them.
    const std::string rest = size > 319 ? line.substr(319) : "";
    ASSERT_EQ(copy_of(file, "m2", 9), std::string(kSysMarker).append(rest).append(rest));
    ASSERT_EQ(copy_of(file, "m2", 9), copy_model(file, "m2", 9));
  }
}

TEST_F(LogFileGet, APieceThatLooksLikeARecordIsTreatedAsOne) {
  std::string line = line_of("Error", "m1", "");
  line.insert(line.size() - 1, 319 - line.size() + 1, 'x');
  line.insert(line.size() - 1, kTenStamp + "[Debug]m2:second piece");
  ASSERT_EQ(line.substr(319), line_of("Debug", "m2", "second piece"));
  EXPECT_EQ(copy_of(line, "m1", 9), line.substr(0, 319));
  EXPECT_EQ(copy_of(line, "m2", 9), line.substr(319));
  set_zone("UTC-1");
  EXPECT_EQ(copy_of(line), "2026-01-02 11" + line.substr(13, 306) + "2026-01-02 11" + line.substr(319 + 13));
}

TEST_F(LogFileGet, LinesWithoutAReadableStampAreNotRecords) {
  set_zone("UTC-1");
  for (const char *line :
       {"2026-01-", "2026-01-02", "....-..-.. ..:..:..[Error]m1:a", "2026-01-02 10.00.00[Error]m1:a",
        "2026-01-02T10:00:00[Error]m1:a", "2026-01-02 10:00[Error]m1:aaaaaaaaaa", "2026-01-xx 10:00:00[Error]m1:a",
        "2026/01-02 10:00:00[Error]m1:a", "2026-01/02 10:00:00[Error]m1:a", "    -  -           "}) {
    SCOPED_TRACE(line);
    const std::string file = line + std::string("\n") + line;
    EXPECT_EQ(copy_of(file), file);
    EXPECT_EQ(copy_of(file, "m2", 9), file);  // and in every filtered copy
  }
}

TEST_F(LogFileGet, ALineOf18CharactersIsNotARecordThoughItsStampCanBeRead) {
  // The local stamp would be written over its line feed.
  set_zone("UTC-1");
  const std::string file = "2026-01-02 10:00:0\n2026-01-02 10:00:0";
  EXPECT_EQ(copy_of(file), file);
  EXPECT_EQ(copy_of(file, "m2", 9), file);
}

TEST_F(LogFileGet, OddStampsAreReadAsScanfReadsThem) {
  for (const char *zone : {"UTC0", "UTC-2", "EST5EDT,M3.2.0,M11.1.0"}) {
    set_zone(zone);
    for (const char *stamp :
         {"2026-1 -2 10:00:00",  "2026-13-02 10:00:00", "2026-00-00 00:00:00", "2026-02-31 24:60:60",
          "2026-99-99 99:99:99", "2026-01-02   10:0:0", "2026-01-0210:00:00 ", "2026--1--2 -1:-2:-3",
          "2026-01-02 1:2:3   ", "2026-01-02 10:00:7x", "0001-03-01 00:00:00", "0026-01-02 10:00:00",
          "  26-01-02 10:00:00", "+026-01-02 10:00:00", "2000-02-29 23:59:59", "1900-03-01 00:00:00",
          "1900-02-28 23:59:59", "9998-12-31 23:59:59", "1969-12-31 23:59:59", "2026-01-02 10:00:000"}) {
      SCOPED_TRACE(testing::Message() << zone << ": " << stamp);
      const std::string file = stamp + std::string("[Error]m1:text\n");
      EXPECT_EQ(copy_of(file), copy_model(file, nullptr, 0));
      EXPECT_EQ(copy_of(file, "m1", 9), copy_model(file, "m1", 9));
      EXPECT_EQ(copy_of(file, "m2", 9), copy_model(file, "m2", 9));
    }
  }
}

TEST_F(LogFileGet, AYearOfFiveDigitsFillsNoMoreThanTheStamp) {
  set_zone("UTC-2");
  EXPECT_EQ(copy_of("9999-12-31 23:30:00[Error]m1:a\n"), "10000-01-01 01:30:0[Error]m1:a\n");
}

TEST_F(LogFileGet, AStampWithNothingAfterItIsARecordLine) {
  set_zone("UTC-1");
  EXPECT_EQ(copy_of(kTenStamp), "2026-01-02 11:00:00");
  EXPECT_EQ(copy_of(kTenStamp + "\n"), "2026-01-02 11:00:00\n");
  EXPECT_EQ(copy_of(kTenStamp + "\n", "m1", 9), "");
}

TEST_F(LogFileGet, TheLocalStampIsWrittenBeforeTheFilterIsApplied) {
  // A stamp cannot hold a module or a level, but a short stamp is followed by other text within its 19 characters.
  const std::string line = "2026-01-02 1:2:3]m1:Off\n";
  EXPECT_EQ(copy_of(line, "m1", 9), "");  // the stamp is written over "]m1"
  EXPECT_EQ(copy_of(line), "2026-01-02 01:02:03:Off\n");
}

TEST_F(LogFileGet, RandomFilesAreCopiedAsTheModelSays) {
  Random random(319);
  const auto below = [&random](size_t bound) { return static_cast<size_t>(random.below(bound)); };
  set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  for (int round = 0; round < 60; round++) {
    SCOPED_TRACE(round);
    std::string file = below(2) == 0 ? kSysMarker : kEmptyHeader;
    for (size_t lines = below(30); lines > 0; lines--) {
      std::string line = line_of(kLevelNames[below(9)], "m" + std::to_string(below(4)),
                                 std::string(below(5) == 0 ? 250 + below(800) : below(30), 'x'));
      line[5] = static_cast<char>('0' + below(2));
      line[6] = static_cast<char>('1' + below(2));
      if (below(4) == 0) line.insert(below(line.size()), kLevelNames[below(9)]);
      if (below(6) == 0) line[below(22)] = "-:0[] x"[below(7)];
      file += line;
    }
    const std::string module = "m" + std::to_string(below(4));
    const auto levels = static_cast<unsigned>(below(11));
    ASSERT_EQ(copy_of(file, module.c_str(), levels), copy_model(file, module.c_str(), levels));
    ASSERT_EQ(copy_of(file), copy_model(file, nullptr, 0));
  }
}
