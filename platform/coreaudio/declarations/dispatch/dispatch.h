#pragma once

#include <Foundation/Foundation.h>

@protocol OS_dispatch_object <NSObject>
@end
@protocol OS_dispatch_queue <OS_dispatch_object>
@end
@protocol OS_dispatch_queue_attr <OS_dispatch_object>
@end
@protocol OS_dispatch_source <OS_dispatch_object>
@end

using dispatch_object_t = NSObject<OS_dispatch_object>*;
using dispatch_queue_t = NSObject<OS_dispatch_queue>*;
using dispatch_queue_attr_t = NSObject<OS_dispatch_queue_attr>*;
using dispatch_source_t = NSObject<OS_dispatch_source>*;
using dispatch_source_type_t = const struct dispatch_source_type_s*;
using dispatch_block_t = void (^)(void);
using dispatch_time_t = std::uint64_t;

#define DISPATCH_QUEUE_SERIAL nullptr
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)
inline constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;

extern "C" {
extern const struct dispatch_source_type_s _dispatch_source_type_timer;

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attributes)
    __attribute__((ns_returns_retained));
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_sync(dispatch_queue_t queue, __attribute__((noescape)) dispatch_block_t block);
void dispatch_assert_queue(dispatch_queue_t queue);

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle,
                                         std::uintptr_t mask, dispatch_queue_t queue)
    __attribute__((ns_returns_retained));
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start,
                               std::uint64_t interval, std::uint64_t leeway);
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_source_cancel(dispatch_source_t source);
void dispatch_resume(dispatch_object_t object);
dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t delta);
}
