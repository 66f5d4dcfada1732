// Tests of making messages and encoding them.
#include <google/protobuf/descriptor.h>

#include <climits>
#include <new>

#include "message/codec.h"
#include "message/profiler.pb.h"
#include "support/failing_new.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::message {

class CodecCreate : public tiv::test::RecordedLogTest {};
class CodecEncode : public tiv::test::RecordedLogTest {};
class CodecJson : public tiv::test::RecordedLogTest {};

namespace {

std::shared_ptr<proto::Response> FailedResponse() {
    auto response = std::make_shared<proto::Response>();
    response->set_status(proto::FAILED);
    response->set_message("why");
    return response;
}

// A message that outgrows what the library serialises, once it is asked a second time.
class GrowingMessage : public google::protobuf::Message {
 public:
    Message* New(google::protobuf::Arena*) const override { return nullptr; }
    google::protobuf::Metadata GetMetadata() const override {
        return proto::Response::default_instance().GetMetadata();
    }
    size_t ByteSizeLong() const override {
        return asked_++ == 0 ? 0 : static_cast<size_t>(INT_MAX) + 1;
    }
    int GetCachedSize() const override { return 0; }
    bool IsInitialized() const override { return true; }

 private:
    mutable int asked_ = 0;
};

}  // namespace

TEST_F(CodecCreate, KnownNameGivesAnEmptyMessageOfThatType) {
    const auto message = Codec::CreateMessage("analysis.rokt.proto.Response");

    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->GetTypeName(), "analysis.rokt.proto.Response");
    EXPECT_EQ(message->ByteSizeLong(), 0U);
}

TEST_F(CodecCreate, NameIsCutAtItsFirstZeroByte) {
    const std::string name("analysis.rokt.proto.Response\0junk", 33);

    const auto message = Codec::CreateMessage(name);

    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->GetTypeName(), "analysis.rokt.proto.Response");
}

TEST_F(CodecCreate, UnknownNameGivesNullWithOneWarning) {
    EXPECT_EQ(Codec::CreateMessage("analysis.rokt.proto.Nope"), nullptr);

    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_TRUE(log.Has('W', "Failed to FindMessageTypeByName, name=analysis.rokt.proto.Nope"));
}

TEST_F(CodecCreate, TypesOfTheLibraryItselfAreKnownToo) {
    EXPECT_NE(Codec::CreateMessage("google.protobuf.FileDescriptorProto"), nullptr);
}

TEST_F(CodecCreate, NoMemoryGivesNullAndAnError) {
    const std::string name = "analysis.rokt.proto.Response";
    Codec::MessagePtr message = Codec::CreateMessage(name);
    {
        tiv::test::FailingNew failing;
        message = Codec::CreateMessage(name);
    }

    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"make shared failed, message: std::bad_alloc"});
}

TEST_F(CodecEncode, NameLengthIsBigEndianAndCountsTheZero) {
    const std::string frame = Codec::EncodeMessage(std::make_shared<proto::Response>());

    EXPECT_EQ(frame, std::string("\0\0\0\x1d"
                                 "analysis.rokt.proto.Response\0",
                                 33));
}

TEST_F(CodecEncode, BodyFollowsTheName) {
    const auto response = FailedResponse();

    const std::string frame = Codec::EncodeMessage(response);

    EXPECT_EQ(frame.substr(33), response->SerializeAsString());
    EXPECT_EQ(frame.substr(33), std::string("\x18\x01\x22\x03why"));
}

TEST_F(CodecEncode, NullGivesTheEmptyStringAndAnError) {
    EXPECT_EQ(Codec::EncodeMessage(nullptr), "");

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Message is null"});
}

TEST_F(CodecEncode, NameOf1024CharactersEncodesAndDecodes) {
    const std::string name = "t." + std::string(1022, 'N');

    const std::string frame = Codec::EncodeMessage(Codec::CreateMessage(name));

    EXPECT_EQ(frame, std::string("\0\0\x04\x01", 4) + name + std::string(1, '\0'));
    const auto decoded = Codec::DecodeMessage(frame);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->GetTypeName(), name);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(CodecEncode, NameOf1025CharactersIsRefused) {
    const auto message = Codec::CreateMessage("t." + std::string(1023, 'N'));
    ASSERT_NE(message, nullptr);

    EXPECT_EQ(Codec::EncodeMessage(message), "");

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Type size:1025 is invalid"});
}

TEST_F(CodecEncode, MessageThatCannotBeAppendedGivesTheEmptyString) {
    EXPECT_EQ(Codec::EncodeMessage(std::make_shared<GrowingMessage>()), "");

    EXPECT_EQ(log.Count('E', "Failed to append message"), 1U);
}

TEST_F(CodecEncode, LinesOfTheLibraryGoToTheLog) {
    EXPECT_EQ(Codec::EncodeMessage(std::make_shared<GrowingMessage>()), "");

    EXPECT_TRUE(log.Contains('E', "protobuf library reports: "));
    EXPECT_TRUE(log.Contains('E', "exceeded maximum protobuf size of 2GB"));
}

TEST_F(CodecEncode, NoMemoryForTheNameGivesTheEmptyString) {
    const auto response = FailedResponse();
    std::string frame = "preset";
    {
        tiv::test::FailingNew failing(0);
        frame = Codec::EncodeMessage(response);
    }

    EXPECT_EQ(frame, "");
    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Failed to append message"});
}

TEST_F(CodecEncode, NoMemoryForTheFrameGivesTheEmptyString) {
    const auto response = FailedResponse();
    std::string frame = "preset";
    {
        tiv::test::FailingNew failing(1);
        frame = Codec::EncodeMessage(response);
    }

    EXPECT_EQ(frame, "");
    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Failed to append message"});
}

TEST_F(CodecEncode, SharedFormGivesTheSameFrame) {
    const auto response = FailedResponse();

    const auto frame = Codec::EncodeMessageShared(response);

    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(*frame, Codec::EncodeMessage(response));
}

TEST_F(CodecEncode, SharedFormOfNullIsNull) {
    EXPECT_EQ(Codec::EncodeMessageShared(nullptr), nullptr);

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Message is null"});
}

TEST_F(CodecEncode, SharedFormWithoutMemoryIsNullWithAnError) {
    const auto response = FailedResponse();
    std::shared_ptr<std::string> frame;
    {
        tiv::test::FailingNew failing;
        frame = Codec::EncodeMessageShared(response);
    }

    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"make shared failed, message: std::bad_alloc"});
}

TEST_F(CodecJson, NullGivesTheEmptyText) {
    EXPECT_EQ(Codec::MessageToJson(nullptr, false, false), "");
}

TEST_F(CodecJson, DefaultsAreLeftOutUnlessAskedFor) {
    const auto finish = std::make_shared<proto::DeviceInfo>();

    EXPECT_EQ(Codec::MessageToJson(finish, false, false), "{}");
    EXPECT_EQ(Codec::MessageToJson(finish, false, true), "{\"devId\":\"\"}");
}

TEST_F(CodecJson, WhitespaceOnlyWhenAskedFor) {
    const auto info = std::make_shared<proto::DeviceInfo>();
    info->set_dev_id("3");

    EXPECT_EQ(Codec::MessageToJson(info, false, false), "{\"devId\":\"3\"}");
    EXPECT_EQ(Codec::MessageToJson(info, true, false), "{\n \"devId\": \"3\"\n}\n");
}

TEST_F(CodecJson, WithoutMemoryIsEmptyWithAnError) {
    const auto info = std::make_shared<proto::DeviceInfo>();
    info->set_dev_id("3");
    ASSERT_EQ(Codec::MessageToJson(info, false, false), "{\"devId\":\"3\"}");
    std::string text = "kept";
    {
        tiv::test::FailingNew failing;
        text = Codec::MessageToJson(info, false, false);
    }

    EXPECT_EQ(text, "");
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"make shared failed, message: std::bad_alloc"});
}

}  // namespace analysis::rokt::message
