#include "services/feedd/slow_body.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

namespace kalo::feedd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBlock = std::size_t{16} << 10;

struct SlowBody {
  UniqueFd file;
  std::uint64_t first;
  std::uint64_t bytes_per_second;
  Clock::time_point begin = Clock::now();
};

ssize_t Read(void* self, std::uint64_t position, char* buffer, std::size_t size) {
  const auto& body = *static_cast<const SlowBody*>(self);
  const auto due = std::chrono::microseconds(position * 1'000'000 / body.bytes_per_second);
  std::this_thread::sleep_until(body.begin + due);
  const ssize_t got = pread(body.file.Get(), buffer, std::min(size, kBlock),
                            static_cast<off_t>(body.first + position));
  return got > 0 ? got : static_cast<ssize_t>(MHD_CONTENT_READER_END_WITH_ERROR);
}

void Free(void* self) {
  const std::unique_ptr<SlowBody> body(static_cast<SlowBody*>(self));
}

}  // namespace

MHD_Response* SlowResponse(UniqueFd file, std::uint64_t first, std::uint64_t length,
                           std::uint64_t bytes_per_second) {
  auto body = std::make_unique<SlowBody>(SlowBody{std::move(file), first, bytes_per_second});
  MHD_Response* response =
      MHD_create_response_from_callback(length, kBlock, &Read, body.get(), &Free);
  if (response != nullptr) (void)body.release();
  return response;
}

}  // namespace kalo::feedd
