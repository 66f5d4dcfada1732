// A chunk, and the plain encoding that its packet has to equal.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "hdc/file_chunk.h"
#include "message/codec.h"
#include "message/job_context.h"
#include "message/profiler.pb.h"

namespace tiv::test {

inline std::shared_ptr<analysis::rokt::ProfileFileChunk> MakeChunk(const std::string& bytes) {
    auto chunk = std::make_shared<analysis::rokt::ProfileFileChunk>();
    chunk->chunk = bytes;
    chunk->chunkSize = bytes.size();
    chunk->chunkModule = 3;
    chunk->fileName = "data/aicore.data.null";
    chunk->extraInfo = "job7.3";
    return chunk;
}

// The value of the packet of MakeChunk(bytes), encoded by the library in one piece.
inline std::string PlainFrame(const analysis::rokt::ProfileFileChunk& chunk) {
    analysis::rokt::message::JobContext context;
    context.job_id = "job7";
    context.dev_id = "3";
    context.tag = "null";
    auto request = std::make_shared<analysis::rokt::proto::FileChunkReq>();
    request->mutable_hdr()->set_job_ctx(context.ToString());
    request->set_filename("data/aicore.data");
    request->set_offset(chunk.offset);
    request->set_chunk(chunk.chunk.substr(0, chunk.chunkSize));
    request->set_chunksizeinbytes(static_cast<int32_t>(chunk.chunkSize));
    request->set_islastchunk(chunk.isLastChunk);
    request->set_datamodule(static_cast<int32_t>(chunk.chunkModule));
    return analysis::rokt::message::Codec::EncodeMessage(request);
}

inline std::shared_ptr<analysis::rokt::proto::FileChunkReq> DecodeChunk(const std::string& frame) {
    return std::dynamic_pointer_cast<analysis::rokt::proto::FileChunkReq>(
        analysis::rokt::message::Codec::DecodeMessage(frame));
}

}  // namespace tiv::test
