// In-place reading of frames and chunks, against the library's own encoding.
#include "host/file_chunk_view.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "message/codec.h"
#include "message/profiler.pb.h"

using namespace tiv::host;
using analysis::rokt::message::Codec;
using analysis::rokt::proto::FileChunkReq;

namespace {

FileChunkReq FullMessage() {
    FileChunkReq message;
    message.mutable_hdr()->set_job_ctx("{\"job_id\":\"j\"}");
    message.mutable_hdr()->set_magic("m");
    message.set_filename("data/llc.data");
    message.set_offset(-1);
    message.set_chunk(std::string("\0\1\2payload", 10));
    message.set_chunksizeinbytes(10);
    message.set_islastchunk(true);
    message.set_needack(true);
    message.set_tag("t");
    message.set_chunkendtime(77);
    message.set_datamodule(3);
    return message;
}

}  // namespace

TEST(ParseFileChunk, EveryFieldThatAHostNeeds) {
    const std::string body = FullMessage().SerializeAsString();
    FileChunkView view;

    ASSERT_TRUE(ParseFileChunk(body, view));

    EXPECT_EQ(view.jobContext, "{\"job_id\":\"j\"}");
    EXPECT_EQ(view.fileName, "data/llc.data");
    EXPECT_EQ(view.offset, -1);
    EXPECT_EQ(view.chunk, std::string_view("\0\1\2payload", 10));
    EXPECT_EQ(view.chunkSizeInBytes, 10);
    EXPECT_TRUE(view.isLastChunk);
    EXPECT_EQ(view.dataModule, 3);
}

TEST(ParseFileChunk, PayloadStaysInTheBuffer) {
    const std::string body = FullMessage().SerializeAsString();
    FileChunkView view;

    ASSERT_TRUE(ParseFileChunk(body, view));

    EXPECT_GE(view.chunk.data(), body.data());
    EXPECT_LE(view.chunk.data() + view.chunk.size(), body.data() + body.size());
}

TEST(ParseFileChunk, EmptyBodyIsAMessageOfDefaults) {
    FileChunkView view;

    ASSERT_TRUE(ParseFileChunk("", view));

    EXPECT_TRUE(view.fileName.empty());
    EXPECT_TRUE(view.chunk.empty());
    EXPECT_EQ(view.dataModule, 0);
}

TEST(ParseFileChunk, EveryCutIsRefusedOrEndsAtAField) {
    const std::string body = FullMessage().SerializeAsString();
    for (size_t length = 0; length < body.size(); ++length) {
        FileChunkView view;
        FileChunkReq library;
        const std::string cut = body.substr(0, length);
        EXPECT_EQ(ParseFileChunk(cut, view), library.ParseFromString(cut)) << length;
    }
}

TEST(ParseFileChunk, LengthBeyondTheBodyIsRefused) {
    FileChunkView view;

    EXPECT_FALSE(ParseFileChunk(std::string("\x22\x7f"
                                            "abc",
                                            5),
                                view));
    EXPECT_FALSE(ParseFileChunk(std::string("\x22\xff\xff\xff\xff\x0f", 6), view));
}

TEST(ParseFileChunk, WrongWireTypeIsRefused) {
    FileChunkView view;

    EXPECT_FALSE(ParseFileChunk(std::string("\x20\x01", 2), view));
    EXPECT_FALSE(ParseFileChunk(std::string("\x1a\x01"
                                            "a",
                                            3),
                                view));
}

TEST(ParseFileChunk, EmptyFieldAtTheEndIsAField) {
    const std::string body = FullMessage().SerializeAsString();
    for (const char* empty : {"\x0a", "\x12", "\x22"}) {
        const std::string bytes = body + empty + std::string(1, '\0');
        FileChunkReq library;
        FileChunkView view;
        ASSERT_TRUE(library.ParseFromString(bytes));

        ASSERT_TRUE(ParseFileChunk(bytes, view)) << static_cast<int>(*empty);

        EXPECT_EQ(view.fileName, library.filename());
        EXPECT_EQ(view.chunk, library.chunk());
    }
}

TEST(ParseFileChunk, EveryFieldOfAnotherWireTypeIsRefused) {
    for (const int field : {1, 2, 3, 4, 5, 6, 12}) {
        FileChunkView view;
        const std::string asVarint = {static_cast<char>(field << 3), '\0'};
        const std::string asBytes = {static_cast<char>(field << 3 | 2), '\0'};

        EXPECT_NE(ParseFileChunk(asVarint, view), ParseFileChunk(asBytes, view)) << field;
    }
}

TEST(ParseFileChunk, HeaderThatIsNoneIsRefused) {
    FileChunkView view;

    EXPECT_FALSE(ParseFileChunk(std::string("\x0a\x01\xff", 3), view));
}

TEST(ParseFileChunk, UnknownFieldsArePassedOver) {
    std::string body = FullMessage().SerializeAsString();
    body += std::string(
        "\xa2\x06\x03"
        "abc",
        6);
    FileChunkView view;

    ASSERT_TRUE(ParseFileChunk(body, view));

    EXPECT_EQ(view.dataModule, 3);
}

TEST(ParseFrame, TakesApartWhatTheCodecMade) {
    const auto message = std::make_shared<FileChunkReq>(FullMessage());
    const std::string buffer = Codec::EncodeMessage(message);
    FrameView frame;

    ASSERT_TRUE(ParseFrame(buffer, frame));

    EXPECT_EQ(frame.typeName, "analysis.rokt.proto.FileChunkReq");
    EXPECT_EQ(frame.body, message->SerializeAsString());
}

TEST(ParseFrame, LengthsThatDoNotFitAreRefused) {
    FrameView frame;

    EXPECT_FALSE(ParseFrame("", frame));
    EXPECT_FALSE(ParseFrame(std::string("\0\0\0", 3), frame));
    EXPECT_FALSE(ParseFrame(std::string("\0\0\0\0abc", 7), frame));
    EXPECT_FALSE(ParseFrame(std::string("\0\0\0\4abc", 7), frame));
    EXPECT_FALSE(ParseFrame(std::string("\xff\xff\xff\xff"
                                        "abc",
                                        7),
                            frame));
    EXPECT_TRUE(ParseFrame(std::string("\0\0\0\3ab\0", 7), frame));
    EXPECT_TRUE(frame.body.empty());
}
