#include "tests/fake/platform.h"

#include <unistd.h>

#include <stdexcept>

namespace fake {
namespace {

// The seam is made of plain functions: they find the running test's platform here.
Platform*& Slot() {
  static Platform* current = nullptr;
  return current;
}

}  // namespace

Platform::Platform() {
  Slot() = this;
}

Platform::~Platform() {
  Slot() = nullptr;
}

Platform& Platform::Current() {
  if (Slot() == nullptr) throw std::logic_error("no fake::Platform in this test");
  return *Slot();
}

void Platform::AddNode(int id, const std::string& unique, int build, int nano) {
  KALO::MESH::SDK::Client::NodeInfo info;
  info.unique = unique;
  info.build_num = build;
  info.nano_num = nano;
  info.full_version = "VXM 1.4.0-" + std::to_string(build);
  if (nano > 0) info.full_version += " Update " + std::to_string(nano);
  node_infos.nodes[static_cast<std::uint32_t>(id)] = info;
  access_infos.nodes[static_cast<std::uint32_t>(id)] = {};
}

void Platform::Note(const std::string& line) {
  journal.Add(line);
  ThrowIfWanted(line);
}

void Platform::ThrowIfWanted(const std::string& line) const {
  for (const auto& [prefix, thrower] : throwers) {
    if (line.starts_with(prefix)) thrower();
  }
}

}  // namespace fake
