// Transports when operator new fails.
#include <gmock/gmock.h>

#include "common/perf_count.h"
#include "hdc/chunk_support.h"
#include "hdc/hdc_fixture.h"
#include "hdc/hdc_transport.h"
#include "hdc/hdc_transport_factory.h"
#include "support/failing_new.h"

namespace tiv::test {

using analysis::rokt::transport::HDCTransport;
using analysis::rokt::transport::HDCTransportFactory;

class TransportMemory : public HdcFixture {
 protected:
    void ExpectMakeSharedFailed() {
        EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    }
};

TEST_F(TransportMemory, SessionStaysOpenWhenItsTransportCannotBeMade) {
    std::shared_ptr<analysis::rokt::transport::ITransport> transport;
    {
        FailingNew failing;
        transport = HDCTransportFactory().CreateHdcTransport(session);
    }

    EXPECT_EQ(transport, nullptr);
    ExpectMakeSharedFailed();
    EXPECT_FALSE(driver.IsClosed(session));
}

TEST_F(TransportMemory, ConnectedSessionIsClosedWhenItsTransportCannotBeMade) {
    const HDC_CLIENT client = HdcClientInit(4);
    driver.drvHdcSetSessionReference = [](HDC_SESSION) {
        FailNextNewOfAtLeast(sizeof(HDCTransport));
        return 0;
    };

    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(client, 3), nullptr);

    ExpectMakeSharedFailed();
    EXPECT_TRUE(driver.IsClosed(driver.LastConnected()));
}

TEST_F(TransportMemory, TransportWithoutACounterIsDroppedAndClosesItsSession) {
    driver.halHdcGetSessionAttr = [](HDC_SESSION, int32_t, int32_t* value) {
        *value = 3;
        FailNextNewOfAtLeast(sizeof(Analysis::Rokt::Common::Statistics::PerfCount));
        return 0;
    };
    RecordedLog::Instance().SetLevel(DLOG_ERROR);

    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(session), nullptr);

    RecordedLog::Instance().SetLevel(DLOG_DEBUG);
    ExpectMakeSharedFailed();
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(TransportMemory, ChunkIsLostWhenItsFieldsFindNoMemory) {
    HDCTransport transport(session, false, nullptr);
    const auto chunk = MakeChunk("abc");
    FailNextNewOfAtLeast(1);

    const int ret = transport.SendBuffer(chunk);

    EXPECT_EQ(ret, -1);
    ExpectMakeSharedFailed();
    EXPECT_TRUE(driver.Sent(session).empty());
    EXPECT_EQ(transport.SendBuffer(chunk), 0);
}

}  // namespace tiv::test
