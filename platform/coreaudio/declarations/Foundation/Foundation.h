#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = bool;
using NSInteger = long;
using NSUInteger = unsigned long;
using UInt32 = unsigned int;
using SInt32 = int;
using Float64 = double;
using OSStatus = SInt32;

using CFStringRef = const struct __CFString*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;

#define nil nullptr
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#define NS_VALID_UNTIL_END_OF_SCOPE __attribute__((objc_precise_lifetime))

@protocol NSObject
@end

@protocol NSCopying
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
- (instancetype)init;
@end

enum : NSUInteger { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject <NSCopying>
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSUInteger)encoding;
@property(readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
@end

extern "C" NSString* NSTemporaryDirectory(void);

@interface NSNumber : NSObject
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithInt:(int)value;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
@end

struct NSFastEnumerationState {
  unsigned long state;
  id __unsafe_unretained* itemsPtr;
  unsigned long* mutationsPtr;
  unsigned long extra[5];
};

@interface NSArray<Element> : NSObject
+ (instancetype)arrayWithObjects:(const Element[])objects count:(NSUInteger)count;
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained[])buffer
                                    count:(NSUInteger)length;
@end

@interface NSMutableArray<Element> : NSArray <Element>
- (void)addObject:(Element)object;
@end

@interface NSDictionary<Key, Value> : NSObject
+ (instancetype)dictionaryWithObjects:(const Value[])objects
                              forKeys:(const Key<NSCopying>[])keys
                                count:(NSUInteger)count;
@end

@interface NSError : NSObject
@property(readonly) NSString* localizedDescription;
@end

@interface NSException : NSObject
@property(readonly) NSString* reason;
@end
