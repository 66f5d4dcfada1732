// Bytes of a device's side of a session, for tests with the driver double.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "message/codec.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace tiv::test {

// One driver message that holds one whole packet with `value`.
inline std::string PacketMessage(const std::string& value) {
    const uint32_t packetHeader[] = {5, 0, static_cast<uint32_t>(value.size())};
    const std::string packet =
        std::string(reinterpret_cast<const char*>(packetHeader), sizeof(packetHeader)) + value;
    const uint32_t fragmentHeader[] = {static_cast<uint32_t>(packet.size()), 176};
    return std::string(reinterpret_cast<const char*>(fragmentHeader), sizeof(fragmentHeader)) +
           '\1' + packet + std::string(3, '\0');
}

inline std::string AnswerMessage(int status, const std::string& info = "") {
    analysis::rokt::message::StatusInfo record;
    record.status = status;
    record.info = info;
    return PacketMessage(analysis::rokt::message::Codec::EncodeMessage(
        analysis::rokt::message::CreateResponse(record)));
}

inline std::string ChunkMessage(const std::string& name, const std::string& data) {
    const auto chunk = std::make_shared<analysis::rokt::proto::FileChunkReq>();
    chunk->set_filename(name);
    chunk->set_chunk(data);
    chunk->set_chunksizeinbytes(static_cast<int>(data.size()));
    chunk->set_datamodule(3);
    return PacketMessage(analysis::rokt::message::Codec::EncodeMessage(chunk));
}

inline std::string FinishMessage() {
    return PacketMessage(analysis::rokt::message::Codec::EncodeMessage(
        std::make_shared<analysis::rokt::proto::DataChannelFinish>()));
}

// The message inside a sent driver message of one fragment.
inline std::shared_ptr<google::protobuf::Message> SentMessage(const std::string& bytes) {
    constexpr size_t PAYLOAD = 9;
    constexpr size_t VALUE = PAYLOAD + 12;
    return analysis::rokt::message::Codec::DecodeMessage(
        bytes.substr(VALUE, bytes.size() - VALUE - 3));
}

}  // namespace tiv::test
