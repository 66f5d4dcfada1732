// Reads a FileChunkReq in place: the payload, up to 4 MiB, stays where the packet put it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tiv::host {

// One frame of the wire: the type name of the message and its body, both within the caller's
// buffer.
struct FrameView {
    std::string_view typeName;
    std::string_view body;
};

// Takes a frame apart without decoding the body. False when the lengths do not fit the buffer.
[[nodiscard]] bool ParseFrame(std::string_view buffer, FrameView& frame);

// The fields of a FileChunkReq that a host needs. `chunk` points into the buffer that was parsed.
struct FileChunkView {
    std::string fileName;
    std::string jobContext;  // JSON text
    int64_t offset = 0;
    std::string_view chunk;
    int32_t chunkSizeInBytes = 0;
    bool isLastChunk = false;
    int32_t dataModule = 0;
};

// False when the body is not a well-formed message. Fields may come in any order; unknown ones are
// passed over; of a repeated singular field the last one counts.
[[nodiscard]] bool ParseFileChunk(std::string_view body, FileChunkView& view);

}  // namespace tiv::host
