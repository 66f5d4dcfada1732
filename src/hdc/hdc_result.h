// Results of the session layer's operations.
#pragma once

#include <cstdint>

constexpr int32_t IDE_DAEMON_OK = 0;
constexpr int32_t IDE_DAEMON_ERROR = -1;
// Results of the reads beside success and failure.
constexpr int32_t IDE_DAEMON_SOCK_CLOSE = 1;
constexpr int32_t IDE_DAEMON_RECV_NODATA = 2;
