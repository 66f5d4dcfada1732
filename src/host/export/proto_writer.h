// Writes protobuf messages field by field, without a schema.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tiv::host {

// One message that is being put together. Reused objects keep their memory.
class ProtoMessage {
 public:
    void Clear() { bytes_.clear(); }
    [[nodiscard]] std::string_view Bytes() const { return bytes_; }

    void Number(uint32_t field, uint64_t value) {
        Varint(field << 3 | VARINT);
        Varint(value);
    }
    void Real(uint32_t field, double value) {
        Varint(field << 3 | FIXED64);
        uint64_t bits = 0;
        memcpy(&bits, &value, sizeof(bits));
        for (int shift = 0; shift < 64; shift += 8) {
            bytes_ += static_cast<char>(bits >> shift & 0xff);
        }
    }
    void Text(uint32_t field, std::string_view text) {
        Varint(field << 3 | LENGTH);
        Varint(text.size());
        bytes_ += text;
    }
    void Message(uint32_t field, const ProtoMessage& message) { Text(field, message.Bytes()); }

 private:
    enum WireType : uint32_t { VARINT = 0, FIXED64 = 1, LENGTH = 2 };

    void Varint(uint64_t value) {
        for (; value >= 0x80; value >>= 7) {
            bytes_ += static_cast<char>(value | 0x80);
        }
        bytes_ += static_cast<char>(value);
    }

    std::string bytes_;
};

}  // namespace tiv::host
