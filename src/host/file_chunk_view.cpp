// In-place reading of frames and file chunks.
#include "host/file_chunk_view.h"

#include <arpa/inet.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstring>

#include "message/profiler.pb.h"

namespace tiv::host {

namespace {

using analysis::rokt::proto::FileChunkReq;
using analysis::rokt::proto::Header;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

constexpr size_t NAME_LENGTH_SIZE = 4;

// A length-delimited value in place.
bool ReadBytes(CodedInputStream& input, std::string_view& value) {
    uint32_t length = 0;
    const void* data = nullptr;
    int available = 0;
    if (!input.ReadVarint32(&length)) {
        return false;
    }
    if (length == 0) {
        value = {};
        return true;
    }
    if (!input.GetDirectBufferPointer(&data, &available) ||
        length > static_cast<uint32_t>(available)) {
        return false;
    }
    value = std::string_view(static_cast<const char*>(data), length);
    return input.Skip(static_cast<int>(length));
}

bool ReadText(CodedInputStream& input, std::string& text) {
    std::string_view value;
    if (!ReadBytes(input, value)) {
        return false;
    }
    text.assign(value);
    return true;
}

bool ReadHeader(CodedInputStream& input, std::string& jobContext) {
    std::string_view value;
    Header header;
    if (!ReadBytes(input, value) ||
        !header.ParseFromArray(value.data(), static_cast<int>(value.size()))) {
        return false;
    }
    jobContext = header.job_ctx();
    return true;
}

template <class T>
bool ReadVarint(CodedInputStream& input, T& number) {
    uint64_t value = 0;
    if (!input.ReadVarint64(&value)) {
        return false;
    }
    number = static_cast<T>(value);
    return true;
}

bool ReadField(CodedInputStream& input, uint32_t tag, FileChunkView& view) {
    const bool delimited =
        WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
    const bool varint = WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_VARINT;
    switch (WireFormatLite::GetTagFieldNumber(tag)) {
        case FileChunkReq::kHdrFieldNumber:
            return delimited && ReadHeader(input, view.jobContext);
        case FileChunkReq::kFileNameFieldNumber:
            return delimited && ReadText(input, view.fileName);
        case FileChunkReq::kOffsetFieldNumber:
            return varint && ReadVarint(input, view.offset);
        case FileChunkReq::kChunkFieldNumber:
            return delimited && ReadBytes(input, view.chunk);
        case FileChunkReq::kChunkSizeInBytesFieldNumber:
            return varint && ReadVarint(input, view.chunkSizeInBytes);
        case FileChunkReq::kIsLastChunkFieldNumber:
            return varint && ReadVarint(input, view.isLastChunk);
        case FileChunkReq::kDataModuleFieldNumber:
            return varint && ReadVarint(input, view.dataModule);
        default:
            return WireFormatLite::SkipField(&input, tag);
    }
}

}  // namespace

bool ParseFrame(std::string_view buffer, FrameView& frame) {
    uint32_t stored = 0;
    if (buffer.size() < NAME_LENGTH_SIZE) {
        return false;
    }
    std::memcpy(&stored, buffer.data(), NAME_LENGTH_SIZE);
    const size_t nameLength = ntohl(stored);
    if (nameLength == 0 || nameLength > buffer.size() - NAME_LENGTH_SIZE) {
        return false;
    }
    const std::string_view name = buffer.substr(NAME_LENGTH_SIZE, nameLength);
    frame.typeName = name.substr(0, name.find('\0'));
    frame.body = buffer.substr(NAME_LENGTH_SIZE + nameLength);
    return true;
}

bool ParseFileChunk(std::string_view body, FileChunkView& view) {
    CodedInputStream input(reinterpret_cast<const uint8_t*>(body.data()),
                           static_cast<int>(body.size()));
    uint32_t tag = 0;
    while ((tag = input.ReadTag()) != 0) {
        if (!ReadField(input, tag, view)) {
            return false;
        }
    }
    return input.ConsumedEntireMessage();
}

}  // namespace tiv::host
