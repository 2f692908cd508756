#pragma once

#include "platform/webapi/api_table.h"

/// What the server's loader sees of the module: the table, its accessor and the entry functions,
/// under unmangled names. Every entry function builds one UpgradeHandler for the request, calls the
/// one method that its row names, and destroys it; an exception that the method lets escape passes
/// on to the server. They may be called from several threads at once.
#pragma GCC visibility push(default)
extern "C" {

/// 17 rows, no row that ends them: the loader counts by the symbol's size.
extern const KALO::APIRow gTable[17];

const KALO::APIRow* GetAPITable();

void WebapiUpgradeStart(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeStatusV1(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeStatusV2(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeProgress(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeProgressV2(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeEqualStart(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeEqualCancel(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradePatchCheck(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradePatchClean(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradePatchUpload(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradePatchCheckEqual(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeDownloadStart(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeDownloadCancel(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeDownloadProgress(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeDownloadProgressV2(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiUpgradeRunPrecheck(KALO::APIRequest* request, KALO::APIResponse* response);
}
#pragma GCC visibility pop
