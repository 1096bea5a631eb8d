// SPDX-License-Identifier: MIT
#include "decode/decoders.hpp"

#include "decode/float_decoder.hpp"
#include "parse/header_checks.hpp"
#include "parse/ogg_check.hpp"
#include "parse/tags.hpp"
#include "parse/vorbis_map.hpp"

#include <algorithm>
#include <utility>

namespace engine {

namespace {

// The state of libvorbis for one link of a file.
class Synthesis
{
public:
    Synthesis(const VorbisHeaders& headers, int serial)
    {
        ogg_stream_init(&mStream, serial);
        mIsReady = headers.makeState(&mDsp);
        if (mIsReady)
            vorbis_block_init(&mDsp, &mBlock);
    }

    ~Synthesis()
    {
        if (mIsReady)
            vorbis_block_clear(&mBlock);
        vorbis_dsp_clear(&mDsp);
        ogg_stream_clear(&mStream);
    }
    Synthesis(const Synthesis&) = delete;
    Synthesis& operator=(const Synthesis&) = delete;

    [[nodiscard]] bool isReady() const { return mIsReady; }

    void addPage(ogg_page* page) { static_cast<void>(ogg_stream_pagein(&mStream, page)); }

    // Returns false if another page is needed.
    [[nodiscard]] bool nextPacket(ogg_packet* packet)
    {
        int got = 0;
        while ((got = ogg_stream_packetout(&mStream, packet)) < 0) { }
        return got > 0;
    }

    // Decodes a packet. All samples of the previous one must have been taken.
    void decode(ogg_packet packet)
    {
        // The map has the positions already. With them, libvorbis would cut samples itself.
        packet.granulepos = -1;
        packet.e_o_s = 0;
        if (vorbis_synthesis(&mBlock, &packet) == 0)
            vorbis_synthesis_blockin(&mDsp, &mBlock);
    }

    // The samples that are ready, one plane per channel.
    [[nodiscard]] int ready(float*** planes) { return vorbis_synthesis_pcmout(&mDsp, planes); }
    void take(int count) { vorbis_synthesis_read(&mDsp, count); }

private:
    ogg_stream_state mStream{};
    vorbis_dsp_state mDsp{};
    vorbis_block mBlock{};
    bool mIsReady = false;
};

// Decodes with the map of the file: from a seek point on, and link after link if the file chains several sounds.
class VorbisFileDecoder final : public FloatDecoder
{
public:
    explicit VorbisFileDecoder(Cursor cursor)
        : mPages(std::move(cursor))
    { }

    base::Result<> open(const RecognisedFile& file)
    {
        base::Result<VorbisMap> map = mapVorbis(mPages);
        if (!map)
            return std::move(map.error());
        mMap = std::move(*map);
        const vorbis_info* info = mMap.links.front().headers->info();
        if (base::Result<> limits = checkLimits(info->channels, static_cast<double>(info->rate)); !limits)
            return limits;
        mFacts.type = file.kind.type;
        mFacts.format = KESS_SOUND_FORMAT_PCM16;
        mFacts.channels = info->channels;
        mFacts.sampleRate = static_cast<double>(info->rate);
        mFacts.sampleCount = static_cast<uint64_t>(mMap.links.back().end);
        if (!mMap.remark.empty())
            mFacts.remarks.push_back(mMap.remark);
        readTags(file, mFacts);
        return {};
    }

    base::Result<> seek(uint64_t frame) override
    {
        const auto target = static_cast<int64_t>(frame);
        const auto after =
            std::upper_bound(mMap.points.begin(), mMap.points.end(), target,
                             [](int64_t sample, const VorbisSeekPoint& point) { return sample < point.sample; });
        if (target == static_cast<int64_t>(mFacts.sampleCount) || after == mMap.points.begin()) {
            mTarget = target;
            return startAt(0, 0, mMap.links.front().first);
        }
        const VorbisSeekPoint& point = *std::prev(after);
        mTarget = target;
        return startAt(point.page, point.link, point.sample);
    }

protected:
    [[nodiscard]] size_t decode(float* buffer, size_t count) override
    {
        if (!mSynthesis && !startAt(0, 0, mMap.links.front().first))
            return 0;
        while (mTarget < static_cast<int64_t>(mFacts.sampleCount)) {
            if (mReady == 0 && !decodePacket())
                return 0;
            const VorbisLink& link = mMap.links[mLink];
            const int64_t skip = std::clamp<int64_t>(std::max(mTarget, link.start) - mPosition, 0, mReady);
            drop(skip);
            const int64_t usable = std::min(mReady, link.end - mPosition);
            if (usable <= 0) {
                drop(mReady);
                continue;
            }
            const auto taken = static_cast<size_t>(std::min<int64_t>(usable, static_cast<int64_t>(count)));
            deliver(buffer, taken);
            mTarget = mPosition;
            return taken;
        }
        return 0;
    }

private:
    // Starts decoding at a page. The first packet from there yields no samples; `sample` is the position of the first
    // sample of the second packet.
    base::Result<> startAt(uint64_t page, size_t link, int64_t sample)
    {
        if (!mPages.seek(page) || !enterLink(link))
            return base::Error{base::ErrorCode::NotSeekable};
        mPosition = sample;
        mIsFirstPage = true;
        return {};
    }

    [[nodiscard]] bool enterLink(size_t link)
    {
        mLink = link;
        mBlock = 0;
        mReady = 0;
        mSynthesis = std::make_unique<Synthesis>(*mMap.links[link].headers, mMap.links[link].serial);
        return mSynthesis->isReady();
    }

    [[nodiscard]] bool nextPage()
    {
        ogg_page page;
        uint64_t offset = 0;
        while (mPages.next(&page, &offset)) {
            const bool isFirst = std::exchange(mIsFirstPage, false); // its link has been entered already
            if (ogg_page_bos(&page) && !isFirst) {
                if (mLink + 1 >= mMap.links.size() || !enterLink(mLink + 1))
                    return false;
                mPosition = mMap.links[mLink].first;
            }
            if (ogg_page_serialno(&page) == mMap.links[mLink].serial) {
                mSynthesis->addPage(&page);
                return true;
            }
        }
        return false;
    }

    // Decodes packets until one has yielded samples.
    [[nodiscard]] bool decodePacket()
    {
        for (;;) {
            ogg_packet packet;
            while (!mSynthesis->nextPacket(&packet)) {
                if (!nextPage())
                    return false;
            }
            const long block = vorbis_packet_blocksize(mMap.links[mLink].headers->info(), &packet);
            if (block <= 0)
                continue;
            mReady = vorbisPacketSamples(mBlock, block);
            mBlock = block;
            mSynthesis->decode(packet);
            if (mReady > 0)
                return true;
        }
    }

    // Copies count of the samples that are ready. A damaged packet yields fewer than it should. The missing ones become
    // silence, so that later samples keep their positions.
    void deliver(float* buffer, size_t count)
    {
        const auto channels = static_cast<size_t>(mFacts.channels);
        float** planes = nullptr;
        const auto available = std::min(static_cast<size_t>(std::max(mSynthesis->ready(&planes), 0)), count);
        for (size_t channel = 0; channel < channels; ++channel) {
            for (size_t i = 0; i < count; ++i)
                buffer[i * channels + channel] = i < available ? planes[channel][i] : 0.0f;
        }
        reorderXiphChannels(buffer, count, mFacts.channels);
        drop(static_cast<int64_t>(count));
    }

    void drop(int64_t count)
    {
        float** planes = nullptr;
        const int64_t available = std::max(mSynthesis->ready(&planes), 0);
        mSynthesis->take(static_cast<int>(std::min(available, count)));
        mReady -= count;
        mPosition += count;
    }

    OggPages mPages;
    VorbisMap mMap;
    std::unique_ptr<Synthesis> mSynthesis;
    size_t mLink = 0;
    long mBlock = 0; // size of the previous block, 0 before the first
    int64_t mReady = 0; // samples of the last packet that haven't been taken yet
    int64_t mPosition = 0; // of the next sample that is decoded
    int64_t mTarget = 0; // of the next sample to be delivered
    bool mIsFirstPage = false;
};

} // namespace

base::Result<DecoderPointer> openVorbis(const RecognisedFile& file)
{
    if (base::Result<> checked = checkOggPages(file); !checked)
        return std::move(checked.error());
    auto decoder = std::make_unique<VorbisFileDecoder>(file.cursor());
    if (base::Result<> opened = decoder->open(file); !opened)
        return std::move(opened.error());
    return DecoderPointer(std::move(decoder));
}

} // namespace engine
