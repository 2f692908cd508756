#include "host/update/transfer_note.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/core/unique_fd.h"
#include "platform/paths.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kWriteEvery{250};
// Whoever looks whether a note counts has its lock for a moment.
constexpr std::chrono::milliseconds kLookTakes{200};
constexpr std::size_t kLine = 42;  // two numbers of 20 digits

std::optional<Transfer> Read(const fs::path& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // Its writer holds the lock as long as it lives.
  if (!fd || flock(fd.Get(), LOCK_SH | LOCK_NB) == 0) return std::nullopt;
  std::array<char, kLine> line{};
  if (pread(fd.Get(), line.data(), line.size(), 0) != static_cast<ssize_t>(line.size()))
    return std::nullopt;
  Transfer transfer;
  transfer.name = path.filename();
  const std::string_view text(line.data(), line.size());
  const std::string_view numbers = text.substr(std::min(text.find_first_not_of(' '), text.size()));
  const auto done = std::from_chars(numbers.data(), text.end(), transfer.done);
  const auto* second = std::find_if(done.ptr, text.end(), [](char c) { return c != ' '; });
  const auto whole = std::from_chars(second, text.end(), transfer.whole);
  if (done.ec != std::errc() || whole.ec != std::errc()) return std::nullopt;
  return transfer;
}

}  // namespace

TransferNote::TransferNote(const std::string& name)
    : path_(std::string(KALO::paths::kTransfers) + "/" + name) {
  std::error_code ignored;
  fs::create_directories(KALO::paths::kTransfers, ignored);
  lock_ = FileLock::TakeWithin(path_, kLookTakes);
}

TransferNote::~TransferNote() {
  if (lock_) unlink(path_.c_str());
}

// Of one length and in one call, so that no reader sees half of one.
void TransferNote::Moved(std::uint64_t done, std::uint64_t whole) {
  const auto now = std::chrono::steady_clock::now();
  if (!lock_ || now - written_ < kWriteEvery) return;
  written_ = now;
  std::array<char, kLine + 1> line{};
  std::snprintf(line.data(), line.size(), "%20llu %20llu\n", static_cast<unsigned long long>(done),
                static_cast<unsigned long long>(whole));
  if (pwrite(lock_->Fd(), line.data(), kLine, 0) != static_cast<ssize_t>(kLine)) lock_.reset();
}

std::vector<Transfer> TransfersUnderWay() {
  std::vector<Transfer> transfers;
  std::error_code error;
  for (fs::directory_iterator entry(KALO::paths::kTransfers, error), end; !error && entry != end;
       entry.increment(error)) {
    if (auto transfer = Read(entry->path())) transfers.push_back(std::move(*transfer));
  }
  std::sort(transfers.begin(), transfers.end(),
            [](const Transfer& a, const Transfer& b) { return a.name < b.name; });
  return transfers;
}

}  // namespace kalo
