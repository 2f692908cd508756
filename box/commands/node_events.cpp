#include "box/commands/node_events.h"

#include <fcntl.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>

#include "box/commands/node_control.h"
#include "host/core/unique_fd.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr const char* kFiller = "/volume1/@filler";

using Event = std::function<void(const Layout& layout, int node)>;

int RunQuietly(const Layout& layout, int node, const std::vector<std::string>& argv) {
  const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  const std::array fds = {null.Get(), null.Get(), null.Get()};
  return ExecInNode(layout, node, argv, fds);
}

// A node without keys refuses every patch.
void MoveKeys(const Layout& layout, int node, bool away) {
  const fs::path here = layout.Node(node) / "etc.defaults/kalo/patch-keys";
  const fs::path there = here.native() + ".away";
  if (fs::exists(there) == away) return;
  fs::rename(away ? here : there, away ? there : here);
}

void FillDisk(const Layout& layout, int node) {
  // dd fails at the end, on purpose: then the disk is full to the last block.
  RunQuietly(layout, node,
             {"dd", "if=/dev/zero", std::string("of=") + kFiller, "bs=64K", "status=none"});
}

void FreeDisk(const Layout& layout, int node) {
  if (RunQuietly(layout, node, {"rm", "-f", kFiller}) != 0) {
    throw std::runtime_error("cannot remove what filled the disk");
  }
}

const std::map<std::string, Event>& Events() {
  static const std::map<std::string, Event> events = {
      {"offline", [](const Layout& l, int n) { SetOnline(l, n, false); }},
      {"online", [](const Layout& l, int n) { SetOnline(l, n, true); }},
      {"upload-fail", [](const Layout& l, int n) { MoveKeys(l, n, true); }},
      {"upload-ok", [](const Layout& l, int n) { MoveKeys(l, n, false); }},
      {"hang", [](const Layout& l, int n) { SignalService(l, n, "webapid", SIGSTOP); }},
      {"resume", [](const Layout& l, int n) { SignalService(l, n, "webapid", SIGCONT); }},
      {"mesh-stop", [](const Layout& l, int n) { WantService(l, n, "meshd", false); }},
      {"mesh-start", [](const Layout& l, int n) { WantService(l, n, "meshd", true); }},
      {"fill-disk", FillDisk},
      {"free-disk", FreeDisk},
  };
  return events;
}

}  // namespace

std::vector<std::string> EventWords() {
  std::vector<std::string> words;
  for (const auto& [word, event] : Events()) words.push_back(word);
  return words;
}

void MakeEvent(const Layout& layout, int node, const std::string& word) {
  const auto found = Events().find(word);
  if (found == Events().end()) throw std::runtime_error("there is no event \"" + word + "\"");
  found->second(layout, node);
}

}  // namespace kalo::box
