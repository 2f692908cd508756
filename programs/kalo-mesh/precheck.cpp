#include "programs/kalo-mesh/precheck.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/file_io.h"
#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

struct Language {
  std::string_view locale;
  const char* name;
};

constexpr std::array kLanguages = {Language{"de", "ger"}, Language{"fr", "fre"}};

// A text of several lines, line by line: what a firmware prints must not steer the terminal.
std::string PrintableLines(const std::string& text) {
  std::string printable;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    printable += Printable(rest.substr(0, end)) + "\n";
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return printable;
}

// What env(1) ends with when there is no such program.
constexpr int kNotFound = 127;

std::string Variable(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : fallback;
}

// @return whether the user's pager showed the text.
bool Page(const std::string& text) {
  const UniqueFd file(memfd_create("licence", MFD_CLOEXEC));
  if (!file || !WriteAll(file.Get(), text) || lseek(file.Get(), 0, SEEK_SET) != 0) {
    return false;
  }
  std::vector<std::string> argv = {"/usr/bin/env", "TERM=" + Variable("TERM", "dumb")};
  std::istringstream words(Variable("PAGER", "pager"));
  for (std::string word; words >> word;) argv.push_back(word);
  std::cout.flush();
  SpawnOptions options;
  options.stdin_fd = file.Get();
  options.stdout_fd = STDOUT_FILENO;
  const int status = WaitForExit(Spawn(argv, options));
  return status >= 0 && status != kNotFound;
}

// A pager waits for its reader: not where everything was agreed to beforehand.
void ShowLicence(const std::string& licence, bool is_read, std::ostream& out) {
  const std::string text = PrintableLines(licence);
  const bool is_shown = is_read && IsTerminal() && &out == &std::cout && Page(text);
  if (!is_shown) out << text;
}

}  // namespace

std::string DefaultLanguage() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* locale = std::getenv(variable);
    if (locale == nullptr || *locale == '\0') continue;
    for (const Language& language : kLanguages) {
      if (std::string_view(locale).starts_with(language.locale)) return language.name;
    }
    break;
  }
  return "enu";
}

Json::Value AskPrecheck(ApiClient& client, const std::string& language) {
  Json::Value params(Json::objectValue);
  params["lang"] = language;
  return client.Call("KALO.Mesh.Upgrade", 1, "precheck", params, ApiClient::kLongPatience);
}

Precheck ReadPrecheck(const Json::Value& data) {
  Precheck precheck;
  precheck.has_licence = IsTrue(data, "eulacheck");
  precheck.licence = TextOf(data, "eulacheck_content");
  precheck.has_findings = IsTrue(data, "precheck");
  if (!precheck.has_findings) return precheck;
  const Json::Value& info = data["precheck_info"];
  precheck.can_continue = IsTrue(info, "can_continue");
  precheck.note = TextOf(info, "leading_note");
  precheck.message = TextOf(info, "message");
  return precheck;
}

bool PassPrecheck(const Precheck& precheck, const Consent& consent, std::ostream& out) {
  if (precheck.has_findings) {
    out << Printable(precheck.note) << "\n" << PrintableLines(precheck.message);
    if (!precheck.can_continue) {
      throw Failure(kFailed,
                    "this stands in the way of the upgrade: " + Printable(precheck.message));
    }
    if (!consent.goes_on && !Agrees(consent.may_be_asked, "Go on all the same? [y/N] ",
                                    "say --yes to go on in spite of what was found")) {
      return false;
    }
  }
  if (!precheck.has_licence) return true;
  ShowLicence(precheck.licence, !consent.accepts_licence, out);
  return consent.accepts_licence ||
         Agrees(consent.may_be_asked, "Do you agree to the licence? [y/N] ",
                "say --accept-licence to agree to it");
}

bool Agrees(bool may_be_asked, const std::string& question, const std::string& hint) {
  if (!may_be_asked || isatty(STDIN_FILENO) == 0)
    throw Failure(kUsage, "nobody can be asked here; " + hint);
  std::cout << question << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace kalo::cli
