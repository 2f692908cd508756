#pragma once

namespace kalo::webapi {

/// Error numbers that the server itself and the platform's own modules answer with. They are part
/// of the contract with clients; their sentences and HTTP statuses stand in
/// services/webapid/error_sentences.cpp.
enum ErrorCode : int {
  kGeneralFailure = 117,
  kBadParameter = 403,
  kMalformedRequest = 7001,
  kUnknownApi = 7002,
  kNotSignedIn = 7003,
  kSessionEnded = 7004,
  kTokenWrong = 7005,
  kNotAllowed = 7006,
  kBodyTooLarge = 7007,
  kServerBusy = 7008,
  kTimeLimit = 7009,
  kWorkerDied = 7010,
  kReservedParameter = 7011,
  kWrongPassword = 7012,
  kWaitBeforeRetry = 7013,
  kUploadNotStored = 7014,
  kNoAnswer = 7015,
  kForeignHost = 7016,
  kForeignSite = 7017,
  kWrongContentType = 7018,
};

}  // namespace kalo::webapi
