// The messages of a host tool, made from their few fields.
#pragma once

#include <string>

#include "message/profiler.pb.h"

namespace tiv::e2e {

namespace proto = analysis::rokt::proto;

proto::CtrlChannelHandshake ControlHandshake(const std::string& jobId, int devId = 0,
                                             const std::string& mode = "");
proto::DataChannelHandshake DataHandshake(const std::string& jobId, int devId = 0,
                                          const std::string& mode = "");

// The text of a job context.
std::string JobContextText(const std::string& jobId, const std::string& devId = "0");

proto::JobStartReq JobStart(const std::string& jobId, const std::string& sampleConfig,
                            const std::string& devId = "0");
proto::JobStopReq JobStop(const std::string& jobId, const std::string& devId = "0");
proto::ReplayStartReq ReplayStart(const std::string& jobId, const std::string& devId = "0");
proto::ReplayStopReq ReplayStop(const std::string& jobId, const std::string& devId = "0");

}  // namespace tiv::e2e
