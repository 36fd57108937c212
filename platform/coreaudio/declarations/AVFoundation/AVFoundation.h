#pragma once

#include <Foundation/Foundation.h>

using AVMediaType = NSString*;
extern "C" const AVMediaType AVMediaTypeAudio;

enum AVAuthorizationStatus : NSInteger;

@interface AVCaptureDevice : NSObject
+ (AVAuthorizationStatus)authorizationStatusForMediaType:(AVMediaType)mediaType;
+ (void)requestAccessForMediaType:(AVMediaType)mediaType
                completionHandler:(void (^)(BOOL granted))handler;
+ (AVCaptureDevice*)defaultDeviceWithMediaType:(AVMediaType)mediaType;
@property(readonly) NSString* localizedName;
@end
