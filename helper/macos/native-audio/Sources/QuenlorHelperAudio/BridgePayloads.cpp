#include "BridgePayloads.h"

#include "JSONCoding.h"

namespace quenlor {

StartRequest StartRequest::decode(std::string_view json) {
  const JSONObject object(json);
  return {.mode = object.string("mode"),
          .outputPath = object.string("outputPath"),
          .title = object.string("title")};
}

std::string StartRequest::encode() const {
  JSONEncoder encoder;
  encoder.add("mode", mode);
  encoder.add("outputPath", outputPath);
  encoder.add("title", title);
  return encoder.encoded();
}

ReadyFrame ReadyFrame::decode(std::string_view json) {
  return {.status = JSONObject(json).string("status")};
}

std::string ReadyFrame::encode() const {
  JSONEncoder encoder;
  encoder.add("status", status);
  return encoder.encoded();
}

StopResult StopResult::decode(std::string_view json) {
  const JSONObject object(json);
  return {.durationSeconds = object.number("durationSeconds"),
          .sizeBytes = object.unsignedInteger("sizeBytes")};
}

std::string StopResult::encode() const {
  JSONEncoder encoder;
  encoder.add("durationSeconds", durationSeconds);
  encoder.add("sizeBytes", sizeBytes);
  return encoder.encoded();
}

}  // namespace quenlor
