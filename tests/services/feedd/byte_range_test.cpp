#include "services/feedd/byte_range.h"

#include <gtest/gtest.h>

#include <string>

namespace kalo::feedd {
namespace {

// "first+length", "whole" or "none".
std::string Parse(const std::string& header, std::uint64_t size) {
  const ByteRange range = ParseByteRange(header, size);
  if (range.kind == ByteRange::Kind::kUnsatisfiable) return "none";
  if (range.kind == ByteRange::Kind::kWhole) {
    EXPECT_EQ(range.length, size);
    return "whole";
  }
  return std::to_string(range.first) + "+" + std::to_string(range.length);
}

TEST(ByteRange, ReadsTheThreeForms) {
  EXPECT_EQ(Parse("bytes=0-0", 10), "0+1");
  EXPECT_EQ(Parse("bytes=2-5", 10), "2+4");
  EXPECT_EQ(Parse("bytes=2-", 10), "2+8");
  EXPECT_EQ(Parse("bytes=-3", 10), "7+3");
}

TEST(ByteRange, EndsAtTheEnd) {
  EXPECT_EQ(Parse("bytes=2-99", 10), "2+8");
  EXPECT_EQ(Parse("bytes=-99", 10), "0+10");
  EXPECT_EQ(Parse("bytes=9-9", 10), "9+1");
}

TEST(ByteRange, BehindTheEndIsNone) {
  EXPECT_EQ(Parse("bytes=10-", 10), "none");
  EXPECT_EQ(Parse("bytes=10-20", 10), "none");
  EXPECT_EQ(Parse("bytes=-0", 10), "none");
  EXPECT_EQ(Parse("bytes=0-", 0), "none");
}

TEST(ByteRange, WhatCannotBeReadIsNone) {
  for (const char* header : {"bytes=", "bytes=-", "bytes=a-b", "bytes=5-2", "bytes=+1-2", "bytes=x",
                             "bytes=1-99999999999999999999999"}) {
    EXPECT_EQ(Parse(header, 10), "none") << header;
  }
}

TEST(ByteRange, PassesOverSeveralAndOtherUnits) {
  for (const char* header : {"", "bytes", "bytes=1-2,4-5", "lines=1-2"}) {
    EXPECT_EQ(Parse(header, 10), "whole") << header;
  }
}

}  // namespace
}  // namespace kalo::feedd
