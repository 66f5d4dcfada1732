// The table of the control sessions, by job and device.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <google/protobuf/message.h>

#include "platform/mutex.h"

namespace analysis::rokt::device {

class Receiver;

// Owns the receivers of all control sessions and remembers which job last opened a control session
// for a device and mode.
//
// A receiver leaves the table in two steps: the shared pointer moves out under the lock; after
// unlocking, its session is closed and its thread joined. The join must not happen under the lock,
// since the thread may be inside a handler that looks for a receiver to reply on.
//
// Lock order: receiversMutex, then relationMutex. AddReceiver and DeleteReceiver join and so never
// run on a receiver's thread; all other operations run on any.
class ReceiverTable {
 public:
    ReceiverTable() = default;
    virtual ~ReceiverTable();
    ReceiverTable(const ReceiverTable&) = delete;
    ReceiverTable& operator=(const ReceiverTable&) = delete;

    // Files the receiver and drops what stood in its place: the row of the job that held this
    // device and mode, and an earlier receiver of the same job and device. A null receiver only
    // drops. A table that was closed files nothing.
    void AddReceiver(const std::string& mode, const std::string& jobId, int32_t devIndexId,
                     const std::shared_ptr<Receiver>& receiver);

    // Ends the session of the row, if there is one, with the tasks that live on it. An empty job id
    // does nothing.
    void DeleteReceiver(const std::string& jobId, int32_t devIndexId);

    // Null when absent.
    std::shared_ptr<Receiver> GetReceiver(const std::string& jobId, int32_t devIndexId);

    // Returns the bytes sent, or -1 without a message, without a receiver, or when the send failed.
    int SendMsgByDevId(const std::string& jobId, int32_t devIndexId,
                       const std::shared_ptr<google::protobuf::Message>& message);

    void AddModeJobIdRelation(int32_t devIndexId, const std::string& mode, const std::string& jobId)
        EXCLUDES(relationMutex);
    // Empty when absent.
    std::string GetModeJobIdRelation(int32_t devIndexId, const std::string& mode)
        EXCLUDES(relationMutex);
    // Returns the job id that was held, empty when absent.
    std::string DeleteModeJobIdRelation(int32_t devIndexId, const std::string& mode)
        EXCLUDES(relationMutex);

 protected:
    // Takes the row of this very receiver out and leaves its session open.
    void ForgetReceiver(const std::string& jobId, int32_t devIndexId,
                        const std::shared_ptr<Receiver>& receiver) EXCLUDES(receiversMutex);

    // Lets the table take receivers again after a close.
    void OpenReceivers() EXCLUDES(receiversMutex);

    // Empties the table and refuses receivers from here on. The caller ends what it is given.
    std::vector<std::shared_ptr<Receiver>> CloseReceivers() EXCLUDES(receiversMutex);

 private:
    using DeviceMap = std::map<int32_t, std::shared_ptr<Receiver>>;

    std::shared_ptr<Receiver> TakeReceiver(const std::string& jobId, int32_t devIndexId)
        EXCLUDES(receiversMutex);

    // By job id, then by device index.
    std::map<std::string, DeviceMap> receivers GUARDED_BY(receiversMutex);
    // Device index, "_" and mode to job id.
    std::map<std::string, std::string> devModeJobMap GUARDED_BY(relationMutex);
    tiv::Mutex receiversMutex;
    tiv::Mutex relationMutex;

    bool closed GUARDED_BY(receiversMutex) = false;
};

}  // namespace analysis::rokt::device
