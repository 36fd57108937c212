#include "platform/coreaudio/CoreAudioConverter.h"

#include "platform/AudioPlatform.h"
#include "platform/coreaudio/Formats.h"

namespace quenlor::platform::coreaudio {

namespace {

std::exception_ptr makeError(const std::string& description) {
  return std::make_exception_ptr(PlatformError(description));
}

class CoreAudioConverter final : public AudioConverter {
 public:
  CoreAudioConverter(AVAudioConverter* systemConverter, AVAudioFormat* outputFormat)
      : converter(systemConverter), targetFormat(outputFormat) {}

  ConverterOutputStatus convert(PCMBuffer& output, std::exception_ptr& error,
                                const InputBlock& input) override;

 private:
  AVAudioBuffer* nextBuffer(const InputBlock& input, AVAudioPacketCount packets,
                            AVAudioConverterInputStatus& systemStatus, std::exception_ptr& error);

  AVAudioConverter* const converter;
  AVAudioFormat* const targetFormat;
  /// The buffer that was handed over last. The system may read what it has not yet used of it until
  /// it asks for the next one, which can be in a later conversion.
  AVAudioPCMBuffer* handedOver = nil;
};

/// The next source buffer, as a copy of the converter's own. Whatever ends the input, the system is
/// told only that there is none for now: after an end of stream it would not go on with the next
/// call's buffer.
AVAudioBuffer* CoreAudioConverter::nextBuffer(const InputBlock& input, AVAudioPacketCount packets,
                                              AVAudioConverterInputStatus& systemStatus,
                                              std::exception_ptr& error) {
  auto status = ConverterInputStatus::haveData;
  const auto source = input(packets, status);
  systemStatus = AVAudioConverterInputStatus_NoDataNow;
  if (status != ConverterInputStatus::haveData || !source) return nil;
  handedOver = systemBuffer(*source);
  if (handedOver == nil)
    error = makeError("A source buffer could not be handed to the system's converter.");
  else
    systemStatus = AVAudioConverterInputStatus_HaveData;
  return handedOver;
}

// Runs on threads of the system's that may have no pool of their own, for as long as a recording.
ConverterOutputStatus CoreAudioConverter::convert(PCMBuffer& output, std::exception_ptr& error,
                                                  const InputBlock& input) {
  @autoreleasepool {
    AVAudioPCMBuffer* const converted =
        [[AVAudioPCMBuffer alloc] initWithPCMFormat:targetFormat
                                      frameCapacity:output.frameCapacity()];
    if (converted == nil) {
      error = makeError("There is no memory for the converted samples.");
      return ConverterOutputStatus::error;
    }
    NSError* systemError = nil;
    const AVAudioConverterOutputStatus status = [converter
           convertToBuffer:converted
                     error:&systemError
        withInputFromBlock:^(AVAudioPacketCount packets, AVAudioConverterInputStatus* inputStatus) {
          return nextBuffer(input, packets, *inputStatus, error);
        }];
    if (systemError != nil) error = makeError(hostString(systemError.localizedDescription));
    copyFrames(converted, output);
    return static_cast<ConverterOutputStatus>(status);
  }
}

}  // namespace

std::shared_ptr<AudioConverter> makeCoreAudioConverter(const AudioFormat& from,
                                                       const AudioFormat& to) {
  AVAudioFormat* const sourceFormat = systemFormat(from);
  AVAudioFormat* const targetFormat = systemFormat(to);
  if (sourceFormat == nil || targetFormat == nil) return nullptr;
  AVAudioConverter* const converter = [[AVAudioConverter alloc] initFromFormat:sourceFormat
                                                                      toFormat:targetFormat];
  if (converter == nil) return nullptr;
  // Channels in discrete order have no mix-down to fewer: without a map their conversion is
  // reported to give silence, and the status of success.
  if (from.channelCount() > 2) converter.channelMap = @[ @0, @1 ];
  return std::make_shared<CoreAudioConverter>(converter, targetFormat);
}

}  // namespace quenlor::platform::coreaudio
