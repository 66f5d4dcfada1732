// The keys of the status record, and the response made from it.
#include "message/status_info.h"

#include <exception>

#include "message/profiler.pb.h"
#include "platform/log.h"

namespace analysis::rokt::message {

void StatusInfo::ToObject(Json& object) const {
    object["dev_id"] = dev_id;
    object["status"] = status;
    object["info"] = info;
}

void StatusInfo::FromObject(const Json& object) {
    ReadString(object, "dev_id", dev_id);
    ReadInt(object, "status", status);
    ReadString(object, "info", info);
}

std::string StatusInfo::GetClassName() const { return "StatusInfo"; }

std::shared_ptr<proto::Response> CreateResponse(const StatusInfo& statusInfo) {
    try {
        auto response = std::make_shared<proto::Response>();
        response->set_status(statusInfo.status == 0 ? proto::SUCCESS : proto::FAILED);
        response->set_message(statusInfo.ToString());
        return response;
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

}  // namespace analysis::rokt::message
