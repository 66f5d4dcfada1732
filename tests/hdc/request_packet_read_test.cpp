// Requests whose buffers no session can bring: the reads below them are the test's own.
#include <gmock/gmock.h>

#include "common/memory_utils.h"
#include "hdc/hdc_api.h"
#include "hdc/request_packet.h"
#include "support/failing_malloc.h"
#include "support/recorded_log.h"

namespace {

void* bufferToGive = nullptr;
uint32_t lengthToGive = 0;

int32_t GiveBuffer(void** recvBuf, uint32_t* recvLen) {
    *recvBuf = bufferToGive;
    *recvLen = lengthToGive;
    return IDE_DAEMON_OK;
}

}  // namespace

int32_t HdcRead(HDC_SESSION, void** recvBuf, uint32_t* recvLen) {
    return GiveBuffer(recvBuf, recvLen);
}

int32_t HdcReadNb(HDC_SESSION, void** recvBuf, uint32_t* recvLen) {
    return GiveBuffer(recvBuf, recvLen);
}

namespace tiv::test {

using testing::ElementsAre;

class OddRequest : public testing::Test {
 protected:
    int32_t Read(void* buffer, uint32_t length) {
        bufferToGive = buffer;
        lengthToGive = length;
        return IdeHdcReadRequest(MakeIdeSessionRef(nullptr), &request);
    }

    IdeTlvReq* request = reinterpret_cast<IdeTlvReq*>(&lengthToGive);
};

TEST_F(OddRequest, OfTheLargestLengthIsTooLong) {
    EXPECT_EQ(Read(IdeXmalloc(16), 4294967295U), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_THAT(RecordedLog::Instance().Texts('E'),
                ElementsAre("too long recv_data: 4294967295 bytes"));
}

TEST_F(OddRequest, WithoutABufferCannotBeCopied) {
    const long blocks = LiveMallocBlocks();

    EXPECT_EQ(Read(nullptr, 12), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_THAT(RecordedLog::Instance().Texts('E'), ElementsAre("memory copy_s failed"));
}

}  // namespace tiv::test
