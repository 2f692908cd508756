#include "host/core/guest_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "host/core/file_io.h"
#include "host/core/key_value_text.h"
#include "host/core/log.h"
#include "host/core/spawn.h"
#include "platform/paths.h"

namespace kalo {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kPiece = 16384;

// Copies what is there now.
// @return the bytes copied, 0 at the end of the output; -1 with errno set.
ssize_t CopySome(int from, int to) {
  std::array<char, kPiece> piece{};
  const ssize_t got = read(from, piece.data(), piece.size());
  if (got < 0) return errno == EINTR ? CopySome(from, to) : -1;
  return WriteAll(to, {piece.data(), static_cast<std::size_t>(got)}) ? got : -1;
}

bool Watch(pid_t pid, int output, int copy, const GuestLimits& limits) {
  const auto deadline = steady_clock::now() + limits.whole;
  const UniqueFd leader(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!leader) return false;
  std::array<pollfd, 2> watched = {{{leader.Get(), POLLIN, 0}, {output, POLLIN, 0}}};
  std::size_t copied = 0;
  // Its output may go on after the program's own end, as long as somebody holds the pipe.
  while (watched[0].fd >= 0 || watched[1].fd >= 0) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) {
      errno = ETIMEDOUT;
      return false;
    }
    const int ready = poll(watched.data(), watched.size(), static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) return false;
    if (ready <= 0) continue;
    if (watched[0].revents != 0) watched[0].fd = -1;
    if (watched[1].fd < 0 || watched[1].revents == 0) continue;
    const ssize_t got = CopySome(output, copy);
    if (got < 0) return false;
    if (got == 0) watched[1].fd = -1;
    copied += static_cast<std::size_t>(got);
    if (copied > limits.output_bytes) {
      errno = EFBIG;
      return false;
    }
  }
  return true;
}

struct Refusal {
  std::string_view language;
  const char* note;
  const char* took_too_long;
  const char* not_run;
};

// The first one is for every other language.
constexpr std::array kRefusals = {
    Refusal{"enu", "The new firmware could not be checked",
            "Its check did not end in time and was stopped. Try again; if this happens again, ask "
            "the vendor for another version.",
            "Its check could not be run safely. Upload or download the firmware again; if this "
            "happens again, see the system log."},
    Refusal{"ger", "Die neue Firmware konnte nicht geprüft werden",
            "Ihre Prüfung endete nicht rechtzeitig und wurde abgebrochen. Versuchen Sie es erneut; "
            "geschieht es wieder, fragen Sie den Hersteller nach einer anderen Version.",
            "Ihre Prüfung konnte nicht sicher ausgeführt werden. Laden Sie die Firmware erneut; "
            "geschieht es wieder, sehen Sie im Systemprotokoll nach."},
    Refusal{
        "fre", "Le nouveau micrologiciel n'a pas pu être vérifié",
        "Sa vérification ne s'est pas terminée à temps et a été arrêtée. Réessayez ; si cela se "
        "reproduit, demandez une autre version au fabricant.",
        "Sa vérification n'a pas pu être exécutée en sécurité. Chargez à nouveau le "
        "micrologiciel ; si cela se reproduit, consultez le journal du système."}};

void ReportRefusal(std::string_view language, int error) {
  const auto* found = std::find_if(kRefusals.begin(), kRefusals.end(),
                                   [&](const Refusal& r) { return r.language == language; });
  const Refusal& refusal = found == kRefusals.end() ? kRefusals.front() : *found;
  KeyValueText text("");
  const bool set = text.Set("can_continue", "no") && text.Set("leading_note", refusal.note) &&
                   text.Set("reason", error == ETIMEDOUT ? refusal.took_too_long : refusal.not_run);
  const char* path = KALO::paths::kPrecheckReport;
  if (set && WriteFileAtomic(path, text.Text(), 0600)) return;
  Log(LOG_ERR, "cannot write %s: %s", path, strerror(errno));
  // Even without room for a text: a report without a reason fails the precheck.
  const UniqueFd empty(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
}

// What the program was asked to speak.
std::string LanguageIn(const std::vector<std::string>& argv) {
  const auto flag = std::find(argv.begin(), argv.end(), "-l");
  return flag == argv.end() || flag + 1 == argv.end() ? "" : *(flag + 1);
}

}  // namespace

bool IsGuestProgram(const std::string& path) {
  const std::string plain = std::filesystem::path(path).lexically_normal();
  return !plain.starts_with("/bin/") && !plain.starts_with("/usr/kalo/");
}

bool WaitForGuest(pid_t pid, int output, int copy, const GuestLimits& limits) {
  const bool ended = Watch(pid, output, copy, limits);
  const int error = errno;
  // The leader is not reaped yet, so nobody else can have its number.
  kill(-pid, SIGKILL);
  errno = error;
  return ended;
}

ConfinedUpdater::ConfinedUpdater(const std::vector<std::string>& argv, const std::string& name,
                                 int stdout_fd)
    : is_updater_(argv.front() == std::string(KALO::paths::kPrecheckScratch) + "/updater"),
      language_(LanguageIn(argv)) {
  if (!is_updater_) {
    error_ = access(argv.front().c_str(), X_OK) == 0 ? EACCES : errno;
    return;
  }
  std::array<int, 2> ends = {-1, -1};
  const bool has_pipe = pipe2(ends.data(), O_CLOEXEC) == 0;
  word_.Reset(ends[0]);
  const UniqueFd write_end(ends[1]);
  const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  std::vector<std::string> words = {KALO::paths::kConfineProgram, name};
  words.insert(words.end(), argv.begin() + 1, argv.end());
  SpawnOptions options;
  options.stdout_fd = stdout_fd;
  options.stderr_fd = nowhere.Get();
  options.pass_fd = write_end.Get();
  options.own_session = true;
  if (has_pipe && nowhere) pid_ = Spawn(words, options);
  error_ = errno;
}

bool ConfinedUpdater::Wait(int output, int copy, const GuestLimits& limits) const {
  int error = error_;
  if (pid_ >= 0) {
    const bool ended = WaitForGuest(pid_, output, copy, limits);
    error = ended ? EPERM : errno;
    char word = 0;
    if (ended && read(word_.Get(), &word, 1) == 1) return true;
  }
  if (is_updater_ && error != EFBIG) ReportRefusal(language_, error);
  errno = error;
  return false;
}

}  // namespace kalo
