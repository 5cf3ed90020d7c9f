#include "tools/file_copy.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/test_support.h"

namespace velmora {
namespace {

using testing::CapturedConsole;
using testing::readFile;
using testing::TempDir;
using testing::writeTextFile;

TEST(FileCopy, CopiesEveryByte) {
  TempDir dir;
  std::string content = "profile\0with\r\nbinary\xff bytes";
  content.push_back('\0');
  writeTextFile(dir.file("source"), content);

  EXPECT_EQ(copyFile(dir.file("source"), dir.file("copy")), 1);
  EXPECT_EQ(readFile(dir.file("copy")), content);
}

TEST(FileCopy, ReplacesAnExistingDestinationEntirely) {
  TempDir dir;
  writeTextFile(dir.file("source"), "short");
  writeTextFile(dir.file("destination"), "a much longer text that must not survive");

  EXPECT_EQ(copyFile(dir.file("source"), dir.file("destination")), 1);
  EXPECT_EQ(readFile(dir.file("destination")), "short");
}

TEST(FileCopy, ZeroByteSourceGivesZeroByteDestination) {
  TempDir dir;
  writeTextFile(dir.file("empty"), "");
  writeTextFile(dir.file("destination"), "old content");
  CapturedConsole console;

  EXPECT_EQ(copyFile(dir.file("empty"), dir.file("destination")), 1);
  EXPECT_TRUE(std::filesystem::exists(dir.file("destination")));
  EXPECT_EQ(std::filesystem::file_size(dir.file("destination")), 0u);
  EXPECT_EQ(console.out(), "");
}

TEST(FileCopy, MissingSourceFailsWithErrorOneAndCreatesNothing) {
  TempDir dir;
  CapturedConsole console;

  EXPECT_EQ(copyFile(dir.file("missing"), dir.file("destination")), 0);
  EXPECT_EQ(console.out(), "Error 1: Fail to open the source file.\n");
  EXPECT_EQ(console.err(), "");
  EXPECT_FALSE(std::filesystem::exists(dir.file("destination")));
}

TEST(FileCopy, UncreatableDestinationFailsWithErrorTwoAndKeepsTheSource) {
  TempDir dir;
  writeTextFile(dir.file("source"), "content");
  CapturedConsole console;

  EXPECT_EQ(copyFile(dir.file("source"), dir.file("no-such-folder/destination")), 0);
  EXPECT_EQ(console.out(), "Error 2: Fail to create the new file.\n");
  EXPECT_EQ(readFile(dir.file("source")), "content");
}

}  // namespace
}  // namespace velmora
