// What the tests of uploaders share: a gated link and chunks with a text.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "transport/gated_transport.h"
#include "transport/uploader.h"

namespace tiv::test {

class UploaderFixture : public testing::Test {
 protected:
    using Uploader = analysis::rokt::transport::Uploader;
    using ProfileFileChunk = analysis::rokt::ProfileFileChunk;

    static std::shared_ptr<ProfileFileChunk> MakeChunk(const std::string& text) {
        auto chunk = std::make_shared<ProfileFileChunk>();
        chunk->chunk = text;
        chunk->chunkSize = text.size();
        chunk->chunkModule = 3;
        chunk->fileName = "data/a.null";
        chunk->extraInfo = "job.0";
        return chunk;
    }

    // Not started.
    std::shared_ptr<Uploader> MakeUploader(size_t capacity) {
        auto uploader = std::make_shared<Uploader>(link);
        EXPECT_EQ(uploader->Init(capacity), 0);
        return uploader;
    }

    // Running, with "held" inside a send that waits for the gate.
    std::shared_ptr<Uploader> MakeHeldUploader(size_t capacity) {
        link->Shut();
        auto uploader = MakeUploader(capacity);
        EXPECT_EQ(uploader->Start(), 0);
        EXPECT_EQ(uploader->UploadData(MakeChunk("held")), 0);
        EXPECT_TRUE(link->WaitForHeldSend());
        return uploader;
    }

    std::shared_ptr<GatedTransport> link = std::make_shared<GatedTransport>();
    RecordedLog& log = RecordedLog::Instance();
    FakeMm& mm = FakeMm::Instance();
};

}  // namespace tiv::test
