#pragma once

#include <json/writer.h>

#include <string>

namespace kalo::bench {

/// @return the envelope of a success, as one line.
inline std::string Envelope(const Json::Value& data) {
  Json::Value answer(Json::objectValue);
  answer["success"] = true;
  answer["data"] = data;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, answer);
}

/// @return what the module answers to "progress" when there is no download, made anew as it does.
inline std::string Answer() {
  Json::Value data(Json::objectValue);
  data["percent"] = 0;
  data["status"] = "none";
  return Envelope(data);
}

/// @return what it answers to "status" then.
inline std::string StatusAnswer() {
  Json::Value data(Json::objectValue);
  data["allow_upgrade"] = true;
  data["status"] = "none";
  return Envelope(data);
}

}  // namespace kalo::bench
