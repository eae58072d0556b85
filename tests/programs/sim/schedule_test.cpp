// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// When commands are due, on the virtual clock.

#include "sim/launcher/schedule.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/virtual_clock.h"
#include "tarn/platform.h"

using namespace tarn_sim;
using tarn_test::VirtualClock;

namespace {

constexpr std::size_t kAll = 1000000;

std::vector<Line> lines_of(const std::string &script) {
  Names names(20);
  std::vector<Line> lines;
  std::istringstream texts(script);
  for (std::string text; std::getline(texts, text);) {
    bool is_blank = false;
    Fault fault;
    const auto line = parse_line(text, &names, &is_blank, &fault);
    EXPECT_TRUE(line) << text << ": " << fault.reason;
    lines.push_back(*line);
  }
  return lines;
}

// A schedule of `say` commands, and its clock.
class Play {
 public:
  explicit Play(const std::string &script)
      : schedule_(lines_of(script), mu_current_tick()), start_(mu_current_tick()) {}

  // The texts that are said now.
  std::string now(std::size_t most = kAll) {
    std::string said;
    for (const Command &command : schedule_.take(mu_current_tick(), ready, most)) {
      said += (said.empty() ? "" : " ") + command.text;
    }
    return said;
  }

  // The texts that are said in the next `ms`, each with its time since the start. The clock advances in steps of 10 ms.
  std::string during(std::int64_t ms) {
    std::string said;
    for (std::int64_t passed = 0; passed < ms; passed += 10) {
      clock.pass_ms(10);
      for (const Command &command : schedule_.take(mu_current_tick(), ready, kAll)) {
        said += (said.empty() ? "" : " ") + command.text + '@' + std::to_string((mu_current_tick() - start_) * 10);
      }
    }
    return said;
  }

  // The ms until the next command is due.
  std::optional<std::int64_t> next() const {
    const auto tick = schedule_.next();
    if (!tick) return std::nullopt;
    return (static_cast<std::int64_t>(*tick) - static_cast<std::int64_t>(mu_current_tick())) * 10;
  }

  void add(const std::string &text) { schedule_.add(lines_of(text)[0], mu_current_tick()); }

  VirtualClock clock;
  Readiness ready;

  Schedule &schedule() { return schedule_; }

 private:
  Schedule schedule_;
  std::uint64_t start_;
};

}  // namespace

TEST(Schedule, TakesALineWithoutATimeWithTheLineBefore) {
  Play play("say a\nsay b\nat 50ms say c\nsay d");
  EXPECT_EQ(play.now(), "a b");
  EXPECT_EQ(play.during(40), "");
  EXPECT_EQ(play.during(100), "c@50 d@50");
}

TEST(Schedule, CountsAtFromTheStartAndAfterFromTheLineBefore) {
  Play play("at 100ms say a\nafter 30ms say b\nat 50ms say c\nafter 10ms say d");
  EXPECT_EQ(play.now(), "");
  EXPECT_EQ(play.during(200), "c@50 d@60 a@100 b@130");
}

TEST(Schedule, KeepsTheOrderOfTheLinesAtOneTime) {
  Play play("at 20ms say c\nat 10ms say a\nat 20ms say d\nafter 0ms say e\nat 10ms say b");
  EXPECT_EQ(play.during(20), "a@10 b@10 c@20 d@20 e@20");
}

TEST(Schedule, RepeatsAtOnce) {
  Play play("at 10ms say a 3 times\nsay b 2 times");
  EXPECT_EQ(play.during(20), "a@10 a@10 a@10 b@10 b@10");
}

TEST(Schedule, RepeatsWithAPeriodFromTheTimeOfTheLineBefore) {
  Play play("at 20ms say a\nevery 30ms say b 3 times\nsay c\nafter 30ms say d");
  // The lines after it count from its first run. Commands that are due at the same time are in the order of their
  // lines.
  EXPECT_EQ(play.during(200), "a@20 b@20 c@20 b@50 d@50 b@80");
}

TEST(Schedule, RepeatsWithoutAnEnd) {
  Play play("every 20ms say a");
  EXPECT_EQ(play.now(), "a");
  EXPECT_EQ(play.during(60), "a@20 a@40 a@60");
  EXPECT_EQ(play.schedule().pending(), 1u);
}

TEST(Schedule, MakesUpForWhatWasMissed) {
  Play play("every 10ms say a 5 times\nevery 20ms say b 2 times\nat 30ms say c");
  play.clock.pass_ms(1000);
  EXPECT_EQ(play.now(), "a b a a b a c a");  // the same order as without the delay
  EXPECT_EQ(play.next(), std::nullopt);
}

TEST(Schedule, HasAResolutionOfTenMilliseconds) {
  Play play("at 10ms say a");
  play.clock.pass_ms(9);  // the clock starts at a full tick
  EXPECT_EQ(play.now(), "");
  play.clock.pass_ms(1);
  EXPECT_EQ(play.now(), "a");
}

TEST(Schedule, TakesNoMoreThanAsked) {
  Play play("say a 1000000 times\nsay b");
  EXPECT_EQ(play.now(3), "a a a");
  EXPECT_EQ(play.schedule().done(), 3u);
  EXPECT_EQ(play.next(), 0);
  EXPECT_EQ(play.schedule().pending(), 2u);
}

TEST(Schedule, TellsWhenTheNextIsDue) {
  Play play("at 100ms say a\nat 40ms say b");
  EXPECT_EQ(play.next(), 40);
  play.clock.pass_ms(30);
  EXPECT_EQ(play.next(), 10);
  play.clock.pass_ms(30);
  EXPECT_EQ(play.next(), -20);
  EXPECT_EQ(play.now(), "b");
  EXPECT_EQ(play.next(), 40);
  EXPECT_EQ(play.during(40), "a@100");
  EXPECT_EQ(play.next(), std::nullopt);
  EXPECT_EQ(Schedule({}, 0).next(), std::nullopt);
}

TEST(Schedule, AwaitsTheChannel) {
  Play play("at 20ms say a\nawait channel\nsay b\nat 30ms say c");
  EXPECT_EQ(play.during(100), "a@20");
  EXPECT_EQ(play.next(), std::nullopt);
  EXPECT_EQ(play.schedule().pending(), 3u);
  play.ready.channel = true;
  EXPECT_EQ(play.during(100), "b@110 c@140");
  EXPECT_EQ(play.schedule().pending(), 0u);
}

TEST(Schedule, AwaitsNothingBeforeTheLineBeforeIsDue) {
  Play play("at 50ms say a\nawait channel\nat 20ms say b");
  play.ready.channel = true;
  EXPECT_EQ(play.during(100), "a@50 b@70");
}

TEST(Schedule, AwaitsAgain) {
  Play play("await channel\nat 20ms say a\nawait channel\nat 20ms say b");
  play.ready.channel = true;
  EXPECT_EQ(play.now(), "");
  play.ready.channel = false;  // the daemon has closed it
  EXPECT_EQ(play.during(70), "a@20");
  play.ready.channel = true;
  EXPECT_EQ(play.during(50), "b@100");
}

TEST(Schedule, AwaitsSettings) {
  Play play("await channel\nawait settings\nsay a\nat 30ms say b");
  play.ready.settings = true;
  EXPECT_EQ(play.during(50), "");
  play.ready = {true, false};
  EXPECT_EQ(play.during(50), "");
  play.ready.settings = true;
  EXPECT_EQ(play.during(50), "a@110 b@140");
}

TEST(Schedule, GoesOnRepeatingBehindAnAwait) {
  Play play("every 20ms say a 4 times\nawait channel\nsay b");
  EXPECT_EQ(play.now(), "a");
  EXPECT_EQ(play.during(30), "a@20");
  play.ready.channel = true;
  EXPECT_EQ(play.during(40), "a@40 b@40 a@60");
}

TEST(Schedule, AddsLinesThatCountFromNow) {
  Play play("at 100ms say a");
  play.clock.pass_ms(50);
  play.add("at 20ms say b");
  play.add("every 40ms say c 2 times");
  play.add("after 50ms say d");
  EXPECT_EQ(play.now(), "c");
  EXPECT_EQ(play.during(100), "b@70 c@90 a@100 d@100");
  EXPECT_EQ(play.schedule().done(), 5u);
}
