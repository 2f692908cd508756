#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/update/response.h"
#include "platform/update/update_node.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace KALO::MESH::Webapi {

/// The state that the mesh upgrade is in. The numbers are part of the contract with callers.
enum class MESH_UPGRADE_STATUS : std::int32_t {
  NONE = 0,
  READY_TO_UPGRADE = 1,
  UPGRADING = 2,
  DOWNLOADING = 3,
  MESH_SYSTEM_ERROR = 4,
  SYSTEM_BUSY = 5,
  MESH_VERSION_NOT_EQUAL = 6,
};

/// Serves one request: an entry function builds it on its stack, calls one method and destroys it.
/// Nothing is kept between requests in memory, and two requests share nothing, so the methods need
/// no lock. Every request method ends with an answer on the response and lets no exception of
/// exceptions.h escape.
///
/// The slots of the virtual table and the order of the fields are a contract: new virtual
/// operations go to the end, and each handler owns all that it holds but request and response.
class UpgradeHandler {
 public:
  using UpdateNode = SDK::Upgrade::UpdateNode;

  /// The nodes of the mesh that share one hardware model.
  struct IdGroup {
    std::string unique;             ///< the model
    bool has_cap = false;           ///< node 0 is among the ids
    std::vector<std::int32_t> ids;  ///< in the order in which they were added
  };

  /// What a patch check found out about one kind of patch.
  struct PatchInfo {
    bool available = false;  ///< for at least one node
    std::string type;        ///< "smallupdate", or "hbx" for a full update
    std::string version;     ///< as it stands in the patch-information file
    std::int32_t build_num = 0;
    std::int32_t nano_num = 0;  ///< 0 when it is no small update
    bool over_version = false;  ///< some node runs a higher build than is offered
    bool is_beta = false;
  };

  /// One patch file for one node, before and after its upload. Copies share the node.
  struct UploadWork {
    std::shared_ptr<UpdateNode> node;
    std::string patchPath;
    SDK::Response response;  ///< fresh until the upload is made
    std::string baseVerNum;  ///< pure version that the patch applies on; empty for a full patch
  };

  /// @param request, response borrowed; they outlive the handler, which never frees them
  UpgradeHandler(APIRequest* request, APIResponse* response);
  UpgradeHandler(const UpgradeHandler&) = delete;
  UpgradeHandler& operator=(const UpgradeHandler&) = delete;
  virtual ~UpgradeHandler();

  // The request methods, in slot order. Each answers through the response.
  virtual void Start();
  virtual void StartEqualUpdate();
  virtual void CancelEqualUpdate();
  virtual void PatchCheck();
  virtual void PatchCheckEqual();
  virtual void PatchClean();
  virtual void PatchUpload();
  virtual void StatusGetV1();
  virtual void StatusGetV2();
  virtual void ProgressGet();
  virtual void ProgressGetV2();
  virtual void DownloadStart();
  virtual void DownloadCancel();
  virtual void DownloadProgressGet();
  virtual void DownloadProgressGetV2();
  virtual void RunUpgradePrecheck();

  // What the request methods share. Public, because each is a piece of the contract that is tested
  // by itself. WebapiException stands for "throws WebapiException when the step it names fails".

  /// Reads one node's answer out of a mesh-wide request's result.
  /// @return false, outputs untouched, unless the answer is a success with data and an integer id.
  bool GetDataFromResult(const Json::Value& result, Json::Value& data, int& node_id);

  /// Reads a progress file. A missing file or step is "none", 0.
  /// @throws WebapiException when the percentage is missing or not 0 to 100; the outputs then keep
  ///         the step just read and the bad number.
  void ProgressFromFile(const char* path, std::string& step, int& percent);
  /// Writes step, then percent. A reader may see the new step with the old percentage.
  /// @throws WebapiException
  void ProgressToFile(const char* path, const std::string& step, const int& percent);

  /// Tells what kind of update stands ready, from the patch-information file.
  /// @throws WebapiException when no kind is marked available.
  void GetPatchInfo(Json::Value& out);
  /// Fills the status answer. "ready_upgrade" without patch information degrades to "none".
  void SetStatusResp(MESH_UPGRADE_STATUS status, const std::string& reason, int percent,
                     Json::Value& out);

  /// @return 1 or -1 by build number; for equal builds nano(a) - nano(b), of which callers use the
  ///         sign only.
  /// @throws WebapiException
  int CompareVersion(std::string a, std::string b);
  /// Reads the display form, "VXM 1.3.1-9346 Update 4".
  /// @return false, outputs empty and 0, for anything else.
  bool ParseVersion(const std::string& text, std::string& os_version, int& build, int& nano);
  bool IsAllMeshVersionEqual(const std::vector<UpdateNode>& nodes);

  /// Groups node ids by model, models in ascending order.
  /// @throws WebapiException when an id is no current node's.
  void GetUniqueList(const std::vector<std::int32_t>& ids, std::vector<IdGroup>& groups);
  /// Appends the groups' text form, "model  0 3; other  5;", to the text.
  void UniqueGroupsToStr(const std::vector<IdGroup>& groups, std::string& text);
  /// Appends the groups that the text holds to the vector.
  void UniqueGroupFromStr(const std::string& text, std::vector<IdGroup>& groups);
  /// Records one kind of patch in the patch-information file.
  /// @throws WebapiException; keys written before the failure stay.
  void PatchAvailableToFile(const std::vector<std::int32_t>& ids, const PatchInfo& info,
                            bool promo);
  /// Reads one kind back. With nano and promo both true nothing is touched: a promotion download
  /// really asks so.
  /// @throws WebapiException when a record marked available lacks its version, or when its groups
  ///         cannot be read.
  void PatchAvailableFromFile(PatchInfo& info, std::vector<IdGroup>& groups, bool nano, bool promo);

  /// Records a patch that is no promotion for the nodes which CheckShouldUpdate names.
  /// @param answers object with an array "result" of the nodes' own check answers
  void PatchAvailableToFile(const Json::Value& answers, const PatchInfo& info);

  /// Looks for a newer firmware for every node and records what it found.
  /// @param is_auto the check was started automatically, not by a user
  /// @return the record to report: the small update's when there is one, else the full one's.
  /// @throws WebapiException
  PatchInfo PatchCheckImpl(bool is_auto);
  /// Derives the small update's record from the full one's. Untouched when the mesh has no nodes.
  void CheckNanoVersion(const PatchInfo& full, PatchInfo& nano);
  /// Collects the nodes whose answer names a version that occurs in the given one.
  void CheckShouldUpdate(const Json::Value& answers, const std::string& version,
                         std::vector<std::int32_t>& ids);

  /// Announces a version to the administrators, each one once. Failures are only logged.
  void SendAppNotify(const std::string& version);
  /// Takes the announcement back; the version still counts as announced.
  void ClearAppNotify();

  UploadWork createUploadWork(UpdateNode& node, const std::string& patch_path,
                              const std::string& base_version);
  /// @throws WebapiException when the id is no current node's.
  UploadWork createUploadWork(int node_id, const std::string& patch_path,
                              const std::string& base_version);
  /// Uploads every work and stores the answers in it; node 0 last.
  void UploadPatch(std::vector<UploadWork>& works);
  /// Records which nodes have their patch.
  /// @return whether every upload succeeded and the record was written.
  bool UploadResultToFile(const std::vector<UploadWork>& works);

  /// Downloads one kind of patch for every group and hands it on; the CAP's group goes last.
  /// @param base  version that a small update applies on; empty for a full patch
  /// @param total, second, third, fourth job counters of the whole download, which the update
  ///              library keeps (group_update.h)
  /// @param works receives every upload made, with its answer
  /// @throws WebapiException
  void DownloadPatches(const std::string& target, const std::vector<IdGroup>& groups, bool nano,
                       std::string base, int& total, int& second, int& third, int& fourth,
                       std::vector<UploadWork>& works, bool promotion);
  /// The same for one group. A satellite group's patch is removed from the store afterwards.
  /// @throws WebapiException
  void DownloadPatchAndUpload(const std::string& target, const IdGroup& group, bool nano,
                              std::string base, int& total, int& second, int& third, int& fourth,
                              std::vector<UploadWork>& works, bool promotion);

  /// Asks the updater in a folder whether a licence agreement must be shown.
  /// @return false also on failure, which is only logged.
  bool CheckEulaStart(const std::string& dir);
  /// Lets the updater in a folder print its licence agreement.
  /// @param lang as the caller asked, "enu"
  /// @return empty on any failure.
  std::string GetEulaContent(const std::string& dir, const std::string& lang);

  /// The one source of the mesh's node list.
  /// @throws WebapiException
  std::vector<UpdateNode> GetUpdateNodes();
  /// Answers the request and goes on in a detached child: the caller works on only when the result
  /// is 0 and returns at once otherwise.
  /// @param data the success data for the caller
  /// @return negative when no child could be made (answered 5200), the child's id in the parent
  ///         (answered with the data), 0 in the child (answers nothing).
  int ForkAndReturnWebapi(const Json::Value& data);

  /// The fixed order of the upgrade engine's steps; a failure outranks any step.
  [[nodiscard]] const std::map<std::string, std::int32_t>& StepRanks() const { return step_ranks_; }

 private:
  APIRequest* request_;
  APIResponse* response_;
  std::map<std::string, std::int32_t> step_ranks_;
};

static_assert(sizeof(void*) != 8 ||
              sizeof(UpgradeHandler) == 24 + sizeof(std::map<std::string, std::int32_t>));

}  // namespace KALO::MESH::Webapi
