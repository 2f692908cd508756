// The version-2 feed's document, which anybody on the way to the feed could have made.

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <optional>
#include <string>

#include "fuzz/fuzz_target.h"
#include "platform/update/version.h"
#include "webapi/patch/promotion.h"
#include "webapi/patch/update_feed_document.h"

namespace {

using KALO::MESH::Webapi::FeedOffer;
using namespace kalo::fuzz;

// The document's reader takes a mebibyte, and a text can grow sixfold when it is written anew.
constexpr std::size_t kMost = std::size_t{128} << 10;

std::optional<FeedOffer> Read(const std::string& text) {
  PutInput(kInputFile, text);
  return KALO::MESH::Webapi::ReadFeedDocument(kInputFile);
}

// Bytes that are no UTF-8 stay what they are.
std::optional<FeedOffer> Read(const Json::Value& document) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Read(Json::writeString(builder, document));
}

bool IsSame(const std::optional<FeedOffer>& offer, const FeedOffer& other) {
  return offer && offer->version == other.version && offer->is_beta == other.is_beta;
}

std::optional<Json::Value> Parse(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["allowTrailingCommas"] = false;
  builder["skipBom"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value document;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) return {};
  } catch (const Json::Exception&) {
    return {};
  }
  return document;
}

// Of an accepted document each rule is broken, one at a time.
void CheckRules(const Json::Value& document, const FeedOffer& offer) {
  const auto after = [&](auto change) {
    Json::Value changed = document;
    change(changed["channel"]["item"]);
    return Read(changed);
  };
  for (const char* field : {"title", "BuildNum", "phase", "model"}) {
    Require(!after([&](Json::Value& items) { items[0].removeMember(field); }), "fields are needed");
  }
  Require(!after([](Json::Value& items) { items[0]["title"] = 1; }), "a title is a text");
  for (const Json::Value& build :
       {Json::Value(75999), Json::Value(-1), Json::Value(Json::Int64(1) << 31),
        Json::Value("76000"), Json::Value(76000.5)}) {
    Require(!after([&](Json::Value& items) { items[0]["BuildNum"] = build; }),
            "a build is a number in range");
  }
  Require(!after([](Json::Value& items) { items.clear(); }), "no item, no offer");
  Require(IsSame(after([](Json::Value& items) { items.append("more"); }), offer),
          "the first item alone counts");
  for (const char* phase : {"Beta", "beta", "GA"}) {
    const auto changed = after([&](Json::Value& items) { items[0]["phase"] = phase; });
    Require(IsSame(changed, {offer.version, std::string(phase) == "Beta"}), "the phase says beta");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kMost) return 0;
  const std::string text = TextOf(data, size);
  const auto offer = Read(text);
  const auto document = Parse(text);
  if (!offer) {
    Require(!document || !Read(*document), "what offers nothing does so in any spelling");
    return 0;
  }
  Require(document.has_value(), "an offer stands in a document");
  Require(IsSame(Read(*document), *offer), "what is written anew offers the same");
  const Json::Value& item = (*document)["channel"]["item"][0];
  Require(item["title"] == offer->version, "the version is the first item's title");
  Require(offer->is_beta == (item["phase"] == "Beta"), "the phase says beta");
  Require(KALO::MESH::Webapi::IsPromotion(item["BuildNum"].asInt()), "the build is in range");
  int build = 0;
  int nano = 0;
  KALO::MESH::SDK::Utils::GetBuildNum(offer->version, build, nano);
  Require(build >= 0 && nano >= 0, "a version has no negative numbers");
  CheckRules(*document, *offer);
  return 0;
}
