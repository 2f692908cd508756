#include "webapi/exceptions.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace KALO::MESH::Webapi {
namespace {

TEST(Exceptions, KeepACopyOfTheirMessage) {
  std::string message = "Patch missed";
  const WebapiParamException exception(message.c_str());
  message = "changed";
  EXPECT_STREQ(exception.what(), "Patch missed");
}

TEST(Exceptions, AreCaughtAsTheirBases) {
  EXPECT_THROW(throw WebapiException("x"), MeshWebapiException);
  EXPECT_THROW(throw WebapiParamException("x"), MeshWebapiException);
  EXPECT_THROW(throw WebapiException("x"), std::exception);
}

TEST(Exceptions, ANullMessageIsALogicError) {
  const char* null = nullptr;
  EXPECT_THROW(throw WebapiException(null), std::logic_error);
}

}  // namespace
}  // namespace KALO::MESH::Webapi
