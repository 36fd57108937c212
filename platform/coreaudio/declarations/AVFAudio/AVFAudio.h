#pragma once

#include <CoreAudio/CoreAudio.h>
#include <Foundation/Foundation.h>

using AVAudioFrameCount = std::uint32_t;
using AVAudioPacketCount = std::uint32_t;
using AVAudioNodeBus = NSUInteger;

@class AVAudioTime;

@interface AVAudioChannelLayout : NSObject
- (instancetype)initWithLayoutTag:(AudioChannelLayoutTag)tag;
@end

@interface AVAudioFormat : NSObject
- (instancetype)initWithStreamDescription:(const AudioStreamBasicDescription*)description
                            channelLayout:(AVAudioChannelLayout*)layout;
@property(readonly) const AudioStreamBasicDescription* streamDescription;
@end

@interface AVAudioBuffer : NSObject
@property(readonly) AVAudioFormat* format;
@property(readonly) const AudioBufferList* audioBufferList;
@end

@interface AVAudioPCMBuffer : AVAudioBuffer
- (instancetype)initWithPCMFormat:(AVAudioFormat*)format frameCapacity:(AVAudioFrameCount)capacity;
@property AVAudioFrameCount frameLength;
@end

enum AVAudioConverterInputStatus : NSInteger {
  AVAudioConverterInputStatus_HaveData = 0,
  AVAudioConverterInputStatus_NoDataNow = 1,
};

enum AVAudioConverterOutputStatus : NSInteger;

using AVAudioConverterInputBlock = AVAudioBuffer* _Nullable (^)(
    AVAudioPacketCount packets, AVAudioConverterInputStatus* outStatus);

@interface AVAudioConverter : NSObject
- (instancetype)initFromFormat:(AVAudioFormat*)from toFormat:(AVAudioFormat*)to;
@property NSArray<NSNumber*>* channelMap;
- (AVAudioConverterOutputStatus)convertToBuffer:(AVAudioBuffer*)output
                                          error:(NSError**)outError
                             withInputFromBlock:(AVAudioConverterInputBlock)block;
@end

using AVAudioNodeTapBlock = void (^)(AVAudioPCMBuffer* buffer, AVAudioTime* when);

@interface AVAudioNode : NSObject
- (void)installTapOnBus:(AVAudioNodeBus)bus
             bufferSize:(AVAudioFrameCount)bufferSize
                 format:(AVAudioFormat*)format
                  block:(AVAudioNodeTapBlock)block;
- (void)removeTapOnBus:(AVAudioNodeBus)bus;
- (AVAudioFormat*)inputFormatForBus:(AVAudioNodeBus)bus;
@end

@interface AVAudioInputNode : AVAudioNode
@end

@interface AVAudioEngine : NSObject
@property(readonly) AVAudioInputNode* inputNode;
@property(readonly, getter=isRunning) BOOL running;
- (void)prepare;
- (BOOL)startAndReturnError:(NSError**)outError;
- (void)stop;
@end
