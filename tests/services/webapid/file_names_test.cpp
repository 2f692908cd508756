#include "services/webapid/file_names.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

TEST(FileNames, KeepTheLastComponent) {
  EXPECT_EQ(SafeFileName("a.pat"), "a.pat");
  EXPECT_EQ(SafeFileName("/x/y/a.pat"), "a.pat");
  EXPECT_EQ(SafeFileName("..\\..\\a.pat"), "a.pat");
  EXPECT_EQ(SafeFileName("..a"), "..a");
  EXPECT_EQ(SafeFileName("\xC3\xA4 b"), "\xC3\xA4 b");
  EXPECT_EQ(SafeFileName(std::string(255, 'x')), std::string(255, 'x'));
}

TEST(FileNames, WithoutASafeComponentAreRefused) {
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("a/"), std::string("a/.."),
        std::string("a\0b", 3), std::string("a\nb"), std::string("\x7F"), std::string("\xC0\x80"),
        std::string(256, 'x')}) {
    EXPECT_FALSE(SafeFileName(name)) << name;
  }
}

TEST(FileNames, TheReservedEndIsFoundBehindEscapes) {
  EXPECT_TRUE(IsReservedParameter("x_file_tmp"));
  EXPECT_TRUE(IsReservedParameter("_file_tmp"));
  EXPECT_TRUE(IsReservedParameter("x%5ffile_tm%70"));
  EXPECT_FALSE(IsReservedParameter("x_file_tmp2"));
  EXPECT_FALSE(IsReservedParameter("x_file"));
  EXPECT_FALSE(IsReservedParameter("x%5"));
}

TEST(FileNames, AFileFieldEndsInFile) {
  EXPECT_TRUE(IsFileField("kalo_cap1_file"));
  EXPECT_FALSE(IsFileField("_file"));
  EXPECT_FALSE(IsFileField("kalo_cap1"));
}

TEST(FileNames, ParameterNamesArePlainText) {
  EXPECT_TRUE(IsParameterName("a b"));
  EXPECT_FALSE(IsParameterName(""));
  EXPECT_FALSE(IsParameterName(std::string("a\0", 2)));
  EXPECT_FALSE(IsParameterName(std::string(257, 'a')));
}

}  // namespace
}  // namespace kalo::webapid
