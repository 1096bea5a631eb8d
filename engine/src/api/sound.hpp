// What stands behind a Sound.
#pragma once

#include "banks/bank_file.hpp"
#include "decode/decoder.hpp"
#include "kess.hpp"

#include <array>
#include <memory>
#include <vector>

namespace KESS {

// The one door through which the engine makes sounds and frees them.
struct SoundAccess
{
    struct Free
    {
        void operator()(Sound* sound) const;
    };
    using Pointer = std::unique_ptr<Sound, Free>;

    // A file that was recognised; without a decoder it can't be read.
    [[nodiscard]] static Pointer fromFile(kess::SoundFacts facts, kess::DecoderPointer decoder);
    [[nodiscard]] static KESS_RESULT fromBank(std::unique_ptr<kess::BankFile> bank, Pointer* sound);

    // Sounds of the bank prepare for decoding when they are first read.
    static void deferDecoders(Sound& bank);
};

// Hidden: a nested class of an exported one would be exported, too.
struct __attribute__((visibility("hidden"))) Sound::Impl
{
    // Facts of the file, of the subsound, or of the only sound of a bank. A locked bank, and one of several sounds, has
    // nothing but a type.
    kess::SoundFacts facts;

    // Decoders read from the bank and go before it.
    std::unique_ptr<kess::BankFile> bank;
    std::vector<SoundAccess::Pointer> subsounds; // made when they are asked for
    bool defersDecoders = false;
    kess::BankFile* home = nullptr; // the bank that a subsound is from
    int place = 0; // its index there
    bool isClosed = false; // a subsound that was released
    kess::DecoderPointer decoder;

    uint64_t position = 0;
    int loopsLeft = 0;
    bool atSeam = false; // reading came to the loop's end and hasn't gone on yet

    // The decoded samples of a short loop, by form, from its first repetition on. To seek for each is dear: a codec
    // decodes thousands of samples for a loop of a few.
    enum Form
    {
        AsStored,
        AsFloat
    };
    std::array<std::vector<uint8_t>, 2> keptLoop;
    bool inKeptLoop = false; // reading goes on there, and the decoder stands anywhere

    [[nodiscard]] KESS_RESULT readyToDecode();
    [[nodiscard]] KESS_RESULT seek(uint64_t frame);

    // Reads as many frames of frameBytes through the loop as bytes hold.
    [[nodiscard]] KESS_RESULT deliver(void* buffer, Form form, size_t frameBytes, size_t bytes, size_t* done);
    [[nodiscard]] KESS_RESULT read(void* buffer, Form form, size_t frameBytes, size_t count, size_t* done);
    [[nodiscard]] KESS_RESULT readSome(uint8_t* buffer, Form form, size_t frameBytes, size_t count, size_t* done);
    [[nodiscard]] KESS_RESULT decode(uint8_t* buffer, Form form, size_t count, size_t* done) const;
    [[nodiscard]] KESS_RESULT repeatLoop(Form form, size_t frameBytes);
    [[nodiscard]] bool keepLoop(Form form, size_t frameBytes);
    [[nodiscard]] KESS_RESULT leaveKeptLoop(Form form, size_t frameBytes);
    void forgetLoop();

    // Takes over the facts of an unlocked bank's only sound.
    [[nodiscard]] KESS_RESULT adoptOnlySound();
    [[nodiscard]] KESS_RESULT checkUnlockedBank() const;
    [[nodiscard]] KESS_RESULT subsound(int index, Sound** sound);
};

} // namespace KESS
