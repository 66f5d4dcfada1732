// The platform's resource manager.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// 0 when the resource manager is ready; anything else is a failure.
int32_t IAMResMgrReady(void);

#ifdef __cplusplus
}
#endif
