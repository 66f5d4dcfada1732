// The look-up of a message's handler.
#include "device/dispatcher.h"

#include "platform/log.h"

namespace analysis::rokt::message {

void MsgDispatcher::OnNewMessage(const MessagePtr& message) {
    if (message == nullptr) {
        TIV_LOGE("message is null");
        return;
    }
    const auto found = handlerMap.find(message->GetDescriptor());
    if (found == handlerMap.end()) {
        TIV_LOGE("Failed to find handler for message:%s", message->GetTypeName().c_str());
        return;
    }
    found->second->OnNewMessage(message);
}

}  // namespace analysis::rokt::message
