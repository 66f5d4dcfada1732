// Tests of the way from a message to its handler.
#include "device/dispatcher.h"

#include <gtest/gtest.h>

#include "message/profiler.pb.h"
#include "support/recorded_log.h"

namespace {

using analysis::rokt::message::IMsgHandler;
using analysis::rokt::message::MessagePtr;
using analysis::rokt::message::MsgDispatcher;
using tiv::test::RecordedLog;
namespace proto = analysis::rokt::proto;

class CountingHandler : public IMsgHandler {
 public:
    void OnNewMessage(const MessagePtr& message) override {
        ++calls;
        last = message;
    }

    int calls = 0;
    MessagePtr last;
};

TEST(Dispatcher, NullMessageIsDroppedWithAnError) {
    MsgDispatcher dispatcher;

    dispatcher.OnNewMessage(nullptr);

    EXPECT_EQ(RecordedLog::Instance().Count('E', "message is null"), 1u);
}

TEST(Dispatcher, MessageWithoutHandlerIsNamedInTheError) {
    MsgDispatcher dispatcher;
    const auto handler = std::make_shared<CountingHandler>();
    dispatcher.RegisterHandler<proto::JobStartReq>(handler);

    dispatcher.OnNewMessage(std::make_shared<proto::FileChunkFlushReq>());

    EXPECT_EQ(handler->calls, 0);
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "Failed to find handler for message:analysis.rokt.proto.FileChunkFlushReq"));
}

TEST(Dispatcher, MessageReachesTheHandlerOfItsType) {
    MsgDispatcher dispatcher;
    const auto start = std::make_shared<CountingHandler>();
    const auto stop = std::make_shared<CountingHandler>();
    dispatcher.RegisterHandler<proto::JobStartReq>(start);
    dispatcher.RegisterHandler<proto::JobStopReq>(stop);
    const auto message = std::make_shared<proto::JobStopReq>();

    dispatcher.OnNewMessage(message);

    EXPECT_EQ(start->calls, 0);
    EXPECT_EQ(stop->calls, 1);
    EXPECT_EQ(stop->last, message);
}

TEST(Dispatcher, NullHandlerIsIgnored) {
    MsgDispatcher dispatcher;
    const auto handler = std::make_shared<CountingHandler>();
    dispatcher.RegisterHandler<proto::JobStartReq>(handler);

    dispatcher.RegisterHandler<proto::JobStartReq>(nullptr);
    dispatcher.OnNewMessage(std::make_shared<proto::JobStartReq>());

    EXPECT_EQ(handler->calls, 1);
}

TEST(Dispatcher, LaterHandlerReplacesTheEarlierOne) {
    MsgDispatcher dispatcher;
    const auto earlier = std::make_shared<CountingHandler>();
    const auto later = std::make_shared<CountingHandler>();
    dispatcher.RegisterHandler<proto::JobStartReq>(earlier);

    dispatcher.RegisterHandler<proto::JobStartReq>(later);
    dispatcher.OnNewMessage(std::make_shared<proto::JobStartReq>());

    EXPECT_EQ(earlier->calls, 0);
    EXPECT_EQ(later->calls, 1);
}

}  // namespace
