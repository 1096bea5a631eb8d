// SPDX-License-Identifier: MIT
// The parts of the pipeline that can't be tested from outside: resampling around loops, dither, the identity of files,
// and the delivery of reports.
#include "bank/checksum.hpp"
#include "base/ordered_work.hpp"
#include "base/temporary_file.hpp"
#include "build/progress_queue.hpp"
#include "build/result_code.hpp"
#include "source/frame_spool.hpp"
#include "source/held_source.hpp"
#include "source/resampler.hpp"
#include "source/source_identity.hpp"
#include "support/content_hash.hpp"
#include "support/remarks.hpp"
#include "support/vector_state.hpp"
#include "support/wide_hasher.hpp"
#include "support/worker_memory.hpp"
#include "support/worker_pool.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <stop_token>
#include <thread>

#include <pthread.h>

using namespace builder;
using namespace std::chrono_literals;

namespace {

double toneAt(double frequency, double frame)
{
    return 0.5 * std::sin(2 * std::numbers::pi * frequency * frame);
}

// A tone with this frequency, in periods per frame, ready to be read.
std::unique_ptr<FrameSpool> tone(uint64_t length, double frequency, double rate, bank::SampleFormat format)
{
    base::Result<std::unique_ptr<FrameSpool>> spool =
        FrameSpool::create({1, rate, format, length}, TemporaryFolders({"/tmp"}), {});
    EXPECT_TRUE(bool(spool));
    for (uint64_t frame = 0; frame < length; ++frame) {
        const auto sample = float(toneAt(frequency, double(frame)));
        EXPECT_TRUE(bool((*spool)->write(frame, &sample, 1)));
    }
    return std::move(*spool);
}

// A spool that counts the seeks to a position other than its current one: for some files each of them means decoding
// from the start.
class CountingSource final : public FrameSource
{
public:
    CountingSource(std::unique_ptr<FrameSpool> spool, int* jumps)
        : mSpool(std::move(spool))
        , mJumps(jumps)
    { }

    const FrameFacts& facts() const override { return mSpool->facts(); }
    base::Result<> seek(uint64_t frame) override
    {
        *mJumps += frame != mPosition;
        mPosition = frame;
        return mSpool->seek(frame);
    }
    base::Result<> readFloat(float* frames, size_t count) override
    {
        mPosition += count;
        return mSpool->readFloat(frames, count);
    }
    base::Result<> readSamples(void* frames, size_t count) override
    {
        mPosition += count;
        return mSpool->readSamples(frames, count);
    }

private:
    std::unique_ptr<FrameSpool> mSpool;
    uint64_t mPosition = 0;
    int* mJumps;
};

// Length, loop, and the source and target rates of resampling.
const std::tuple<uint64_t, std::optional<base::Loop>, double, double> kResamplings[] = {
    {44100, base::Loop{0, 44100}, 44100, 48000},
    {44101, base::Loop{0, 44101}, 44100, 48000},
    {100'003, base::Loop{0, 100'003}, 48000, 11025},
    {37, base::Loop{0, 37}, 44100, 48000},
    {5000, base::Loop{0, 5000}, 8000, 192'000},
    {60'000, base::Loop{10'007, 40'013}, 44100, 48000},
    {60'000, base::Loop{10'007, 40'013}, 48000, 16000},
    {50'000, base::Loop{49'000, 50'000}, 44100, 48000},
    {50'000, base::Loop{0, 30'000}, 44100, 32000},
    {30'000, base::Loop{20'000, 20'100}, 44100, 48000},
    {30'000, base::Loop{29'847, 30'000}, 44100, 16000},
    {30'000, base::Loop{0, 20}, 44100, 48000},
    {300, base::Loop{100, 200}, 44100, 48000},
    {1'500'000, base::Loop{0, 1'500'000}, 44100, 48000},
    {44100, std::nullopt, 44100, 48000},
    {3, std::nullopt, 44100, 48000},
};

} // namespace

TEST(Resampling, MakesLoopsOfWholeFramesWithoutASeam)
{
    for (const auto& [length, loop, from, to] : kResamplings) {
        SCOPED_TRACE(testing::Message() << length << " " << from << " to " << to);
        // About 300 Hz, with a whole number of periods in the loop, so that the tone continues smoothly at the seam.
        const double start = loop ? double(loop->start) : 0;
        const double loopLength = loop ? double(loop->end) - start : double(length);
        const double frequency = std::max(1.0, std::round(300 * loopLength / from)) / loopLength;
        const auto source = tone(length, frequency, from, bank::SampleFormat::Float);
        const ResamplingPlan plan(length, loop, from, to);
        const auto result = resample(*source, plan, to, TemporaryFolders({"/tmp"}), {});
        ASSERT_TRUE(bool(result));
        EXPECT_EQ((*result)->facts().length, plan.length());
        EXPECT_EQ(plan.loop().has_value(), loop.has_value());
        const double writtenOutLength = loopLength * double(plan.repetitions());
        const double exactly = (double(length) + writtenOutLength - loopLength) * to / from;
        const double newStart = plan.loop() ? double(plan.loop()->start) : 0;
        const double newLoopLength = plan.loop() ? double(plan.loop()->end) - newStart : exactly;
        EXPECT_NEAR(double(plan.length()), exactly, plan.loop() ? 1.5 + exactly / 2 / newLoopLength : 0.5);

        std::vector<float> samples(plan.length());
        ASSERT_TRUE(bool((*result)->readFloat(samples.data(), samples.size())));
        // Near an end of the sound that doesn't loop, the filter includes the silence outside.
        const double edge = 300 * std::max(1.0, to / from);
        const double first = loop && loop->start == 0 ? 0 : edge;
        const double last = double(samples.size()) - (loop && loop->end == length ? 0 : edge);
        double worst = 0;
        for (double i = std::ceil(first); i <= last && i < double(samples.size()); ++i) {
            const double position = start + (i - newStart) * writtenOutLength / newLoopLength;
            worst = std::max(worst, std::abs(samples[size_t(i)] - toneAt(frequency, position)));
        }
        EXPECT_LT(worst, 3e-6);
    }
}

TEST(ShortLoops, AreReadOnceHoweverOftenTheyRepeat)
{
    constexpr uint64_t kLength = 200'000;
    constexpr int kMaximumJumps = 3; // to the start, past an inner loop, and to the frames after it
    const base::Loop loops[] = {{kLength - 1, kLength}, {0, 1}, {150'000, 150'010}, {kLength - 65'536, kLength}};
    for (const base::Loop& loop : loops) {
        SCOPED_TRACE(testing::Message() << loop.start << " to " << loop.end);
        int jumps = 0;
        const auto makeSource = [&] {
            return tone(kLength, 0.01, 48'000, bank::SampleFormat::Pcm24);
        };
        const auto plain = makeSource();
        const auto held = holdLoopIfShort(std::make_unique<CountingSource>(makeSource(), &jumps), loop);

        // Reads in both forms, which begin and end inside, outside and at the ends of the loop.
        std::vector<std::pair<uint64_t, uint64_t>> ranges{{0, kLength}};
        for (int round = 0; round < 20; ++round)
            ranges.emplace_back(loop.start, loop.end);
        ranges.insert(ranges.end(), {{loop.start / 2, loop.end}, {loop.end - 1, (loop.end + kLength) / 2}});
        const auto expectSame = [&](auto sample, auto read) {
            std::vector<decltype(sample)> wanted(kLength * 3);
            std::vector<decltype(sample)> got(kLength * 3);
            for (const auto& [begin, end] : ranges) {
                ASSERT_TRUE(plain->seek(begin) && read(*plain, wanted.data(), size_t(end - begin)));
                ASSERT_TRUE(held->seek(begin) && read(*held, got.data(), size_t(end - begin)));
                EXPECT_EQ(got, wanted);
            }
        };
        expectSame(0.0f, [](FrameSource& s, float* to, size_t count) { return bool(s.readFloat(to, count)); });
        expectSame(uint8_t(), [](FrameSource& s, uint8_t* to, size_t count) { return bool(s.readSamples(to, count)); });
        jumps = 0;
        const ResamplingPlan plan(kLength, loop, 48'000, 44'100);
        const auto fromHeld = resample(*held, plan, 44'100, TemporaryFolders({"/tmp"}), {});
        EXPECT_LE(jumps, kMaximumJumps);
        const auto fromPlain = resample(*plain, plan, 44'100, TemporaryFolders({"/tmp"}), {});
        ASSERT_TRUE(fromHeld && fromPlain);
        std::vector<float> wanted(plan.length());
        std::vector<float> got(plan.length());
        ASSERT_TRUE((*fromHeld)->readFloat(got.data(), got.size()));
        ASSERT_TRUE((*fromPlain)->readFloat(wanted.data(), wanted.size()));
        EXPECT_EQ(got, wanted);
    }
}

TEST(Resampling, KeepsThePitchAndUnrollsAShortInnerLoopForThat)
{
    constexpr double cent = 5.78e-4;
    for (const uint64_t loopLength : {1, 5, 20, 100, 500, 700}) {
        for (const double to : {8000.0, 48'000.0, 192'000.0}) {
            const double ratio = to / 44100;
            const ResamplingPlan plan(30'000, base::Loop{29'000, 29'000 + loopLength}, 44100, to);
            ASSERT_TRUE(plan.loop());
            const double added = double((plan.repetitions() - 1) * loopLength) * ratio;
            EXPECT_LT(added, 900) << loopLength;
            const double writtenOut = double(plan.repetitions() * loopLength) * ratio;
            EXPECT_NEAR(double(plan.loop()->end - plan.loop()->start) / writtenOut, 1, cent) << loopLength;
            EXPECT_NEAR(double(plan.loop()->start), 29'000 * ratio, 29'000 * ratio * cent + 1) << loopLength;
            EXPECT_NEAR(double(plan.length()), 30'000 * ratio + added, 30'000 * ratio * cent + 2) << loopLength;
        }
    }
}

TEST(Resampling, MapsPositionsAndRepeatsThoseInAnUnrolledLoop)
{
    using Positions = std::vector<uint64_t>;
    const ResamplingPlan plan(60'000, base::Loop{10'000, 40'000}, 48000, 16000);
    EXPECT_EQ(plan.positions(0), Positions{0});
    EXPECT_EQ(plan.positions(10'000), Positions{plan.loop()->start});
    EXPECT_EQ(plan.positions(40'000), Positions{plan.loop()->end});
    EXPECT_EQ(plan.positions(60'000), Positions{plan.length()});

    const ResamplingPlan repeated(4000, base::Loop{2000, 2100}, 44100, 48000); // the loop becomes 108.8 samples long
    const uint64_t start = repeated.loop()->start;
    ASSERT_EQ(repeated.repetitions(), 5u);
    EXPECT_EQ(repeated.positions(2000), (Positions{start, start + 109, start + 218, start + 326, start + 435}));
    EXPECT_EQ(repeated.positions(2100), Positions{repeated.loop()->end});
    EXPECT_EQ(repeated.positions(4000), Positions{repeated.length()});
}

TEST(Resampling, StopsOnRequest)
{
    const auto source = tone(100'000, 0.01, 44100, bank::SampleFormat::Float);
    std::stop_source stop;
    stop.request_stop();
    const ResamplingPlan plan(100'000, std::nullopt, 44100, 48000);
    const auto result = resample(*source, plan, 48000, TemporaryFolders({"/tmp"}), stop.get_token());
    ASSERT_FALSE(bool(result));
    EXPECT_EQ(result.error().code, base::ErrorCode::Cancelled);
}

TEST(Files, WithoutANameAreInvisible)
{
    std::filesystem::create_directory("unnamed");
    const base::Result<base::FileDescriptor> file = base::TemporaryFile::createUnnamed("unnamed");
    ASSERT_TRUE(bool(file));
    EXPECT_TRUE(std::filesystem::is_empty("unnamed"));
    EXPECT_FALSE(base::TemporaryFile::createUnnamed("no such folder"));
}

TEST(SourceIdentity, DoesNotTrustAStampThatAnotherContentMayShare)
{
    std::ofstream("racy") << "a";
    SourceIndex index("racy-index");
    SourceIdentifier identifier(index, true);
    base::Result<SourceIdentity> identity = identifier.identify("racy", {});
    ASSERT_TRUE(identity && !identity->settled);
    EXPECT_TRUE(*identifier.unchanged("racy", *identity, true, {}));
    // The content changes within one tick of a coarse clock, so nothing but the content differs.
    std::ofstream("racy") << "b";
    identity->stamp = *base::readStamp("racy");
    EXPECT_FALSE(*identifier.unchanged("racy", *identity, true, {}));
}

TEST(SourceIdentity, IsRememberedOnceTheClockHasAdvanced)
{
    constexpr int64_t second = 1'000'000'000;
    base::FileStamp stamp;
    stamp.modified = 1000 * second;
    stamp.changed = 1000 * second;
    EXPECT_FALSE(SourceIndex::isSettled(stamp, 1000 * second));
    EXPECT_FALSE(SourceIndex::isSettled(stamp, 1002 * second));
    EXPECT_TRUE(SourceIndex::isSettled(stamp, 1003 * second));
    EXPECT_FALSE(SourceIndex::isSettled(stamp, 900 * second)) << "a file with a time in the future";
    stamp.modified = 500 * second;
    EXPECT_FALSE(SourceIndex::isSettled(stamp, 1001 * second)) << "its time was set back";

    const ContentHash hash{{1, 2}};
    SourceIndex("settled-index").save();
    SourceIndex index("settled-index");
    index.remember("file", stamp, hash);
    index.save();
    EXPECT_EQ(SourceIndex("settled-index").find("file", stamp), hash);
    EXPECT_FALSE(SourceIndex("settled-index").find("other", stamp));
    // Many builds, each with something new: their records are merged, not accumulated.
    for (int i = 0; i < 30; ++i) {
        SourceIndex next("settled-index");
        next.remember(std::to_string(i), stamp, hash);
        next.save();
    }
    EXPECT_LE(std::distance(std::filesystem::directory_iterator("settled-index"), {}), 9);
    for (const char* name : {"file", "0", "29"})
        EXPECT_EQ(SourceIndex("settled-index").find(name, stamp), hash) << name;
    ++stamp.inode;
    EXPECT_FALSE(SourceIndex("settled-index").find("file", stamp));
}

TEST(Dither, RoundsEachPositionAlikeWithTriangularNoiseAndClipsAtFullScale)
{
    const uint64_t length = 2'000'000; // more than is kept in memory
    const auto spool = tone(length, 0.01, 44100, bank::SampleFormat::Pcm16);
    std::vector<int16_t> samples(length);
    ASSERT_TRUE(bool(spool->readSamples(samples.data(), length)));
    double error = 0;
    double power = 0;
    for (uint64_t i = 0; i < length; ++i) {
        const double difference = samples[i] - 32768 * toneAt(0.01, double(i));
        error += difference;
        power += difference * difference;
    }
    // A quarter of a step's square: a twelfth is from rounding, a sixth from the dither.
    EXPECT_NEAR(power / double(length), 0.25, 0.005);
    EXPECT_NEAR(error / double(length), 0, 0.005);

    int16_t again[1000];
    ASSERT_TRUE(bool(spool->seek(1'234'567)));
    ASSERT_TRUE(bool(spool->readSamples(again, 1000)));
    EXPECT_TRUE(std::equal(again, again + 1000, samples.begin() + 1'234'567));

    const float loud[] = {2, -2, 1, -1};
    ASSERT_TRUE(bool(spool->write(0, loud, 4)));
    ASSERT_TRUE(bool(spool->seek(0)));
    ASSERT_TRUE(bool(spool->readSamples(again, 4)));
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(again[i], i % 2 ? -32768 : 32767, 1);
}

// A queue whose clock advances only when the test says so.
struct WatchedQueue
{
    explicit WatchedQueue(int reports)
    {
        queue.beginBuild();
        for (int index = 0; index < reports; ++index)
            queue.post(index, 0, TARNOK_STATE_FINISHED);
    }

    // Fetches all waiting reports; each fetch takes the given time.
    int fetchAll(ProgressQueue::Clock::duration each)
    {
        int count = 0;
        while (const TARNOK_PROGRESSITEM* item = queue.fetch()) {
            EXPECT_EQ(item->subSoundIndex, next++);
            EXPECT_TRUE(queue.release(item));
            time += each;
            ++count;
        }
        return count;
    }

    // How many milliseconds the end of a build waits for a watcher that fetches the given number of reports per
    // millisecond.
    int endWatchedBy(int reportsEach, const std::stop_token& stop)
    {
        queue.release(queue.fetch());
        pause = [this, reportsEach] {
            for (int i = 0; i < reportsEach; ++i)
                queue.release(queue.fetch());
        };
        const auto start = time;
        queue.endBuild(stop);
        return int((time - start) / 1ms);
    }

    ProgressQueue::Clock::time_point time{1h};
    std::function<void()> pause;
    ProgressQueue queue{{[this] { return time; },
                         [this](ProgressQueue::Clock::duration length) {
                             time += length;
                             pause();
                         }}};
    int next = 0;
};

std::stop_token stopped()
{
    std::stop_source stop;
    stop.request_stop();
    return stop.get_token();
}

// A window must return from processing reports even while a build keeps posting them.
TEST(ProgressQueue, LimitsTheReportsPerVisitDuringABuildAndDeliversTheRestAtItsEnd)
{
    WatchedQueue watched(50000);
    EXPECT_EQ(watched.fetchAll(1ms), 64) << "the smallest batch";
    EXPECT_EQ(watched.fetchAll(50us), 100) << "5 ms; the next visit continues";
    watched.queue.endBuild(stopped());
    EXPECT_EQ(watched.fetchAll(1ms), 50000 - 164);
}

TEST(ProgressQueue, WaitsAtTheEndForAWatcherThatKeepsFetching)
{
    const std::tuple<int, int, std::stop_token, int> cases[] = {
        {2000, 20, {}, 76}, // it waits until 500 are left
        {50000, 1, {}, 500}, // this watcher would never finish
        {2000, 0, {}, 51}, // this watcher has stopped fetching
        {2000, 20, stopped(), 0},
    };
    for (const auto& [reports, reportsEach, stop, milliseconds] : cases)
        EXPECT_NEAR(WatchedQueue(reports).endWatchedBy(reportsEach, stop), milliseconds, 1) << reportsEach;
}

// If the shell has set a small stack (ulimit -s), encoders would overflow it.
TEST(WorkerPool, HasStacksOfItsOwnSize)
{
    pthread_attr_t former, small;
    ASSERT_EQ(pthread_getattr_default_np(&former), 0);
    ASSERT_EQ(pthread_getattr_default_np(&small), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&small, 64 << 10), 0);
    ASSERT_EQ(pthread_setattr_default_np(&small), 0);
    std::array<size_t, 4> bytes{};
    runOnWorkers(4, bytes.size(), [&](size_t index, unsigned) {
        pthread_attr_t own;
        ASSERT_EQ(pthread_getattr_np(pthread_self(), &own), 0);
        pthread_attr_getstacksize(&own, &bytes[index]);
        pthread_attr_destroy(&own);
    });
    EXPECT_EQ(pthread_setattr_default_np(&former), 0);
    pthread_attr_destroy(&small);
    pthread_attr_destroy(&former);
    EXPECT_GE(std::ranges::min(bytes), size_t(8) << 20);
}

TEST(OrderedWork, ReturnsItsResultsInOrderAndBeginsOnlyAFewBeforeTheyAreFetched)
{
    constexpr size_t kCount = 1000;
    for (const unsigned threads : {1U, 4U}) {
        std::atomic<size_t> begun = 0;
        {
            base::OrderedWork<size_t> work(
                kCount,
                [&](size_t number) {
                    ++begun;
                    if (number % 7 == 0)
                        std::this_thread::sleep_for(1ms);
                    return number * number;
                },
                threads);
            for (size_t i = 0; i < kCount / 2; ++i)
                ASSERT_EQ(work.next(), i * i);
        }
        EXPECT_LT(begun, kCount) << "the rest was not left out";
        EXPECT_GE(begun, kCount / 2);
    }
}

// AVX code of a library, or the thread that starts a worker, may have left the upper halves in use.
TEST(VectorState, IsUnusedWhereAWorkerStartsAndAfterHashing)
{
    if (!test::reportsVectorState())
        GTEST_SKIP() << "this processor has no AVX, or doesn't report the state (XGETBV with ECX = 1)";
    std::array<bool, 4> inUse;
    inUse.fill(true);
    test::useUpperHalves();
    runOnWorkers(4, 4, [&](size_t index, unsigned) { inUse[index] = test::upperHalvesInUse(); });
    EXPECT_EQ(std::count(inUse.begin(), inUse.end(), true), 0);

    const std::vector<std::byte> bytes(5000);
    bank::RunningChecksum checksum;
    ContentHasher hasher;
    const std::function<void()> steps[] = {[&] { (void)bank::checksum(bytes); },
                                           [&] { checksum.add(std::vector<uint8_t>(5000)); },
                                           [&] { (void)checksum.value(); }, [&] { hasher.add(bytes); },
                                           [&] {
                                               (void)hasher.digest();
                                           }};
    for (size_t step = 0; step < std::size(steps); ++step) {
        test::useUpperHalves();
        steps[step]();
        EXPECT_FALSE(test::upperHalvesInUse()) << step;
    }
}

TEST(Remarks, ComeOncePerBuildInOrderWithinBoundsAndInWholeCharacters)
{
    Remarks remarks;
    for (int build = 0; build < 2; ++build) {
        remarks.beginBuild();
        for (const char* text : {"first", "second", "first"})
            remarks.post(text);
        EXPECT_EQ(remarks.fetch(), "first");
        remarks.post("first");
        remarks.post("third");
        EXPECT_EQ(remarks.fetch(), "second");
    }
    EXPECT_EQ(remarks.fetch(), "third") << "remarks of the previous build are dropped";
    EXPECT_EQ(remarks.fetch(), "");

    remarks.beginBuild();
    for (size_t count = 0; count < Remarks::kMaximumCount + 10; ++count)
        remarks.post(std::to_string(count));
    std::vector<std::string> fetched;
    for (std::string text = remarks.fetch(); !text.empty(); text = remarks.fetch())
        fetched.push_back(text);
    ASSERT_EQ(fetched.size(), Remarks::kMaximumCount + 1);
    EXPECT_NE(fetched.back().find("more"), std::string::npos);

    const std::pair<size_t, const char*> cuts[] = {{1, ""},   {2, "a"},   {3, "a"},  {4, "aé"},
                                                   {7, "aé"}, {8, "aé𝄞"}, {9, "aé𝄞"}};
    for (const auto& [size, expected] : cuts) {
        char buffer[9];
        copyCharacters("aé𝄞", buffer, size);
        EXPECT_STREQ(buffer, expected) << size;
    }
}

TEST(WorkerMemory, BoundsTheWorkersByTheNarrowestLimitAndRefusesOnlyWhereTheProcessCannotGetMore)
{
    constexpr uint64_t megabyte = 1 << 20;
    const uint64_t all = MemoryLeft::kUnlimited;
    // The least and the most workers out of 8; 0: refused.
    const std::tuple<MemoryLeft, unsigned, unsigned, const char*> cases[] = {
        {{}, 8, 8, ""},
        {{400 * megabyte, all, all, all}, 2, 5, "ulimit -v"},
        {{40 * megabyte, all, all, all}, 1, 1, "ulimit -v"},
        {{10 * megabyte, all, all, all}, 0, 0, ""},
        {{all, 100 * megabyte, all, all}, 2, 7, "ulimit -d"},
        {{all, megabyte, all, all}, 0, 0, ""},
        {{all, all, 50 * megabyte, all}, 2, 6, "control group"},
        {{all, all, 0, all}, 1, 1, "control group"},
        {{all, all, 80 * megabyte, 30 * megabyte}, 1, 3, "machine"},
    };
    for (const auto& [left, least, most, remark] : cases) {
        SCOPED_TRACE(testing::Message() << most << " " << remark);
        const WorkerCount workers = affordableWorkers(8, left).value_or(WorkerCount{0, ""});
        EXPECT_GE(workers.count, least);
        EXPECT_LE(workers.count, most);
        EXPECT_NE(workers.remark.find(remark), std::string::npos) << workers.remark;
        EXPECT_EQ(workers.remark.empty(), workers.count % 8 == 0);
    }
}

// Each lane equals libsodium's hash of its blocks, however the input is divided and whichever code computes it.
TEST(WideHasher, IsATreeOfLibsodiumHashesInAllItsVariants)
{
    std::vector<std::byte> bytes(20'000);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = std::byte(i * i >> 7 ^ i * 31);
    const auto expected = [&](size_t length) {
        const size_t rows = length / WideHasher::kRowBytes;
        ContentHasher root;
        for (size_t lane = 0; rows > 0 && lane < WideHasher::kLanes; ++lane) {
            std::vector<unsigned char> blocks;
            for (size_t row = 0; row < rows; ++row) {
                const auto* block = reinterpret_cast<const unsigned char*>(bytes.data()) + row * WideHasher::kRowBytes
                    + lane * WideHasher::kBlockBytes;
                blocks.insert(blocks.end(), block, block + WideHasher::kBlockBytes);
            }
            const unsigned char salt[16] = {};
            std::array<std::byte, 32> hash;
            crypto_generichash_blake2b_salt_personal(reinterpret_cast<unsigned char*>(hash.data()), hash.size(),
                                                     blocks.data(), blocks.size(), nullptr, 0, salt,
                                                     reinterpret_cast<const unsigned char*>(WideHasher::kPersonal));
            root.add(hash);
        }
        const size_t hashed = rows * WideHasher::kRowBytes;
        root.addText({reinterpret_cast<const char*>(bytes.data()) + hashed, length - hashed});
        root.addNumber(length);
        return root.digest();
    };

    using Code = WideHasher::Code;
    for (const Code code : {Code::Plain, Code::Avx2, Code::Avx512}) {
        if (code > WideHasher::best())
            continue;
        for (const size_t length : {0, 1, 511, 512, 513, 1023, 1024, 1025, 1536, 5000, 20'000}) {
            for (const size_t piece : {1, 100, 511, 512, 513, 1024, 1500, 20'000}) {
                WideHasher hasher(code);
                for (size_t at = 0; at < length; at += piece)
                    hasher.add(std::span(bytes).subspan(at, std::min(piece, length - at)));
                ASSERT_EQ(hasher.digest(), expected(length)) << int(code) << ", " << length << " by " << piece;
            }
        }
    }
}

TEST(ResultCodes, AreTheNumbersThatCallersOfTheLibraryKnow)
{
    using enum base::ErrorCode;
    const std::pair<base::ErrorCode, int> numbers[] = {
        {CacheLost, 1},    {Cancelled, 2},        {NothingLeft, 3},    {Codec, 4},       {Io, 7},
        {NotFound, 8},     {Engine, 9},           {Format, 11},        {Version, 11},    {Damaged, 11},
        {Unsupported, 11}, {TooManyChannels, 11}, {NotSeekable, 11},   {KeyMissing, 11}, {KeyWrong, 11},
        {Invalid, 12},     {Memory, 13},          {ModuleMissing, 20}, {ModuleBad, 21}};
    for (const auto& [code, number] : numbers)
        EXPECT_EQ(int(resultCode(code)), number) << int(code);
}
