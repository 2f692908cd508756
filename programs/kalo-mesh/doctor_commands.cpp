// What helps when something is odd: why the status is what it is, and everything for a report.

#include <sys/stat.h>

#include <array>
#include <ctime>
#include <iostream>

#include "host/core/file_io.h"
#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/diagnosis.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

constexpr const char* kMesh = "KALO.Core.Mesh";

struct Row {
  const char* api;
  int version;
  const char* method;
};

// All that only tells. None of it names a password, a session or a key.
constexpr std::array kRows = {
    Row{kMesh, 1, "events"},
    Row{kMesh, 1, "diagnosis"},
    Row{kMesh, 1, "history"},
    Row{"KALO.Mesh.Upgrade", 1, "status"},
    Row{"KALO.Mesh.Upgrade", 2, "status"},
    Row{"KALO.Mesh.Upgrade", 1, "progress"},
    Row{"KALO.Mesh.Upgrade", 2, "progress"},
    Row{"KALO.Mesh.Upgrade.Download", 1, "progress"},
    Row{"KALO.Mesh.Upgrade.Download", 2, "progress"},
    Row{"KALO.Core.Notification", 1, "list"},
};

Json::Value Ask(ApiClient& client, const Row& row) {
  try {
    return client.Call(row.api, row.version, row.method, Json::objectValue);
  } catch (const Refusal& e) {
    if (e.EndsSession()) throw;
    Json::Value error(Json::objectValue);
    error["error"] = e.Code();
    error["message"] = e.what();
    return error;
  }
}

std::string NameOf(const Row& row) {
  return std::string(row.api) + " " + std::to_string(row.version) + " " + row.method;
}

}  // namespace

int RunDoctor(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value state = Ask(client, {kMesh, 1, "events"});
  const Json::Value facts = Ask(client, {kMesh, 1, "diagnosis"});
  if (state.isMember("error")) {
    throw Failure(kFailed,
                  "the mesh service does not answer: on the main router, see whether meshd runs, "
                  "and what its system log says");
  }
  if (facts.isMember("error")) {
    throw Failure(kFailed, "the router's state files could not be looked at: " +
                               Printable(facts["message"].asString()));
  }
  const Diagnosis diagnosis = Diagnose(state, facts);
  if (common.json) {
    Json::Value root(Json::objectValue);
    root["verdict"] = diagnosis.verdict;
    root["findings"] = Json::Value(Json::arrayValue);
    for (const std::string& finding : diagnosis.findings) root["findings"].append(finding);
    std::cout << WriteJson(root) << "\n";
    return kOk;
  }
  std::cout << Printable(diagnosis.verdict) << ".\n";
  for (const std::string& finding : diagnosis.findings) {
    std::cout << "- " << Printable(finding) << ".\n";
  }
  if (diagnosis.findings.empty()) std::cout << "Nothing is odd.\n";
  return kOk;
}

int RunDump(const CommonOptions& common, const DumpOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  Json::Value root(Json::objectValue);
  root["program"] = "kalo-mesh " KALO_VERSION;
  root["time"] = Json::Int64{std::time(nullptr)};
  for (const Row& row : kRows) root["answers"][NameOf(row)] = Ask(client, row);
  const std::string text = root.toStyledString();
  if (options.out.empty()) {
    std::cout << text;
    return kOk;
  }
  // What the owner's nodes are called is nobody else's business.
  if (!WriteFileAtomic(options.out, text, S_IRUSR | S_IWUSR)) {
    throw Failure(kFailed, options.out + " cannot be written");
  }
  if (common.json) {
    std::cout << "{}\n";
  } else {
    std::cout << "Written: " << options.out << "\n";
  }
  return kOk;
}

}  // namespace kalo::cli
