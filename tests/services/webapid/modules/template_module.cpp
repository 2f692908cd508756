// A module as one could be written for the server, with entry functions that do every odd thing
// the server has to bear.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "platform/webapi/api_runner.h"
#include "platform/webapi/api_table.h"
#include "tests/services/webapid/modules/failing_fork.h"

namespace {

using KALO::APIRequest;
using KALO::APIResponse;

constexpr const char* kLock = "/run/template.lock";
constexpr const char* kChildPid = "/run/template.child";
constexpr const char* kHold = "/run/template.hold";  // a FIFO; reading it waits for the test

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path + ".new") << text;
  std::filesystem::rename(path + ".new", path);
}

void Wait() {
  while (true) pause();
}

void Echo(APIRequest* request, APIResponse* response) {
  Json::Value data(Json::objectValue);
  for (const char* name : {"a", "b", "text"}) data[name] = request->GetParam(name, "missing");
  data["flag"] = request->GetAndCheckBool("flag").value_or(false);
  response->SetSuccess(data);
}

void Large(APIRequest* request, APIResponse* response) {
  const std::string text = request->GetAndCheckString("text").value_or("");
  response->SetSuccess(Json::Value(text + text));
}

void Fail(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value());
  response->SetError(5209, Json::Value());
}

void ThrowStandard(APIRequest* /*request*/, APIResponse* /*response*/) {
  throw std::runtime_error("planted");
}

void ThrowOther(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value());
  throw 7;
}

void NoAnswer(APIRequest* /*request*/, APIResponse* /*response*/) {}

void Abort(APIRequest* /*request*/, APIResponse* /*response*/) {
  signal(SIGABRT, SIG_DFL);
  std::abort();
}

void Segfault(APIRequest* /*request*/, APIResponse* /*response*/) {
  signal(SIGSEGV, SIG_DFL);
  raise(SIGSEGV);
}

void Hang(APIRequest* /*request*/, APIResponse* /*response*/) {
  Wait();
}

// Says that it has begun, and waits until the test opens the FIFO for writing.
void Hold(APIRequest* /*request*/, APIResponse* response) {
  WriteText("/run/template.holding." + std::to_string(getpid()), "");
  const int fd = open(kHold, O_RDONLY | O_CLOEXEC);
  if (fd >= 0) close(fd);
  response->SetSuccess(Json::Value("held"));
}

void ForkAndReturn(APIRequest* /*request*/, APIResponse* response) {
  const pid_t pid = fork();
  response->SetSuccess(Json::Value(pid == 0 ? "child" : "parent"));
}

void ForkAndThrow(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value("parent"));
  if (fork() == 0) throw std::runtime_error("thrown in the child");
}

void TakeLock() {
  const int fd = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd < 0 || flock(fd, LOCK_EX | LOCK_NB) != 0) throw std::runtime_error("lock is busy");
}

// As the real module does it: the lock belongs to the child, which nobody waits for.
void ForkWithLock(APIRequest* /*request*/, APIResponse* response) {
  TakeLock();
  const pid_t pid = fork();
  if (pid == 0) {
    WriteText(kChildPid, std::to_string(getpid()));
    Wait();
  }
  response->SetSuccess(Json::Value(pid));
}

void FailedForkWithLock(APIRequest* /*request*/, APIResponse* response) {
  TakeLock();
  MakeForkFail();
  response->SetSuccess(Json::Value(fork() < 0 ? "no child" : "a child"));
}

// Tells which descriptors a child has.
void ForkAndListDescriptors(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value());
  if (fork() != 0) return;
  std::string list;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    list += entry.path().filename().string() + " " +
            std::filesystem::read_symlink(entry.path(), gone).string() + "\n";
  }
  WriteText("/run/template.descriptors", list);
}

void Pid(APIRequest* /*request*/, APIResponse* response) {
  response->SetSuccess(Json::Value(getpid()));
}

// What can be listened to: what a file says. Each question leaves a byte in another.
void Watched(APIRequest* /*request*/, APIResponse* response) {
  std::ofstream("/run/template.asked", std::ios::app) << '.';
  std::ifstream file("/run/template.watched");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  if (text == "die") std::abort();
  response->SetSuccess(Json::Value(text));
}

void Nested(APIRequest* /*request*/, APIResponse* response) {
  Json::Value known;
  Json::Value unknown;
  Json::Value parameters(Json::objectValue);
  parameters["a"] = 5;
  KALO::APIRunner::Exec(known, "KALO.Test", 1, "echo", parameters, "admin");
  KALO::APIRunner::Exec(unknown, "KALO.Test", 1, "nothing", Json::Value(), "admin");
  Json::Value data(Json::objectValue);
  data["known"] = known;
  data["unknown"] = unknown;
  response->SetSuccess(data);
}

// Reads what the server stored, or keeps it elsewhere.
void Upload(APIRequest* request, APIResponse* response) {
  const std::string path = request->GetAndCheckString("one_file_tmp").value_or("");
  struct stat file {};
  struct stat folder {};
  Json::Value data(Json::objectValue);
  data["name"] = request->GetParam("one_file", Json::Value());
  data["path"] = path;
  data["note"] = request->GetParam("note", Json::Value());
  if (stat(path.c_str(), &file) == 0 &&
      stat(std::filesystem::path(path).parent_path().c_str(), &folder) == 0) {
    data["mode"] = static_cast<int>(file.st_mode & 07777);
    data["folder_mode"] = static_cast<int>(folder.st_mode & 07777);
    data["size"] = Json::Int64{file.st_size};
    std::ifstream stream(path, std::ios::binary);
    std::string head(16, '\0');
    stream.read(head.data(), static_cast<std::streamsize>(head.size()));
    data["head"] = head.substr(0, static_cast<std::size_t>(stream.gcount()));
  }
  response->SetSuccess(data);
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) extern const KALO::APIRow gTable[];

const KALO::APIRow gTable[] = {
    {"KALO.Test", 1, "echo", Echo},
    {"KALO.Test", 1, "large", Large},
    {"KALO.Test", 1, "fail", Fail},
    {"KALO.Test", 1, "throw_standard", ThrowStandard},
    {"KALO.Test", 1, "throw_other", ThrowOther},
    {"KALO.Test", 1, "no_answer", NoAnswer},
    {"KALO.Test", 1, "abort", Abort},
    {"KALO.Test", 1, "segfault", Segfault},
    {"KALO.Test", 1, "hang", Hang},
    {"KALO.Test", 1, "hold", Hold},
    {"KALO.Test", 1, "hold_poll", Hold},
    {"KALO.Test", 1, "fork_return", ForkAndReturn},
    {"KALO.Test", 1, "fork_throw", ForkAndThrow},
    {"KALO.Test", 1, "fork_lock", ForkWithLock},
    {"KALO.Test", 1, "fork_lock_fails", FailedForkWithLock},
    {"KALO.Test", 1, "fork_descriptors", ForkAndListDescriptors},
    {"KALO.Test", 1, "pid", Pid},
    {"KALO.Test", 1, "nested", Nested},
    {"KALO.Test", 1, "upload", Upload},
    {"KALO.Test", 1, "poll", Echo},
    {"KALO.Test", 1, "watched", Watched},
    {"KALO.Test", 1, "undescribed", Echo},
    {"KALO.Test", 1, "nobody", Echo},
    {"KALO.Test", 1, "node_0", Echo},
    {"KALO.Test", 1, "nodes", Echo},
};

__attribute__((visibility("default"))) const KALO::APIRow* GetAPITable();
const KALO::APIRow* GetAPITable() {
  return gTable;
}
}
