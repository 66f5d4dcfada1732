// A host tool reduced to the bytes of the link: it can send what a sound one never would.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tiv::e2e {

struct FragmentHeader {
    uint32_t len = 0;
    uint32_t magic = 176;
    char isLast = 1;
};

// One fragment of the session layer, the content of one driver message. Three bytes that nobody
// reads stand behind the payload.
std::string Fragment(const FragmentHeader& header, const std::string& payload);

// One request packet. `len` is what it says of its value, which may be wrong.
std::string Packet(const std::string& value, uint32_t type = 5);
std::string PacketOfLength(uint32_t len, const std::string& value);

// The frame of a message: the value of a packet.
std::string Frame(const google::protobuf::Message& message);

// A Response as it stands in a packet's value. The status is -1 when the value holds none.
struct Answer {
    int status = -1;
    std::string info;
};
Answer ReadAnswer(const std::string& value);
constexpr int ACCEPTED = 0;
constexpr int REFUSED = 1;

// A plain socket. Every wait ends after a minute at the latest.
class RawSession {
 public:
    // Connects; `receiveBytes` other than 0 sets the socket's receive buffer first.
    explicit RawSession(const std::string& socketPath, int receiveBytes = 0);
    ~RawSession();
    RawSession(const RawSession&) = delete;
    RawSession& operator=(const RawSession&) = delete;

    // Makes room for `bytes` that nobody has read yet. False when the system does not allow it.
    bool WidenSendBuffer(int bytes);

    // Bytes of the stream as they are. False when the far end has closed.
    bool SendBytes(const std::string& bytes);
    // One driver message: a 4-byte length in front of `content`.
    bool SendDriverMessage(const std::string& content);
    // A whole buffer of the session layer, in fragments of a segment.
    bool SendBuffer(const std::string& buffer);
    // A message in a request packet.
    bool Send(const google::protobuf::Message& message);

    // The value of the next packet; empty when the far end has closed or nothing comes.
    std::optional<std::string> ReceiveValue();
    // The next packet as an answer.
    Answer ReceiveAnswer();
    // The next packet as a message; null when there is none or it is no frame.
    std::shared_ptr<google::protobuf::Message> ReceiveMessage();

    // True when bytes lie there unread.
    [[nodiscard]] bool HasUnread() const;
    // Drops what comes until the far end closes. False when it does not.
    bool WaitForClose();
    void Close();

 private:
    bool ReadBytes(size_t count, std::string& bytes);

    int fd_ = -1;
};

}  // namespace tiv::e2e
