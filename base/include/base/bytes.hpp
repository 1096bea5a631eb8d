// SPDX-License-Identifier: MIT
// Sources and sinks of bytes, and the numbers stored in bytes.
#pragma once

#include "base/result.hpp"

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace base {

// Bytes that can be read at any offset.
class ByteSource
{
public:
    virtual ~ByteSource() = default;

    [[nodiscard]] virtual uint64_t size() const = 0;

    // Fills all of bytes from offset on. ErrorCode::Damaged: the range isn't completely inside the source, or the bytes
    // there fail their authentication. ErrorCode::Io: the medium failed.
    virtual Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const = 0;

protected:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
};

// Receives bytes in order.
class ByteSink
{
public:
    virtual ~ByteSink() = default;

    // Appends all of bytes. ErrorCode::Io: the medium failed or is full.
    virtual Result<> write(std::span<const uint8_t> bytes) = 0;

protected:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
};

// Owns bytes in memory.
class MemorySource final : public ByteSource
{
public:
    explicit MemorySource(std::vector<uint8_t> bytes);

    [[nodiscard]] uint64_t size() const override { return mBytes.size(); }
    Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override;

private:
    std::vector<uint8_t> mBytes;
};

// Keeps what is written in memory.
class MemorySink final : public ByteSink
{
public:
    Result<> write(std::span<const uint8_t> bytes) override;

    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return mBytes; }
    [[nodiscard]] std::vector<uint8_t> take() { return std::move(mBytes); }

private:
    std::vector<uint8_t> mBytes;
};

// True if [offset, offset + length) is inside [0, size); never overflows.
[[nodiscard]] constexpr bool rangeInside(uint64_t offset, uint64_t length, uint64_t size)
{
    return offset <= size && length <= size - offset;
}

// The bytes of a text.
[[nodiscard]] inline std::span<const uint8_t> textBytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The bytes of objects whose representation in memory is also their stored form.
template <typename T, size_t Extent>
[[nodiscard]] std::span<const uint8_t> asBytes(std::span<T, Extent> objects)
{
    static_assert(std::is_trivially_copyable_v<T>);
    return {reinterpret_cast<const uint8_t*>(objects.data()), objects.size_bytes()};
}

template <typename T, size_t Extent>
[[nodiscard]] std::span<uint8_t> asWritableBytes(std::span<T, Extent> objects)
{
    static_assert(std::is_trivially_copyable_v<T>);
    return {reinterpret_cast<uint8_t*>(objects.data()), objects.size_bytes()};
}

// Numbers at a pointer to at least sizeof(T) bytes, which need not be aligned. The machine is little-endian.
static_assert(std::endian::native == std::endian::little);

template <typename T>
[[nodiscard]] T loadLittle(const uint8_t* bytes)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template <std::unsigned_integral T>
[[nodiscard]] T loadBig(const uint8_t* bytes)
{
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        value = T(value << 8 | bytes[i]);
    return value;
}

template <typename T>
void storeLittle(uint8_t* bytes, T value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(bytes, &value, sizeof(T));
}

template <typename T>
void appendLittle(std::vector<uint8_t>& bytes, T value)
{
    const size_t end = bytes.size();
    bytes.resize(end + sizeof(T));
    storeLittle(bytes.data() + end, value);
}

} // namespace base
