#include "programs/kalo-mesh/diagnosis.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>

#include "host/core/key_value_text.h"
#include "platform/paths.h"
#include "programs/kalo-mesh/mesh_view.h"

namespace kalo::cli {
namespace {

namespace paths = KALO::paths;

// One state file as the router told it.
struct File {
  bool there = false;
  std::string trouble;
  KeyValueText text{""};

  [[nodiscard]] std::string Get(const char* key) const { return text.Get(key).value_or(""); }
};

struct Facts {
  MeshView mesh;
  std::string status;  // its word; empty when it failed
  std::string reason;
  File upgrade;
  File download;
  File patch;
  bool transfer_runs = false;
  bool automatic_runs = false;
  bool equal_runs = false;
};

File ReadFile(const Json::Value& diagnosis, const char* path) {
  File file;
  for (const Json::Value& one : diagnosis["files"]) {
    if (TextOf(one, "path") != path) continue;
    file.there = IsTrue(one, "there");
    file.trouble = TextOf(one, "error");
    file.text = KeyValueText(TextOf(one, "text"));
  }
  return file;
}

bool IsHeld(const Json::Value& diagnosis, const char* path) {
  const Json::Value& locks = diagnosis["locks"];
  return std::any_of(locks.begin(), locks.end(), [path](const Json::Value& lock) {
    return TextOf(lock, "path") == path && IsTrue(lock, "held");
  });
}

Facts Gather(const Json::Value& state, const Json::Value& diagnosis) {
  Facts facts;
  facts.mesh = ReadMesh(state);
  facts.status = TextOf(state["status"], "status");
  facts.reason = TextOf(state["status"], "reason");
  facts.upgrade = ReadFile(diagnosis, paths::kUpgradeProgress);
  facts.download = ReadFile(diagnosis, paths::kDownloadProgress);
  facts.patch = ReadFile(diagnosis, paths::kPatchInformation);
  facts.transfer_runs = IsHeld(diagnosis, paths::kPatchLock);
  facts.automatic_runs = IsHeld(diagnosis, paths::kAutoUpdateLock);
  facts.equal_runs = IsTrue(diagnosis, "equal_update_runs");
  return facts;
}

bool IsPercent(const std::string& text) {
  int value = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() && value >= 0 && value <= 100;
}

// What makes every request fail that reads the file; empty when nothing does.
std::string BadFile(const char* path, const File& file) {
  if (!file.trouble.empty()) return std::string(path) + " cannot be read: " + file.trouble;
  if (!file.there || file.Get("step").empty() || IsPercent(file.Get("percent"))) return "";
  return std::string(path) + " says percent=\"" + file.Get("percent") +
         "\", which is no number from 0 to 100";
}

std::string NameOf(const NodeView& node) {
  return "node " + std::to_string(node.id) + (node.name.empty() ? "" : " (" + node.name + ")");
}

std::string Away(const Facts& facts) {
  std::string names;
  for (const NodeView& node : facts.mesh.nodes) {
    if (!node.online) names += (names.empty() ? "" : ", ") + NameOf(node);
  }
  return names;
}

std::string Versions(const Facts& facts) {
  std::string list;
  for (const NodeView& node : facts.mesh.nodes) {
    list += (list.empty() ? "" : ", ") + NameOf(node) + " " + node.version;
  }
  return list;
}

std::string Says(const char* path, const File& file) {
  return std::string(path) + " says step=\"" + file.Get("step") + "\" percent=\"" +
         file.Get("percent") + "\"";
}

std::string WhyUpgrading(const Facts& facts) {
  if (facts.automatic_runs) {
    return std::string("an automatic update runs: the lock ") + paths::kAutoUpdateLock + " is held";
  }
  std::string why = Says(paths::kUpgradeProgress, facts.upgrade);
  if (facts.equal_runs) return why + ", as nodes are brought to one version";
  return why + (facts.mesh.update_running ? ", as the mesh service runs an update"
                                          : ", which the mesh service will end in a moment");
}

std::string WhyNot(const Facts& facts) {
  for (const auto& [path, file] : {std::pair(paths::kUpgradeProgress, &facts.upgrade),
                                   std::pair(paths::kDownloadProgress, &facts.download)}) {
    std::string bad = BadFile(path, *file);
    if (!bad.empty()) return bad;
  }
  return "the mesh service did not answer, or a file could not be read; the router's system log "
         "says which";
}

std::string Why(const Facts& facts) {
  if (facts.status.empty()) return WhyNot(facts);
  if (facts.status == "upgrading") return WhyUpgrading(facts);
  if (facts.reason == "mesh_status_syncing") {
    return "since its start the mesh service has not asked every node once";
  }
  if (facts.reason == "node_offline") return Away(facts) + " does not answer";
  if (facts.status == "ready_upgrade") return Says(paths::kUpgradeProgress, facts.upgrade);
  if (facts.status == "downloading") {
    return Says(paths::kDownloadProgress, facts.download) +
           (facts.download.Get("step") == "finished" ? ": the files are there and go to the nodes"
                                                     : "");
  }
  if (facts.status == "mesh_version_not_equal") return Versions(facts);
  return "no update, no download, every node is there and runs the same version";
}

void FindLeftovers(const Facts& facts, std::vector<std::string>& findings) {
  const std::string step = facts.download.Get("step");
  if (step == "downloading" && !facts.transfer_runs) {
    findings.push_back(Says(paths::kDownloadProgress, facts.download) +
                       ", but nobody holds the lock of a transfer: the download died; the router "
                       "ends it within seconds");
  }
  if (step == "failed") {
    const std::string bytes = facts.download.Get("need_bytes");
    findings.push_back("the last download failed" +
                       (bytes.empty() ? std::string("; the router's system log says why")
                                      : ": it needs " + bytes +
                                            " bytes free on the main router; kalo-mesh clean "
                                            "frees what earlier ones left"));
  }
  const auto flag = [&](const char* key) { return facts.patch.Get(key) == "true"; };
  if (facts.upgrade.Get("step") == "ready_upgrade" && !flag("avaliable_full") &&
      !flag("avaliable_nano") && !flag("avaliable_promo")) {
    findings.push_back(Says(paths::kUpgradeProgress, facts.upgrade) + ", but " +
                       paths::kPatchInformation +
                       " names no patch, so status says \"none\"; kalo-mesh check begins anew");
  }
}

void FindNodes(const Facts& facts, std::vector<std::string>& findings) {
  for (const NodeView& node : facts.mesh.nodes) {
    if (!node.online) {
      findings.push_back(NameOf(node) + " does not answer: look at its power and its connection");
    }
    if (!node.error.empty()) findings.push_back("the last update: " + node.error);
    if (!node.staged_version.empty() && facts.upgrade.Get("step") != "ready_upgrade" &&
        facts.status != "upgrading" && facts.status != "downloading") {
      findings.push_back(NameOf(node) + " holds " + node.staged_version +
                         " ready: kalo-mesh start installs it, kalo-mesh clean drops it");
    }
  }
}

}  // namespace

Diagnosis Diagnose(const Json::Value& state, const Json::Value& diagnosis) {
  const Facts facts = Gather(state, diagnosis);
  Diagnosis result;
  const std::string word =
      facts.status.empty()
          ? "fails with error " + std::to_string(NumberOf(state["status"], "error"))
          : "says \"" + facts.status + "\"";
  result.verdict = "status " + word + ", because " + Why(facts);
  for (const auto& [path, file] : {std::pair(paths::kUpgradeProgress, &facts.upgrade),
                                   std::pair(paths::kDownloadProgress, &facts.download)}) {
    const std::string bad = BadFile(path, *file);
    if (!bad.empty()) result.findings.push_back(bad + "; remove the file");
  }
  FindLeftovers(facts, result.findings);
  FindNodes(facts, result.findings);
  return result;
}

}  // namespace kalo::cli
