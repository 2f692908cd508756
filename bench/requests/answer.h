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

/// @return what it answers while one is under way.
inline std::string LoadingAnswer() {
  Json::Value data(Json::objectValue);
  data["version"] = "VXM 1.4.0-76010";
  data["status"] = "downloading";
  data["percent"] = 40;
  return Envelope(data);
}

/// @return what the row says that is stuck for a second.
inline std::string StuckAnswer() {
  return Envelope(Json::Value());
}

/// @return what the module answers to "status" when there is no download.
inline std::string StatusAnswer() {
  Json::Value data(Json::objectValue);
  data["allow_upgrade"] = true;
  data["status"] = "none";
  return Envelope(data);
}

/// @return what it answers to "progress" of an upgrade, version 2, when there was none.
inline std::string UpgradeAnswer() {
  Json::Value data(Json::objectValue);
  data["version"] = "";
  data["step"] = "none";
  data["total_percentage"] = 0;
  data["percent"] = 0;
  data["errno"] = 0;
  data["err_desc"] = "";
  data["err_msg"] = "";
  return Envelope(data);
}

}  // namespace kalo::bench
