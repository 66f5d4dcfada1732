// Bytes of the link, written and read by hand.
#include "e2e/raw_session.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "message/codec.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace tiv::e2e {

namespace {

using analysis::rokt::message::Codec;
using analysis::rokt::message::StatusInfo;
namespace proto = analysis::rokt::proto;

constexpr size_t FRAGMENT_HEADER_BYTES = 9;
constexpr size_t FRAGMENT_OVERHEAD = 12;
constexpr size_t PACKET_HEADER_BYTES = 12;
constexpr size_t SEGMENT_BYTES = 524288;
constexpr time_t PATIENCE_SECONDS = 60;

void AppendWord(std::string& bytes, uint32_t word) {
    bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
}

uint32_t WordAt(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

std::string PacketOf(uint32_t type, uint32_t len, const std::string& value) {
    std::string packet;
    AppendWord(packet, type);
    AppendWord(packet, 0);
    AppendWord(packet, len);
    return packet + value;
}

}  // namespace

std::string Fragment(const FragmentHeader& header, const std::string& payload) {
    std::string fragment;
    AppendWord(fragment, header.len);
    AppendWord(fragment, header.magic);
    fragment += header.isLast;
    return fragment + payload + std::string(FRAGMENT_OVERHEAD - FRAGMENT_HEADER_BYTES, '\0');
}

std::string Packet(const std::string& value, uint32_t type) {
    return PacketOf(type, static_cast<uint32_t>(value.size()), value);
}

std::string PacketOfLength(uint32_t len, const std::string& value) {
    return PacketOf(5, len, value);
}

std::string Frame(const google::protobuf::Message& message) {
    const std::shared_ptr<google::protobuf::Message> copy(message.New());
    copy->CopyFrom(message);
    return Codec::EncodeMessage(copy);
}

Answer ReadAnswer(const std::string& value) {
    const auto response = std::dynamic_pointer_cast<proto::Response>(Codec::DecodeMessage(value));
    StatusInfo status;
    if (response == nullptr || !status.FromString(response->message())) {
        return {};
    }
    return {response->status(), status.info};
}

RawSession::RawSession(const std::string& socketPath, int receiveBytes) {
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBytes != 0) {
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof(receiveBytes));
    }
    const timeval patience{PATIENCE_SECONDS, 0};
    (void)setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    (void)setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (connect(fd_, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0) {
        Close();
    }
}

RawSession::~RawSession() { Close(); }

void RawSession::Close() {
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

bool RawSession::WidenSendBuffer(int bytes) {
    return setsockopt(fd_, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof(bytes)) == 0;
}

bool RawSession::SendBytes(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

bool RawSession::SendDriverMessage(const std::string& content) {
    std::string bytes;
    AppendWord(bytes, static_cast<uint32_t>(content.size()));
    return SendBytes(bytes + content);
}

bool RawSession::SendBuffer(const std::string& buffer) {
    constexpr size_t capacity = SEGMENT_BYTES - FRAGMENT_OVERHEAD;
    for (size_t offset = 0; offset < buffer.size(); offset += capacity) {
        const std::string payload = buffer.substr(offset, capacity);
        FragmentHeader header;
        header.len = static_cast<uint32_t>(payload.size());
        header.isLast = offset + payload.size() == buffer.size() ? 1 : 0;
        if (!SendDriverMessage(Fragment(header, payload))) {
            return false;
        }
    }
    return true;
}

bool RawSession::Send(const google::protobuf::Message& message) {
    return SendBuffer(Packet(Frame(message)));
}

bool RawSession::ReadBytes(size_t count, std::string& bytes) {
    bytes.resize(count);
    size_t done = 0;
    while (done < count) {
        const ssize_t received = recv(fd_, bytes.data() + done, count - done, 0);
        if (received <= 0) {
            return false;
        }
        done += static_cast<size_t>(received);
    }
    return true;
}

std::optional<std::string> RawSession::ReceiveValue() {
    std::string buffer;
    std::string bytes;
    bool isLast = false;
    while (!isLast) {
        if (!ReadBytes(sizeof(uint32_t), bytes) || !ReadBytes(WordAt(bytes, 0), bytes) ||
            bytes.size() < FRAGMENT_OVERHEAD) {
            return std::nullopt;
        }
        isLast = bytes[FRAGMENT_HEADER_BYTES - 1] == 1;
        buffer.append(bytes, FRAGMENT_HEADER_BYTES, WordAt(bytes, 0));
    }
    if (buffer.size() < PACKET_HEADER_BYTES) {
        return std::nullopt;
    }
    return buffer.substr(PACKET_HEADER_BYTES);
}

Answer RawSession::ReceiveAnswer() { return ReadAnswer(ReceiveValue().value_or("")); }

std::shared_ptr<google::protobuf::Message> RawSession::ReceiveMessage() {
    return Codec::DecodeMessage(ReceiveValue().value_or(""));
}

bool RawSession::HasUnread() const {
    int bytes = 0;
    return ioctl(fd_, FIONREAD, &bytes) == 0 && bytes > 0;
}

bool RawSession::WaitForClose() {
    char piece[4096];
    ssize_t received = 0;
    while ((received = recv(fd_, piece, sizeof(piece), 0)) > 0) {
    }
    return received == 0 || errno == ECONNRESET;
}

}  // namespace tiv::e2e
