// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Changing and reading the settings of modules, one by one and in ranges, and the hook that is called for it.

#include <climits>
#include <utility>

#include "log/fixture.h"
#include "support/thinning.h"

using namespace tarn_test;

namespace {

struct HookCall {
  int module;
  int type;
  int value;

  bool operator==(const HookCall &) const = default;
};

std::vector<HookCall> g_hook_calls;
int g_hook_trylock;     // what an attempt to take the log mutex gave inside the hook
int g_hook_saw_enable;  // the module's enable flag inside the hook

void hook(uint8_t module, uint8_t type, uint8_t value) {
  const mup_log_ctrl *ctrl = mup_log_ctrl_get();
  g_hook_calls.push_back({module, type, value});
  g_hook_trylock = mu_mutex_trylock(ctrl->mutex);
  if (g_hook_trylock == 0) mu_mutex_unlock(ctrl->mutex);
  g_hook_saw_enable = ctrl->modules[module].enable;
}

std::vector<HookCall> take_hook_calls() { return std::exchange(g_hook_calls, {}); }

struct Settings {
  int print;
  int record;
  int enable;

  bool operator==(const Settings &) const = default;
};

Settings settings_of(const mup_log_ctrl *ctrl, unsigned module) {
  const mup_log_module &settings = ctrl->modules[module];
  return {settings.print_level, settings.record_level, settings.enable};
}

constexpr Settings kDefault = {4, 4, 1};

// The hook is installed when the log starts.
class HookedLog : public Log {
 protected:
  void start(const Names &names) {
    init(names);
    ctrl->level_hook = hook;
  }
};

using LogLevelSet = HookedLog;
using LogLevelGet = HookedLog;
using LogSet = HookedLog;
using LogLevelName = Log;

}  // namespace

TEST_F(LogLevelSet, TakesOrRefusesEveryTypeAndValue) {
  start({"a", "b"});
  Console console;
  for (unsigned type = 0; type <= 255; type += type < 4 ? 1u : unsigned{kThinning}) {
    for (unsigned value = 0; value <= 255; value++) {
      SCOPED_TRACE(testing::Message() << "type " << type << " value " << value);
      ctrl->modules[1].print_level = 4;
      ctrl->modules[1].record_level = 4;
      ctrl->modules[1].enable = 1;
      const bool taken = type <= 1 ? value <= 8 : type == 2 ? value <= 1 : true;  // 3 and above: any value
      ASSERT_EQ(mup_log_level_set(0, "b", static_cast<uint8_t>(type), static_cast<uint8_t>(value)), taken ? 0 : 2);

      Settings expected = kDefault;
      if (taken && type == 0) expected.print = static_cast<int>(value);
      if (taken && type == 1) expected.record = static_cast<int>(value);
      if (taken && type == 2) expected.enable = static_cast<int>(value);
      ASSERT_EQ(settings_of(ctrl, 1), expected);
      ASSERT_EQ(settings_of(ctrl, 0), kDefault);

      std::vector<HookCall> calls;
      if (taken) calls.push_back({1, static_cast<int>(type), static_cast<int>(value)});
      ASSERT_EQ(take_hook_calls(), calls);
    }
  }
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogLevelSet, CallsTheHookForAnUnknownType) {
  start({"a", "b"});
  EXPECT_EQ(mup_log_level_set(0, "b", 5, 200), 0);
  EXPECT_EQ(settings_of(ctrl, 1), kDefault);
  EXPECT_EQ(take_hook_calls(), (std::vector<HookCall>{{1, 5, 200}}));
}

TEST_F(LogLevelSet, FindsTheFirstModuleOfExactlyThatName) {
  start({"alpha", "beta", "alpha", "Alpha", "alph", "", "abcdefghijklmnop", "abcdefghijklmno"});
  const struct {
    const char *name;
    int module;  // -1: none
  } rows[] = {
      {"alpha", 0},
      {"beta", 1},
      {"Alpha", 3},
      {"alph", 4},
      {"", 5},
      {"abcdefghijklmno", 6},  // the registered name lost its 16th character
      {"abcdefghijklmnop", -1},
      {"ALPHA", -1},
      {"alphab", -1},
      {" alpha", -1},
      {"alpha ", -1},
      {"al", -1},
  };
  Console console;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    uint8_t value = 77;
    EXPECT_EQ(mup_log_level_set(0, row.name, MUP_LOG_SET_PRINT, 7), row.module < 0 ? 2 : 0);
    EXPECT_EQ(mup_log_level_get(0, row.name, MUP_LOG_SET_PRINT, &value), row.module < 0 ? 2 : 0);
    EXPECT_EQ(value, row.module < 0 ? 77 : 7);
    std::vector<HookCall> calls;
    if (row.module >= 0) calls.push_back({row.module, 0, 7});
    EXPECT_EQ(take_hook_calls(), calls);
  }
  EXPECT_EQ(settings_of(ctrl, 2), kDefault);  // the second "alpha"
  EXPECT_EQ(settings_of(ctrl, 7), kDefault);
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogLevelSet, ChecksTheNameThenTheInitThenTheValueThenTheModule) {
  Console console;
  EXPECT_EQ(mup_log_level_set(0, nullptr, 0, 9), 2);  // a null name comes first, before init too
  EXPECT_THAT(console.take(), assertion_of("mup_log_level_set"));
  EXPECT_EQ(mup_log_level_set(0, "a", 0, 9), 19);
  EXPECT_EQ(console.take(), kNotInitedLine);
  EXPECT_EQ(mup_log_level_set(0, "", 200, 0), 19);
  EXPECT_EQ(console.take(), kNotInitedLine);

  start({"a"});
  EXPECT_EQ(mup_log_level_set(0, nullptr, 0, 1), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_level_set"));
  EXPECT_EQ(mup_log_level_set(0, "none", 0, 1), 2);
  EXPECT_EQ(mup_log_level_set(0, "none", 5, 1), 2);  // a type that stores nothing needs a module all the same
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(take_hook_calls().empty());
  EXPECT_EQ(settings_of(ctrl, 0), kDefault);
}

TEST_F(LogLevelSet, CallsTheHookAfterStoringAndWithoutTheLock) {
  start({"a", "b"});
  EXPECT_EQ(mup_log_level_set(0, "b", MUP_LOG_SET_ENABLE, 0), 0);
  EXPECT_EQ(g_hook_saw_enable, 0);
  EXPECT_EQ(g_hook_trylock, 0);
}

TEST_F(LogLevelSet, NeedsNoHook) {
  start({"a"});
  ctrl->level_hook = nullptr;
  EXPECT_EQ(mup_log_level_set(0, "a", MUP_LOG_SET_RECORD, 0), 0);
  EXPECT_EQ(ctrl->modules[0].record_level, 0);
  EXPECT_EQ(mup_log_level_set(0, "a", 3, 0), 0);
}

TEST_F(LogLevelSet, SettingAndReadingTakeNoLock) {
  start({"a"});
  uint8_t value = 0;
  EXPECT_TRUE(ends_under_the_lock([&value] {
    EXPECT_EQ(mup_log_level_set(0, "a", MUP_LOG_SET_PRINT, 5), 0);
    EXPECT_EQ(mup_log_level_get(0, "a", MUP_LOG_SET_PRINT, &value), 0);
  }));
  EXPECT_EQ(value, 5);
}

TEST_F(LogLevelGet, ReadsEachSettingAndRefusesOtherTypes) {
  start({"a", "b"});
  ctrl->modules[1].print_level = 1;
  ctrl->modules[1].record_level = 8;
  ctrl->modules[1].enable = 0;
  Console console;
  for (unsigned type = 0; type <= 255; type++) {
    SCOPED_TRACE(type);
    const uint8_t expected[] = {1, 8, 0};
    uint8_t value = 77;
    EXPECT_EQ(mup_log_level_get(0, "b", static_cast<uint8_t>(type), &value), type <= 2 ? 0 : 2);
    EXPECT_EQ(value, type <= 2 ? expected[type] : 77);
  }
  uint8_t value = 77;
  EXPECT_EQ(mup_log_level_get(0, "none", 0, &value), 2);
  EXPECT_EQ(value, 77);
  EXPECT_EQ(mup_log_level_get(0, "b", 0, nullptr), 2);
  EXPECT_EQ(console.take(), "");
  EXPECT_TRUE(take_hook_calls().empty());
}

TEST_F(LogLevelGet, ChecksTheNameThenTheInit) {
  Console console;
  uint8_t value = 77;
  EXPECT_EQ(mup_log_level_get(0, nullptr, 9, nullptr), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_level_get"));
  EXPECT_EQ(mup_log_level_get(0, "a", 9, nullptr), 19);
  EXPECT_EQ(console.take(), kNotInitedLine);
  EXPECT_EQ(mup_log_level_get(0, "a", 0, &value), 19);
  EXPECT_EQ(console.take(), kNotInitedLine);
  start({"a"});
  EXPECT_EQ(mup_log_level_get(0, nullptr, 0, &value), 2);
  EXPECT_THAT(console.take(), assertion_of("mup_log_level_get"));
  EXPECT_EQ(value, 77);
}

TEST_F(LogSet, SwitchesTheModules0To20InOrderAndNoOther) {
  start(numbered_names(30));
  Console console;
  for (const int on : {0, 1, 0, 5, 0, -1, 0, 256, 0, INT_MAX, 0, INT_MIN}) {
    SCOPED_TRACE(on);
    std::vector<HookCall> calls;
    for (int i = 0; i <= 20; i++) calls.push_back({i, 2, on != 0 ? 1 : 0});
    EXPECT_EQ(mup_log_set(on), 0);
    EXPECT_EQ(take_hook_calls(), calls);
    for (unsigned i = 0; i < 30; i++) {
      SCOPED_TRACE(i);
      EXPECT_EQ(settings_of(ctrl, i), (Settings{4, 4, i > 20 || on != 0 ? 1 : 0}));
    }
  }
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogSet, TheUserSwitchIsOnlyForTheModules16To19) {
  start(numbered_names(30));
  Console console;
  for (const int on : {0, 1, 0, 256, 0, -1}) {
    SCOPED_TRACE(on);
    std::vector<HookCall> calls;
    for (int i = 16; i <= 19; i++) calls.push_back({i, 2, on != 0 ? 1 : 0});
    EXPECT_EQ(mup_log_usr_set(on), 0);
    EXPECT_EQ(take_hook_calls(), calls);
    for (unsigned i = 0; i < 30; i++) {
      SCOPED_TRACE(i);
      EXPECT_EQ(settings_of(ctrl, i), (Settings{4, 4, i < 16 || i > 19 || on != 0 ? 1 : 0}));
    }
  }
  EXPECT_EQ(console.take(), "");
}

TEST_F(LogSet, RunsTheHookUnderTheLockAndReleasesIt) {
  start(numbered_names(21));
  for (mu_status_t (*const set)(int32_t) : {mup_log_set, mup_log_usr_set}) {
    g_hook_trylock = 0;
    EXPECT_EQ(set(0), 0);
    EXPECT_EQ(g_hook_trylock, EBUSY);
    EXPECT_EQ(g_hook_saw_enable, 0);
    EXPECT_TRUE(lock_is_free());
  }
}

TEST_F(LogSet, GoesByTheNameAndNeverSwitchesTheSecondOfTwo) {
  std::vector<std::string> names = numbered_names(21);
  names[7] = names[3];
  names[18] = names[17];
  start(names);
  EXPECT_EQ(mup_log_set(0), 0);
  for (unsigned i = 0; i < 21; i++) {
    SCOPED_TRACE(i);
    EXPECT_EQ(ctrl->modules[i].enable, i == 7 || i == 18 ? 1 : 0);
  }
  const std::vector<HookCall> calls = take_hook_calls();
  ASSERT_EQ(calls.size(), 21u);
  EXPECT_EQ(calls[3].module, 3);
  EXPECT_EQ(calls[7].module, 3);
  EXPECT_EQ(calls[18].module, 17);

  EXPECT_EQ(mup_log_usr_set(1), 0);
  const std::vector<HookCall> expected = {{16, 2, 1}, {17, 2, 1}, {17, 2, 1}, {19, 2, 1}};
  EXPECT_EQ(take_hook_calls(), expected);
}

TEST_F(LogSet, IdsAfterTheTableReachNoModule) {
  // A look-up by the empty name, as after the end of the table, would find the second module.
  start({"a", "", "b"});
  EXPECT_EQ(mup_log_set(0), 0);
  const std::vector<HookCall> expected = {{0, 2, 0}, {1, 2, 0}, {2, 2, 0}};
  EXPECT_EQ(take_hook_calls(), expected);
  EXPECT_EQ(settings_of(ctrl, 1), (Settings{4, 4, 0}));
  EXPECT_EQ(mup_log_usr_set(1), 0);
  EXPECT_TRUE(take_hook_calls().empty());
}

TEST_F(LogLevelName, NamesTheNineLevelsAndNoOther) {
  for (unsigned level = 0; level <= 255; level++) {
    SCOPED_TRACE(level);
    const char *name = mup_log_level_str_get(static_cast<uint8_t>(level));
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, level <= 8 ? kLevelNames[level] : "");
    EXPECT_EQ(mup_log_level_str_get(static_cast<uint8_t>(level)), name);
  }
}
