// Questions to the driver about its devices, with "not supported" as a soft answer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace analysis::rokt::driver {

// Devices that profiling addresses.
constexpr uint32_t DRV_DEVICE_NUM_MAX = 64;
// The frequency queries exist in drivers whose API version is above this one.
constexpr int DRV_FREQ_API_VERSION = 465156;

// All operations are stateless; any thread. A query that the driver does not support gives 0 and
// leaves the value as the caller preset it, so that a newer daemon runs on an older driver.

// The device count, or -1 when the driver fails or counts more than 64.
[[nodiscard]] int DrvGetDevNum();
// Fills `ids` with `num` device ids, 1 to 64; -1 and an empty list otherwise.
[[nodiscard]] int DrvGetDevIds(int num, std::vector<int>& ids);
// 0: device side, 1: host side.
[[nodiscard]] int DrvGetPlatformInfo(uint32_t* info);

[[nodiscard]] int DrvGetEnvType(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetCtrlCpuId(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetCtrlCpuCoreNum(uint32_t deviceId, int64_t* value);
// 1 for little-endian.
[[nodiscard]] int DrvGetCtrlCpuEndianLittle(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetAiCpuCoreNum(uint32_t deviceId, int64_t* value);
// The first core's id.
[[nodiscard]] int DrvGetAiCpuCoreId(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetAiCpuOccupyBitmap(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetTsCpuCoreNum(uint32_t deviceId, int64_t* value);
// The first core's id.
[[nodiscard]] int DrvGetAiCoreId(uint32_t deviceId, int64_t* value);
[[nodiscard]] int DrvGetAiCoreNum(uint32_t deviceId, int64_t* value);
// 0 without asking the driver on the platform types that have no AI vector cores.
[[nodiscard]] int DrvGetAivNum(uint32_t deviceId, int64_t* value);
// `counter` receives the device's counter value; `counterOne` is set to 0.
[[nodiscard]] int DrvGetDeviceTime(uint32_t deviceId, int64_t* counterOne, int64_t* counter);

// The frequency in MHz with six decimals. False, and an empty text, when the driver has none.
[[nodiscard]] bool DrvGetHostFreq(std::string& out);
// As above for a device; on failure `out` is left alone.
[[nodiscard]] bool DrvGetDeviceFreq(uint32_t deviceId, std::string& out);

// The driver's API version, 0 when it does not tell.
[[nodiscard]] int DrvGetApiVersion();
// All device ids joined with commas; empty when the driver has none or fails.
[[nodiscard]] std::string GetDevIdsStr();
// True when there is no device driver behind the library.
[[nodiscard]] bool IsInHelper();

}  // namespace analysis::rokt::driver
