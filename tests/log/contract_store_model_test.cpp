// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Whatever is logged: a save and a start give the rings that the formats imply, by a model of both.

#include <deque>
#include <random>

#include "contract_store.h"

using namespace tarn_test;

namespace {

constexpr size_t kSysSize = MUP_LOG_SYS_NUM;
constexpr size_t kUsrSize = MUP_LOG_USR_NUM;

// A ring as a list of its slots, oldest first; empty texts take slots as well.
struct Ring {
  size_t size;
  std::deque<Record> slots;

  void store(const Record &record) {
    slots.push_back(record);
    if (slots.size() > size) slots.pop_front();
  }

  // What a save does to the texts, and the lines that it writes.
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

  void load(const std::vector<Record> &records) { slots.assign(records.begin(), records.end()); }
};

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  size_t below(size_t bound) { return static_cast<size_t>(engine_() % bound); }

  std::string text() {
    static const std::string kPieces[] = {"\n",   "\r\n",      "[Error]m0:",   "]",  ":", "%s%n", "2026-01-02 10:00:00",
                                          "\n\n", "SysLog:\n", "\x7f\x80\xff", "\t", " "};
    std::string text;
    const size_t wanted = below(8) == 0 ? 200 + below(400) : below(40);
    while (text.size() < wanted) {
      if (below(3) == 0) {
        text += kPieces[below(std::size(kPieces))];
      } else {
        text += static_cast<char>(1 + below(255));
      }
    }
    return text;
  }

  // Names of which some cannot be read back: with a colon, empty, or another's.
  Names names(bool odd) {
    Names names = numbered_names();
    if (!odd) return names;
    const char *const odd_names[] = {"", "a:b", ":", "m0", "x]y", "[z", "Error", "with blank", "abcdefghijklmno"};
    for (int i = 0; i < 4; i++) names[below(names.size())] = odd_names[below(std::size(odd_names))];
    return names;
  }

 private:
  std::mt19937 engine_;
};

// Several lives of a device: messages, a save, a start that reads what was saved.
void live(unsigned seed, const char *zone, bool odd_names) {
  Store store;
  Random random(seed);
  Ring system = {kSysSize, {}};
  Ring user = {kUsrSize, {}};
  const Names names = random.names(odd_names);
  Store::set_zone(zone);
  store.start(names);
  time_t now = 1774740000;  // an hour and forty minutes before clocks change in Europe
  for (int life = 0; life < 4; life++) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", life " << life);
    const size_t messages = life == 2 ? 2300 : random.below(300);
    bool system_changed = false;
    bool user_changed = false;
    for (size_t i = 0; i < messages; i++) {
      if (random.below(3) == 0) now += static_cast<time_t>(random.below(400));
      store.clock.set_wall(now);
      const auto module = static_cast<unsigned>(random.below(21));
      const auto level = static_cast<unsigned>(random.below(9));
      const std::string text = random.text();
      log_text(module, level, text);
      (module < 16 ? system : user).store({module, level, now, text.substr(0, 255)});
      (module < 16 ? system_changed : user_changed) = true;
    }
    ASSERT_EQ(store.ctrl->dirty, (system_changed ? 1 : 0) | (user_changed ? 2 : 0));
    ASSERT_EQ(mup_log_usr_savefile(), 0);
    if (system_changed) {
      ASSERT_TRUE(Store::bytes_of(store.sys()) == kSysMarker + system.save(names));
    }
    if (user_changed) {
      ASSERT_TRUE(Store::bytes_of(store.usr()) == kEmptyHeader + user.save(names));
    }

    const std::string printed = store.start(names);
    ASSERT_EQ(printed, start_line(21));
    system.load(load_model(Store::bytes_of(store.sys()), kSysMarker, names, kSysSize).records);
    user.load(load_model(Store::bytes_of(store.usr()), kUsrMarker, names, kUsrSize).records);
    ASSERT_NO_FATAL_FAILURE(store.expect_system({system.slots.begin(), system.slots.end()}));
    ASSERT_NO_FATAL_FAILURE(store.expect_user({user.slots.begin(), user.slots.end()}));
  }
}

}  // namespace

TEST(LogStoreModelContract, LivesInUtc) { live(1, "UTC0", false); }

TEST(LogStoreModelContract, LivesInAZoneWithDaylightSaving) { live(2, "CET-1CEST,M3.5.0,M10.5.0/3", false); }

TEST(LogStoreModelContract, LivesOnTheOtherSideOfTheWorld) { live(3, "<+14>-14", false); }

TEST(LogStoreModelContract, LivesWithNamesThatCannotAllBeReadBack) { live(4, "EST5EDT,M3.2.0,M11.1.0", true); }

TEST(LogStoreModelContract, LivesWithOtherNamesThatCannotAllBeReadBack) { live(5, "IST-5:30", true); }

TEST(LogStoreModelContract, InUtcNothingThatCanBeReadBackIsLost) {
  // Without the models: every message whose name can be read back, and which has a text, comes back.
  Store store;
  Random random(6);
  store.start();
  std::vector<Record> system;
  std::vector<Record> user;
  for (int i = 0; i < 700; i++) {
    const auto module = static_cast<unsigned>(random.below(21));
    const auto level = static_cast<unsigned>(random.below(9));
    std::string text = "#" + random.text();
    log_text(module, level, text);
    text = text.substr(0, 255);
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    (module < 16 ? system : user).push_back({module, level, VirtualClock::kStart, text});
  }
  ASSERT_EQ(mup_log_usr_savefile(), 0);
  EXPECT_EQ(store.start(), start_line(21));
  store.expect_system(system);
  store.expect_user(user);
}
