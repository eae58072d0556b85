#include <gtest/gtest.h>

#include <string>

#include "support/console.h"
#include "support/heap.h"
#include "tarn/platform.h"

using namespace tarn_test;

TEST(MuPrintf, AddsNothing) {
  Console console;
  mu_printf("%s-%d\r\n", "port", 7);
  EXPECT_EQ(console.take(), "port-7\r\n");
  mu_printf("no line end");
  EXPECT_EQ(console.take(), "no line end");
}

TEST(MuPrintf, PrintsTheTextAsItIs) {
  Console console;
  mu_printf("%s", "100 %d %n");  // formatted once, not again on its way out
  EXPECT_EQ(console.take(), "100 %d %n");
}

TEST(MuPrintf, CutsAt895Characters) {
  for (size_t length : {894u, 895u, 896u, 897u, 5000u}) {
    Console console;
    mu_printf("%s", std::string(length, 'x').c_str());
    EXPECT_EQ(console.take(), std::string(std::min<size_t>(length, 895), 'x')) << length;
  }
}

TEST(MuPrintf, UsesNoHeapOfItsOwn) {
  setvbuf(stdout, nullptr, _IONBF, 0);  // nor does standard output need a buffer then
  Console console;
  HeapWatch heap;
  mu_printf("%s", "x");
  EXPECT_EQ(heap.live() + heap.freed().size(), 0u);
}
