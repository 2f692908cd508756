#include "host/core/shared_library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace kalo {
namespace {

constexpr const char* kMathematics = "libm.so.6";

TEST(SharedLibrary, BringsItsFunctions) {
  const SharedLibrary library(kMathematics, "the mathematics");
  double (*root)(double) = nullptr;
  library.Find("sqrt", root);
  EXPECT_EQ(root(9), 3);
}

TEST(SharedLibrary, ThatIsNotThereIsTold) {
  EXPECT_THAT([] { const SharedLibrary library("libnowhere.so.1", "the library"); },
              testing::ThrowsMessage<std::runtime_error>(
                  testing::AllOf(testing::StartsWith("the library cannot be loaded: "),
                                 testing::HasSubstr("libnowhere.so.1"))));
}

TEST(SharedLibrary, WithoutAFunctionIsTold) {
  const SharedLibrary library(kMathematics, "the mathematics");
  void (*function)() = nullptr;
  EXPECT_THAT([&] { library.Find("no_such_function", function); },
              testing::ThrowsMessage<std::runtime_error>(
                  testing::AllOf(testing::StartsWith("the mathematics cannot be loaded: "),
                                 testing::HasSubstr("no_such_function"))));
}

}  // namespace
}  // namespace kalo
