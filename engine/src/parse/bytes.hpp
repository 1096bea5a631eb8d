// Numbers out of bytes, in either order.
#pragma once

#include <cstdint>

namespace kess {

inline uint16_t le16(const uint8_t* bytes)
{
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}
inline uint32_t le32(const uint8_t* bytes)
{
    return le16(bytes) | static_cast<uint32_t>(le16(bytes + 2)) << 16;
}
inline uint64_t le64(const uint8_t* bytes)
{
    return le32(bytes) | static_cast<uint64_t>(le32(bytes + 4)) << 32;
}
inline uint16_t be16(const uint8_t* bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
inline uint32_t be24(const uint8_t* bytes)
{
    return static_cast<uint32_t>(be16(bytes)) << 8 | bytes[2];
}
inline uint32_t be32(const uint8_t* bytes)
{
    return static_cast<uint32_t>(be16(bytes)) << 16 | be16(bytes + 2);
}

} // namespace kess
