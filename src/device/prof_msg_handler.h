// The handlers of the four requests that a host sends on a control session.
#pragma once

#include <memory>

#include "device/dispatcher.h"

namespace analysis::rokt::transport {
class ITransport;
}

// Each handler reads the job context out of the request's header, finds the task of that context,
// calls it, and replies to the control session filed under the context's job. A request whose
// context does not parse, or that finds no task, gets no reply at all; the identifiers in the
// request's own body are not looked at.
//
// Handlers run on the receiver's thread, one message at a time per session.
namespace analysis::rokt::device {

// Makes the task of a job and starts it. A refused creation is answered under device index 0, since
// without a task the device's own index is not known.
class JobStartHandler : public message::IMsgHandler {
 public:
    explicit JobStartHandler(const std::shared_ptr<transport::ITransport>& sessionTransport)
        : transport(sessionTransport) {}

    void OnNewMessage(const message::MessagePtr& message) override;

 private:
    // The session that the new task belongs to.
    std::shared_ptr<transport::ITransport> transport;
};

// Ends the job and removes its task, in this order: reply, then removal.
class JobStopHandler : public message::IMsgHandler {
 public:
    void OnNewMessage(const message::MessagePtr& message) override;
};

// Starts the jobs of a task.
class ReplayStartHandler : public message::IMsgHandler {
 public:
    void OnNewMessage(const message::MessagePtr& message) override;
};

// Stops the jobs of a task, which stays.
class ReplayStopHandler : public message::IMsgHandler {
 public:
    void OnNewMessage(const message::MessagePtr& message) override;
};

}  // namespace analysis::rokt::device
