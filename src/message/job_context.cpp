// The keys of the job context.
#include "message/job_context.h"

namespace analysis::rokt::message {

void JobContext::ToObject(Json& object) const {
    object["result_dir"] = result_dir;
    object["module"] = module;
    object["tag"] = tag;
    object["dev_id"] = dev_id;
    object["job_id"] = job_id;
    object["chunkStartTime"] = chunkStartTime;
    object["chunkEndTime"] = chunkEndTime;
    object["dataModule"] = dataModule;
    object["stream_enabled"] = stream_enabled;
}

void JobContext::FromObject(const Json& object) {
    ReadString(object, "result_dir", result_dir);
    ReadString(object, "module", module);
    ReadString(object, "tag", tag);
    ReadString(object, "dev_id", dev_id);
    ReadString(object, "job_id", job_id);
    ReadTime(object, "chunkStartTime", chunkStartTime);
    ReadTime(object, "chunkEndTime", chunkEndTime);
    ReadInt(object, "dataModule", dataModule);
    ReadString(object, "stream_enabled", stream_enabled);
}

std::string JobContext::GetClassName() const { return "JobContext"; }

}  // namespace analysis::rokt::message
