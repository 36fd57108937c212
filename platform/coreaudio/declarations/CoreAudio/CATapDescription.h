#pragma once

#include <Foundation/Foundation.h>

@interface CATapDescription : NSObject
- (instancetype)initStereoGlobalTapButExcludeProcesses:(NSArray<NSNumber*>*)processes;
@property(copy) NSString* name;
@property(getter=isExclusive, setter=setExclusive:) BOOL exclusive;
@property(getter=isPrivate, setter=setPrivate:) BOOL privateTap;
@property(copy) NSString* deviceUID;
@property(copy) NSNumber* stream;
@end
