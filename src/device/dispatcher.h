// The table that leads a decoded control message to the handler of its type.
#pragma once

#include <map>
#include <memory>

#include <google/protobuf/message.h>

namespace analysis::rokt::message {

using MessagePtr = std::shared_ptr<google::protobuf::Message>;

// What a control session does with one type of message. Runs on the thread of the session's
// receiver.
class IMsgHandler {
 public:
    virtual ~IMsgHandler() = default;
    virtual void OnNewMessage(const MessagePtr& message) = 0;
};

// Finds the handler of a message by the address of its generated descriptor.
//
// The table is filled before the receiver's thread starts and only read afterwards: it has no lock.
class MsgDispatcher {
 public:
    MsgDispatcher() = default;
    virtual ~MsgDispatcher() = default;
    MsgDispatcher(const MsgDispatcher&) = delete;
    MsgDispatcher& operator=(const MsgDispatcher&) = delete;

    // Replaces an earlier handler of message type T. A null handler is ignored.
    template <class T>
    void RegisterHandler(const std::shared_ptr<IMsgHandler>& handler) {
        if (handler != nullptr) {
            handlerMap[T::descriptor()] = handler;
        }
    }

    // Calls the handler of the message's type. A null message, or one without a handler, costs a
    // log line and is dropped.
    void OnNewMessage(const MessagePtr& message);

 private:
    std::map<const google::protobuf::Descriptor*, std::shared_ptr<IMsgHandler>> handlerMap;
};

}  // namespace analysis::rokt::message
