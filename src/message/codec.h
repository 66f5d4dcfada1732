// The frame that carries one protobuf message under its own type name.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <memory>
#include <string>

namespace analysis::rokt::message {

// Puts a message into a byte string that names its type, and takes it out again.
//
//   0             4             4 + name length
//   +-------------+-------------+----------------------+
//   | name length | type name,0 | protobuf body        |
//   +-------------+-------------+----------------------+
//
// The name length is unsigned, big-endian, and counts the terminating zero. The body has no length
// of its own: it is the rest of the buffer and may be empty.
//
// Every type linked into the program can be decoded, not only those of profiler.proto; a message
// that nobody handles finds no handler later. What the protobuf library itself has to say goes to
// the log. Stateless and re-entrant; nothing is thrown.
class Codec {
 public:
    using MessagePtr = std::shared_ptr<google::protobuf::Message>;

    static constexpr std::size_t MAX_TYPE_NAME_LEN = 1024;    // characters, on encoding
    static constexpr std::size_t MAX_STORED_NAME_LEN = 1025;  // bytes with the zero, on decoding
    static constexpr std::size_t MAX_BUFFER_LEN = 134217728;  // bytes, on decoding

    // A new empty message of that full type name, cut at its first zero byte; null when no type of
    // that name is linked into the program.
    [[nodiscard]] static MessagePtr CreateMessage(const std::string& name);

    // The frame; the empty string when the message is null, its type name is too long or the
    // library refuses to serialise it.
    [[nodiscard]] static std::string EncodeMessage(const MessagePtr& message);

    // The same in a string of its own; null on failure.
    [[nodiscard]] static std::shared_ptr<std::string> EncodeMessageShared(
        const MessagePtr& message);

    // The message in the frame; null when the frame is cut or too large, its type is unknown or its
    // body does not parse.
    [[nodiscard]] static MessagePtr DecodeMessage(const std::string& buffer);
    [[nodiscard]] static MessagePtr DecodeMessage(const char* data, std::size_t length);

    // The library's JSON text of a message; the empty string when the message is null or the
    // conversion fails.
    [[nodiscard]] static std::string MessageToJson(const MessagePtr& message, bool addWhitespace,
                                                   bool alwaysPrintPrimitiveFields);

 private:
    static void AppendFrame(const MessagePtr& message, std::string& frame);
};

}  // namespace analysis::rokt::message
