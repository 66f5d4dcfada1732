// The thread that serves one control session.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <google/protobuf/message.h>

#include "common/thread.h"
#include "device/dispatcher.h"
#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace analysis::rokt::device {

// Reads the packets of a control session, decodes them and hands each message to its handler.
//
//   Created --Init--> Inited --Start--> Reading <--> Handling
//                                          |             |
//                                 the read fails    IsQuit after the handler
//                                          v             v
//                                        Lost -------> Ended
//
// A lost session ends the tasks that live on its transport. An ended receiver is never started
// again; it stays in the receiver table until the next handshake for its device and mode replaces
// it.
//
// All handlers of a session run on this one thread, without overlapping. Uninit joins the thread
// and so belongs to session threads and teardown only: whoever takes a receiver out of the table
// calls it before the table's reference goes, or the last reference might die on the receiver's own
// thread.
class Receiver : public common::thread::Thread {
 public:
    explicit Receiver(const std::shared_ptr<transport::ITransport>& sessionTransport);
    ~Receiver() override;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // Registers the handlers. Returns 0. Comes before Start.
    [[nodiscard]] int Init(int32_t devIndex);

    // Starts the thread, unless the receiver was dropped in the meantime. Returns 0 or -1.
    [[nodiscard]] int Launch() EXCLUDES(lifeMutex);

    // Closes the session, which wakes the blocked read, joins the thread and lets go of the
    // transport. Returns 0; a second call finds nothing to close.
    int Uninit() EXCLUDES(lifeMutex);

    // Tells the host's own number of the device. Comes before Start.
    void SetDevIdOnHost(int32_t id) { devIdOnHost = id; }

    // Returns the bytes sent, or -1 for a null message, a failed send, or after Uninit. Blocks
    // while the link does.
    int SendMessage(const std::shared_ptr<google::protobuf::Message>& message);

    // Null after Uninit.
    std::shared_ptr<transport::ITransport> GetTransport() const EXCLUDES(transportMutex);

    void Run(const Analysis::Rokt::ZelnarErrMgr::ErrorContext& context) override;

 private:
    enum class Outcome { LOST, FINISHED };

    Outcome ReadMessages(const std::shared_ptr<transport::ITransport>& session);
    bool ReceiveValue(transport::KbxTransport& session, std::string& value);
    void HandleValue(const std::string& value);
    void EndLostSession(const std::shared_ptr<transport::ITransport>& session);
    std::shared_ptr<transport::ITransport> TakeTransport() EXCLUDES(transportMutex);

    // Set by Init, constant while the thread runs.
    std::shared_ptr<message::MsgDispatcher> msgDispatcher;
    // Read by every thread that sends on this session, cleared by Uninit.
    std::shared_ptr<transport::ITransport> transport GUARDED_BY(transportMutex);
    // Written before the thread starts and after it was joined.
    int32_t devIndexId = -1;
    int32_t devIdOnHost = -1;
    bool inited = false;

    mutable tiv::Mutex transportMutex;
    // Orders the start of the thread against the end of the receiver: a second handshake may drop a
    // receiver that its own handshake is just starting. Held through the join; the thread itself
    // does not take it.
    tiv::Mutex lifeMutex;
};

}  // namespace analysis::rokt::device
