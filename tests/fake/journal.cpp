#include "tests/fake/journal.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>

namespace fake {
namespace {

constexpr std::size_t kSize = 1 << 20;

}  // namespace

struct Journal::Shared {
  std::atomic_flag busy = ATOMIC_FLAG_INIT;
  std::size_t used = 0;
  std::array<char, kSize> text{};
};

namespace {

// Held for a few instructions, by threads and by a forked child alike.
class SpinLock {
 public:
  explicit SpinLock(std::atomic_flag& flag) : flag_(flag) {
    while (flag_.test_and_set(std::memory_order_acquire)) {
    }
  }
  SpinLock(const SpinLock&) = delete;
  SpinLock& operator=(const SpinLock&) = delete;
  ~SpinLock() { flag_.clear(std::memory_order_release); }

 private:
  std::atomic_flag& flag_;
};

}  // namespace

Journal::Journal() {
  void* memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  shared_ = std::construct_at(static_cast<Shared*>(memory));
}

Journal::~Journal() {
  munmap(shared_, sizeof(Shared));
}

void Journal::Add(std::string_view line) {
  const SpinLock lock(shared_->busy);
  if (shared_->used + line.size() + 1 > kSize) return;
  std::memcpy(shared_->text.data() + shared_->used, line.data(), line.size());
  shared_->used += line.size();
  shared_->text[shared_->used++] = '\n';
}

void Journal::Clear() {
  const SpinLock lock(shared_->busy);
  shared_->used = 0;
}

std::vector<std::string> Journal::Lines() const {
  const SpinLock lock(shared_->busy);
  std::vector<std::string> lines;
  std::string_view rest(shared_->text.data(), shared_->used);
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    lines.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  return lines;
}

std::vector<std::string> Journal::Lines(std::string_view prefix) const {
  std::vector<std::string> lines;
  for (std::string& line : Lines()) {
    if (std::string_view(line).starts_with(prefix)) lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace fake
