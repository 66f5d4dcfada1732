// Filing, finding and dropping of control sessions.
#include "device/receiver_table.h"

#include <utility>

#include "device/receiver.h"
#include "device/task_manager.h"
#include "platform/log.h"

namespace analysis::rokt::device {
namespace {

std::string DevModeKey(int32_t devIndexId, const std::string& mode) {
    return std::to_string(devIndexId) + "_" + (mode.empty() ? "def_mode" : mode);
}

// A receiver that was dropped alive has ended without looking after its tasks.
void EndReceiver(const std::shared_ptr<Receiver>& receiver) {
    if (receiver == nullptr) {
        return;
    }
    const std::shared_ptr<transport::ITransport> session = receiver->GetTransport();
    receiver->Uninit();
    if (session != nullptr) {
        TaskManager::Instance().ConnectionReset(session);
    }
}

}  // namespace

ReceiverTable::~ReceiverTable() = default;

void ReceiverTable::AddReceiver(const std::string& mode, const std::string& jobId,
                                int32_t devIndexId, const std::shared_ptr<Receiver>& receiver) {
    TIV_LOGI("mode: %s, devIndexId: %u, jobId: %s Entering AddReceiver...", mode.c_str(),
             static_cast<uint32_t>(devIndexId), jobId.c_str());
    DeleteReceiver(DeleteModeJobIdRelation(devIndexId, mode), devIndexId);
    if (receiver == nullptr) {
        return;
    }
    std::shared_ptr<Receiver> replaced;
    {
        tiv::MutexLock lock(receiversMutex);
        if (closed) {
            return;
        }
        replaced = std::exchange(receivers[jobId][devIndexId], receiver);
        AddModeJobIdRelation(devIndexId, mode, jobId);
    }
    EndReceiver(replaced);
}

void ReceiverTable::DeleteReceiver(const std::string& jobId, int32_t devIndexId) {
    TIV_LOGI("Delete receiver jobId %s, devIndexId %d", jobId.c_str(), devIndexId);
    if (jobId.empty()) {
        return;
    }
    EndReceiver(TakeReceiver(jobId, devIndexId));
}

std::shared_ptr<Receiver> ReceiverTable::TakeReceiver(const std::string& jobId,
                                                      int32_t devIndexId) {
    tiv::MutexLock lock(receiversMutex);
    const auto row = receivers.find(jobId);
    if (row == receivers.end()) {
        return nullptr;
    }
    std::shared_ptr<Receiver> taken;
    const auto device = row->second.find(devIndexId);
    if (device != row->second.end()) {
        taken = std::move(device->second);
        row->second.erase(device);
    }
    if (row->second.empty()) {
        receivers.erase(row);
    }
    return taken;
}

std::shared_ptr<Receiver> ReceiverTable::GetReceiver(const std::string& jobId, int32_t devIndexId) {
    TIV_LOGI("devIndexId: %u, jobId: %s Entering GetReceiver...", static_cast<uint32_t>(devIndexId),
             jobId.c_str());
    tiv::MutexLock lock(receiversMutex);
    const auto row = receivers.find(jobId);
    if (row == receivers.end()) {
        TIV_LOGE("Can't find jobId: %s receiver", jobId.c_str());
        return nullptr;
    }
    const auto device = row->second.find(devIndexId);
    if (device == row->second.end()) {
        TIV_LOGE("Can't find jobId %s, devIndexId: %d receiver", jobId.c_str(), devIndexId);
        return nullptr;
    }
    return device->second;
}

int ReceiverTable::SendMsgByDevId(const std::string& jobId, int32_t devIndexId,
                                  const std::shared_ptr<google::protobuf::Message>& message) {
    if (message == nullptr) {
        TIV_LOGE("[SendMsgByDevId] message is nullptr.");
        return -1;
    }
    TIV_LOGI("Send devIndexId %u Message...", static_cast<uint32_t>(devIndexId));
    const std::shared_ptr<Receiver> receiver = GetReceiver(jobId, devIndexId);
    return receiver != nullptr ? receiver->SendMessage(message) : -1;
}

void ReceiverTable::AddModeJobIdRelation(int32_t devIndexId, const std::string& mode,
                                         const std::string& jobId) {
    const std::string devModeKey = DevModeKey(devIndexId, mode);
    TIV_LOGI("devModeKey:%s, jobId:%s Entering AddModeJobIdRelation...", devModeKey.c_str(),
             jobId.c_str());
    tiv::MutexLock lock(relationMutex);
    devModeJobMap[devModeKey] = jobId;
}

std::string ReceiverTable::GetModeJobIdRelation(int32_t devIndexId, const std::string& mode) {
    const std::string devModeKey = DevModeKey(devIndexId, mode);
    tiv::MutexLock lock(relationMutex);
    const auto found = devModeJobMap.find(devModeKey);
    return found != devModeJobMap.end() ? found->second : std::string();
}

std::string ReceiverTable::DeleteModeJobIdRelation(int32_t devIndexId, const std::string& mode) {
    const std::string devModeKey = DevModeKey(devIndexId, mode);
    TIV_LOGI("devModeKey:%s, Entering DeleteModeJobIdRelation...", devModeKey.c_str());
    tiv::MutexLock lock(relationMutex);
    const auto found = devModeJobMap.find(devModeKey);
    if (found == devModeJobMap.end()) {
        return std::string();
    }
    std::string jobId = std::move(found->second);
    devModeJobMap.erase(found);
    return jobId;
}

void ReceiverTable::ForgetReceiver(const std::string& jobId, int32_t devIndexId,
                                   const std::shared_ptr<Receiver>& receiver) {
    tiv::MutexLock lock(receiversMutex);
    const auto row = receivers.find(jobId);
    if (row == receivers.end()) {
        return;
    }
    const auto device = row->second.find(devIndexId);
    // A handshake at the same moment may have put its own receiver here.
    if (device != row->second.end() && device->second == receiver) {
        row->second.erase(device);
    }
    if (row->second.empty()) {
        receivers.erase(row);
    }
}

void ReceiverTable::OpenReceivers() {
    tiv::MutexLock lock(receiversMutex);
    closed = false;
}

std::vector<std::shared_ptr<Receiver>> ReceiverTable::CloseReceivers() {
    tiv::MutexLock lock(receiversMutex);
    closed = true;
    std::vector<std::shared_ptr<Receiver>> all;
    for (auto& row : receivers) {
        for (auto& device : row.second) {
            all.push_back(std::move(device.second));
        }
    }
    receivers.clear();
    return all;
}

}  // namespace analysis::rokt::device
