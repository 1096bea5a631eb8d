// Where the bytes of a bank come from and go to. Banks are read in any order and written front to back.
#pragma once

#include "bank/result.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace bank {

// Bytes that can be read from any place.
class ByteSource
{
public:
    virtual ~ByteSource() = default;

    [[nodiscard]] virtual uint64_t size() const = 0;

    // Fills all of bytes from offset on. Error::Damaged: the range isn't wholly inside the source, or what lies there
    // fails its authentication. Error::Io: the medium failed.
    virtual Error readAt(uint64_t offset, std::span<uint8_t> bytes) const = 0;

protected:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
};

// Bytes that are written one behind the other.
class ByteSink
{
public:
    virtual ~ByteSink() = default;

    // Appends all of bytes. Error::Io: the medium failed or is full.
    virtual Error write(std::span<const uint8_t> bytes) = 0;

protected:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
};

// Bytes in memory, which it owns.
class MemorySource final : public ByteSource
{
public:
    explicit MemorySource(std::vector<uint8_t> bytes);

    [[nodiscard]] uint64_t size() const override { return mBytes.size(); }
    Error readAt(uint64_t offset, std::span<uint8_t> bytes) const override;

private:
    std::vector<uint8_t> mBytes;
};

// Keeps what is written in memory.
class MemorySink final : public ByteSink
{
public:
    Error write(std::span<const uint8_t> bytes) override;

    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return mBytes; }
    [[nodiscard]] std::vector<uint8_t> take() { return std::move(mBytes); }

private:
    std::vector<uint8_t> mBytes;
};

// True when [offset, offset + length) lies inside [0, size); never overflows.
[[nodiscard]] constexpr bool rangeInside(uint64_t offset, uint64_t length, uint64_t size)
{
    return offset <= size && length <= size - offset;
}

// The bytes of a text.
[[nodiscard]] inline std::span<const uint8_t> bytesOf(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Little-endian numbers at a place that holds at least sizeof(T) bytes, aligned or not.
template <typename T>
[[nodiscard]] T loadLittle(const uint8_t* place)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, place, sizeof(T));
    return value;
}

template <typename T>
void storeLittle(uint8_t* place, T value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(place, &value, sizeof(T));
}

template <typename T>
void appendLittle(std::vector<uint8_t>& bytes, T value)
{
    const size_t at = bytes.size();
    bytes.resize(at + sizeof(T));
    storeLittle(bytes.data() + at, value);
}

} // namespace bank
