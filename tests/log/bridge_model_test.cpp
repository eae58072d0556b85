// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel bridge compared with a model, on random streams.

#include "log/bridge.h"
#include "support/random.h"

using namespace tarn_test;

namespace {

using LogBridgeModel = Bridge;

// A bridge over 21 modules, written in the simplest way.
class Model {
 public:
  Messages feed(const std::string &bytes) {
    messages_.clear();
    printed.clear();
    if (bytes.empty()) return {};
    std::string data = held + bytes;
    const size_t cut = scan(data);
    held = data.substr(cut);
    if (held.size() > 512) {
      held.back() = '\0';
      log(3, 7, held);
      held.clear();
    }
    return messages_;
  }

  std::string held;
  std::string printed;

 private:
  // Returns where the part to be held begins.
  size_t scan(std::string &data) {
    if (data.size() <= 7) return 0;
    const size_t limit = data.size() - 7;
    for (size_t p = 0; p < limit;) {
      if (data.compare(p, 7, kStart) != 0) {
        p++;
        continue;
      }
      size_t q = p;
      while (q < limit && data.compare(q, 7, kEnd) != 0) q++;
      if (q == limit) return p;
      const auto at = [&](size_t offset) { return p + offset < data.size() ? data[p + offset] - '0' : -'0'; };
      const int module = 10 * at(7) + at(8);
      const int level = at(10);
      data[q] = '\0';
      log(module & 255, level & 255, p + 12 < data.size() ? data.substr(p + 12) : "");
      p = q + 7;
    }
    return limit;
  }

  void log(int module, int level, const std::string &text) {
    if (module > 21) {
      printed += "unknow module id:" + std::to_string(module) + "\r\n";
    } else if (level > 8) {
      printed += "unknow level id:" + std::to_string(level) + "\r\n";
    } else if (module < 21) {
      messages_.push_back({static_cast<unsigned>(module), static_cast<unsigned>(level),
                           (text.substr(0, text.find('\0')) + "\n").substr(0, 511)});
    }
  }

  Messages messages_;
};

}  // namespace

TEST_F(LogBridgeModel, RandomStreamsLogWhatTheModelSays) {
  Model model;
  Random random(7);
  const auto below = [&random](size_t bound) { return static_cast<size_t>(random.below(bound)); };
  std::string stream;
  for (int round = 0; round < 900; round++) {
    SCOPED_TRACE(round);
    while (stream.size() < 512) {
      switch (below(9)) {
        case 0:
          stream += kStart;
          break;
        case 1:
          stream += kEnd;
          break;
        case 2:
          stream += kStart.substr(0, below(8));
          break;
        case 3:
          stream += kEnd.substr(0, below(8));
          break;
        case 4:
          stream.append(below(12), static_cast<char>(below(256)));
          break;
        case 5:
          stream.append(below(300), 't');
          break;
        case 6:
          stream += frame(std::string("0512:6:8").substr(below(4), below(6)), "");
          break;
        default: {
          std::string head = "00:0:";
          head[0] = static_cast<char>('0' + below(3));
          head[1] = static_cast<char>('0' + below(10));
          head[3] = static_cast<char>('0' + below(10));
          stream += frame(head, std::string(below(40), 'a'));
        }
      }
    }
    const size_t size = below(4) == 0 ? 512 : below(below(3) == 0 ? 20 : 200);
    const std::string bytes = stream.substr(0, size);
    stream.erase(0, size);
    ASSERT_EQ(feed(bytes), model.feed(bytes));
    ASSERT_EQ(printed, model.printed);
  }
}

TEST_F(LogBridgeModel, RandomBytesOfTheMarkersLogWhatTheModelSays) {
  Model model;
  Random random(8);
  // Parts of the markers: frames overlap in every way.
  const char *const words[] = {"<jxlog-", "<jxlog>", "<", "<jxlog", "0", "1", "5:", ":", "x", "-", ">"};
  for (int round = 0; round < 900; round++) {
    SCOPED_TRACE(round);
    std::string bytes;
    for (size_t count = random.below(12); count > 0; count--) bytes += words[random.below(std::size(words))];
    ASSERT_EQ(feed(bytes), model.feed(bytes));
    ASSERT_EQ(printed, model.printed);
  }
}
