// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Whatever is logged, a save and a start give the rings that the formats imply: a model of both is the reference.

#include <deque>

#include "log/file_model.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

constexpr size_t kSysSize = MUP_LOG_SYS_NUM;
constexpr size_t kUsrSize = MUP_LOG_USR_NUM;

// A ring as a list of its slots, oldest first. An empty text takes a slot too.
struct Ring {
  size_t size;
  std::deque<Record> slots;

  void store(const Record &record) {
    slots.push_back(record);
    if (slots.size() > size) slots.pop_front();
  }

  // Replaces the line ends as a save does, and returns the lines that it writes.
  std::string save(const Names &names) {
    std::string lines;
    for (Record &record : slots) {
      for (char &c : record.text) {
        if (c == '\r' || c == '\n') c = ' ';
      }
      if (!record.text.empty()) lines += file_line(record, names);
    }
    return lines;
  }

  void load(const Records &records) { slots.assign(records.begin(), records.end()); }
};

std::string random_text(Random &random) {
  static const std::string kPieces[] = {"\n",   "\r\n",      "[Error]m0:",   "]",  ":", "%s%n", "2026-01-02 10:00:00",
                                        "\n\n", "SysLog:\n", "\x7f\x80\xff", "\t", " "};
  std::string text;
  const uint64_t wanted = random.below(8) == 0 ? 200 + random.below(400) : random.below(40);
  while (text.size() < wanted) {
    if (random.below(3) == 0) {
      text += kPieces[random.below(std::size(kPieces))];
    } else {
      text += static_cast<char>(1 + random.below(255));
    }
  }
  return text;
}

// With `odd`, some of the names cannot be read back: a colon in the name, an empty one, or another module's.
Names random_names(Random &random, bool odd) {
  Names names = numbered_names();
  if (!odd) return names;
  const char *const odd_names[] = {"", "a:b", ":", "m0", "x]y", "[z", "Error", "with blank", "abcdefghijklmno"};
  for (int i = 0; i < 4; i++) names[random.below(names.size())] = odd_names[random.below(std::size(odd_names))];
  return names;
}

class LogFilesModel : public StartedLogFiles {
 protected:
  // Several lives of a device: messages, a save, a start that reads what was saved.
  void live(unsigned seed, const char *zone, bool odd_names) {
    Random random(seed);
    Ring system = {kSysSize, {}};
    Ring user = {kUsrSize, {}};
    const Names names = random_names(random, odd_names);
    set_zone(zone);
    start(names);
    time_t now = 1774740000;  // an hour and forty minutes before clocks change in Europe
    for (int life = 0; life < 4; life++) {
      SCOPED_TRACE(testing::Message() << "seed " << seed << ", life " << life);
      const uint64_t messages = life == 2 ? 2300 : random.below(300);
      bool system_changed = false;
      bool user_changed = false;
      for (uint64_t i = 0; i < messages; i++) {
        if (random.below(3) == 0) now += static_cast<time_t>(random.below(400));
        clock.set_wall(now);
        const auto module = static_cast<unsigned>(random.below(21));
        const auto level = static_cast<unsigned>(random.below(9));
        const std::string text = random_text(random);
        log_text(module, level, text);
        (module < 16 ? system : user).store({module, level, now, text.substr(0, 255)});
        (module < 16 ? system_changed : user_changed) = true;
      }
      ASSERT_EQ(ctrl->dirty, (system_changed ? 1 : 0) | (user_changed ? 2 : 0));
      save();
      if (system_changed) {
        ASSERT_TRUE(bytes_of(sys()) == kSysMarker + system.save(names));
      }
      if (user_changed) {
        ASSERT_TRUE(bytes_of(usr()) == kEmptyHeader + user.save(names));
      }

      const std::string printed = start(names);
      ASSERT_EQ(printed, start_line(21));
      system.load(load_model(bytes_of(sys()), kSysMarker, names, kSysSize).records);
      user.load(load_model(bytes_of(usr()), kUsrMarker, names, kUsrSize).records);
      ASSERT_NO_FATAL_FAILURE(expect_system({system.slots.begin(), system.slots.end()}));
      ASSERT_NO_FATAL_FAILURE(expect_user({user.slots.begin(), user.slots.end()}));
    }
  }
};

}  // namespace

TEST_F(LogFilesModel, LivesInUtc) { live(1, "UTC0", false); }

TEST_F(LogFilesModel, LivesInAZoneWithDaylightSaving) { live(2, "CET-1CEST,M3.5.0,M10.5.0/3", false); }

TEST_F(LogFilesModel, LivesOnTheOtherSideOfTheWorld) { live(3, "<+14>-14", false); }

TEST_F(LogFilesModel, LivesWithNamesThatCannotAllBeReadBack) { live(4, "EST5EDT,M3.2.0,M11.1.0", true); }

TEST_F(LogFilesModel, LivesWithOtherNamesThatCannotAllBeReadBack) { live(5, "IST-5:30", true); }

TEST_F(LogFilesModel, InUtcNothingThatCanBeReadBackIsLost) {
  // Without the models: every message with a text comes back, if its module's name can be read back.
  Random random(6);
  Records system;
  Records user;
  for (int i = 0; i < 700; i++) {
    const auto module = static_cast<unsigned>(random.below(21));
    const auto level = static_cast<unsigned>(random.below(9));
    std::string text = "#" + random_text(random);
    log_text(module, level, text);
    text = text.substr(0, 255);
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    (module < 16 ? system : user).push_back({module, level, VirtualClock::kStart, text});
  }
  save();
  EXPECT_EQ(start(), start_line(21));
  expect_system(system);
  expect_user(user);
}
