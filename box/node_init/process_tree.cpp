#include "box/node_init/process_tree.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

std::optional<pid_t> ToPid(const std::string& text) {
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return pid;
}

// The parent stands behind the program's name, which is in parentheses and may hold anything.
std::optional<pid_t> ParentOf(const fs::path& process) {
  std::ifstream file(process / "stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name_end = line.rfind(')');
  if (name_end == std::string::npos || name_end + 4 >= line.size()) return std::nullopt;
  const std::size_t begin = name_end + 4;
  return ToPid(line.substr(begin, line.find(' ', begin) - begin));
}

std::multimap<pid_t, pid_t> ChildrenByParent() {
  std::multimap<pid_t, pid_t> children;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/proc", ignored)) {
    const auto pid = ToPid(entry.path().filename());
    if (!pid) continue;
    if (const auto parent = ParentOf(entry.path())) children.emplace(*parent, *pid);
  }
  return children;
}

}  // namespace

std::vector<pid_t> ProcessTree(pid_t root) {
  const auto children = ChildrenByParent();
  std::vector<pid_t> tree = {root};
  for (std::size_t i = 0; i < tree.size(); ++i) {
    const auto [first, last] = children.equal_range(tree[i]);
    for (auto child = first; child != last; ++child) tree.push_back(child->second);
  }
  return tree;
}

void SignalTree(pid_t root, int signal) {
  for (const pid_t pid : ProcessTree(root)) kill(pid, signal);
}

}  // namespace kalo::box
