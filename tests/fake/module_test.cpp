#include "tests/fake/module_test.h"

#include <unistd.h>

#include <algorithm>

namespace fake {

void ModuleTest::Call(KALO::APIHandler entry, const std::string& parameters) {
  const pid_t self = getpid();
  KALO::APIRequest call(FromText(parameters));
  KALO::APIResponse answer;
  entry(&call, &answer);
  if (getpid() != self) _exit(0);
}

std::vector<std::string> ModuleTest::LinesFrom(const std::string& begin) const {
  std::vector<std::string> lines = Lines();
  const auto first = std::find_if(lines.begin(), lines.end(),
                                  [&](const std::string& line) { return line.starts_with(begin); });
  lines.erase(lines.begin(), first);
  return lines;
}

std::vector<std::string> ModuleTest::Answers() const {
  std::vector<std::string> answers;
  for (std::string& line : Lines()) {
    if (line.starts_with("success ") || line.starts_with("error ")) {
      answers.push_back(std::move(line));
    }
  }
  return answers;
}

std::vector<std::string> ModuleTest::Logs() const {
  std::vector<std::string> logs;
  for (const std::string& line : Lines("log ")) {
    const std::size_t number = line.find(' ', 4) + 1;
    const std::size_t text = line.find(' ', number) + 1;
    logs.push_back(line.substr(4, number - 4) + line.substr(text));
  }
  return logs;
}

}  // namespace fake
