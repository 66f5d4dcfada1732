// Tests of decoding frames, whole, cut and hostile.
#include "message/codec.h"
#include "message/profiler.pb.h"
#include "support/failing_new.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::message {

class CodecDecode : public tiv::test::RecordedLogTest {};

namespace {

const std::string RESPONSE = "analysis.rokt.proto.Response";

// A frame with any stored length, which need not be that of the name.
std::string Frame(uint32_t storedLength, const std::string& rest) {
    std::string frame;
    frame.push_back(static_cast<char>(storedLength >> 24));
    frame.push_back(static_cast<char>(storedLength >> 16));
    frame.push_back(static_cast<char>(storedLength >> 8));
    frame.push_back(static_cast<char>(storedLength));
    return frame + rest;
}

std::string ResponseFrame(const std::string& body) {
    return Frame(29, RESPONSE + std::string(1, '\0') + body);
}

}  // namespace

TEST_F(CodecDecode, ResponseSurvivesEncodeAndDecode) {
    auto response = std::make_shared<proto::Response>();
    response->set_status(proto::FAILED);
    response->set_message("start failed");

    const auto decoded = Codec::DecodeMessage(Codec::EncodeMessage(response));

    const auto* back = dynamic_cast<proto::Response*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->status(), proto::FAILED);
    EXPECT_EQ(back->message(), "start failed");
}

TEST_F(CodecDecode, FrameThatEndsAfterTheNameIsAMessageOfDefaults) {
    const auto decoded = Codec::DecodeMessage(ResponseFrame(""));

    const auto* back = dynamic_cast<proto::Response*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->status(), proto::SUCCESS);
    EXPECT_EQ(back->message(), "");
    EXPECT_FALSE(back->has_hdr());
}

TEST_F(CodecDecode, RawBytesDecodeTheSame) {
    const std::string frame = ResponseFrame("\x22\x02ok");

    const auto decoded = Codec::DecodeMessage(frame.data(), frame.size());

    const auto* back = dynamic_cast<proto::Response*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->message(), "ok");
}

TEST_F(CodecDecode, NoBytesAtAllAreRefused) {
    EXPECT_EQ(Codec::DecodeMessage(nullptr, 100), nullptr);

    EXPECT_TRUE(log.Has('E', "bufLen less than name len, bufLen=0, expected_len=4"));
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, ThreeBytesAreRefused) {
    EXPECT_EQ(Codec::DecodeMessage(std::string("\0\0\0", 3)), nullptr);

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"bufLen less than name len, bufLen=3, expected_len=4"});
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, StoredLengthOf1026IsRefused) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(1026, std::string(1026, 'x'))), nullptr);

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"[DecodeMessage] buf size(1026) is too big."});
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, StoredLengthOf1025PassesTheSizeTest) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(1025, std::string(1025, 'x'))), nullptr);

    EXPECT_TRUE(log.Texts('E').empty());
    EXPECT_TRUE(log.Has('W', "Failed to CreateMessage from name:" + std::string(1025, 'x')));
}

TEST_F(CodecDecode, LargestStoredLengthIsTakenAsUnsigned) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(0xFFFFFFFF, "x")), nullptr);

    EXPECT_TRUE(log.Has('E', "[DecodeMessage] buf size(4294967295) is too big."));
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, BufferThatEndsInsideTheNameIsRefused) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(29, RESPONSE)), nullptr);

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"bufLen less than name, bufLen=32, expected_len=33"});
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, StoredLengthOfZeroFindsNoType) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(0, "")), nullptr);

    const std::vector<std::string> warnings = {
        "Failed to FindMessageTypeByName, name=", "Failed to FindMessageTypeByName, name=",
        "Failed to CreateMessage from name:"};
    EXPECT_EQ(log.Texts('W'), warnings);
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(CodecDecode, NameWithoutItsTerminatingZeroStillFindsTheType) {
    const auto decoded = Codec::DecodeMessage(Frame(28, RESPONSE + "\x22\x02ok"));

    const auto* back = dynamic_cast<proto::Response*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->message(), "ok");
}

TEST_F(CodecDecode, NameIsCutAtItsFirstZero) {
    const std::string name = RESPONSE + std::string("\0junk", 5);

    const auto decoded = Codec::DecodeMessage(Frame(33, name));

    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->GetTypeName(), RESPONSE);
}

TEST_F(CodecDecode, UnknownNameIsTriedTwice) {
    EXPECT_EQ(Codec::DecodeMessage(Frame(5, std::string("Nope\0", 5))), nullptr);

    const std::vector<std::string> warnings = {"Failed to FindMessageTypeByName, name=Nope",
                                               "Failed to FindMessageTypeByName, name=Nope",
                                               "Failed to CreateMessage from name:Nope"};
    EXPECT_EQ(log.Texts('W'), warnings);
}

TEST_F(CodecDecode, BodyThatIsNoProtobufIsRefused) {
    EXPECT_EQ(Codec::DecodeMessage(ResponseFrame("\x22\x05wh")), nullptr);

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Failed to ParseFromArray, dataLen=4"});
}

TEST_F(CodecDecode, TextThatIsNoUtf8IsRefusedAndReportedByTheLibrary) {
    EXPECT_EQ(Codec::DecodeMessage(ResponseFrame("\x22\x01\xff")), nullptr);

    EXPECT_TRUE(log.Contains('E', "protobuf library reports: String field"));
    EXPECT_TRUE(log.Has('E', "Failed to ParseFromArray, dataLen=3"));
}

TEST_F(CodecDecode, UnknownFieldsAreNoFailure) {
    const auto decoded = Codec::DecodeMessage(ResponseFrame("\x22\x02ok\x98\x06\x07"));

    const auto* back = dynamic_cast<proto::Response*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->message(), "ok");
}

TEST_F(CodecDecode, BufferOf134217728BytesIsAccepted) {
    const std::string head(
        "\0\0\0\x21"
        "analysis.rokt.proto.FileChunkReq\0\x22",
        38);
    const uint32_t chunkLength = 134217728 - 38 - 4;
    std::string frame = head;
    frame.reserve(134217728);
    frame.push_back(static_cast<char>((chunkLength & 0x7F) | 0x80));
    frame.push_back(static_cast<char>((chunkLength >> 7 & 0x7F) | 0x80));
    frame.push_back(static_cast<char>((chunkLength >> 14 & 0x7F) | 0x80));
    frame.push_back(static_cast<char>(chunkLength >> 21));
    frame.resize(134217728, 'c');

    const auto decoded = Codec::DecodeMessage(frame);

    const auto* back = dynamic_cast<proto::FileChunkReq*>(decoded.get());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->chunk().size(), chunkLength);
}

TEST_F(CodecDecode, BufferOf134217729BytesIsRefused) {
    EXPECT_EQ(Codec::DecodeMessage(std::string(134217729, '\0')), nullptr);

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"[DecodeMessage] buf size(134217729) is too big."});
    EXPECT_EQ(log.Lines().size(), 1U);
}

TEST_F(CodecDecode, NoMemoryGivesNullAndAnError) {
    const std::string frame = ResponseFrame("");
    Codec::MessagePtr message = std::make_shared<proto::Response>();
    {
        tiv::test::FailingNew failing;
        message = Codec::DecodeMessage(frame);
    }

    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"make shared failed, message: std::bad_alloc"});
}

}  // namespace analysis::rokt::message
