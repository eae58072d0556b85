// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log with its files: its start, what is saved, what is read back.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "store_files.h"
#include "support/heap.h"
#include "tarn/platform.h"
#include "tarn/timer.h"

using namespace tarn_test;

namespace {

constexpr const char *kInitOk = "mu-log: init usr log OK (module_num 21, max_log_num 1024, save_log_timer 3 seconds)\n";
constexpr const char *kStamp = "2026-01-02 03:04:05";  // of VirtualClock::kStart

using LogStore = LogStoreTest;
using LogStoreLoad = LogStoreTest;
using LogStoreSave = LogStoreTest;
using LogStoreHeader = LogStoreTest;

std::string line(const std::string &text, const std::string &source = "[Error]m0:") {
  return kStamp + source + text + '\n';
}

using Strings = std::vector<std::string>;

// Seconds of a time of day.
constexpr time_t seconds(time_t hour, time_t minute = 0, time_t second = 0) {
  return (hour * 60 + minute) * 60 + second;
}

constexpr time_t kMidnight = VirtualClock::kStart - seconds(3, 4, 5);  // 2026-01-02 00:00:00 UTC

// What the user file holds before its records while no description is set.
const std::string kNoHeader = "Manufacturer:;\nProductClass:;\nSerialNumber:;\nIP:;\nHWVer:;\nSWVer:;\n\n";

}  // namespace

TEST_F(LogStore, MakesMissingFiles) {
  const std::string printed = start();
  EXPECT_EQ(printed,
            std::string("Log file:/overlay/mu_log.txt init\n") + "Log file:/overlay/user_log.txt init\n" + kInitOk);
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));
  EXPECT_EQ(read_file(usr_file), "");
  EXPECT_EQ(control().dirty, 0);
}

TEST_F(LogStore, ReadsAFreshSystemFileAsEmpty) {
  write_file(sys_file, std::string("SysLog:\n\0", 9));
  write_file(usr_file, "");
  EXPECT_EQ(start(), kInitOk);
  EXPECT_EQ(sys_texts(), Strings());
  EXPECT_EQ(control().sys_idx, 0u);
}

TEST_F(LogStore, TellsOfFilesThatCannotBeMade) {
  rmdir(overlay("").c_str());
  EXPECT_EQ(start(),
            std::string("Log file:/overlay/mu_log.txt init\n") + "Log file:/overlay/user_log.txt init\n" + kInitOk);
}

TEST_F(LogStore, MakesAFileThatDoesNotOpen) {
  write_file(sys_file, "SysLog:\n" + line("kept?"));
  Replace refuse(libc::fopen, [](const char *path, const char *mode) -> FILE * {
    if (strcmp(mode, "r") != 0) return libc::fopen.real(path, mode);
    errno = EACCES;
    return nullptr;
  });
  start();
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));
}

TEST_F(LogStore, InstallsTheKernelsLevelHook) {
  Console console;
  mup_log_usr_init(21, module_table(21).c_str());
  EXPECT_EQ(control().level_hook, &mup_log_kern_level_set);
}

TEST_F(LogStore, LoadsNothingAndSavesNothingWithoutMemory) {
  write_file(sys_file, "SysLog:\n" + line("a"));
  Console console;
  HeapWatch heap;
  FailingMalloc no_memory(3);  // behind the module table and the mutex
  EXPECT_EQ(mup_log_usr_init(21, module_table(21).c_str()), 0);
  EXPECT_EQ(console.take(), "Log Malloc fail \n");
  EXPECT_EQ(control().inited, 1);
  EXPECT_EQ(control().level_hook, &mup_log_kern_level_set);
  EXPECT_EQ(sys_texts(), Strings());
  EXPECT_EQ(timer_initialized, 0u);
}

TEST_F(LogStore, GoesOnAfterACoreThatDidNotStart) {
  Console console;
  EXPECT_EQ(mup_log_usr_init(21, nullptr), 0);  // no paths, so no files
  const std::string printed = console.take();
  EXPECT_NE(printed.find("assert fail\nLog file: init\nLog file: init\nmu-log: init usr log OK"), std::string::npos)
      << printed;
  EXPECT_EQ(timer_initialized, 1u);
  EXPECT_EQ(control().inited, 0);
}

TEST_F(LogStore, MakesTheFilesWithoutAMutex) {
  Console console;
  FailingMalloc no_mutex(2);
  EXPECT_EQ(mup_log_usr_init(21, module_table(21).c_str()), 0);
  EXPECT_EQ(console.take(),
            "create mutex error \r\nLog file:/overlay/mu_log.txt init\n"
            "Log file:/overlay/user_log.txt init\n" +
                std::string(kInitOk));
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));
}

TEST_F(LogStore, SavesEveryThreeSeconds) {
  start();
  clock_.scan();  // the first scan finds every timer due
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "one");
  clock_.run_ms(2990);
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));
  clock_.run_ms(20);
  EXPECT_EQ(read_file(sys_file), "SysLog:\n" + line("one"));
  EXPECT_EQ(read_file(usr_file), "");  // unchanged, so not written
}

TEST_F(LogStore, ReadsTheTimesBackAsLocalTime) {
  set_zone("XXX-2");  // two hours ahead of UTC
  write_file(sys_file, "SysLog:\n2026-01-02 10:00:00[Error]m0:a\n");
  start();
  EXPECT_EQ(control().sys_ring[0].time, kMidnight + seconds(8));
}

TEST_F(LogStore, KeepsALogOverARestart) {
  start();
  mup_log_msg(0, 3, MUP_LOG_NOTICE, 42, "system");
  mup_log_msg(0, 17, MUP_LOG_OFF, 0, "user");
  mup_log_usr_savefile();
  start();  // from the files
  EXPECT_EQ(control().sys_idx, 1u);
  EXPECT_EQ(control().usr_idx, 1u);
  EXPECT_EQ(control().dirty, 0);
  const mup_log_rec &system = control().sys_ring[0];
  EXPECT_EQ(system.module, 3);
  EXPECT_EQ(system.level, MUP_LOG_NOTICE);
  EXPECT_EQ(system.line, 0u);
  EXPECT_EQ(system.time, VirtualClock::kStart);
  EXPECT_STREQ(system.text, "system");
  const mup_log_rec &user = control().usr_ring[0];
  EXPECT_EQ(user.module, 17);
  EXPECT_EQ(user.level, MUP_LOG_OFF);
  EXPECT_STREQ(user.text, "user");
}

TEST_F(LogStoreLoad, StopsAtTheFirstLineThatIsNoRecord) {
  for (const std::string &bad : {
           line("x", "[Error]gone:"),               // no such module
           line("x", "[Fatal]m0:"),                 // no such level
           line("x", "[]m0:"),                      // no level
           line("x", "Error]m0:"),                  // no bracket: no names
           line("x", "[Error m0:"),                 // the level has no end
           line("x", "[ErrorErrorErrorError]m0:"),  // longer than any name
           std::string("2026/01-02 03:04:05[Error]m0:x\n"),
           std::string("2026-01/02 03:04:05[Error]m0:x\n"),
           std::string("2026-01\n"),
           std::string("2026-01-02 03:04[Error]m0:x\n"),  // the time stamp does not parse
           std::string("\n"),
       }) {
    write_file(sys_file, "SysLog:\n" + line("kept") + bad + line("lost"));
    start();
    EXPECT_EQ(sys_texts(), Strings{"kept"}) << bad;
    EXPECT_EQ(control().sys_idx, 1u) << bad;
  }
}

TEST_F(LogStoreLoad, GivesTheSlotOfAnEmptyTextToTheNextLine) {
  write_file(sys_file, "SysLog:\n" + line("") + line("", "[Error]m0") + line("text"));
  start();
  EXPECT_EQ(sys_texts(), Strings{"text"});
  EXPECT_EQ(control().sys_idx, 1u);
}

TEST_F(LogStoreLoad, CutsATextAt255Characters) {
  write_file(sys_file, "SysLog:\n" + line(std::string(300, 'x')));
  start();
  EXPECT_EQ(sys_texts(), Strings{std::string(255, 'x')});
}

TEST_F(LogStoreLoad, EndsATextAtANul) {
  write_file(sys_file, "SysLog:\n" + line(std::string("a\0b", 3)) + line("c"));
  start();
  EXPECT_EQ(sys_texts(), (Strings{"a", "c"}));
}

TEST_F(LogStoreLoad, DropsAnUnfinishedLastLine) {
  write_file(sys_file, "SysLog:\n" + line("a") + kStamp + "[Error]m0:b");
  start();
  EXPECT_EQ(sys_texts(), Strings{"a"});
}

TEST_F(LogStoreLoad, TakesNothingFromFilesBelowNineBytes) {
  for (const char *content : {"", "S", "SysLog:\n", "12345678"}) {
    write_file(sys_file, content);
    EXPECT_EQ(start(), std::string("Log file:/overlay/user_log.txt init\n") + kInitOk);
    unlink(usr_file.c_str());
    EXPECT_EQ(control().sys_idx, 0u);
  }
}

TEST_F(LogStoreLoad, TakesNothingWithoutAMarker) {
  write_file(sys_file, "Syslog:\n" + line("a"));
  write_file(usr_file, "Manufacturer:;\n" + line("b", "[Error]m16:"));  // no empty line
  start();
  EXPECT_EQ(sys_texts(), Strings());
  EXPECT_EQ(usr_texts(), Strings());
}

TEST_F(LogStoreLoad, SkipsWhatStandsBeforeTheMarker) {
  write_file(sys_file, "anything" + ("SysLog:\n" + line("a")));
  start();
  EXPECT_EQ(sys_texts(), Strings{"a"});
}

TEST_F(LogStoreLoad, MissesAMarkerThatEndsWithTheFirstChunk) {
  for (const size_t end : {511u, 512u, 513u}) {
    write_file(sys_file, std::string(end - 8, 'x') + "SysLog:\n" + line("a"));
    start();
    EXPECT_EQ(sys_texts(), end < 512 ? Strings{"a"} : Strings()) << end;
  }
}

TEST_F(LogStoreLoad, TakesNothingFromAFileOf512Bytes) {
  for (const size_t size : {511u, 512u, 513u}) {
    std::string content = "SysLog:\n" + line("a");
    content += line(std::string(size - content.size() - line("").size(), 'b'));
    write_file(sys_file, content);
    start();
    EXPECT_EQ(sys_texts().size(), size == 512 ? 0u : 2u) << size;
  }
}

TEST_F(LogStoreLoad, FailsAtATailOfMoreThanAChunk) {
  const std::string others = std::string("Log file:/overlay/user_log.txt init\n") + kInitOk;
  const std::string failed = "Log file:/overlay/mu_log.txt Parse fail\n";
  for (const size_t tail : {512u, 513u}) {
    // The first read, of 512 bytes, leaves 504 behind the marker, the second makes them 1016. The two records end where
    // the tail begins; with the third read it is a line, but no record.
    std::string content = "SysLog:\n" + line("a");
    content += line(std::string(8 + 1016 - tail - content.size() - line("").size(), 'b'));
    content.append(tail + 10, 'x');
    write_file(sys_file, content + '\n');
    EXPECT_EQ(start(), (tail > 512 ? failed : "") + others);
    EXPECT_EQ(control().sys_idx, 2u);
    unlink(usr_file.c_str());
  }
}

TEST_F(LogStoreLoad, TakesALongLineThatIsComplete) {
  // 504 bytes behind the marker, then 512 more: a line of 700 bytes ends within them.
  write_file(sys_file, "SysLog:\n" + line(std::string(700 - line("").size(), 'x')) + line("b"));
  start();
  EXPECT_EQ(sys_texts(), (Strings{std::string(255, 'x'), "b"}));
}

TEST_F(LogStoreLoad, StopsAtTheRingsSize) {
  std::string content = kNoHeader;
  for (int i = 0; i < MUP_LOG_USR_NUM + 3; i++) content += line(std::to_string(i), "[Error]m16:");
  write_file(usr_file, content);
  start();
  EXPECT_EQ(usr_texts().size(), size_t{MUP_LOG_USR_NUM});
  EXPECT_STREQ(control().usr_ring[MUP_LOG_USR_NUM - 1].text, std::to_string(MUP_LOG_USR_NUM - 1).c_str());
  EXPECT_EQ(control().usr_idx, 0u);
}

TEST_F(LogStoreLoad, TakesADirectoryForAFileWithoutRecords) {
  mkdir(sys_file.c_str(), 0700);
  EXPECT_EQ(start(), std::string("Log file:/overlay/user_log.txt init\n") + kInitOk);
  EXPECT_EQ(control().sys_idx, 0u);
}

// Every time of two days around each change of the clock, as mktime turns it, whatever the line before was.
TEST_F(LogStoreLoad, ReadsTimesAsMktimeDoes) {
  for (const char *zone :
       {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "LHST-10:30LHDT-11,M10.1.0,M4.1.0", "NPT-5:45",
        "IST-1GMT0,M10.5.0,M3.5.0/1", "XXX3:17:41YYY2:59:13,J60/1:23:45,J300/2:34:56"}) {
    set_zone(zone);
    std::string content = "SysLog:\n";
    std::vector<time_t> expected;
    for (const char *day : {"2026-03-01", "2026-03-08", "2026-03-29", "2026-04-05", "2026-10-04", "2026-10-25",
                            "2026-10-27", "2026-11-01", "2026-02-30"}) {
      for (int step = 0; step < 100; step++) {
        const int second = step * 877;  // about a quarter of an hour, at any second
        char stamp[40];
        snprintf(stamp, sizeof stamp, "%s %02d:%02d:%02d", day, second / 3600, second / 60 % 60, second % 60);
        content += stamp + std::string("[Error]m0:x\n");
        tm fields = {};
        sscanf(stamp, "%d-%d-%d %d:%d:%d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
               &fields.tm_min, &fields.tm_sec);
        fields.tm_year -= 1900;
        fields.tm_mon--;
        expected.push_back(mktime(&fields));
      }
    }
    write_file(sys_file, content);
    start();
    ASSERT_EQ(sys_texts().size(), expected.size());
    for (size_t i = 0; i < expected.size(); i++) ASSERT_EQ(control().sys_ring[i].time, expected[i]) << zone << ' ' << i;
  }
}

TEST_F(LogStoreLoad, ReadsTimesThatAreNotWrittenDigitForDigit) {
  const struct {
    const char *stamp;
    time_t time;
  } rows[] = {
      {"2026- 1- 2  3: 4: 5", kMidnight + seconds(3, 4, 5)},  // blanks before a number
      {"2026-01-02 3:4:5", kMidnight + seconds(3, 4, 5)},     // fewer digits
      {"2026-01-02 03:04:60", kMidnight + seconds(3, 5)},     // mktime carries
      {"2026-01-02 03:61:00", kMidnight + seconds(4, 1)},     {"2026-01-02 99:00:00", kMidnight + seconds(99)},
      {"2026-13-02 00:00:00", kMidnight + seconds(24) * 365}, {"2026-01-02x03:04:05", -1},  // no blank, no stamp
  };
  for (const auto &row : rows) {
    write_file(sys_file, std::string("SysLog:\n") + row.stamp + "[Error]m0:x\n");
    start();
    if (row.time < 0) {
      EXPECT_EQ(sys_texts(), Strings()) << row.stamp;
    } else {
      EXPECT_EQ(sys_texts(), Strings{"x"}) << row.stamp;
      EXPECT_EQ(control().sys_ring[0].time, row.time) << row.stamp;
    }
  }
}

TEST_F(LogStoreSave, DoesNothingWithoutAChange) {
  start();
  unlink(sys_file.c_str());
  unlink(usr_file.c_str());
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_FALSE(read_file(sys_file));
  EXPECT_FALSE(read_file(usr_file));
}

TEST_F(LogStoreSave, MakesOneLineOfAText) {
  start();
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "a\r\nb");
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(sys_file), "SysLog:\n" + line("a  b"));
  EXPECT_STREQ(control().sys_ring[0].text, "a  b");
}

TEST_F(LogStoreSave, WritesOldestFirst) {
  start();
  for (int i = 0; i < MUP_LOG_SYS_NUM + 2; i++) mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "%d", i);
  mup_log_usr_savefile();
  std::string expected = "SysLog:\n";
  for (int i = 2; i < MUP_LOG_SYS_NUM + 2; i++) expected += line(std::to_string(i));
  EXPECT_EQ(read_file(sys_file), expected);
}

TEST_F(LogStoreSave, WritesTimesInUtcWhateverTheZone) {
  set_zone("XXX+7");
  start();
  const struct {
    time_t time;
    const char *stamp;
  } rows[] = {
      {0, "1970-01-01 00:00:00"},
      {-1, "1969-12-31 23:59:59"},
      {951782399, "2000-02-28 23:59:59"},
      {253402300800, "10000-01-01 00:00:00"},
      {-62167219201, "-001-12-31 23:59:59"},
      {INT64_MAX, "1900-01-00 00:00:00"},  // no calendar reaches it
  };
  std::string expected = "SysLog:\n";
  for (const auto &row : rows) {
    clock_.set_wall(0);
    mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "x");
    control().sys_ring[control().sys_idx - 1].time = row.time;
    expected += std::string(row.stamp) + "[Error]m0:x\n";
  }
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(sys_file), expected);
}

TEST_F(LogStoreSave, LeavesUnknownNamesEmpty) {
  start();
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "x");
  control().sys_ring[0].level = 9;
  control().sys_ring[0].module = 99;
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(sys_file), "SysLog:\n" + line("x", "[]:"));
}

TEST_F(LogStoreSave, DoesNotTryAFileAgainThatDidNotOpen) {
  start();
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "a");
  mup_log_msg(0, 16, MUP_LOG_ERROR, 0, "b");
  {
    Replace refuse(libc::fopen, [](const char *, const char *) -> FILE * {
      errno = EROFS;
      return nullptr;
    });
    EXPECT_EQ(mup_log_usr_savefile(), 0);
  }
  EXPECT_EQ(control().dirty, 0);
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));
  EXPECT_EQ(read_file(usr_file), "");
}

TEST_F(LogStoreSave, SurvivesAFullDisk) {
  start();
  unlink(sys_file.c_str());
  ASSERT_EQ(symlink("/dev/full", sys_file.c_str()), 0);
  for (int i = 0; i < 200; i++) mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "%0200d", i);
  EXPECT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(control().dirty, 0);
  EXPECT_EQ(sys_texts().size(), 200u);
}

TEST_F(LogStoreHeader, StandsBeforeTheUserRecords) {
  start();
  mup_log_usr_header header = {};
  strcpy(header.manufacturer, "maker");
  strcpy(header.product_class, "gateway");
  strcpy(header.serial_number, "0001");
  strcpy(header.ip, "192.168.1.1");
  strcpy(header.hw_ver, "A");
  memset(header.sw_ver, 'v', sizeof header.sw_ver);  // no NUL
  EXPECT_EQ(mup_log_usr_header_set(&header), 0);
  EXPECT_EQ(control().dirty, 2);
  mup_log_usr_header read = {};
  EXPECT_EQ(mup_log_usr_header_get(&read), 0);
  EXPECT_EQ(memcmp(&read, &header, sizeof header), 0);
  mup_log_msg(0, 16, MUP_LOG_ERROR, 0, "record");
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(usr_file),
            "Manufacturer:maker;\nProductClass:gateway;\nSerialNumber:0001;\nIP:192.168.1.1;\nHWVer:A;\n"
            "SWVer:" +
                std::string(32, 'v') + ";\n\n" + line("record", "[Error]m16:"));
  EXPECT_EQ(read_file(sys_file), std::string("SysLog:\n\0", 9));  // unchanged, so not written
}

TEST_F(LogStoreHeader, RefusesNull) {
  start();
  Console console;
  EXPECT_EQ(mup_log_usr_header_set(nullptr), 2);
  EXPECT_EQ(console.take().rfind("mup_log_usr_header_set() _", 0), 0u);
  EXPECT_EQ(mup_log_usr_header_get(nullptr), 2);
  EXPECT_EQ(console.take().rfind("mup_log_usr_header_get() _", 0), 0u);
  EXPECT_EQ(control().dirty, 0);
}

TEST_F(LogStore, CleansTheUserRing) {
  EXPECT_EQ(mup_log_usr_clean(), 1);
  start();
  mup_log_msg(0, 16, MUP_LOG_ERROR, 0, "user");
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "system");
  EXPECT_EQ(mup_log_usr_clean(), 0);
  EXPECT_EQ(control().usr_idx, 0u);
  EXPECT_EQ(usr_texts(), Strings());
  EXPECT_EQ(sys_texts(), Strings{"system"});
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(usr_file), kNoHeader);
}

TEST_F(LogStore, RemovesTheFilesAndKeepsTheRings) {
  start();
  mup_log_msg(0, 0, MUP_LOG_ERROR, 0, "kept");
  Console console;
  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_EQ(mup_log_file_remove(), 0);
  EXPECT_EQ(console.take(), "remove the log file \nremove the log file \n");
  EXPECT_FALSE(read_file(sys_file));
  EXPECT_FALSE(read_file(usr_file));
  mup_log_usr_savefile();
  EXPECT_EQ(read_file(sys_file), "SysLog:\n" + line("kept"));
}
