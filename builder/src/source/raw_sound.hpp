// A sound that is taken from its file as it is.
#pragma once

#include "base/file.hpp"
#include "encode/encoder.hpp"

#include <optional>
#include <string>

namespace tarnok {

// Where in its file the samples of a sound are, as a bank wants them.
struct RawSampleRange
{
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// Reads the samples of an uncompressed file without a decoder in between. They are only looked at, for the facts of the
// sound: whoever writes the bank takes them from the file, as they are.
class RawSound final : public PreparedSound
{
public:
    // Nothing when the file is not there or no longer the one of that stamp.
    static std::optional<RawSound> open(const std::string& path, const base::FileStamp& stamp,
                                        const PreparedFacts& facts, const RawSampleRange& samples);

    [[nodiscard]] const PreparedFacts& facts() const override { return mFacts; }
    base::Result<> seek(int64_t position) override;

    // ErrorCode::Unsupported.
    base::Result<> readFloat(float* frames, size_t count) override;

    // Inside the sound only.
    base::Result<> readSamples(void* frames, size_t count) override;

private:
    RawSound(base::FileDescriptor file, const PreparedFacts& facts, const RawSampleRange& samples);

    base::FileDescriptor mFile;
    PreparedFacts mFacts;
    RawSampleRange mSamples;
    size_t mFrameBytes;
    uint64_t mPosition = 0; // bytes from the start of the samples
};

} // namespace tarnok
