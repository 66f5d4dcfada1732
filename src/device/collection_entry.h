// The place where a host session becomes a control session or a data session.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/singleton.h"
#include "device/receiver_table.h"
#include "hdc/i_transport.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace analysis::rokt::transport {
class Uploader;
}

namespace analysis::rokt::device {

// Reads the first message of a session and makes of it a control session, served by a Receiver from
// then on, or a data session, served by an Uploader.
//
// The check for an earlier live job and the filing of the new receiver are not one step: two
// handshakes for one device and mode at the same moment both pass, and the second drops the first.
//
// Handle and the handshakes run on session threads, several at a time; Init and Uninit on the main
// thread.
class CollectionEntry : public common::singleton::Singleton<CollectionEntry>, public ReceiverTable {
 public:
    CollectionEntry() = default;
    ~CollectionEntry() override = default;

    // Empties the directory of earlier runs and learns the run side. Returns 0, or -1 when the
    // driver does not tell the side; no handshake is accepted then.
    [[nodiscard]] int Init();

    // Ends every control session and every uploader. Returns 0.
    int Uninit();

    // Serves the first message of a session. Returns 0 when the session was accepted; otherwise a
    // refusal was sent (none at all while the entry is not inited), and the session closes when the
    // caller lets go of the transport.
    [[nodiscard]] int Handle(const std::shared_ptr<transport::ITransport>& transport,
                             const std::string& value, int32_t devIndexId);

    // Each gives 0 or the failure; what the refusal says is in `status`.
    [[nodiscard]] int HandleCtrlSession(const std::shared_ptr<Receiver>& receiver,
                                        const proto::CtrlChannelHandshake& handshake,
                                        message::StatusInfo& status, int32_t devIndexId);
    [[nodiscard]] int HandleDataSession(const std::shared_ptr<transport::Uploader>& uploader,
                                        const proto::DataChannelHandshake& handshake,
                                        int32_t devIndexId);

    // See FinishDataSession.
    int FinishCollection(int32_t devIndexId, const std::string& jobId);

 private:
    bool LastJobIsRunning(int32_t devIndexId, const std::string& mode);
    int StartReceiver(const std::shared_ptr<Receiver>& receiver,
                      const proto::CtrlChannelHandshake& handshake, message::StatusInfo& status,
                      int32_t devIndexId);
    int StartUploader(const std::shared_ptr<transport::Uploader>& uploader,
                      const std::string& jobId);

    // Set by Init, cleared by Uninit.
    std::atomic<bool> inited{false};

    // Set while Uninit sweeps, so that no handshake files a session behind the sweep.
    std::atomic<bool> closing{false};
};

}  // namespace analysis::rokt::device
