#include "host/webapi/module_loader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "host/webapi/module_error.h"

namespace kalo::webapi {
namespace {

std::string ErrorOf(const std::string& file) {
  try {
    (void)LoadModule(file);
    return "";
  } catch (const ModuleError& e) {
    return e.what();
  }
}

std::string Variant(const std::string& name) {
  return MODULES "/" + name + ".so";
}

TEST(ModuleLoader, GivesEveryRowOfTheTable) {
  const auto rows = LoadModule(Variant("good"));
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_STREQ(rows[1].method, "two");
  KALO::APIRequest request{Json::Value()};
  KALO::APIResponse response;
  rows[0].handler(&request, &response);
  EXPECT_TRUE(response.IsSuccess());
}

TEST(ModuleLoader, ANullRowEndsTheTable) {
  EXPECT_EQ(LoadModule(Variant("terminated")).size(), 1U);
}

TEST(ModuleLoader, SaysWhatIsWrongWithATable) {
  const auto expect = [](const std::string& name, const std::string& cause) {
    EXPECT_EQ(ErrorOf(Variant(name)), Variant(name) + ": " + cause);
  };
  expect("no_function", "exports no GetAPITable");
  expect("no_table", "GetAPITable does not return an exported gTable");
  expect("odd_size", "gTable's size 40 is no multiple of 32");
  expect("empty", "gTable is empty");
  expect("null_name", "row 2: a name is null");
  expect("null_handler", "row 1: the handler is null");
  expect("foreign_name", "row 1: a name is not the module's");
  expect("bad_name", "row 1: the method name is malformed");
  expect("bad_version", "row 1: the version is out of range");
}

TEST(ModuleLoader, SaysWhyAFileCannotBeLoaded) {
  EXPECT_NE(ErrorOf("/none.so").find("/none.so: "), std::string::npos);
  std::ofstream("/tmp/text.so") << std::string(1000, 't');
  EXPECT_NE(ErrorOf("/tmp/text.so").find("invalid ELF header"), std::string::npos);
  EXPECT_NE(ErrorOf(Variant("undefined")).find("KaloNowhereDefined"), std::string::npos);
}

}  // namespace
}  // namespace kalo::webapi
