// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// What the kernel bridge holds from one read to the next, and how it reads.

#include "contract_bridge.h"

using namespace tarn_test;

// ---- What is held --------------------------------------------------------------------------------------------------

TEST(LogBridgeContract, UpTo512BytesAreHeldAndMoreAreLoggedAsOneMessage) {
  Bridge bridge;
  const std::string held = kStart + "05:6:" + std::string(500, 'h');
  for (const size_t more : std::vector<size_t>{1, 2, 88, 100, 511, 512}) {
    SCOPED_TRACE(more);
    EXPECT_EQ(bridge.feed(held), Messages{});  // 512
    const std::string all = held + std::string(more, 'm');
    // The last byte makes room for the NUL; the log cuts to 511.
    EXPECT_EQ(bridge.feed(std::string(more, 'm')),
              (Messages{{3, 7, (all.substr(0, all.size() - 1) + "\n").substr(0, 511)}}));
    EXPECT_EQ(bridge.printed, "");
    EXPECT_EQ(bridge.feed(kEnd + "x"), Messages{});  // nothing is held any more
    EXPECT_EQ(bridge.feed(frame("05:6:", "whole") + "x"), (Messages{message(5, 6, "whole")}));
    bridge.reset();
  }
}

TEST(LogBridgeContract, AFrameThatIsComplete512BytesLaterIsNoOverflow) {
  Bridge bridge;
  const std::string held = kStart + "05:6:" + std::string(500, 'h');
  EXPECT_EQ(bridge.feed(held), Messages{});
  EXPECT_EQ(bridge.feed(""), Messages{});
  EXPECT_EQ(bridge.feed(kEnd), (Messages{{3, 7, held.substr(0, 511)}}));  // no byte behind the marker: 519 are held
  EXPECT_EQ(bridge.feed(held), Messages{});
  EXPECT_EQ(bridge.feed(kEnd + "x"), (Messages{message(5, 6, std::string(500, 'h'))}));
}

TEST(LogBridgeContract, SixHundredBytesWithoutAnEndAreLoggedOnce) {
  Bridge bridge;
  const std::string stream = kStart + "05:6:" + std::string(588, 'u');
  EXPECT_EQ(bridge.feed(stream.substr(0, 300)), Messages{});
  EXPECT_EQ(bridge.feed(stream.substr(300)), (Messages{{3, 7, stream.substr(0, 511)}}));
  // Text before the start marker is not held, and does not count.
  EXPECT_EQ(bridge.feed(std::string(200, 'x') + stream.substr(0, 300)), Messages{});
  EXPECT_EQ(bridge.feed(stream.substr(300, 212)), Messages{});
  EXPECT_EQ(bridge.feed("u"), (Messages{{3, 7, stream.substr(0, 511)}}));
}

TEST(LogBridgeContract, ANulEndsWhatAnOverflowLogs) {
  Bridge bridge;
  const std::string nul(1, '\0');
  bridge.feed(kStart + "05:6:short" + nul + std::string(490, 'x'));
  EXPECT_EQ(bridge.feed("xxxxxxxx"), (Messages{message(3, 7, "<jxlog-05:6:short")}));
}

TEST(LogBridgeContract, AnOverflowIsLoggedUnderTheFiltersOfModule3) {
  Bridge bridge;
  bridge.ctrl->modules[3].record_level = 6;
  bridge.feed(kStart + std::string(505, 'x'));
  EXPECT_EQ(bridge.feed("x"), Messages{});
  EXPECT_EQ(bridge.printed, "");
  bridge.ctrl->modules[3].record_level = 7;
  bridge.feed(kStart + std::string(505, 'y'));
  EXPECT_EQ(bridge.feed("y"), (Messages{{3, 7, kStart + std::string(504, 'y')}}));
}

TEST(LogBridgeContract, AStartMarkerAtTheVeryEndIsHeld) {
  Bridge bridge;
  for (size_t part = 1; part <= 7; part++) {
    SCOPED_TRACE(part);
    EXPECT_EQ(bridge.feed(std::string(512 - part, 'x') + kStart.substr(0, part)), Messages{});
    EXPECT_EQ(bridge.feed(kStart.substr(part) + "05:6:text" + kEnd + "x"), (Messages{message(5, 6, "text")}));
  }
}

// ---- Reads and pauses ----------------------------------------------------------------------------------------------

TEST(LogBridgeContract, EveryRoundPauses100Ms) {
  Bridge bridge;
  bridge.feed("x");
  bridge.feed("");
  bridge.fail(EIO);
  bridge.feed(frame("05:6:", "text") + "x");
  bridge.feed(kStart + std::string(505, 'x'));
  bridge.feed("x");  // an overflow
  bridge.feed("");
  ASSERT_EQ(bridge.read_at_ms.size(), 8u);
  for (size_t i = 1; i < 8; i++) EXPECT_EQ(bridge.read_at_ms[i], bridge.read_at_ms[0] + static_cast<int64_t>(i) * 100);
}

TEST(LogBridgeContract, EmptyAndFailedReadsChangeNothing) {
  Bridge bridge;
  for (const int error : {EAGAIN, EINTR, EPIPE, EINVAL, EIO}) {
    EXPECT_EQ(bridge.feed("<jxlog-05:6:"), Messages{});
    EXPECT_EQ(bridge.feed(""), Messages{});
    EXPECT_EQ(bridge.fail(error), Messages{});
    EXPECT_EQ(bridge.printed, "");
    EXPECT_EQ(bridge.feed("text"), Messages{});
    EXPECT_EQ(bridge.fail(error), Messages{});
    EXPECT_EQ(bridge.feed(kEnd), Messages{});
    EXPECT_EQ(bridge.fail(error), Messages{});
    EXPECT_EQ(bridge.feed("x"), (Messages{message(5, 6, "text")}));
  }
  EXPECT_EQ(bridge.open_flags.size(), 1u);  // the stream stays open
}

TEST(LogBridgeContract, AReadAsksForAtMost512BytesWhateverIsHeld) {
  Bridge bridge;
  bridge.feed(std::string(512, 'x'));
  bridge.feed(kStart + std::string(505, 'x'));  // 512 held
  bridge.feed(std::string(512, 'x'));
  bridge.feed("x");
  for (const size_t size : bridge.asked) EXPECT_EQ(size, 512u);
}

TEST(LogBridgeContract, NothingIsAllocated) {
  Bridge bridge;
  FailingMalloc counting(1000000);
  bridge.feed(frame("05:6:", "text") + "x");
  bridge.feed(kStart + std::string(505, 'x'));
  bridge.feed("x");
  EXPECT_EQ(counting.seen(), 0);
}
