// What the tests of the collection entry share: first messages on sessions of device 2.
#pragma once

#include <memory>
#include <string>

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

using Session = std::shared_ptr<MemoryTransport>;

class HandshakeTest : public DeviceTest {
 protected:
    int Handle(const Session& on, const std::shared_ptr<google::protobuf::Message>& message) {
        return entry.Handle(on, Encode(message), 2);
    }
    int OpenControl(const Session& on, const std::string& jobId, const std::string& mode = "") {
        return Handle(on, CtrlHandshake(jobId, 5, mode));
    }
    int OpenData(const Session& on, const std::string& jobId, const std::string& mode = "") {
        return Handle(on, DataHandshake(jobId, mode));
    }
    static Session NewSession() { return std::make_shared<MemoryTransport>(); }

    static void ExpectRefusal(const Session& on, const std::string& info) {
        ASSERT_EQ(on->Sent().size(), 1u);
        const Answer answer = AnswerOf(on->Sent().at(0));
        EXPECT_TRUE(answer.isResponse);
        EXPECT_FALSE(answer.success);
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.info, info);
    }
    static void ExpectSuccess(const Session& on) {
        ASSERT_TRUE(on->WaitForSent(1));
        EXPECT_TRUE(AnswerOf(on->Sent().at(0)).success);
    }
    static std::shared_ptr<analysis::rokt::transport::Uploader> FindUploader(
        const std::string& jobId) {
        std::shared_ptr<analysis::rokt::transport::Uploader> uploader;
        analysis::rokt::transport::UploaderMgr::Instance().GetUploader(jobId, uploader);
        return uploader;
    }

    analysis::rokt::device::CollectionEntry& entry =
        analysis::rokt::device::CollectionEntry::Instance();
    Session session = NewSession();
    RecordedLog& log = RecordedLog::Instance();
};

}  // namespace tiv::test
