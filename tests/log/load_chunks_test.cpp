// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reading the files back into the rings: every length of a file, every position of a chunk's end in a record, files
// that fill a ring, and damaged files.

#include <utility>

#include "log/load.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

using LogStoreLoad = LoadedFiles;

// Lines with the texts "0", "1", ..., and their records.
std::pair<std::string, Records> numbered(int count) {
  std::pair<std::string, Records> both;
  for (int i = 0; i < count; i++) {
    both.first += good(std::to_string(i));
    both.second.push_back(good_record(std::to_string(i)));
  }
  return both;
}

}  // namespace

// A file that begins with "SysLog:\n" and holds records of several sizes, cut at every byte.
TEST_F(LogStoreLoad, CutAtEveryByteItKeepsTheWholeLinesBefore) {
  const std::string whole = kSysMarker + good("a") + line_of("Debug", "m15", "second") + good(std::string(40, 'b')) +
                            line_of("Off", "m7", ":") + good("end");
  const Records all = {good_record("a"),
                       {15, 8, kTen, "second"},
                       good_record(std::string(40, 'b')),
                       {7, 0, kTen, ":"},
                       good_record("end")};
  for (size_t size = 0; size <= whole.size(); size++) {
    SCOPED_TRACE(size);
    const std::string file = whole.substr(0, size);
    const auto lines = std::count(file.begin(), file.end(), '\n');
    const auto kept = lines == 0 ? 0 : lines - 1;  // the first is the marker
    ASSERT_NO_FATAL_FAILURE(expect_system_load(file, {all.begin(), all.begin() + kept}));
  }
}

TEST_F(LogStoreLoad, AUserFileCutAtEveryByteKeepsTheWholeLinesBefore) {
  const std::string header = "Manufacturer:a;\nIP:b;\n\n";
  const std::string whole = header + good("a") + line_of("Debug", "m16", "second") + good("end");
  const Records all = {good_record("a"), {16, 8, kTen, "second"}, good_record("end")};
  for (size_t size = 0; size <= whole.size(); size++) {
    SCOPED_TRACE(size);
    const std::string file = whole.substr(0, size);
    const auto kept = std::max<long>(std::count(file.begin(), file.end(), '\n') - 3, 0);
    ASSERT_NO_FATAL_FAILURE(expect_user_load(file, {all.begin(), all.begin() + kept}));
  }
}

TEST_F(LogStoreLoad, ChunksMayEndAtEveryByteOfARecord) {
  const std::string tail = line_of("Warning", "m1", "over the edge") + good("next");
  const Records tail_records = {{1, 5, kTen, "over the edge"}, good_record("next")};
  // After the first read, where only the bytes after the marker are held, and after later ones.
  for (const size_t edge : std::vector<size_t>{512, 1024, 1536}) {
    for (size_t begin = edge - tail.size() - 1; begin <= edge + 1; begin++) {
      SCOPED_TRACE(testing::Message() << "tail at " << begin << " over " << edge);
      std::string file = kSysMarker;
      Records records;
      while (begin - file.size() > 300) {
        file += line_of_size(200);
        records.push_back(record_of_size(200));
      }
      const size_t rest = begin - file.size();
      file += line_of_size(rest);
      records.push_back(record_of_size(rest));
      file += tail;
      records.insert(records.end(), tail_records.begin(), tail_records.end());
      if (file.size() == 512) continue;  // loads nothing
      ASSERT_NO_FATAL_FAILURE(expect_system_load(file, records));
    }
  }
}

TEST_F(LogStoreLoad, TakesNothingFromAFileOf512Bytes) {
  // After a full first read the file is read again; the second read gets nothing and ends the load.
  for (const size_t size : std::vector<size_t>{511, 512, 513}) {
    SCOPED_TRACE(size);
    Records records = {good_record("a"), record_of_size(size - 8 - good("a").size())};
    std::string file = good("a") + line_of_size(size - 8 - good("a").size());
    expect_system_load(kSysMarker + file, size == 512 ? Records() : records);
    expect_user_load("header" + (kUsrMarker + file), size == 512 ? Records() : records);
  }
}

TEST_F(LogStoreLoad, ATailOf512BytesIsHeldAndOneOf513FailsTheParse) {
  // 100 bytes before the tail's line in the first read; the file ends within the second or third.
  const std::string before = kSysMarker + line_of_size(504 - 300) + line_of_size(300);
  ASSERT_EQ(before.size(), 512u);
  const Records records = {record_of_size(504 - 300), record_of_size(300)};
  const std::string fail = "Log file:/overlay/mu_log.txt Parse fail\n";
  std::string tail = line_of_size(513);
  tail.pop_back();
  ASSERT_EQ(tail.size(), 512u);
  expect_system_load(before + tail, records);  // 512 bytes, never finished
  Records more = records;
  more.push_back(record_of_size(513));
  expect_system_load(before + tail + "\n", more);  // finished in the next read
  more.push_back(good_record("next"));
  expect_system_load(before + tail + "\n" + good("next"), more);
  expect_system_load(before + tail + "x", records, fail);  // 513, unfinished
  expect_system_load(before + tail + "x\n", {records[0], records[1], record_of_size(514)});
}

TEST_F(LogStoreLoad, LinesOf511And512BytesAreRead) {
  for (const size_t size : std::vector<size_t>{510, 511, 512, 513}) {
    for (const size_t first : std::vector<size_t>{200, 201, 350, 499, 500, 502, 503, 504}) {
      SCOPED_TRACE(testing::Message() << first << " then " << size);
      const std::string file = kSysMarker + line_of_size(first) + line_of_size(size, 'y') + good("next");
      const Loaded expected = load_model(file, kSysMarker, numbered_names(), MUP_LOG_SYS_NUM);
      ASSERT_FALSE(expected.parse_failed);  // as long as it ends within what is held
      ASSERT_EQ(expected.records.size(), 3u);
      expect_system_load(file, {record_of_size(first), record_of_size(size, 'y'), good_record("next")});
    }
  }
}

TEST_F(LogStoreLoad, ALineOfMoreThan512BytesFailsTheParseWhereItsTailIsHeld) {
  const std::string fail = "Log file:/overlay/mu_log.txt Parse fail\n";
  // The first read holds 504 bytes of the line, the second 512 more, none of them a line feed.
  expect_system_load(kSysMarker + line_of_size(2000) + good("next"), {}, fail);
  // A record before it stays.
  expect_system_load(kSysMarker + good("a") + line_of_size(2000) + good("next"), {good_record("a")}, fail);
  // A line of 1000 bytes that ends within what is held is read.
  expect_system_load(kSysMarker + line_of_size(1000) + good("next"), {record_of_size(1000), good_record("next")});
  const std::string user_fail = "Log file:/overlay/user_log.txt Parse fail\n";
  expect_user_load(kUsrMarker + good("a") + line_of_size(2000), {good_record("a")}, user_fail);
}

TEST_F(LogStoreLoad, OneLongLineIsTreatedBySizeAndPlace) {
  for (const size_t before : std::vector<size_t>{0, 1, 400, 480, 503}) {
    for (const size_t size : std::vector<size_t>{505, 511, 512, 513, 514, 600, 1015, 1016, 1017, 1018, 1100}) {
      for (const bool finished : {true, false}) {
        SCOPED_TRACE(testing::Message() << before << ", " << size << ", " << finished);
        std::string file = std::string(before, 'h') + kSysMarker + line_of_size(size);
        if (finished) {
          file += good("next");
        } else {
          file.pop_back();
        }
        ASSERT_NO_FATAL_FAILURE(expect_as_read(file));
      }
    }
  }
}

TEST_F(LogStoreLoad, AShortTailOfTextWithoutRecordsIsNotAFailure) {
  expect_system_load(kSysMarker + std::string(503, 'x'), {});
  expect_system_load(kSysMarker + std::string(504, 'x'), {});
  expect_system_load(kSysMarker + std::string(512, 'x'), {});
  expect_system_load(kSysMarker + std::string(513, 'x'), {}, "Log file:/overlay/mu_log.txt Parse fail\n");
}

TEST_F(LogStoreLoad, AFileThatFillsTheRingSetsTheIndexToZero) {
  auto [file, records] = numbered(MUP_LOG_SYS_NUM);
  expect_system_load(kSysMarker + file, records);
  EXPECT_EQ(ctrl->sys_idx, 0u);
  log_text(0, 4, "overwrites the oldest");
  EXPECT_EQ(text_of(ctrl->sys_ring[0]), "overwrites the oldest");
}

TEST_F(LogStoreLoad, AFileLongerThanItsRingStopsAtTheRingsSize) {
  auto [file, records] = numbered(MUP_LOG_SYS_NUM + 30);
  records.resize(MUP_LOG_SYS_NUM);
  expect_system_load(kSysMarker + file, records);
  records.resize(MUP_LOG_USR_NUM);
  expect_user_load(kUsrMarker + file, records);
  EXPECT_EQ(ctrl->usr_idx, 0u);
  EXPECT_STREQ(ctrl->usr_path, "/overlay/user_log.txt");  // the field after the ring
}

TEST_F(LogStoreLoad, OneRecordLessThanTheRingKeepsItsLastSlotFree) {
  auto [file, records] = numbered(MUP_LOG_USR_NUM - 1);
  expect_user_load(kUsrMarker + file, records);
  EXPECT_EQ(ctrl->usr_idx, 511u);
}

TEST_F(LogStoreLoad, DamagedFilesLoadAsTheModelSays) {
  Random random(20260102);
  const auto below = [&random](size_t bound) { return static_cast<size_t>(random.below(bound)); };
  const std::string alphabet = std::string("\n\n-[]: \0x2m0E", 13);
  for (int round = 0; round < 150; round++) {
    SCOPED_TRACE(round);
    std::string file = below(2) == 0 ? kSysMarker : "SysLog:\n\n";
    if (below(3) == 0) file = std::string(kEmptyHeader) + kSysMarker;
    if (below(4) == 0) file = "SysLog:\n" + std::string(below(500), 'h') + kUsrMarker;
    while (file.size() < 2000) {
      file += line_of(kLevelNames[below(9)], "m" + std::to_string(below(21)),
                      std::string(below(6) == 0 ? below(600) : below(60), 't'));
    }
    for (size_t wounds = below(3); wounds > 0; wounds--) {
      const size_t at = below(file.size());
      switch (below(3)) {
        case 0:
          file[at] = alphabet[below(alphabet.size())];
          break;
        case 1:
          file.erase(at, below(20));
          break;
        default:
          file.insert(at, 1, alphabet[below(alphabet.size())]);
          break;
      }
    }
    if (below(2) == 0) file.resize(below(file.size()));
    ASSERT_NO_FATAL_FAILURE(expect_as_read(file));
    if (HasFailure()) break;
  }
}
