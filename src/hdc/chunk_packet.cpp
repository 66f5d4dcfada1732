// Encoding of a chunk around its bytes.
#include "hdc/chunk_packet.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include "common/memory_utils.h"
#include "hdc/fragment.h"
#include "message/codec.h"
#include "message/job_context.h"
#include "message/profiler.pb.h"
#include "platform/log.h"

namespace analysis {
namespace rokt {
namespace transport {

namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedOutputStream;

constexpr size_t PACKET_GRANULE = 64U << 10;
// Bytes in front of the packet, whose words are aligned.
constexpr size_t FRONT = 16;
static_assert(FRONT >= HDC_ROOM_IN_FRONT, "a fragment's header fits in front");
constexpr size_t VALUE_LIMIT = INT_MAX - IDE_TLV_HEADER_LEN;  // lengths of sends are signed

// A text cut at its last dot; both parts are empty when there is none.
struct CutText {
    std::string head;
    std::string tail;
};

CutText CutAtLastDot(const std::string& text) {
    const size_t dot = text.rfind('.');
    if (dot == std::string::npos) {
        return {};
    }
    return {text.substr(0, dot), text.substr(dot + 1)};
}

// The frame of the message as far as the fields in front of the bytes.
std::string EncodeHead(const ProfileFileChunk& chunk) {
    const CutText owner = CutAtLastDot(chunk.extraInfo);
    const CutText file = CutAtLastDot(chunk.fileName);
    message::JobContext jobContext;
    jobContext.job_id = owner.head;
    jobContext.dev_id = owner.tail;
    jobContext.tag = file.tail;
    auto head = std::make_shared<proto::FileChunkReq>();
    head->mutable_hdr()->set_job_ctx(jobContext.ToString());
    head->set_filename(file.head);
    head->set_offset(chunk.offset);
    return message::Codec::EncodeMessage(head);
}

// The fields behind the bytes.
std::string EncodeTail(const ProfileFileChunk& chunk, size_t chunkBytes) {
    proto::FileChunkReq tail;
    tail.set_chunksizeinbytes(static_cast<int32_t>(static_cast<uint32_t>(chunkBytes)));
    tail.set_islastchunk(chunk.isLastChunk);
    tail.set_needack(false);
    tail.set_datamodule(static_cast<int32_t>(chunk.chunkModule));
    return tail.SerializeAsString();
}

// The tag and length in front of the bytes, nothing for an empty field.
struct ChunkFieldHead {
    explicit ChunkFieldHead(size_t chunkBytes) {
        if (chunkBytes == 0) {
            return;
        }
        const uint32_t tag = WireFormatLite::MakeTag(proto::FileChunkReq::kChunkFieldNumber,
                                                     WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
        uint8_t* end = CodedOutputStream::WriteTagToArray(tag, bytes);
        end = CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(chunkBytes), end);
        size = static_cast<size_t>(end - bytes);
    }

    uint8_t bytes[16] = {};
    size_t size = 0;
};

char* Append(char* to, const void* from, size_t count) {
    memcpy(to, from, count);
    return to + count;
}

}  // namespace

ChunkPacket::~ChunkPacket() { Release(); }

int ChunkPacket::Build(const ProfileFileChunk& chunk) {
    valueLength = 0;
    const auto chunkBytes =
        static_cast<size_t>(std::min<uint64_t>(chunk.chunkSize, chunk.chunk.size()));
    if (chunkBytes > VALUE_LIMIT) {
        return -1;
    }
    const std::string head = EncodeHead(chunk);
    const std::string tail = EncodeTail(chunk, chunkBytes);
    const ChunkFieldHead fieldHead(chunkBytes);
    const size_t bytes = head.size() + fieldHead.size + chunkBytes + tail.size();
    if (head.empty() || bytes > VALUE_LIMIT) {
        return -1;
    }
    valueLength = static_cast<uint32_t>(bytes);
    if (!Reserve(FRONT + IDE_TLV_HEADER_LEN + bytes + HDC_ROOM_BEHIND)) {
        TIV_LOGE("malloc memory failed");
        return -1;
    }
    packet->type = IDE_PROFILING_REQ;
    packet->dev_id = 0;
    packet->len = valueLength;
    char* at = Append(packet->value, head.data(), head.size());
    at = Append(at, fieldHead.bytes, fieldHead.size);
    at = Append(at, chunk.chunk.data(), chunkBytes);
    at = Append(at, tail.data(), tail.size());
    *at = '\0';
    return 0;
}

bool ChunkPacket::Reserve(size_t bytes) {
    if (bytes <= capacity) {
        return true;
    }
    Release();
    const size_t rounded = (bytes + PACKET_GRANULE - 1) / PACKET_GRANULE * PACKET_GRANULE;
    block = static_cast<char*>(IdeXmalloc(rounded));
    if (block == nullptr) {
        return false;
    }
    packet = reinterpret_cast<IdeTlvReq*>(block + FRONT);
    capacity = rounded;
    return true;
}

void ChunkPacket::Release() {
    IdeXfree(block);
    block = nullptr;
    packet = nullptr;
    capacity = 0;
}

void ChunkPacket::Trim() {
    if (capacity > KEEP_LIMIT) {
        Release();
    }
}

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
