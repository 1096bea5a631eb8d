// SPDX-License-Identifier: MIT
// The implementation of KESS::Sound.
#pragma once

#include "api/loop_player.hpp"
#include "banks/bank_file.hpp"
#include "kess.hpp"

#include <memory>
#include <vector>

namespace KESS {

// Makes and frees sounds for the engine.
struct SoundAccess
{
    struct Free
    {
        void operator()(Sound* sound) const;
    };
    using Pointer = std::unique_ptr<Sound, Free>;

    // A file that was recognised. Without a decoder it can't be read.
    [[nodiscard]] static Pointer fromFile(engine::FilePointer file, engine::SoundFacts facts,
                                          engine::DecoderPointer decoder);
    static base::Result<Pointer> fromBank(std::unique_ptr<engine::BankFile> bank);

    // Sounds of the bank prepare for decoding when they are first read.
    static void deferDecoders(Sound& bank);
};

// Hidden: a nested class of an exported one would be exported, too.
struct __attribute__((visibility("hidden"))) Sound::Impl
{
    // Facts of the file, of the subsound, or of the only sound of a bank. A locked bank, and one of several sounds, has
    // only a type.
    engine::SoundFacts facts;

    engine::FilePointer file; // null for a bank and its subsounds

    // Players read from the bank and are destroyed before it.
    std::unique_ptr<engine::BankFile> bank;
    std::vector<SoundAccess::Pointer> subsounds; // made on request
    bool defersDecoders = false;
    engine::BankFile* home = nullptr; // the bank of a subsound
    int index = 0; // of a subsound in its bank
    bool isClosed = false; // a subsound that was released
    engine::LoopPlayer player;

    [[nodiscard]] KESS_RESULT prepareToRead();
    [[nodiscard]] KESS_RESULT read(void* buffer, engine::LoopPlayer::Form form, size_t bytes, size_t frameBytes,
                                   size_t* done);

    // Keeps the error of a read or seek. If the medium failed, its error is the reason.
    [[nodiscard]] KESS_RESULT failReading(base::Error error) const;

    // Takes over the facts of an unlocked bank's only sound.
    base::Result<> adoptOnlySound();
    [[nodiscard]] KESS_RESULT checkUnlockedBank() const;
    [[nodiscard]] KESS_RESULT subsound(int index, Sound** sound);
};

} // namespace KESS
