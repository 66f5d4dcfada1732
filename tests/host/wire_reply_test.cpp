// Answers of a device as the host reads them.
#include "host/wire_reply.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "message/codec.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

using namespace tiv::host;
using analysis::rokt::message::Codec;
using analysis::rokt::message::CreateResponse;
using analysis::rokt::message::StatusInfo;

namespace {

std::string Answer(int status, const std::string& info) {
    StatusInfo record;
    record.status = status;
    record.info = info;
    return Codec::EncodeMessage(CreateResponse(record));
}

}  // namespace

TEST(ParseReply, SuccessIsAccepted) {
    Reply reply;

    ASSERT_TRUE(ParseReply(Answer(0, ""), reply));

    EXPECT_TRUE(reply.Accepted());
}

TEST(ParseReply, RefusalCarriesTheDevicesText) {
    Reply reply;

    ASSERT_TRUE(ParseReply(Answer(1, "start failed"), reply));

    EXPECT_EQ(reply.outcome, Reply::Outcome::REFUSED);
    EXPECT_EQ(reply.message, "start failed");
}

TEST(ParseReply, EmptyTextIsExplained) {
    Reply reply;

    ASSERT_TRUE(ParseReply(Answer(1, ""), reply));

    EXPECT_NE(reply.message.find("another profiling job still runs"), std::string::npos);
}

TEST(ParseReply, BareContainerTextIsARefusal) {
    Reply reply;

    ASSERT_TRUE(ParseReply("MESSAGE_CONTAINER_NO_SUPPORT", reply));

    EXPECT_EQ(reply.outcome, Reply::Outcome::REFUSED);
    EXPECT_NE(reply.message.find("container"), std::string::npos);
}

TEST(ParseReply, OtherMessagesAreNoAnswer) {
    const auto finish = std::make_shared<analysis::rokt::proto::DataChannelFinish>();
    Reply reply;

    EXPECT_FALSE(ParseReply(Codec::EncodeMessage(finish), reply));
    EXPECT_FALSE(ParseReply("", reply));
    EXPECT_FALSE(ParseReply("garbage that is no frame", reply));
}
