#include "services/webapid/error_sentences.h"

#include <algorithm>
#include <array>

#include "host/core/strict_json.h"

namespace kalo::webapid {
namespace {

struct Row {
  int code;
  unsigned status;
  const char* sentence;
};

constexpr Row kUnknown = {0, 200, "The request failed; the system log says why."};

// 7000 to 7099 are the server's own. The others are answered by modules, always with status 200.
constexpr std::array kRows = {
    Row{100, 200, "The request failed for an unknown reason."},
    Row{117, 200, "The request failed; the system log says why."},
    Row{403, 200, "A parameter is missing or wrong."},
    Row{1001, 200, "The patch files are of different versions."},
    Row{1002, 200, "There is nothing to upgrade: every node runs this version or a newer one."},
    Row{1003, 200, "A patch file is missing, damaged or not a valid patch."},
    Row{5200, 200, "The background task could not be started."},
    Row{5202, 200, "An automatic update is running."},
    Row{5209, 200, "The update was started, but its state could not be written."},
    Row{5220, 200, "An installation is running on this node."},
    Row{5221, 200, "The patch does not verify: it was not signed by a known key, or was changed."},
    Row{5222, 200, "The patch is for another model."},
    Row{5223, 200, "The patch is not newer than what this node runs."},
    Row{5224, 200, "There is not enough free space for the patch."},
    Row{5225, 200, "No patch is staged on this node."},
    Row{5226, 200, "The patch could not be staged on this node."},
    Row{5227, 200, "The request carries no patch file."},
    Row{5228, 200, "The small update applies on another version than this node runs or holds."},
    Row{5229, 200, "The node is busy with a patch; please try again in a moment."},
    Row{7001, 400, "The request is malformed."},
    Row{7002, 404, "There is no such API, version or method."},
    Row{7003, 401, "Please sign in first."},
    Row{7004, 401, "The session has ended; please sign in again."},
    Row{7005, 403, "The request's token is missing or wrong."},
    Row{7006, 403, "This is not allowed for you."},
    Row{7007, 413, "The request is too large."},
    Row{7008, 503, "The server is busy; please try again in a moment."},
    Row{7009, 504, "The request took longer than its time limit and was stopped."},
    Row{7010, 502, "The program that served the request ended unexpectedly."},
    Row{7011, 400, "The request uses a parameter name that is reserved for the server."},
    Row{7012, 401, "The user name or the password is wrong."},
    Row{7013, 429, "Please wait a moment before the next attempt."},
    Row{7014, 507, "The uploaded file could not be stored."},
    Row{7015, 200, "The request ended without an answer."},
    Row{7016, 421,
        "The router does not know this host name; use its address, or add the name to host_names "
        "in "
        "/etc/kalo/webapid.json."},
    Row{7017, 403, "The request comes from another site's page, which may not call the router."},
    Row{7018, 415, "The body's type is missing or not accepted; send application/json."},
    Row{9001, 200, "Another download, upload or upgrade is under way."},
    Row{9002, 200, "A node refused the patch or gave no usable answer."},
};

const Row& Find(int code) {
  const auto* row =
      std::find_if(kRows.begin(), kRows.end(), [code](const Row& r) { return r.code == code; });
  return row == kRows.end() ? kUnknown : *row;
}

}  // namespace

const char* ErrorSentence(int code) {
  return Find(code).sentence;
}

unsigned ErrorStatus(int code) {
  return Find(code).status;
}

std::string ErrorEnvelope(int code) {
  Json::Value envelope(Json::objectValue);
  envelope["success"] = false;
  envelope["error"]["code"] = code;
  envelope["error"]["message"] = ErrorSentence(code);
  return WriteJson(envelope);
}

}  // namespace kalo::webapid
