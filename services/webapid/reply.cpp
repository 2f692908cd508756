#include "services/webapid/reply.h"

#include <algorithm>
#include <array>
#include <memory>

#include "host/webapi/error_codes.h"
#include "services/webapid/error_sentences.h"
#include "services/webapid/event_stream.h"

namespace kalo::webapid {
namespace {

struct Destroy {
  void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};

constexpr std::size_t kStreamBlock = 4096;

MHD_Response* MakeResponse(const Reply& reply) {
  if (reply.stream != nullptr) {
    return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, &EventStream::Read,
                                             reply.stream, nullptr);
  }
  return MHD_create_response_from_buffer(reply.body.size(), const_cast<char*>(reply.body.data()),
                                         MHD_RESPMEM_MUST_COPY);
}

// Answers are for the one who asked, and nothing in them is ever to be run or framed.
constexpr std::array<std::pair<const char*, const char*>, 4> kEveryAnswer = {{
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
}};

}  // namespace

Reply ErrorReply(int code) {
  if (code == webapi::kServerBusy) return RetryReply(code, 1);
  return {ErrorStatus(code), ErrorEnvelope(code), "application/json", {}};
}

Reply RetryReply(int code, long seconds) {
  return {ErrorStatus(code),
          ErrorEnvelope(code),
          "application/json",
          {{"Retry-After", std::to_string(seconds)}}};
}

Reply EnvelopeReply(std::string envelope) {
  return {MHD_HTTP_OK, std::move(envelope), "application/json", {}};
}

MHD_Result QueueReply(MHD_Connection* connection, const Reply& reply) {
  const std::unique_ptr<MHD_Response, Destroy> response(MakeResponse(reply));
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response.get(), "Content-Type", reply.type.c_str());
  for (const auto& [name, value] : kEveryAnswer) {
    const bool replaced =
        std::any_of(reply.headers.begin(), reply.headers.end(),
                    [key = name](const auto& header) { return header.first == key; });
    if (!replaced) MHD_add_response_header(response.get(), name, value);
  }
  for (const auto& [name, value] : reply.headers) {
    MHD_add_response_header(response.get(), name.c_str(), value.c_str());
  }
  return MHD_queue_response(connection, reply.status, response.get());
}

}  // namespace kalo::webapid
