// SPDX-License-Identifier: MIT
// Compares KADPCM with an IMA encoder that looks three samples ahead, and its speed with Vorbis at quality 5.
//
//     kadpcm_quality FILE...
//
// Files are mixed down to one channel of 16 bits. Prints one line per file: frames, SNR of both in decibels, their
// difference, and the bits per sample of KADPCM. Then come the same values over all files, and the processor time per
// sample.
#include "bank/kadpcm.hpp"

#include <sndfile.h>
#include <vorbis/vorbisenc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

bool readMono(const std::string& path, Samples* samples)
{
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
        return false;
    std::vector<short> all(static_cast<size_t>(info.frames * info.channels));
    const sf_count_t frames = sf_readf_short(file, all.data(), info.frames);
    sf_close(file);
    samples->clear();
    for (sf_count_t n = 0; n < frames; ++n) {
        double sum = 0;
        for (int channel = 0; channel < info.channels; ++channel)
            sum += all[static_cast<size_t>(n * info.channels + channel)];
        samples->push_back(static_cast<int16_t>(std::lrint(sum / info.channels)));
    }
    return frames > 0;
}

// In decibels; kLossless if there is no error.
constexpr double kLossless = 150;

double signalToNoise(const Samples& original, const Samples& decoded)
{
    double signal = 0;
    double noise = 0;
    for (size_t n = 0; n < original.size(); ++n) {
        const double error = original[n] - decoded[n];
        signal += static_cast<double>(original[n]) * original[n];
        noise += error * error;
    }
    return noise > 0 ? std::min(kLossless, 10 * std::log10(signal / noise)) : kLossless;
}

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// IMA ADPCM in blocks of 256 bytes: 505 samples, the first one exact, which makes 4.06 bits per sample.
class LookAheadIma
{
public:
    static Samples roundTrip(const Samples& original)
    {
        constexpr size_t kBlockSamples = 505;
        Samples decoded;
        State state{0, bestFirstIndex(original)};
        for (size_t n = 0; n < original.size(); ++n) {
            if (n % kBlockSamples == 0) {
                state.value = original[n];
            } else {
                int code = 0;
                search(state, &original[n], original.data() + original.size(), kLookAhead, 0, 1e300, &code);
                state = after(state, code);
            }
            decoded.push_back(static_cast<int16_t>(state.value));
        }
        return decoded;
    }

private:
    struct State
    {
        int value;
        int index;
    };

    static constexpr int kLookAhead = 3;
    static constexpr int kHighestIndex = 88;

    static int stepSize(int index)
    {
        // The tables of the IMA's Recommended Practices of 1992.
        static constexpr std::array<int, kHighestIndex + 1> kSteps = {
            7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
            31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
            130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
            544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
            2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
            9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
        return kSteps[static_cast<size_t>(index)];
    }

    static State after(State state, int code)
    {
        static constexpr std::array<int, 8> kIndexChange = {-1, -1, -1, -1, 2, 4, 6, 8};
        const int step = stepSize(state.index);
        int difference = step >> 3;
        if (code & 1)
            difference += step >> 2;
        if (code & 2)
            difference += step >> 1;
        if (code & 4)
            difference += step;
        state.value = std::clamp(state.value + (code & 8 ? -difference : difference), -32768, 32767);
        state.index = std::clamp(state.index + kIndexChange[static_cast<size_t>(code & 7)], 0, kHighestIndex);
        return state;
    }

    // All codes, those nearest to the difference first, so that the bound excludes the others early.
    static std::array<int, 16> candidates(State state, int target)
    {
        const int difference = target - state.value;
        const int nearest = std::min(7, std::abs(difference) * 4 / stepSize(state.index));
        const int sign = difference < 0 ? 8 : 0;
        std::array<int, 16> codes;
        size_t count = 0;
        codes[count++] = nearest | sign;
        for (int distance = 1; distance < 8; ++distance) {
            if (nearest >= distance)
                codes[count++] = (nearest - distance) | sign;
            if (nearest + distance < 8)
                codes[count++] = (nearest + distance) | sign;
        }
        for (int magnitude = 0; magnitude < 8; ++magnitude)
            codes[count++] = magnitude | (sign ^ 8);
        return codes;
    }

    // The least squared error over the next sample and depth further ones, and the code that leads to it; no result if
    // the error exceeds bound.
    static double search(State state, const int16_t* next, const int16_t* end, int depth, double error, double bound,
                         int* code)
    {
        for (const int candidate : candidates(state, *next)) {
            const State reached = after(state, candidate);
            const double off = *next - reached.value;
            double total = error + off * off;
            if (total >= bound)
                continue;
            if (depth > 0 && next + 1 != end)
                total = search(reached, next + 1, end, depth - 1, total, bound, nullptr);
            if (total < bound) {
                bound = total;
                if (code)
                    *code = candidate;
            }
        }
        return bound;
    }

    static int bestFirstIndex(const Samples& original)
    {
        constexpr size_t kTrialSamples = 32;
        double least = 1e300;
        int best = 0;
        for (int index = 0; index <= kHighestIndex; ++index) {
            State state{original[0], index};
            double error = 0;
            for (size_t n = 1; n < std::min(kTrialSamples, original.size()); ++n) {
                int code = 0;
                error += search(state, &original[n], &original[n] + 1, 0, 0, 1e300, &code);
                state = after(state, code);
            }
            if (error < least) {
                least = error;
                best = index;
            }
        }
        return best;
    }
};

std::vector<uint8_t> encodeKadpcm(const Samples& original)
{
    bank::kadpcm::Encoder encoder(1);
    std::vector<uint8_t> bytes;
    encoder.encode(original, bytes);
    encoder.finish(bytes);
    return bytes;
}

Samples decodeKadpcm(std::span<const uint8_t> bytes, size_t frames)
{
    Samples decoded(frames);
    for (size_t n = 0; n < frames; n += bank::kadpcm::kSuperblockFrames) {
        const int part = static_cast<int>(std::min<size_t>(bank::kadpcm::kSuperblockFrames, frames - n));
        const size_t used = bank::kadpcm::decodeSuperblock(bytes, 1, part, &decoded[n]);
        if (used == 0) {
            std::fprintf(stderr, "the decoder refuses what the encoder wrote\n");
            std::exit(1);
        }
        bytes = bytes.subspan(used);
    }
    return decoded;
}

void drainVorbis(vorbis_dsp_state& state, vorbis_block& block)
{
    while (vorbis_analysis_blockout(&state, &block) == 1) {
        vorbis_analysis(&block, nullptr);
        vorbis_bitrate_addblock(&block);
        ogg_packet packet;
        while (vorbis_bitrate_flushpacket(&state, &packet) == 1) { }
    }
}

void encodeVorbis(const Samples& original)
{
    vorbis_info info;
    vorbis_info_init(&info);
    vorbis_encode_init_vbr(&info, 1, 44'100, 0.5F);
    vorbis_dsp_state state;
    vorbis_analysis_init(&state, &info);
    vorbis_block block;
    vorbis_block_init(&state, &block);
    for (size_t n = 0; n < original.size(); n += 1024) {
        const size_t count = std::min<size_t>(1024, original.size() - n);
        float* const buffer = vorbis_analysis_buffer(&state, static_cast<int>(count))[0];
        for (size_t i = 0; i < count; ++i)
            buffer[i] = static_cast<float>(original[n + i]) / 32768;
        vorbis_analysis_wrote(&state, static_cast<int>(count));
        drainVorbis(state, block);
    }
    vorbis_analysis_wrote(&state, 0);
    drainVorbis(state, block);
    vorbis_block_clear(&block);
    vorbis_dsp_clear(&state);
    vorbis_info_clear(&info);
}

struct Totals
{
    std::vector<double> gains;
    double samples = 0;
    double bits = 0;
    double encoding = 0; // seconds
    double decoding = 0;
    double vorbis = 0;
};

void measure(const std::string& path, const Samples& original, Totals& totals)
{
    const double start = processorSeconds();
    const auto bytes = encodeKadpcm(original);
    const double encoded = processorSeconds();
    const Samples decoded = decodeKadpcm(bytes, original.size());
    const double done = processorSeconds();
    encodeVorbis(original);
    totals.vorbis += processorSeconds() - done;
    totals.encoding += encoded - start;
    totals.decoding += done - encoded;

    const double own = signalToNoise(original, decoded);
    const double ima = signalToNoise(original, LookAheadIma::roundTrip(original));
    const double bits = 8.0 * static_cast<double>(bytes.size());
    totals.gains.push_back(own - ima);
    totals.bits += bits;
    totals.samples += static_cast<double>(original.size());
    std::printf("%8zu  %7.2f  %7.2f  %+6.2f  %.4f  %s\n", original.size(), own, ima, own - ima,
                bits / static_cast<double>(original.size()), path.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    Totals totals;
    std::printf("  frames   KADPCM      IMA    gain    bits\n");
    for (int i = 1; i < argc; ++i) {
        Samples samples;
        if (readMono(argv[i], &samples))
            measure(argv[i], samples, totals);
        else
            std::fprintf(stderr, "%s: the file can't be read or is empty\n", argv[i]);
    }
    if (totals.gains.empty())
        return 1;
    std::sort(totals.gains.begin(), totals.gains.end());
    const auto nanoseconds = [&](double seconds) {
        return 1e9 * seconds / totals.samples;
    };
    std::printf("\n%zu files: gain over IMA %.2f dB in the median, %.2f dB at least; %.4f bits per sample\n",
                totals.gains.size(), totals.gains[totals.gains.size() / 2], totals.gains.front(),
                totals.bits / totals.samples);
    std::printf("nanoseconds per sample: encoding %.1f, decoding %.1f; Vorbis encoding %.1f\n",
                nanoseconds(totals.encoding), nanoseconds(totals.decoding), nanoseconds(totals.vorbis));
    return 0;
}
