// SPDX-License-Identifier: MIT
// A bank as a sound: what it reports about itself, and how its sounds are opened.
#include "support/bank_maker.hpp"
#include "support/engine_access.hpp"
#include "support/sound_files.hpp"

#include "bank/checksum.hpp"

#include <chrono>

using namespace test;
using namespace bank_test;

namespace {

void writeBank(const std::string& path, bank::Codec codec, int sounds, std::string_view key = {})
{
    std::vector<EncodedSound> encoded;
    for (int i = 0; i < sounds; ++i)
        encoded.push_back(
            encode(codec, sine(1 + i % 2, 48000, 4000 + 1000 * size_t(i)), 50, "sound " + std::to_string(i)));
    writeFile(path, makeBank(encoded, {}, key));
}

const Facts kNoFacts{KESS_SOUND_TYPE_TNB};

TEST(ABankOfSeveralSounds, ReportsAboutThemAndIsNotReadItself)
{
    for (const bank::Codec codec : kCodecs) {
        writeBank("several", codec, 3);
        EXPECT_EQ(engine().tryOpen("several", KESS_SOUND_TYPE_TNB), KESS_OK);
        EXPECT_EQ(engine().tryOpen("several", KESS_SOUND_TYPE_WAV), KESS_ERR_FORMAT);
        const SoundPointer opened = engine().open("several");
        EXPECT_EQ(readFacts(*opened), kNoFacts);
        char buffer[64];
        EXPECT_EQ(opened->readData(buffer, sizeof buffer, nullptr), KESS_ERR_SUBSOUNDS);
        EXPECT_EQ(opened->seekData(0), KESS_ERR_SUBSOUNDS);

        KESS_BANKINFO info{};
        EXPECT_EQ(opened->getBankInfo(&info), KESS_ERR_INVALID_PARAM);
        info.cbsize = sizeof info;
        EXPECT_EQ(opened->getBankInfo(&info), KESS_OK);
        EXPECT_EQ(opened->verifyData(), KESS_ERR_SUBSOUNDS);
    }
}

TEST(ABankOfSeveralSounds, OpensThemByIndexAndByName)
{
    for (const bank::Codec codec : kCodecs) {
        writeBank("several", codec, 3);
        const SoundPointer opened = engine().open("several");
        KESS_BANKINFO info{};
        info.cbsize = sizeof info;
        KESS::Sound* byIndex = nullptr;
        KESS::Sound* byName = nullptr;
        for (const int wrong : {-1, 3})
            EXPECT_EQ(opened->getSubSound(wrong, &byIndex), KESS_ERR_INVALID_PARAM);
        EXPECT_EQ(opened->getSubSoundByName("Sound 1", &byName), KESS_ERR_TAGNOTFOUND);
        ASSERT_EQ(opened->getSubSound(1, &byIndex), KESS_OK);
        ASSERT_EQ(opened->getSubSoundByName("sound 1", &byName), KESS_OK);
        EXPECT_EQ(byIndex, byName);
        EXPECT_EQ(byIndex->getBankInfo(&info), KESS_ERR_SUBSOUNDS);
        EXPECT_EQ(byIndex->verifyData(), KESS_OK);
        KESS_ENCODING encoding{};
        EXPECT_EQ(byIndex->getEncoding(&encoding), KESS_ERR_INVALID_PARAM);
        for (const int bytes : {32, 40}) { // of programs without and with the checksum
            encoding.cbsize = bytes;
            encoding.dataChecksum = 1;
            EXPECT_EQ(byIndex->getEncoding(&encoding), KESS_OK);
            EXPECT_EQ(encoding.cbsize, bytes);
            EXPECT_EQ(int(encoding.codec), int(codec));
            EXPECT_EQ(encoding.dataChecksum == 1, bytes == 32);
        }
        EXPECT_EQ(readFacts(*byIndex).samples, 5000u);
        EXPECT_EQ(readFloats(*byIndex).size(), 5000u * 2);

        // A released subsound is closed, and opened again on the next request.
        EXPECT_EQ(byIndex->release(), KESS_OK);
        EXPECT_EQ(byIndex->seekData(0), KESS_ERR_INVALID_HANDLE);
        EXPECT_EQ(byIndex->verifyData(), KESS_ERR_INVALID_HANDLE);
        EXPECT_EQ(&subsound(*opened, 1), byIndex);
        EXPECT_EQ(readFloats(*byIndex).size(), 5000u * 2);
    }
}

TEST(ABankOfOneSound, IsReadLikeThatSoundOnceItIsUnlocked)
{
    for (const bank::Codec codec : kCodecs) {
        for (const std::string_view key : {"", "secret"}) {
            writeBank("one", codec, 1, key);
            const SoundPointer opened = engine().open("one");
            bool isEncrypted = false;
            ASSERT_EQ(opened->isEncrypted(&isEncrypted), KESS_OK);
            EXPECT_EQ(isEncrypted, !key.empty());
            if (isEncrypted) {
                KESS::Sound* subsound = nullptr;
                float frame = 0;
                KESS_BANKINFO info{};
                info.cbsize = sizeof info;
                EXPECT_EQ(opened->getBankInfo(&info), KESS_ERR_KEY_MISSING);
                EXPECT_EQ(info.encrypted, 1);
                EXPECT_EQ(readFacts(*opened), kNoFacts);
                EXPECT_EQ(opened->getSubSound(0, &subsound), KESS_ERR_KEY_MISSING);
                EXPECT_EQ(opened->readFloat(&frame, 1, nullptr), KESS_ERR_KEY_MISSING);
                EXPECT_EQ(opened->setEncryptionKey("wrong"), KESS_ERR_KEY_WRONG);
                EXPECT_EQ(opened->setEncryptionKey("secret"), KESS_OK);
                EXPECT_EQ(opened->setEncryptionKey("anything now"), KESS_OK);
            }
            const Facts facts = readFacts(*opened);
            EXPECT_EQ(std::tuple(facts.type, facts.channels, facts.samples), std::tuple(KESS_SOUND_TYPE_TNB, 1, 4000u));
            EXPECT_EQ(readFloats(*opened).size(), 4000u);
            ASSERT_EQ(opened->seekData(1234), KESS_OK);
            EXPECT_EQ(readFloats(*opened).size(), 4000u - 1234);
        }
    }
}

constexpr uint64_t kFrames = 25'000;
constexpr uint64_t kLoopStart = 2011;

// A sound of a bank with a loop of that length.
SoundPointer loopedSound(bank::Codec codec, uint64_t length)
{
    MemorySound source = noise(2, 48000, kFrames);
    source.setLoop(base::Loop{kLoopStart, kLoopStart + length});
    writeFile("loop", makeBank({encode(codec, source)}));
    return engine().open("loop");
}

// Reads as many samples as are expected, alternately as floats and as integers. For the integers, which have been
// compared with the floats before, the result contains the values of `expected`.
std::vector<float> readInBothForms(KESS::Sound& sound, bank::Codec codec, const std::vector<float>& expected)
{
    std::vector<float> samples;
    std::vector<uint8_t> bytes(31 * 4);
    for (bool asFloat = true; samples.size() < expected.size(); asFloat = !asFloat) {
        if (asFloat) {
            const std::vector<float> piece = readFloats(sound, 700);
            samples.insert(samples.end(), piece.begin(), piece.end());
            continue;
        }
        unsigned got = 0;
        EXPECT_EQ(sound.readData(bytes.data(), 31 * 4, &got), KESS_OK);
        const size_t count = got / (codec == bank::Codec::Pcm ? sizeof(float) : sizeof(int16_t));
        if (count == 0 || count > expected.size() - samples.size())
            break;
        const auto passed = expected.begin() + ptrdiff_t(samples.size());
        samples.insert(samples.end(), passed, passed + ptrdiff_t(count));
    }
    return samples;
}

// The codecs of a bank begin to decode thousands of samples before the requested one.
TEST(AShortLoop, IsDecodedOnceButSoundsAsIfItWereDecodedEachTime)
{
    for (const bank::Codec codec : kCodecs) {
        for (const uint64_t length : {1, 7, 3000, 20'000}) {
            SCOPED_TRACE(testing::Message() << int(codec) << " " << length);
            const SoundPointer sound = loopedSound(codec, length);
            const std::vector<float> all = readFloats(*sound);
            std::vector<float> expected = all;
            expected.resize((kLoopStart + length) * 2);
            ASSERT_EQ(sound->seekData(kLoopStart), KESS_OK);
            const std::vector<float> onwards = readFloats(*sound);
            for (int repetition = 0; repetition < 2; ++repetition)
                expected.insert(expected.end(), onwards.begin(), onwards.begin() + ptrdiff_t(length) * 2);
            expected.insert(expected.end(), onwards.begin(), onwards.end());

            ASSERT_EQ(sound->seekData(0), KESS_OK);
            ASSERT_EQ(sound->setLoopCount(3), KESS_OK);
            EXPECT_TRUE(readInBothForms(*sound, codec, expected) == expected);
            EXPECT_EQ(sound->readFloat(expected.data(), 1, nullptr), KESS_ERR_FILE_EOF);

            // It plays to the end when looping is switched off.
            ASSERT_EQ(sound->seekData(0), KESS_OK);
            ASSERT_EQ(sound->setLoopCount(-1), KESS_OK);
            const auto begin = std::chrono::steady_clock::now();
            ASSERT_EQ(readFloats(*sound, 48000).size(), 48000u * 2);
            EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
            ASSERT_EQ(sound->setLoopCount(0), KESS_OK);
            const uint64_t left = length - (48000 - kLoopStart - 1) % length - 1 + kFrames - kLoopStart - length;
            EXPECT_TRUE(std::ranges::equal(readFloats(*sound), std::span(all).last(left * 2)));
        }
    }
}

TEST(ASoundOfAnExternalCodec, ReportsItsFactsAndIsVerifiedWithoutBeingDecoded)
{
    EncodedSound external;
    external.name = "external";
    external.data.assign(4000, 7);
    external.sound.codec = bank::Codec::Xma;
    external.sound.sampleCount = 12345;
    external.sound.quality = 30;
    external.sound.dataBytes = external.data.size();
    external.sound.dataChecksum = bank::checksum(external.data);
    writeFile("external", makeBank({external, external}));

    const SoundPointer opened = engine().open("external");
    KESS::Sound& sound = subsound(*opened, 0);
    EXPECT_EQ(readFacts(sound).samples, 12345u);
    EXPECT_EQ(sound.verifyData(), KESS_OK);
    float frame = 0;
    EXPECT_EQ(sound.readFloat(&frame, 1, nullptr), KESS_ERR_UNSUPPORTED);
    KESS::Sound* voice = nullptr;
    EXPECT_EQ(sound.createVoice(&voice), KESS_ERR_UNSUPPORTED);

    std::vector<KESS_RESULT> findings;
    const auto take = [](void* data, int, KESS_RESULT result, const char*) -> int {
        static_cast<std::vector<KESS_RESULT>*>(data)->push_back(result);
        return 0;
    };
    EXPECT_EQ(engine().system().verifyBank("external", nullptr, take, &findings), KESS_OK);
    EXPECT_EQ(findings, std::vector{KESS_ERR_UNSUPPORTED}) << "a return value of 0 ends it";
}

TEST(ASoundWithDamagedHeaders, IsRefusedOrReportsItsFactsWhereOnlyTheseAreRequested)
{
    std::vector<EncodedSound> encoded(2, encode(bank::Codec::Vorbis, sine(1, 48000, 4000)));
    encoded[1].sound.setup = {1, 2, 3};
    writeFile("damaged", makeBank(encoded));
    for (const unsigned mode : {KESS_MODE_DEFAULT, KESS_MODE_OPENONLY}) {
        KESS::Sound* opened = nullptr;
        ASSERT_EQ(engine().system().createSound("damaged", mode, nullptr, &opened), KESS_OK);
        const SoundPointer bank(opened);
        EXPECT_EQ(readFloats(subsound(*bank, 0)).size(), 4000u);
        KESS::Sound* damaged = nullptr;
        const bool isDeferred = mode == KESS_MODE_OPENONLY;
        ASSERT_EQ(bank->getSubSound(1, &damaged), isDeferred ? KESS_OK : KESS_ERR_FILE_BAD);
        if (!isDeferred)
            continue;
        EXPECT_EQ(readFacts(*damaged).samples, 4000u);
        float frame = 0;
        EXPECT_EQ(damaged->readFloat(&frame, 1, nullptr), KESS_ERR_FILE_BAD);
        EXPECT_EQ(damaged->seekData(1), KESS_ERR_FILE_BAD);
    }
}

} // namespace
