// Bytes in hexadecimal with separators: mu_str2hex and mu_str2mac, which share one grammar.

#include <gtest/gtest.h>
#include <netinet/ether.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "convert/texts.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

constexpr uint8_t kUntouched = 0xEE;
constexpr size_t kRoom = 12;
using Bytes = std::vector<uint8_t>;

// What an output of kRoom bytes holds once `written` stand in it.
Bytes room_with(const Bytes &written) {
  Bytes room(kRoom, kUntouched);
  for (size_t i = 0; i < written.size(); i++) room[i] = written[i];
  return room;
}

struct Outcome {
  mu_status_t status;
  Bytes written;
};

// A naive model: cuts the text at its separators, then looks at the pieces. A fault hides the piece in which it stands
// and all behind it.
Outcome model(const std::string &text, int len, bool trailing_separator) {
  Outcome outcome = {1, {}};
  std::vector<std::string> pieces = split(text, ":.");
  const bool trails = pieces.size() > 1 && pieces.back().empty();
  if (trails || text.empty()) pieces.pop_back();
  for (const std::string &piece : pieces) {
    const bool sound = (piece.size() == 1 || piece.size() == 2) && consists_of(piece, kHexadecimal);
    if (!sound || static_cast<int>(outcome.written.size()) >= len) return outcome;
    outcome.written.push_back(static_cast<uint8_t>(std::stoul(piece, nullptr, 16)));
  }
  if (static_cast<int>(outcome.written.size()) == len && (trailing_separator || !trails)) outcome.status = 0;
  return outcome;
}

class ByteText : public testing::Test {
 protected:
  void check_hex(const std::string &text, int len) {
    if (HasFatalFailure()) return;  // one is enough
    const Outcome expected = model(text, len, true);
    Bytes out(kRoom, kUntouched);
    ASSERT_EQ(mu_str2hex(guarded_(text), out.data(), len), expected.status) << '"' << text << "\", " << len;
    ASSERT_EQ(out, room_with(expected.written)) << '"' << text << "\", " << len;
  }

  void check_mac(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    const Outcome expected = model(text, MU_MAC_BYTES, false);
    Bytes mac(kRoom, kUntouched);
    ASSERT_EQ(mu_str2mac(guarded_(text), mac.data()), expected.status) << '"' << text << '"';
    ASSERT_EQ(mac, room_with(expected.written)) << '"' << text << '"';
  }

  Guarded guarded_;
};

using Str2Hex = ByteText;
using Str2Mac = ByteText;

struct HexRow {
  const char *text;
  int len;
  mu_status_t status;
  Bytes written;
};

struct MacRow {
  const char *text;
  mu_status_t status;
  Bytes written;
};

}  // namespace

// ---- mu_str2hex -----------------------------------------------------------------------------------------------------

TEST_F(Str2Hex, ParsesOrKeepsWhatStoodBeforeTheFault) {
  const HexRow rows[] = {
      {"aa:bb", 2, 0, {0xAA, 0xBB}},
      {"0", 1, 0, {0}},
      {"f", 1, 0, {15}},
      {"f0", 1, 0, {0xF0}},  // the first digit is the high one
      {"aF", 1, 0, {0xAF}},
      {"Fa", 1, 0, {0xFA}},
      {"1.2.3", 3, 0, {1, 2, 3}},
      {"1:2.3:04", 4, 0, {1, 2, 3, 4}},  // separators may be mixed
      {"", 0, 0, {}},
      {"", 1, 1, {}},
      {"", -1, 1, {}},
      {"1", 0, 1, {}},
      {"1", -1, 1, {}},
      {"1", INT_MIN, 1, {}},
      {":", 0, 1, {}},  // a separator at the start is none that trails
      {".", 1, 1, {}},
      {":1", 1, 1, {}},
      {".1:2", 2, 1, {}},
      {"1:2", 1, 1, {1}},  // a byte too many
      {"1:2:", 1, 1, {1}},
      {"1", 2, 1, {1}},  // a byte too few
      {"1:", 2, 1, {1}},
      {"1::2", 2, 1, {1}},
      {"1.:2", 2, 1, {1}},
      {"1:2::", 2, 1, {1, 2}},
      {"1:2:.", 2, 1, {1, 2}},
      {"111", 1, 1, {}},  // a third digit: its byte was not complete
      {"1:222", 2, 1, {1}},
      {"1:222:3", 3, 1, {1}},
      {"001", 1, 1, {}},
      {"1:2g", 2, 1, {1}},
      {"1:g", 2, 1, {1}},
      {"g", 1, 1, {}},
      {"0x1", 1, 1, {}},
      {"1-2", 2, 1, {}},
      {"1 2", 2, 1, {}},
      {" 1", 1, 1, {}},
      {"1 ", 1, 1, {}},
      {"1:2 ", 2, 1, {1}},
      {"1:2\n", 2, 1, {1}},
      {"1:+2", 2, 1, {1}},
      {"1/2", 2, 1, {}},
      {"1;2", 2, 1, {}},
      {"1:@", 2, 1, {1}},
      {"1:`", 2, 1, {1}},
      {"1:\xB1", 2, 1, {1}},
  };
  for (const HexRow &row : rows) {
    SCOPED_TRACE(testing::Message() << '"' << row.text << "\", " << row.len);
    Bytes out(kRoom, kUntouched);
    EXPECT_EQ(mu_str2hex(guarded_(row.text), out.data(), row.len), row.status);
    EXPECT_EQ(out, room_with(row.written));
  }
}

TEST_F(Str2Hex, AcceptsOneTrailingSeparator) {
  for (const char *text : {"aa:bb:", "aa.bb.", "aa:bb."}) {
    Bytes out(kRoom, kUntouched);
    EXPECT_EQ(mu_str2hex(guarded_(text), out.data(), 2), 0) << text;
    EXPECT_EQ(out, room_with({0xAA, 0xBB})) << text;
    EXPECT_EQ(mu_str2hex(guarded_(text), out.data(), 3), 1) << text;  // it stands for no byte
    EXPECT_EQ(mu_str2hex(guarded_(text), out.data(), 1), 1) << text;
  }
}

TEST_F(Str2Hex, RefusesNull) {
  uint8_t out = kUntouched;
  EXPECT_EQ(mu_str2hex(nullptr, &out, 1), 1);
  EXPECT_EQ(mu_str2hex(nullptr, &out, 0), 1);
  EXPECT_EQ(out, kUntouched);
  EXPECT_EQ(mu_str2hex("1", nullptr, 1), 1);
  EXPECT_EQ(mu_str2hex("", nullptr, 0), 1);
}

TEST_F(Str2Hex, ParsesEveryByteInEverySpelling) {
  for (unsigned value = 0; value < 256; value++) {
    for (int digits : {1, 2}) {
      for (bool upper_case : {false, true}) {
        const std::string text = hexadecimal(value, upper_case, digits);
        uint8_t out = static_cast<uint8_t>(~value);
        EXPECT_EQ(mu_str2hex(guarded_(text), &out, 1), 0) << text;
        EXPECT_EQ(out, value) << text;
      }
    }
  }
}

TEST_F(Str2Hex, ParsesAsManyBytesAsItIsTold) {
  constexpr int kMany = 70000;
  std::string text;
  Bytes expected;
  for (int i = 0; i < kMany; i++) {
    const uint8_t byte = static_cast<uint8_t>(i * 7);
    text += hexadecimal(byte, false, 2) + ":";
    expected.push_back(byte);
  }
  Bytes out(kMany);
  EXPECT_EQ(mu_str2hex(text.c_str(), out.data(), kMany), 0);
  EXPECT_EQ(out, expected);
  EXPECT_EQ(mu_str2hex(text.c_str(), out.data(), kMany - 1), 1);
}

TEST_F(Str2Hex, AgreesWithTheModelOnEveryShortText) {
  size_t count = for_each_text_up_to("0aF:.g", 5, [this](const std::string &text) {
    for (int len = -1; len <= 4; len++) check_hex(text, len);
  });
  EXPECT_EQ(count, 1u + 6 + 36 + 216 + 1296 + 7776);
  count = for_each_text_up_to(kRelevant, 3, [this](const std::string &text) {
    check_hex(text, 1);
    check_hex(text, 2);
  });
  EXPECT_EQ(count, 1u + 38 + 38 * 38 + 38 * 38 * 38);
  count = for_each_text(all_bytes(), 2, [this](const std::string &text) { check_hex(text, 1); });
  EXPECT_EQ(count, 255u * 255);
}

// ---- mu_str2mac -----------------------------------------------------------------------------------------------------

TEST_F(Str2Mac, ParsesOrKeepsWhatStoodBeforeTheFault) {
  const MacRow rows[] = {
      {"00:11:22:33:44:55", 0, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"0:1:2:3:4:5", 0, {0, 1, 2, 3, 4, 5}},
      {"aA.bB.cC.dD.eE.fF", 0, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
      {"0a:b.0c:d.0e:f", 0, {10, 11, 12, 13, 14, 15}},
      {"", 1, {}},
      {":", 1, {}},
      {"0", 1, {0}},
      {"0:", 1, {0}},
      {"00:11:22:33:44", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:55:66", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"00:11:22:33:44:55:66:77", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"00:11:22:33:44:55::", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {":00:11:22:33:44:55", 1, {}},
      {"00::11:22:33:44:55", 1, {0}},
      {"00:11:.22:33:44:55", 1, {0, 0x11}},
      {"00:111:22:33:44:55", 1, {0}},
      {"000:11:22:33:44:55", 1, {}},
      {"00:11:22:33:44:555", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:5g", 1, {0, 0x11, 0x22, 0x33, 0x44}},  // the sixth byte was not complete
      {"00:11:22:33:44:55g", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:55 ", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {" 00:11:22:33:44:55", 1, {}},
      {"00-11-22-33-44-55", 1, {}},
      {"00:11:22-33:44:55", 1, {0, 0x11}},
      {"001122334455", 1, {}},
      {"0011.2233.4455", 1, {}},
      {"0x0:1:2:3:4:5", 1, {}},
      {"00:11:22:33:44:-5", 1, {0, 0x11, 0x22, 0x33, 0x44}},
  };
  for (const MacRow &row : rows) {
    SCOPED_TRACE(row.text);
    Bytes mac(kRoom, kUntouched);
    EXPECT_EQ(mu_str2mac(guarded_(row.text), mac.data()), row.status);
    EXPECT_EQ(mac, room_with(row.written));
  }
}

TEST_F(Str2Mac, RefusesATrailingSeparatorThatStr2HexAccepts) {
  for (const char *text : {"00:11:22:33:44:55:", "00.11.22.33.44.55."}) {
    Bytes mac(kRoom, kUntouched);
    EXPECT_EQ(mu_str2mac(guarded_(text), mac.data()), 1) << text;
    EXPECT_EQ(mac, room_with({0, 0x11, 0x22, 0x33, 0x44, 0x55})) << text;
    EXPECT_EQ(mu_str2hex(guarded_(text), mac.data(), MU_MAC_BYTES), 0) << text;
  }
}

TEST_F(Str2Mac, RefusesNull) {
  Bytes mac(kRoom, kUntouched);
  EXPECT_EQ(mu_str2mac(nullptr, mac.data()), 1);
  EXPECT_EQ(mac, room_with({}));
  EXPECT_EQ(mu_str2mac("0:1:2:3:4:5", nullptr), 1);
}

TEST_F(Str2Mac, AgreesWithTheModelOnEveryEndAndOnEveryNeighbour) {
  const size_t count =
      for_each_text_up_to("0aF:.g", 5, [this](const std::string &end) { check_mac("1:2:3:4:" + end); });
  EXPECT_EQ(count, 9331u);
  for (const char *text : {"00:11:22:33:44:55", "0:1.2:3.4:5", "ab:c:de:f:01:2", "0:1:2:3:4:5:"}) {
    for_each_neighbour(text, [this](const std::string &other) { check_mac(other); });
  }
  for_each_text_up_to(kRelevant, 3, [this](const std::string &text) { check_mac(text); });
}

TEST_F(Str2Mac, DiffersFromStr2HexInTheTrailingSeparatorAlone) {
  for_each_text_up_to("0a:.g", 6, [this](const std::string &end) {
    const std::string text = "1:2:3:4:" + end;
    const bool trails = text.back() == ':' || text.back() == '.';
    uint8_t mac[MU_MAC_BYTES] = {};
    uint8_t hex[MU_MAC_BYTES] = {};
    const mu_status_t as_hex = mu_str2hex(guarded_(text), hex, MU_MAC_BYTES);
    ASSERT_EQ(mu_str2mac(guarded_(text), mac), trails ? 1 : as_hex) << text;
    ASSERT_EQ(memcmp(mac, hex, sizeof mac), 0) << text;
  });
}

TEST_F(Str2Mac, AgreesWithEtherAtonOnSixBytesAndColons) {
  Random random(7);
  for (int i = 0; i < 20000; i++) {
    std::string text;
    for (int byte = 0; byte < MU_MAC_BYTES; byte++) {
      const uint32_t value = random.below(256) >> random.below(8);
      text += (byte > 0 ? ":" : "") + hexadecimal(value, random.below(2) != 0, random.below(2) != 0 ? 2 : 1);
    }
    uint8_t mac[MU_MAC_BYTES];
    ether_addr expected;
    ASSERT_EQ(mu_str2mac(text.c_str(), mac), 0) << text;
    ASSERT_NE(ether_aton_r(text.c_str(), &expected), nullptr) << text;
    ASSERT_EQ(memcmp(mac, expected.ether_addr_octet, sizeof mac), 0) << text;
  }
}
