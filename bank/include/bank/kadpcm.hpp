// SPDX-License-Identifier: MIT
// KADPCM: the bank's own adaptive differential PCM, about 4.3 bits per sample.
//
// A sound is a sequence of superblocks of kSuperblockFrames frames; the last one may be shorter. Superblocks are
// independent of each other, so decoding can begin at any of them, and the error of a loop's first sample is no larger
// than that of any other sample. Their sizes differ: loud and complex passages get the bits that quiet ones don't need.
//
// Superblock
//     for each channel in order: a channel block
//
// Channel block (multi-byte numbers little-endian)
//     u16   size of what follows, in bytes
//     u8    mode: 0 to 32 predicted, with this number of coefficients; 62 constant; 63 plain
//     constant:   i16, the value of every sample
//     plain:      an i16 for each sample
//     predicted:  u8 step, then a bit stream, most significant bit of each byte first, padded with zeros to a byte:
//         5 bits   coupling plus 16, in eighths; absent in the first channel
//         5 bits   start, the initial Rice parameter, at most 17
//         then for each coefficient its index, two's complement, of coefficientBits(i) bits: 9 for the first two, 7 for
//                  those up to the eighth, 6 for the others
//         16 bits  the first sample, two's complement
//         then for each further sample a code
//
// Decoding of a predicted block. All arithmetic is on integers, >> rounds towards minus infinity.
//
//     step size s = (stepMantissa[step & 15] << (step >> 4)), in 1/256, where stepMantissa[i] = round(256 * 2^(i/16)).
//     c[n] = (coupling * y[n] + 4) >> 3, where y is the previous decoded channel; 0 for the first channel.
//     d[n] = x[n] - c[n], where x are the decoded samples, is the input of the predictor.
//
//     Coefficient i (from 1) is the reflection coefficient k[i] = round(2^20 * sin(index * pi / 2^coefficientBits(i))).
//     The predictors of all orders, in 1/2^20, follow from them in turn:
//         order i: a'[i] = k[i]; a'[j] = clamp(a[j] - ((k[i] * a[i-j] + 2^19) >> 20), -2^30, 2^30) for j = 1 to i-1,
//         where a is the predictor of order i-1.
//     Sample n is predicted with order m = min(n, mode), so a block needs no samples of earlier blocks:
//         p = clamp(c[n] + ((sum over j = 1 to m of a[j] * d[n-j] + 2^19) >> 20), -32768, 32767)
//         x[n] = clamp(p + ((q * s + 128) >> 8), -32768, 32767)
//     where q is the signed value of the code u: q = u / 2 for even u, -(u + 1) / 2 for odd u.
//
//     Samples 1 to mode are coded with Exp-Golomb, parameter start: with v = u + 2^start and b the number of bits of v,
//     the code is b - 1 - start zeros (at most 17 - start), then v in b bits.
//     The others are coded with Rice, parameter r = riceParameter(A): u >> r zeros, a one, the r low bits of u;
//     or, if that had 20 zeros or more, 20 zeros and u in 17 bits. A is sixteen times the recent mean of u:
//         before the first of them: A = 24 << start; after each: A = A - (A >> 4) + u
//         riceParameter(A) = the number of bits of (A >> 5), at most 17
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

namespace bank::kadpcm {

inline constexpr int kSuperblockFrames = 2048;
inline constexpr int kMaximumChannels = 32;
inline constexpr int kMaximumOrder = 32;

// The maximum size in bytes of a superblock with this number of channels (1 to 32) and frames (1 to 2048).
[[nodiscard]] constexpr size_t maximumSuperblockBytes(int channels, int frames)
{
    return static_cast<size_t>(channels) * (3 + 2 * static_cast<size_t>(frames));
}

// Two ranges of a sound that follow each other during playback: the end of a loop and its start.
struct Seam
{
    struct Side
    {
        uint64_t first = 0; // frame
        uint64_t end = 0; // exclusive; greater than first
    };

    uint64_t soundFrames = 0; // length of the sound
    std::array<Side, 2> sides;
};

// Encodes 16-bit samples as superblocks. The same samples give the same bytes, however they are divided among calls.
// Memory doesn't grow with the length of the sound: samples are collected until a segment of kSegmentSamples is
// complete, then the segment's budget of bits is divided among its superblocks. A sound shorter than two segments is
// encoded as one.
class Encoder
{
public:
    static constexpr int kSegmentSamples = 1 << 19; // of all channels together

    // channels: 1 to 32 (asserted). With a seam, the superblocks at the seam get enough extra bits that the error on
    // each side is no larger than the mean error of the sound. That mean is estimated from the error so far, which can
    // only grow. After stop has been requested, encode and finish return within the time of a few superblocks, and the
    // appended bytes are useless.
    explicit Encoder(int channels, std::stop_token stop = {}, std::optional<Seam> seam = {});
    ~Encoder();

    // Takes interleaved samples, whole frames (asserted), and appends the superblocks that are complete to bytes, often
    // none. If sizes isn't null, the size of each of them in bytes is appended to it.
    void encode(std::span<const int16_t> interleaved, std::vector<uint8_t>& bytes,
                std::vector<uint32_t>* sizes = nullptr);

    // Call this after the last samples: appends the remaining superblocks. The encoder can then be used for another
    // sound.
    void finish(std::vector<uint8_t>& bytes, std::vector<uint32_t>* sizes = nullptr);

private:
    class Segment;
    std::unique_ptr<Segment> mSegment;
};

// Returns the size in bytes of the superblock at the start of bytes, so that it can be skipped without decoding. bytes
// may continue after it. 0: bytes end before the superblock does.
[[nodiscard]] size_t superblockBytes(std::span<const uint8_t> bytes, int channels);

// Decodes the superblock at the start of bytes into frames * channels samples. frames is kSuperblockFrames, or the
// number of frames that remain for the last superblock of a sound. bytes may continue after the superblock; nothing
// outside of bytes is read. Returns the superblock's size in bytes. 0: the bytes are damaged or end too early, and the
// contents of interleaved are undefined. Arbitrary bytes are safe to decode and take no longer than valid ones.
[[nodiscard]] size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved);

} // namespace bank::kadpcm
