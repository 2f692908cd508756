#include "services/webapid/error_sentences.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kalo::webapid {
namespace {

TEST(ErrorSentences, EveryCodeHasASentenceOfItsOwn) {
  std::set<std::string> sentences;
  std::set<int> codes = {100, 117, 403, 5200, 5202, 5209, 9001, 9002};
  for (int code = 1001; code <= 1003; ++code) codes.insert(code);
  for (int code = 5220; code <= 5229; ++code) codes.insert(code);
  for (int code = 7001; code <= 7018; ++code) codes.insert(code);
  for (const int code : codes) {
    const std::string sentence = ErrorSentence(code);
    EXPECT_TRUE(sentence.ends_with('.')) << code;
    EXPECT_TRUE(sentences.insert(sentence).second) << code;
  }
}

TEST(ErrorSentences, AnUnknownCodeStillGetsOne) {
  EXPECT_NE(std::string(ErrorSentence(424242)), "");
  EXPECT_EQ(ErrorStatus(424242), 200U);
}

TEST(ErrorSentences, TheServersOwnErrorsHaveTheirHttpStatus) {
  EXPECT_EQ(ErrorStatus(7003), 401U);
  EXPECT_EQ(ErrorStatus(7005), 403U);
  EXPECT_EQ(ErrorStatus(7008), 503U);
  EXPECT_EQ(ErrorStatus(117), 200U);
}

TEST(ErrorSentences, TheEnvelopeNamesCodeAndSentence) {
  EXPECT_EQ(ErrorEnvelope(7003),
            R"({"error":{"code":7003,"message":"Please sign in first."},"success":false})");
}

}  // namespace
}  // namespace kalo::webapid
