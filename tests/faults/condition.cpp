#include "tests/faults/condition.h"

#include <csignal>
#include <iostream>
#include <stdexcept>

namespace kalo::faults {

Condition::Condition(FaultMesh& mesh, std::string name, int node)
    : mesh_(mesh), name_(std::move(name)), node_(node) {
  if (!name_.empty()) Begin();
}

void Condition::Run(const std::string& command) {
  const journeys::Outcome outcome = mesh_.Box().Exec(node_, {"sh", "-c", command});
  if (outcome.status != 0) throw std::runtime_error(name_ + ": " + outcome.err);
}

void Condition::Signal(const char* program, int signal) {
  for (const Process& process : mesh_.Node(node_).Processes()) {
    if (process.name == program) kill(process.pid, signal);
  }
}

void Condition::Begin() {
  if (name_ == "full-tmp") {
    // dd fails at the end, on purpose: then it is full to the last block.
    Run("dd if=/dev/zero of=/tmp/.kalo-filler bs=64K status=none 2>/dev/null || true");
  } else if (name_ == "full-storage") {
    mesh_.Box().Event(node_, "fill-disk");
  } else if (name_ == "read-only") {
    Run("mount -o remount,ro /volume1");
  } else if (name_ == "bus-stopped") {
    Signal("dbus-daemon", SIGSTOP);
  } else if (name_ == "bus-killed") {
    Signal("dbus-daemon", SIGKILL);
  } else if (name_ == "mesh-off") {
    mesh_.Box().Event(node_, "mesh-stop");
  } else if (name_ == "offline") {
    mesh_.Box().Event(node_, "offline");
  } else if (name_ == "hanging") {
    mesh_.Box().Event(node_, "hang");
  } else {
    throw std::runtime_error("there is no condition " + name_);
  }
}

Condition::~Condition() {
  try {
    if (name_ == "full-tmp") Run("rm -f /tmp/.kalo-filler");
    if (name_ == "full-storage") mesh_.Box().Event(node_, "free-disk");
    if (name_ == "read-only") Run("mount -o remount,rw /volume1");
    if (name_ == "bus-stopped") Signal("dbus-daemon", SIGCONT);
    if (name_ == "mesh-off") mesh_.Box().Event(node_, "mesh-start");
    if (name_ == "offline") mesh_.Box().Event(node_, "online");
    if (name_ == "hanging") mesh_.Box().Event(node_, "resume");
  } catch (const std::exception& trouble) {
    std::cerr << "fault-runner: " << trouble.what() << "\n";
  }
}

}  // namespace kalo::faults
