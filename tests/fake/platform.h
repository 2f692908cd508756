#pragma once

#include <json/value.h>

#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/mesh/client.h"
#include "platform/update/patch.h"
#include "platform/update/response.h"
#include "platform/update/system_update.h"
#include "platform/update/update_node.h"
#include "tests/fake/journal.h"

/// The platform that the module's tests link instead of the real one. A test makes one Platform,
/// says how it behaves and reads the journal; every call of the module leaves one line there:
///
///   get /tmp/mesh_upgrade step 8192        set /tmp/mesh_upgrade step=upgrading
///   exist PATH   rename FROM TO   lock PATH   unlock FD   unlink PATH   fork   setsid
///   client   node_infos   access_infos   system_status   start_update   progress   progress_v2
///   call API VERSION METHOD PARAMS USER    auto_updating   parse_patch PATH
///   check PATH KEY=VALUE                   info_set KEY=VALUE
///   execl PATH FLAGS ARGUMENT…             nano_update UNIQUE BUILD
///   exec PATH ARGUMENT…                    mkdirp PATH MODE EXIST UID GID
///   clean_folder PATH                      notify OUTCOME KIND VERSION     cred_init
///   convert VERSION   target UNIQUE VERSION   job_set A B C D   job_get   patch_path UNIQUE PURE
///   download FOLDER AUTO PROMOTION         patch_clean FOLDER      cancel_download
///   regular_check AUTO MAJOR MINOR BUILD UNIQUE LAST
///   upload NODE API METHOD VERSION PARAMS PATH            send API METHOD VERSION IDS
///   upgrade_path TARGET CURRENT UNIQUE     parse_json PATH         popen PATH ARGUMENT…   pclose
///   pid_file PATH                          kill PID SIGNAL         move FROM TO
///   log PRIORITY LINE TEXT                 success DATA   error CODE DATA
namespace fake {

/// Throws when a test says so. May be of any type, also of one that is no standard exception.
using Thrower = std::function<void()>;

struct NotStandard {};

/// What the regular update check says of one node.
struct RegularOffer {
  bool found = false;
  std::string type;
  std::string version;
};

class Platform {
 public:
  Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;
  ~Platform();

  /// The platform of the running test.
  static Platform& Current();

  Journal journal;

  // Key=value files, by path and key. A path that is no entry does not exist.
  std::map<std::string, std::map<std::string, std::string>> files;
  /// Overrides of what a call returns, by "get PATH KEY", "set PATH KEY", "remove PATH KEY"
  /// "info_set KEY" or "mkdirp PATH".
  std::map<std::string, int> results;
  /// Other files that exist, by path.
  std::set<std::string> plain_files;
  int rename_result = 0;
  /// errno after a call of which `results` overrides what it returns.
  int override_errno = 0;
  /// Stands for the outside programs: gets path and arguments, gives what KLIBCExecl and KLIBCExec
  /// return.
  std::function<int(const std::vector<std::string>&)> on_program;
  /// What a program started by KLIBCPopen says, and its end; empty: it cannot be started.
  std::optional<std::string> program_output;
  int program_status = 0;
  int pid_file_result = -1;
  int kill_result = 0;
  /// Files that cannot be moved.
  std::set<std::string> stuck_files;
  int lock_result = 1;
  /// What KLIBCProcFork returns; empty: it really forks.
  std::optional<int> fork_result;

  // The mesh service.
  Thrower on_get_client;
  std::uint32_t start_result = 0;
  KALO::MESH::SDK::Client::NodeInfosResult node_infos;
  KALO::MESH::SDK::Client::RepeaterAccessInfosResult access_infos;
  KALO::MESH::SDK::Client::MeshSystemStatus system_status;
  KALO::MESH::SDK::Client::SystemUpdateProgress progress;

  // The update library.
  bool auto_updating = false;
  std::map<std::string, KALO::MESH::SDK::Upgrade::PatchInfo> patches;  ///< by path
  std::map<int, Json::Value> upload_envelopes;  ///< a node's answer; none: it throws
  Json::Value exec_envelope;
  int cred_result = 0;
  /// Whether GroupUpdate succeeds; before each download the journal shows what it is asked for.
  bool download_result = true;
  bool cancel_result = true;
  /// Folders that cannot be emptied.
  std::set<std::string> stubborn_folders;
  /// The regular check's answer by model; none: nothing is found.
  std::map<std::string, RegularOffer> regular_offers;
  int nano_number = 0;
  /// The stops of a version's way to the highest one; none: an empty way.
  std::map<std::string, std::vector<std::string>> upgrade_paths;
  std::map<std::string, Json::Value> json_files;  ///< by path

  /// Thrown by the call whose journal line begins so. A node's getters leave no line, but throw for
  /// "node_id ID" and "unique UNIQUE".
  std::map<std::string, Thrower> throwers;

  /// Adds a node to both of the service's answers.
  void AddNode(int id, const std::string& unique, int build, int nano = 0);

  /// Notes a call, and throws where a test wants it.
  void Note(const std::string& line);
  /// Throws where a test wants it.
  void ThrowIfWanted(const std::string& line) const;
};

/// @return a thrower of this exception.
template <class Exception>
Thrower Throws(Exception exception) {
  return [exception] { throw exception; };
}

}  // namespace fake
