#include "programs/kalo-mesh/precheck.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace {

Precheck Read(const std::string& text) {
  return ReadPrecheck(*ParseStrictJson(text));
}

constexpr const char* kFindings =
    R"({"eulacheck":false,"precheck":true,"precheck_info":)"
    R"({"can_continue":%s,"leading_note":"Note","message":"too little memory\nand more"}})";

Precheck Findings(bool can_continue) {
  std::string text = kFindings;
  return Read(text.replace(text.find("%s"), 2, can_continue ? "true" : "false"));
}

TEST(Precheck, WithoutLicenceAndFindingsPasses) {
  std::ostringstream out;
  for (const char* text :
       {R"({"eulacheck":false,"precheck":false})", R"({"leading_note":"","reason":""})", "[]",
        R"({"eulacheck":"yes"})", R"({"precheck":1,"precheck_info":7})"}) {
    EXPECT_TRUE(PassPrecheck(Read(text), {}, out)) << text;
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Precheck, ShowsTheLicenceLineByLineAndSteersNoTerminal) {
  std::ostringstream out;
  const Precheck precheck =
      Read(R"({"eulacheck":true,"eulacheck_content":"one\n\n\u001b[2Jtwo","precheck":false})");
  EXPECT_TRUE(PassPrecheck(precheck, {.accepts_licence = true}, out));
  EXPECT_EQ(out.str(), "one\n\n?[2Jtwo\n");
}

TEST(Precheck, FindingsThatForbidItEndIt) {
  std::ostringstream out;
  try {
    (void)PassPrecheck(Findings(false), {true, true}, out);
    ADD_FAILURE() << "it went on";
  } catch (const Failure& e) {
    EXPECT_EQ(e.Status(), kFailed);
    EXPECT_NE(std::string(e.what()).find("too little memory"), std::string::npos);
  }
  EXPECT_EQ(out.str(), "Note\ntoo little memory\nand more\n");
}

TEST(Precheck, FindingsThatAllowItWantAYes) {
  std::ostringstream out;
  EXPECT_TRUE(PassPrecheck(Findings(true), {.goes_on = true}, out));
  EXPECT_THROW((void)PassPrecheck(Findings(true), {}, out), Failure) << "nobody can be asked";
}

TEST(Precheck, ALicenceWantsAnAgreement) {
  std::ostringstream out;
  const Precheck precheck =
      Read(R"({"eulacheck":true,"eulacheck_content":"text","precheck":false})");
  try {
    (void)PassPrecheck(precheck, {.goes_on = true}, out);
    ADD_FAILURE() << "it went on";
  } catch (const Failure& e) {
    EXPECT_EQ(e.Status(), kUsage);
    EXPECT_NE(std::string(e.what()).find("--accept-licence"), std::string::npos);
  }
}

TEST(Precheck, SpeaksTheUsersLanguage) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(variable);
  EXPECT_EQ(DefaultLanguage(), "enu");
  setenv("LANG", "de_AT.UTF-8", 1);
  EXPECT_EQ(DefaultLanguage(), "ger");
  setenv("LC_ALL", "fr_FR", 1);
  EXPECT_EQ(DefaultLanguage(), "fre");
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(DefaultLanguage(), "enu");
}

}  // namespace
}  // namespace kalo::cli
