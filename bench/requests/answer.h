#pragma once

#include <json/writer.h>

#include <string>

namespace kalo::bench {

/// @return what the module answers to "progress" when there is no download, made anew as it does.
inline std::string Answer() {
  Json::Value answer(Json::objectValue);
  answer["success"] = true;
  answer["data"]["percent"] = 0;
  answer["data"]["status"] = "none";
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, answer);
}

}  // namespace kalo::bench
