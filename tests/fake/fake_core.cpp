// The core C library, and the few calls of the C library that tests must see.

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "tests/fake/platform.h"

using fake::Platform;

namespace {

std::optional<int> Override(const std::string& call) {
  const auto& results = Platform::Current().results;
  const auto found = results.find(call);
  return found != results.end() ? std::optional<int>(found->second) : std::nullopt;
}

// 0 is usual and stays unsaid.
std::string FlagsText(int flags) {
  return flags != 0 ? " flags " + std::to_string(flags) : "";
}

constexpr int kLockFd = 41;

}  // namespace

int KLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, std::size_t size,
                         int flags) {
  Platform& platform = Platform::Current();
  const std::string call = std::string("get ") + path + " " + key;
  platform.Note(call + " " + std::to_string(size) + FlagsText(flags));
  if (const auto result = Override(call)) {
    // Rubbish behind a failure: nobody may go by what the buffer holds.
    std::snprintf(buffer, size, "rubbish");
    return *result;
  }
  const auto file = platform.files.find(path);
  if (file == platform.files.end()) {
    errno = ENOENT;
    return -1;
  }
  const auto value = file->second.find(key);
  if (value == file->second.end()) return 0;
  if (value->second.size() >= size) return -1;
  std::memcpy(buffer, value->second.c_str(), value->second.size() + 1);
  return static_cast<int>(value->second.size());
}

int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int flags) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("set ") + path + " " + key + "=" + value + FlagsText(flags));
  if (const auto result = Override(std::string("set ") + path + " " + key)) return *result;
  platform.files[path][key] = value;
  return 1;
}

int KLIBCFileRemoveKey(const char* path, const char* key) {
  Platform& platform = Platform::Current();
  const std::string call = std::string("remove ") + path + " " + key;
  platform.Note(call);
  if (const auto result = Override(call)) {
    errno = platform.override_errno;
    return *result;
  }
  const auto file = platform.files.find(path);
  if (file != platform.files.end() && file->second.erase(key) > 0) return 0;
  errno = ENOENT;
  return -1;
}

int KLIBCFileCheckKeyValue(const char* path, const char* key, const char* value, int flags) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("check ") + path + " " + key + "=" + value + FlagsText(flags));
  const auto file = platform.files.find(path);
  if (file == platform.files.end()) return 0;
  const auto found = file->second.find(key);
  return found != file->second.end() && found->second == value ? 1 : 0;
}

int KLIBCINFOSetKeyValue(const char* key, const char* value) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("info_set ") + key + "=" + value);
  if (const auto result = Override(std::string("info_set ") + key)) return *result;
  platform.files["/etc/kaloinfo.conf"][key] = value;
  return 1;
}

int KLIBCExecl(const char* path, int flags, ...) {
  Platform& platform = Platform::Current();
  std::vector<std::string> words = {path};
  std::string line = std::string("execl ") + path + " " + std::to_string(flags);
  va_list arguments;
  va_start(arguments, flags);
  while (const char* word = va_arg(arguments, const char*)) {
    words.emplace_back(word);
    line += std::string(" ") + word;
  }
  va_end(arguments);
  platform.Note(line);
  return platform.on_program ? platform.on_program(words) : 0;
}

int KLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3,
              const char* arg4) {
  std::vector<std::string> words = {path};
  std::string line = std::string("exec ") + path;
  for (const char* word : {arg1, arg2, arg3, arg4}) {
    if (word == nullptr) break;
    words.emplace_back(word);
    line += std::string(" ") + word;
  }
  Platform& platform = Platform::Current();
  platform.Note(line);
  return platform.on_program ? platform.on_program(words) : 0;
}

std::FILE* KLIBCPopen(const char* path, const char* type, ...) {
  Platform& platform = Platform::Current();
  std::string line = std::string("popen ") + path + " " + type;
  va_list arguments;
  va_start(arguments, type);
  while (const char* word = va_arg(arguments, const char*)) line += std::string(" ") + word;
  va_end(arguments);
  platform.Note(line);
  if (!platform.program_output) return nullptr;
  // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the caller closes it
  std::FILE* stream = std::tmpfile();
  std::fwrite(platform.program_output->data(), 1, platform.program_output->size(), stream);
  std::rewind(stream);
  return stream;
}

int KLIBCPclose(std::FILE* stream) {
  std::fclose(stream);  // NOLINT(cppcoreguidelines-owning-memory): handed in to be closed
  Platform::Current().Note("pclose");
  return Platform::Current().program_status;
}

int KLIBCReadPidFile(const char* path) {
  Platform::Current().Note(std::string("pid_file ") + path);
  return Platform::Current().pid_file_result;
}

int KALOFSMkdirP(const char* path, int mode, int exist, int uid, int gid) {
  const std::string line = std::string("mkdirp ") + path;
  Platform::Current().Note(line + " " + std::to_string(mode) + " " + std::to_string(exist) + " " +
                           std::to_string(uid) + " " + std::to_string(gid));
  return Override(line).value_or(0);
}

int KLIBCFileExist(const char* path) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("exist ") + path);
  return platform.files.contains(path) || platform.plain_files.contains(path) ? 1 : 0;
}

int KLIBCSysRename(const char* from, const char* to) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("rename ") + from + " " + to);
  if (platform.rename_result != 0) return platform.rename_result;
  if (platform.plain_files.erase(from) > 0) platform.plain_files.insert(to);
  return 0;
}

int KLIBCFileLockByFile(const char* path, int mode, int* fd) {
  Platform& platform = Platform::Current();
  platform.Note(std::string("lock ") + path + " " + std::to_string(mode) + " " +
                std::to_string(*fd));
  if (platform.lock_result != 0) *fd = kLockFd;
  return platform.lock_result;
}

int KLIBCFileUnlockByFile(int fd) {
  Platform::Current().Note("unlock " + std::to_string(fd));
  return fd < 0 ? -1 : 0;
}

int KLIBCProcFork(int flags) {
  Platform& platform = Platform::Current();
  platform.Note("fork " + std::to_string(flags));
  return platform.fork_result ? *platform.fork_result : static_cast<int>(fork());
}

extern "C" {

int unlink(const char* path) noexcept {
  Platform& platform = Platform::Current();
  platform.Note(std::string("unlink ") + path);
  platform.files.erase(path);
  // What a program was told to fetch is a real file: the module reads it as one.
  if (std::string_view(path).starts_with("/tmp/rss_v2_")) return unlinkat(AT_FDCWD, path, 0);
  return platform.plain_files.erase(path) > 0 ? 0 : -1;
}

int rename(const char* from, const char* to) noexcept {
  Platform& platform = Platform::Current();
  platform.Note(std::string("move ") + from + " " + to);
  if (platform.stuck_files.contains(from) || platform.plain_files.erase(from) == 0) return -1;
  platform.plain_files.insert(to);
  return 0;
}

int kill(pid_t pid, int signal) noexcept {
  Platform::Current().Note("kill " + std::to_string(pid) + " " + std::to_string(signal));
  return Platform::Current().kill_result;
}

pid_t setsid() noexcept {
  Platform::Current().Note("setsid");
  return 1;
}

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string line(4096, '\0');
  const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  line.resize(static_cast<std::size_t>(length));
  const std::string source = "webapi_upgrade_handler:";
  if (line.starts_with(source)) line = line.substr(source.size());
  Platform::Current().journal.Add("log " + std::to_string(priority) + " " + line);
}
}
