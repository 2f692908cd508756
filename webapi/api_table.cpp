#include "webapi/api_table.h"

#include "webapi/upgrade_handler.h"

using KALO::APIRequest;
using KALO::APIResponse;
using KALO::MESH::Webapi::UpgradeHandler;

// clang-format off
const KALO::APIRow gTable[17] = {
    {"KALO.Mesh.Upgrade",            1, "start",     WebapiUpgradeStart},
    {"KALO.Mesh.Upgrade",            1, "status",    WebapiUpgradeStatusV1},
    {"KALO.Mesh.Upgrade",            2, "status",    WebapiUpgradeStatusV2},
    {"KALO.Mesh.Upgrade",            1, "progress",  WebapiUpgradeProgress},
    {"KALO.Mesh.Upgrade",            2, "progress",  WebapiUpgradeProgressV2},
    {"KALO.Mesh.Upgrade.Equal",      1, "start",     WebapiUpgradeEqualStart},
    {"KALO.Mesh.Upgrade.Equal",      1, "cancel",    WebapiUpgradeEqualCancel},
    {"KALO.Mesh.Upgrade.Patch",      1, "check",     WebapiUpgradePatchCheck},
    {"KALO.Mesh.Upgrade.Patch",      2, "check",     WebapiUpgradePatchCheck},
    {"KALO.Mesh.Upgrade.Patch",      1, "clean",     WebapiUpgradePatchClean},
    {"KALO.Mesh.Upgrade.Patch",      1, "upload",    WebapiUpgradePatchUpload},
    {"KALO.Mesh.Upgrade.Patch.Check", 1, "equal",     WebapiUpgradePatchCheckEqual},
    {"KALO.Mesh.Upgrade.Download",   1, "start",     WebapiUpgradeDownloadStart},
    {"KALO.Mesh.Upgrade.Download",   1, "cancel",    WebapiUpgradeDownloadCancel},
    {"KALO.Mesh.Upgrade.Download",   1, "progress",  WebapiUpgradeDownloadProgress},
    {"KALO.Mesh.Upgrade.Download",   2, "progress",  WebapiUpgradeDownloadProgressV2},
    {"KALO.Mesh.Upgrade",            1, "precheck",  WebapiUpgradeRunPrecheck},
};
// clang-format on

const KALO::APIRow* GetAPITable() {
  return gTable;
}

void WebapiUpgradeStart(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.Start();
}

void WebapiUpgradeStatusV1(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.StatusGetV1();
}

void WebapiUpgradeStatusV2(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.StatusGetV2();
}

void WebapiUpgradeProgress(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.ProgressGet();
}

void WebapiUpgradeProgressV2(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.ProgressGetV2();
}

void WebapiUpgradeEqualStart(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.StartEqualUpdate();
}

void WebapiUpgradeEqualCancel(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.CancelEqualUpdate();
}

void WebapiUpgradePatchCheck(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.PatchCheck();
}

void WebapiUpgradePatchClean(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.PatchClean();
}

void WebapiUpgradePatchUpload(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.PatchUpload();
}

void WebapiUpgradePatchCheckEqual(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.PatchCheckEqual();
}

void WebapiUpgradeDownloadStart(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.DownloadStart();
}

void WebapiUpgradeDownloadCancel(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.DownloadCancel();
}

void WebapiUpgradeDownloadProgress(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.DownloadProgressGet();
}

void WebapiUpgradeDownloadProgressV2(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.DownloadProgressGetV2();
}

void WebapiUpgradeRunPrecheck(APIRequest* request, APIResponse* response) {
  UpgradeHandler handler(request, response);
  handler.RunUpgradePrecheck();
}
