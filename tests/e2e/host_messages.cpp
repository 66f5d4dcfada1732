// The messages of a host tool.
#include "e2e/host_messages.h"

#include "message/job_context.h"

namespace tiv::e2e {

namespace {

template <class Request>
Request WithContext(const std::string& jobId, const std::string& devId) {
    Request request;
    request.mutable_hdr()->set_job_ctx(JobContextText(jobId, devId));
    return request;
}

template <class Handshake>
Handshake MakeHandshake(const std::string& jobId, int devId, const std::string& mode) {
    Handshake handshake;
    handshake.set_jobid(jobId);
    handshake.set_devid(devId);
    handshake.set_mode(mode);
    return handshake;
}

}  // namespace

proto::CtrlChannelHandshake ControlHandshake(const std::string& jobId, int devId,
                                             const std::string& mode) {
    return MakeHandshake<proto::CtrlChannelHandshake>(jobId, devId, mode);
}

proto::DataChannelHandshake DataHandshake(const std::string& jobId, int devId,
                                          const std::string& mode) {
    return MakeHandshake<proto::DataChannelHandshake>(jobId, devId, mode);
}

std::string JobContextText(const std::string& jobId, const std::string& devId) {
    analysis::rokt::message::JobContext context;
    context.dev_id = devId;
    context.job_id = jobId;
    return context.ToString();
}

proto::JobStartReq JobStart(const std::string& jobId, const std::string& sampleConfig,
                            const std::string& devId) {
    auto request = WithContext<proto::JobStartReq>(jobId, devId);
    request.set_sampleconfig(sampleConfig);
    return request;
}

proto::JobStopReq JobStop(const std::string& jobId, const std::string& devId) {
    auto request = WithContext<proto::JobStopReq>(jobId, devId);
    request.set_jobid(jobId);
    return request;
}

proto::ReplayStartReq ReplayStart(const std::string& jobId, const std::string& devId) {
    return WithContext<proto::ReplayStartReq>(jobId, devId);
}

proto::ReplayStopReq ReplayStop(const std::string& jobId, const std::string& devId) {
    return WithContext<proto::ReplayStopReq>(jobId, devId);
}

}  // namespace tiv::e2e
