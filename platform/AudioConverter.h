#pragma once

#include "platform/PCMBuffer.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// What one conversion came to. A host may return a value outside the enumeration.
enum class ConverterOutputStatus : std::int32_t {
  haveData = 0,
  inputRanDry = 1,
  endOfStream = 2,
  error = 3,
};

enum class ConverterInputStatus : std::int32_t { haveData = 0, noDataNow = 1, endOfStream = 2 };

/// Brings one stream of buffers from one format to another. Streams across calls: the next call
/// continues the signal of the last one, whatever its input block reported at its end. Used from
/// one queue at a time.
class AudioConverter {
 public:
  /// Hands over one source buffer and sets status, or sets another status and returns nothing.
  /// packets is how many frames the converter would like.
  using InputBlock = std::function<std::shared_ptr<PCMBuffer>(std::uint32_t packets,
                                                              ConverterInputStatus& status)>;

  virtual ~AudioConverter() = default;

  /// Fills output, up to its capacity, and sets its frame length; samples that do not fit wait for
  /// the next call. Stores an error object in error where the conversion has one to report.
  virtual ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                        const InputBlock& input) = 0;
};

}  // namespace quenlor::platform
