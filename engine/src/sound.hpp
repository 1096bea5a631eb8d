// What stands behind a Sound.
#pragma once

#include "bank_file.hpp"
#include "decoder.hpp"
#include "kess.hpp"

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
    [[nodiscard]] static Pointer fromFile(kess::SoundFacts facts, std::unique_ptr<kess::Decoder> decoder);
    [[nodiscard]] static KESS_RESULT fromBank(std::unique_ptr<kess::BankFile> bank, Pointer* sound);
};

struct Sound::Impl
{
    // Facts of the file, of the subsound, or of the only sound of a bank. A locked bank, and one of several sounds, has
    // nothing but a type.
    kess::SoundFacts facts;

    // Decoders read from the bank and go before it.
    std::unique_ptr<kess::BankFile> bank;
    std::vector<SoundAccess::Pointer> subsounds; // made when they are asked for
    kess::BankFile* home = nullptr; // the bank that a subsound is from
    int place = 0; // its index there
    bool isClosed = false; // a subsound that was released
    std::unique_ptr<kess::Decoder> decoder;

    uint64_t position = 0;
    int loopsLeft = 0;
    bool atSeam = false; // reading came to the loop's end and hasn't gone on yet

    [[nodiscard]] KESS_RESULT readyToDecode();
    [[nodiscard]] KESS_RESULT seek(uint64_t frame);

    // Reads up to count frames through the loop by readSome(buffer, frames, done), which delivers frames of
    // frameBytes.
    template <typename ReadSome>
    [[nodiscard]] KESS_RESULT read(void* buffer, size_t frameBytes, size_t count, size_t* done, ReadSome readSome);

    // Takes over the facts of an unlocked bank's only sound.
    [[nodiscard]] KESS_RESULT adoptOnlySound();
    [[nodiscard]] KESS_RESULT checkUnlockedBank() const;
    [[nodiscard]] KESS_RESULT subsound(int index, Sound** sound);
};

} // namespace KESS
