// The layout of one fragment, the content of one driver message.
//
//   0      4       8        9               9 + len   12 + len
//   +------+-------+--------+----------------+---------+
//   | len  | magic | isLast | payload        | unused  |
//   +------+-------+--------+----------------+---------+
//
// The header counts as 12 bytes in every length given to the driver although the payload starts at
// byte 9; both numbers are shared with the far end. Integers are in the machine's byte order and
// lie unaligned.
#pragma once

#include <cstdint>
#include <cstring>

constexpr uint32_t IDE_HDC_PACKET_HEADER_LEN = 12;
constexpr uint32_t HDC_FRAGMENT_MAGIC = 176;
constexpr uint32_t HDC_FRAGMENT_MAGIC_OFFSET = 4;
constexpr uint32_t HDC_FRAGMENT_LAST_OFFSET = 8;
constexpr uint32_t HDC_FRAGMENT_PAYLOAD_OFFSET = 9;
// What lies around a payload that is sent from where it stands.
constexpr uint32_t HDC_ROOM_IN_FRONT = HDC_FRAGMENT_PAYLOAD_OFFSET;
constexpr uint32_t HDC_ROOM_BEHIND = IDE_HDC_PACKET_HEADER_LEN - HDC_FRAGMENT_PAYLOAD_OFFSET;
constexpr uint64_t HDC_BUFFER_MAX_LEN = UINT32_MAX;

inline uint32_t LoadFragmentWord(const char* at) {
    uint32_t word = 0;
    memcpy(&word, at, sizeof(word));
    return word;
}

inline void StoreFragmentWord(char* at, uint32_t word) { memcpy(at, &word, sizeof(word)); }

// True when `more` bytes behind `have` bytes still have a 32-bit length.
constexpr bool FitsInBufferLength(uint64_t have, uint64_t more) {
    return have <= HDC_BUFFER_MAX_LEN && more <= HDC_BUFFER_MAX_LEN - have;
}
