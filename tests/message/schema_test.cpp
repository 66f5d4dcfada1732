// Tests of the numbers and types that every host tool shares with the schema.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include "message/profiler.pb.h"

namespace analysis::rokt::proto {

namespace {

// "<number> <name> <type>[*]" for each field, joined by "; "; a star marks a repeated field.
std::string Fields(const google::protobuf::Descriptor* type) {
    std::string text;
    for (int i = 0; i < type->field_count(); ++i) {
        const google::protobuf::FieldDescriptor* field = type->field(i);
        text += text.empty() ? "" : "; ";
        text += std::to_string(field->number()) + " " + field->name() + " ";
        text += field->message_type() != nullptr ? field->message_type()->name()
                : field->enum_type() != nullptr  ? field->enum_type()->name()
                                                 : field->type_name();
        text += field->is_repeated() ? "*" : "";
    }
    return text;
}

}  // namespace

TEST(Schema, FileIsProto3OfThePackageWithThirteenMessagesAndOneEnum) {
    const google::protobuf::FileDescriptor* file = Response::descriptor()->file();

    EXPECT_EQ(file->package(), "analysis.rokt.proto");
    EXPECT_EQ(file->syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO3);
    EXPECT_EQ(file->message_type_count(), 13);
    EXPECT_EQ(file->enum_type_count(), 1);
}

TEST(Schema, StatusIsSuccess0Failed1) {
    EXPECT_EQ(SUCCESS, 0);
    EXPECT_EQ(FAILED, 1);
    EXPECT_EQ(EumStatus_descriptor()->value_count(), 2);
    EXPECT_EQ(EumStatus_descriptor()->full_name(), "analysis.rokt.proto.EumStatus");
}

TEST(Schema, HeaderHasMagicAndJobContext) {
    EXPECT_EQ(Fields(Header::descriptor()), "1 Magic string; 2 job_ctx string");
}

TEST(Schema, FileChunkReqHasTwelveFields) {
    EXPECT_EQ(Fields(FileChunkReq::descriptor()),
              "1 Hdr Header; 2 FileName string; 3 Offset int64; 4 Chunk bytes; "
              "5 ChunkSizeInBytes int32; 6 IsLastChunk bool; 7 NeedAck bool; 8 Tag string; "
              "9 TagSuffix string; 10 ChunkStartTime uint64; 11 ChunkEndTime uint64; "
              "12 DataModule int32");
}

TEST(Schema, FileChunkFlushReqNamesFileAndModule) {
    EXPECT_EQ(Fields(FileChunkFlushReq::descriptor()),
              "1 Hdr Header; 2 FileName string; 3 DataModule int32");
}

TEST(Schema, ResponseAndFinishJobRspShareTheirFields) {
    const std::string fields = "1 Hdr Header; 2 JobId string; 3 Status EumStatus; 4 Message string";

    EXPECT_EQ(Fields(Response::descriptor()), fields);
    EXPECT_EQ(Fields(FinishJobRsp::descriptor()), fields);
}

TEST(Schema, JobRequestsCarryConfigurationAndId) {
    EXPECT_EQ(Fields(JobStartReq::descriptor()), "1 Hdr Header; 2 SampleConfig string");
    EXPECT_EQ(Fields(JobStopReq::descriptor()), "1 Hdr Header; 2 JobId string");
}

TEST(Schema, ReplayStartReqCarriesNineLists) {
    EXPECT_EQ(Fields(ReplayStartReq::descriptor()),
              "1 Hdr Header; 2 ReplayId int32; 3 ctrl_cpu_events string*; "
              "4 ts_cpu_events string*; 5 ai_cpu_events string*; 6 ai_core_events string*; "
              "7 ai_core_events_cores int32*; 8 llc_events string*; 9 ddr_events string*; "
              "10 aiv_events string*; 11 aiv_events_cores int32*");
}

TEST(Schema, ReplayStopReqNamesTheReplay) {
    EXPECT_EQ(Fields(ReplayStopReq::descriptor()), "1 Hdr Header; 2 ReplayId int32");
}

TEST(Schema, HandshakesHaveNoHeader) {
    const std::string fields = "1 jobId string; 2 devId int32; 3 mode string";

    EXPECT_EQ(Fields(CtrlChannelHandshake::descriptor()), fields);
    EXPECT_EQ(Fields(DataChannelHandshake::descriptor()), fields);
}

TEST(Schema, DeviceInfoAndDataChannelFinishHaveOneField) {
    EXPECT_EQ(Fields(DeviceInfo::descriptor()), "1 dev_id string");
    EXPECT_EQ(Fields(DataChannelFinish::descriptor()), "1 Hdr Header");
}

}  // namespace analysis::rokt::proto
