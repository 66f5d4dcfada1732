// The way of a reply from a handler to the control session that stands for its job.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <google/protobuf/message.h>

namespace analysis::rokt::device {

// Sends `message` on the control session filed under the job and the device's own index. Returns
// the bytes sent, or -1 without a message, without such a session, or when the send failed. Blocks
// while the link does. Any thread.
int SendReply(const std::string& jobId, int32_t devIndexId,
              const std::shared_ptr<google::protobuf::Message>& message);

}  // namespace analysis::rokt::device
