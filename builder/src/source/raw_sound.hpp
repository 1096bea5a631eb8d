// SPDX-License-Identifier: MIT
// A sound whose samples are copied from its file unchanged.
#pragma once

#include "base/file.hpp"
#include "encode/encoder.hpp"

#include <optional>
#include <string>

namespace builder {

// The byte range of a file that contains the samples of a sound exactly as a bank stores them.
struct RawSampleRange
{
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// Reads the samples of an uncompressed file without a decoder. They are only analysed for the record of the sound: the
// samples in the bank are copied from the file when the bank is written.
class RawSound final : public PreparedSound
{
public:
    // nullopt if the file is missing or no longer has this stamp.
    static std::optional<RawSound> open(const std::string& path, const base::FileStamp& stamp,
                                        const PreparedFacts& facts, const RawSampleRange& samples);

    [[nodiscard]] const PreparedFacts& facts() const override { return mFacts; }
    base::Result<> seek(int64_t position) override;

    // ErrorCode::Unsupported.
    base::Result<> readFloat(float* frames, size_t count) override;

    // Only inside the sound.
    base::Result<> readSamples(void* frames, size_t count) override;

private:
    RawSound(base::FileDescriptor file, const PreparedFacts& facts, const RawSampleRange& samples);

    base::FileDescriptor mFile;
    PreparedFacts mFacts;
    RawSampleRange mSamples;
    size_t mFrameBytes;
    uint64_t mPosition = 0; // bytes from the start of the samples
};

} // namespace builder
