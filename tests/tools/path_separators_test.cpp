#include "tools/path_separators.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(PathSeparators, WindowsFormReplacesEverySlashAndNothingElse) {
  EXPECT_EQ(toNativeSeparators("D:/v/a.mp4", '\\'), "D:\\v\\a.mp4");
  EXPECT_EQ(toNativeSeparators("//server/share//x", '\\'), "\\\\server\\share\\\\x");
  EXPECT_EQ(toNativeSeparators("already\\back\\slashed", '\\'), "already\\back\\slashed");
  EXPECT_EQ(toNativeSeparators("no separator at all", '\\'), "no separator at all");
  EXPECT_EQ(toNativeSeparators("", '\\'), "");
}

TEST(PathSeparators, PosixKeepsForwardSlashes) {
  EXPECT_EQ(kNativeSeparator, '/');
  EXPECT_EQ(toNativeSeparators("/tmp/v/a.mp4"), "/tmp/v/a.mp4");
  EXPECT_EQ(toNativeSeparators("mixed\\and/forward"), "mixed\\and/forward");
}

}  // namespace
}  // namespace velmora
