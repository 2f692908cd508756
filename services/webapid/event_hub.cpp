#include "services/webapid/event_hub.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "host/webapi/error_codes.h"
#include "services/webapid/error_sentences.h"
#include "services/webapid/worker_message.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kMostStreams = 32;  // each keeps a connection
constexpr std::chrono::seconds kAskEvery{1};
constexpr int kLongestSilence = 10;  // turns

}  // namespace

EventHub::~EventHub() {
  for (auto& [row, channel] : channels_) loop_.Cancel(channel.timer);
}

void EventHub::Open(Request& request, std::function<bool()> may_listen) {
  if (count_ == kMostStreams) return request.Answer(ErrorReply(webapi::kServerBusy));
  Channel& channel = channels_[request.row];
  channel.row = request.row;
  request.stream = std::make_unique<EventStream>(
      request.Connection(), [this, &channel](EventStream& stream) { Leave(channel, stream); });
  channel.listeners.push_back({request.stream.get(), std::move(may_listen)});
  ++count_;
  // What the others know, at once; what is known now, in a moment.
  if (channel.listeners.size() > 1 && !channel.last.empty()) request.stream->Send(channel.last);
  if (channel.listeners.size() == 1) Ask(channel);
  Reply reply{MHD_HTTP_OK, "", "text/event-stream", {}};
  reply.stream = request.stream.get();
  request.Answer(std::move(reply));
}

void EventHub::Leave(Channel& channel, EventStream& stream) {
  channel.listeners.remove_if([&](const Listener& one) { return one.stream == &stream; });
  --count_;
  if (!channel.listeners.empty()) return;
  loop_.Cancel(channel.timer);
  channel.last.clear();
}

void EventHub::Ask(Channel& channel) {
  channel.timer = loop_.At(EventLoop::Clock::now() + kAskEvery, [this, &channel] {
    ShowOut(channel);
    BreakSilence(channel);
    if (!channel.listeners.empty()) Ask(channel);
  });
  if (channel.asking) return;
  channel.asking = true;
  workers_.Submit({WorkerMessage(*channel.row, Json::Value(Json::objectValue)), channel.row,
                   [this, &channel](int code, const std::string& text) {
                     channel.asking = false;
                     // A busy server has an answer in a moment.
                     if (code == webapi::kServerBusy) return;
                     Tell(channel, code == 0 ? text : ErrorEnvelope(code));
                   }});
}

void EventHub::Tell(Channel& channel, const std::string& envelope) {
  if (channel.listeners.empty()) return;  // all left meanwhile: who comes next knows nothing
  if (envelope == channel.last) return;
  channel.last = envelope;
  channel.silent = 0;
  for (const Listener& listener : channel.listeners) listener.stream->Send(envelope);
}

void EventHub::BreakSilence(Channel& channel) {
  if (++channel.silent < kLongestSilence) return;
  channel.silent = 0;
  for (const Listener& listener : channel.listeners) listener.stream->SendComment();
}

// The stream leaves the list when the library is done with the request, which is later.
void EventHub::ShowOut(Channel& channel) const {
  for (const Listener& listener : channel.listeners) {
    if (!listener.may_listen()) listener.stream->End();
  }
}

void EventHub::Stop() {
  for (auto& [row, channel] : channels_) {
    loop_.Cancel(channel.timer);
    for (const Listener& listener : channel.listeners) listener.stream->End();
  }
}

}  // namespace kalo::webapid
