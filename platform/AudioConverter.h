#pragma once

#include "platform/PCMBuffer.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace quenlor::platform {

/// The result of one conversion. A host may return a value outside the enumeration.
enum class ConverterOutputStatus : std::int32_t {
  haveData = 0,
  inputRanDry = 1,
  endOfStream = 2,
  error = 3,
};

enum class ConverterInputStatus : std::int32_t { haveData = 0, noDataNow = 1, endOfStream = 2 };

/// Converts a stream of buffers from one format to another. The stream continues from call to call,
/// whatever status the input block ended with. Used from one queue at a time.
class AudioConverter {
 public:
  /// Returns one source buffer and sets status to haveData, or sets another status and returns
  /// nullptr. packets is the number of frames the converter asks for.
  using InputBlock = std::function<std::shared_ptr<PCMBuffer>(std::uint32_t packets,
                                                              ConverterInputStatus& status)>;

  virtual ~AudioConverter() = default;

  /// Fills output up to its capacity and sets its frame length. Samples that do not fit are kept
  /// for the next call. Stores an exception in error if the conversion reports one.
  virtual ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                        const InputBlock& input) = 0;
};

}  // namespace quenlor::platform
