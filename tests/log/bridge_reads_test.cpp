// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// How the kernel bridge starts, the bytes that it holds from one read to the next, and how it reads.

#include <fcntl.h>
#include <sys/stat.h>

#include "log/bridge.h"

using namespace tarn_test;

namespace {

using LogBridge = Bridge;

// The bridge runs on the thread of the test, where it ends.
class LogBridgeStart : public LogFiles {
 protected:
  LogBridgeStart() { sem_init(&started, 0, 0); }

  // How often the semaphore was posted since the last call.
  int posts() {
    int count = 0;
    while (sem_trywait(&started) == 0) count++;
    return count;
  }

  sem_t started;
};

}  // namespace

TEST_F(LogBridgeStart, LeavesTheMessagesToTheSystemsOwnDaemon) {
  write_file(root() + "/proc/kmsg", frame("05:6:", "text") + "x");
  const std::string mark = path("klogd");
  for (const bool folder : {false, true}) {
    if (folder) {
      ASSERT_EQ(mkdir(mark.c_str(), 0700), 0);
    } else {
      write_file(mark, "");
    }
    int opened = 0;
    Replace<int(const char *, int, mode_t)> open(libc::open, [&](const char *file, int flags, mode_t mode) {
      opened++;
      return libc::open.real(file, flags, mode);
    });
    Console console;
    EXPECT_EQ(log_msg_process(&started), nullptr);
    EXPECT_EQ(console.take(), "Klogd enable!!\n");
    EXPECT_EQ(posts(), 1);
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(remove(mark.c_str()), 0);
  }
}

TEST_F(LogBridgeStart, EndsWithoutAStream) {
  Console console;
  EXPECT_EQ(log_msg_process(&started), nullptr);
  EXPECT_EQ(console.take(), "Open kmsg fail! \n");
  EXPECT_EQ(posts(), 1);
  EXPECT_EQ(log_msg_process(nullptr), nullptr);
  EXPECT_EQ(console.take(), "Open kmsg fail! \n");
}

TEST_F(LogBridgeStart, PostsBeforeItLooksForAnything) {
  std::vector<std::string> looked;
  Replace<int(const char *, int)> access(libc::access, [&](const char *file, int mode) {
    looked.push_back(file + std::string(posts() == 1 ? " posted" : " not posted"));
    return libc::access.real(file, mode);
  });
  Replace<int(const char *, int, mode_t)> open(libc::open, [&](const char *file, int flags, mode_t mode) {
    looked.emplace_back(file);
    return libc::open.real(file, flags, mode);
  });
  Console console;
  EXPECT_EQ(log_msg_process(&started), nullptr);
  console.take();
  EXPECT_EQ(looked, (std::vector<std::string>{"/overlay/klogd posted", "/proc/kmsg"}));
}

TEST_F(LogBridgeStart, ReadsTheStreamToItsEndAndOn) {
  init();
  const std::string kmsg = root() + "/proc/kmsg";
  std::string stream;
  for (int i = 0; i < 60; i++) stream += "<6>[1.0] " + frame("05:4:", "N" + std::to_string(i)) + "\n";
  write_file(kmsg, stream);
  start_bridge();
  clock.run_ms(1000);
  ASSERT_EQ(ctrl->sys_idx, 60u);
  for (int i = 0; i < 60; i++) EXPECT_EQ(text_of(ctrl->sys_ring[i]), "N" + std::to_string(i) + "\n");
  std::ofstream(kmsg, std::ios::app) << frame("05:4:", "later") << "\n";
  clock.run_ms(200);
  ASSERT_EQ(ctrl->sys_idx, 61u);
  EXPECT_EQ(text_of(ctrl->sys_ring[60]), "later\n");
}

// ---- Held bytes -----------------------------------------------------------------------------------------------------

TEST_F(LogBridge, PostsItsSemaphoreAndReadsTheStream) {
  ASSERT_EQ(open_flags.size(), 1u);
  EXPECT_EQ(open_flags[0] & O_ACCMODE, O_RDONLY);
  EXPECT_EQ(open_flags[0] & (O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK), 0);
  EXPECT_EQ(asked, std::vector<size_t>{512});
}

TEST_F(LogBridge, UpTo512BytesAreHeldAndMoreAreLoggedAsOneMessage) {
  const std::string held = kStart + "05:6:" + std::string(500, 'h');
  for (const size_t more : std::vector<size_t>{1, 2, 88, 100, 511, 512}) {
    SCOPED_TRACE(more);
    EXPECT_EQ(feed(held), Messages{});  // 512
    const std::string all = held + std::string(more, 'm');
    // The last byte makes room for the NUL; the log cuts to 511.
    EXPECT_EQ(feed(std::string(more, 'm')), (Messages{{3, 7, (all.substr(0, all.size() - 1) + "\n").substr(0, 511)}}));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(feed(kEnd + "x"), Messages{});  // nothing is held any more
    EXPECT_EQ(feed(frame("05:6:", "whole") + "x"), (Messages{message(5, 6, "whole")}));
    reset();
  }
}

TEST_F(LogBridge, AFrameThatIsComplete512BytesLaterIsNotAnOverflow) {
  const std::string held = kStart + "05:6:" + std::string(500, 'h');
  EXPECT_EQ(feed(held), Messages{});
  EXPECT_EQ(feed(""), Messages{});
  EXPECT_EQ(feed(kEnd), (Messages{{3, 7, held.substr(0, 511)}}));  // no byte follows the marker: 519 are held
  EXPECT_EQ(feed(held), Messages{});
  EXPECT_EQ(feed(kEnd + "x"), (Messages{message(5, 6, std::string(500, 'h'))}));
}

TEST_F(LogBridge, SixHundredBytesWithoutAnEndAreLoggedOnce) {
  const std::string stream = kStart + "05:6:" + std::string(588, 'u');
  EXPECT_EQ(feed(stream.substr(0, 300)), Messages{});
  EXPECT_EQ(feed(stream.substr(300)), (Messages{{3, 7, stream.substr(0, 511)}}));
  // Text before the start marker is not held, and does not count.
  EXPECT_EQ(feed(std::string(200, 'x') + stream.substr(0, 300)), Messages{});
  EXPECT_EQ(feed(stream.substr(300, 212)), Messages{});
  EXPECT_EQ(feed("u"), (Messages{{3, 7, stream.substr(0, 511)}}));
}

TEST_F(LogBridge, ANulEndsWhatAnOverflowLogs) {
  const std::string nul(1, '\0');
  feed(kStart + "05:6:short" + nul + std::string(490, 'x'));
  EXPECT_EQ(feed("xxxxxxxx"), (Messages{message(3, 7, "<jxlog-05:6:short")}));
}

TEST_F(LogBridge, AnOverflowIsLoggedUnderTheFiltersOfModule3) {
  ctrl->modules[3].record_level = 6;
  feed(kStart + std::string(505, 'x'));
  EXPECT_EQ(feed("x"), Messages{});
  EXPECT_EQ(printed, "");
  ctrl->modules[3].record_level = 7;
  feed(kStart + std::string(505, 'y'));
  EXPECT_EQ(feed("y"), (Messages{{3, 7, kStart + std::string(504, 'y')}}));
}

TEST_F(LogBridge, AStartMarkerAtTheVeryEndIsHeld) {
  for (size_t part = 1; part <= 7; part++) {
    SCOPED_TRACE(part);
    EXPECT_EQ(feed(std::string(512 - part, 'x') + kStart.substr(0, part)), Messages{});
    EXPECT_EQ(feed(kStart.substr(part) + "05:6:text" + kEnd + "x"), (Messages{message(5, 6, "text")}));
  }
}

// ---- Reads and pauses ----------------------------------------------------------------------------------------------

TEST_F(LogBridge, EveryRoundPauses100Ms) {
  feed("x");
  feed("");
  fail(EIO);
  feed(frame("05:6:", "text") + "x");
  feed(kStart + std::string(505, 'x'));
  feed("x");  // an overflow
  feed("");
  ASSERT_EQ(read_at_ms.size(), 8u);
  for (size_t i = 1; i < 8; i++) EXPECT_EQ(read_at_ms[i], read_at_ms[0] + static_cast<int64_t>(i) * 100);
}

TEST_F(LogBridge, EmptyAndFailedReadsChangeNothing) {
  for (const int error : {EAGAIN, EINTR, EPIPE, EINVAL, EIO}) {
    EXPECT_EQ(feed("<jxlog-05:6:"), Messages{});
    EXPECT_EQ(feed(""), Messages{});
    EXPECT_EQ(fail(error), Messages{});
    EXPECT_EQ(printed, "");
    EXPECT_EQ(feed("text"), Messages{});
    EXPECT_EQ(fail(error), Messages{});
    EXPECT_EQ(feed(kEnd), Messages{});
    EXPECT_EQ(fail(error), Messages{});
    EXPECT_EQ(feed("x"), (Messages{message(5, 6, "text")}));
  }
  EXPECT_EQ(open_flags.size(), 1u);  // the stream stays open
}

TEST_F(LogBridge, AReadAsksForAtMost512BytesWhateverIsHeld) {
  feed(std::string(512, 'x'));
  feed(kStart + std::string(505, 'x'));  // 512 held
  feed(std::string(512, 'x'));
  feed("x");
  for (const size_t size : asked) EXPECT_EQ(size, 512u);
}

TEST_F(LogBridge, NothingIsAllocated) {
  FailingMalloc counting(1000000);
  feed(frame("05:6:", "text") + "x");
  feed(kStart + std::string(505, 'x'));
  feed("x");
  EXPECT_EQ(counting.seen(), 0);
}
