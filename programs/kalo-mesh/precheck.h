#pragma once

#include <json/value.h>

#include <ostream>
#include <string>

#include "programs/kalo-mesh/api_client.h"

namespace kalo::cli {

/// What the new firmware says before it is installed, read from the router's answer.
struct Precheck {
  bool has_licence = false;
  std::string licence;
  bool has_findings = false;
  bool can_continue = true;  ///< in spite of the findings
  std::string note;
  std::string message;
};

/// What the user has said beforehand.
struct Consent {
  bool accepts_licence = false;
  bool goes_on = false;      ///< in spite of findings that allow it
  bool may_be_asked = true;  ///< on a terminal
};

/// @return the user's language as the firmware names it: by the locale, "enu" where it is another.
[[nodiscard]] std::string DefaultLanguage();

/// Lets the router ask the firmware that stands ready.
/// @return the answer's data.
/// @throws as ApiClient::Call
[[nodiscard]] Json::Value AskPrecheck(ApiClient& client, const std::string& language);
[[nodiscard]] Precheck ReadPrecheck(const Json::Value& data);

/// Shows the findings and the licence agreement and asks what was not said beforehand.
/// @return whether the user wants to go on.
/// @throws Failure when the findings forbid it, or when nobody can be asked.
[[nodiscard]] bool PassPrecheck(const Precheck& precheck, const Consent& consent,
                                std::ostream& out);

/// Asks a question that a "y" agrees to.
/// @throws Failure (kUsage) with the hint where nobody may be asked, or where standard input is no
///         terminal.
[[nodiscard]] bool Agrees(bool may_be_asked, const std::string& question, const std::string& hint);

}  // namespace kalo::cli
