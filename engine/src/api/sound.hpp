// SPDX-License-Identifier: MIT
// The implementation of KESS::Sound.
#pragma once

#include "api/loop_player.hpp"
#include "banks/bank_file.hpp"
#include "kess.hpp"
#include "parse/input_file.hpp"

#include <memory>
#include <mutex>
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
    static base::Result<Pointer> fromBank(std::shared_ptr<engine::BankFile> bank);
    static Pointer makeVoice(std::shared_ptr<engine::BankFile> bank, std::shared_ptr<engine::BankSound> sound);

    // Sounds of the bank prepare for decoding when they are first read.
    static void deferDecoders(Sound& bank);
};

// Hidden: a nested class of an exported one would be exported, too.
struct __attribute__((visibility("hidden"))) Sound::Impl
{
    enum class Role
    {
        File,
        Bank,
        Subsound,
        Voice
    };
    Role role = Role::File;
    bool isClosed = false; // a subsound that was released

    // Facts of the file or of the sound of a bank. A locked bank, and one of several sounds, has only a type.
    std::shared_ptr<const engine::SoundFacts> facts;

    engine::FilePointer file; // null for a bank, its subsounds and its voices

    std::shared_ptr<engine::BankFile> bank; // shared by a bank, its subsounds and its voices
    std::shared_ptr<engine::BankSound> sound; // of a subsound, of a voice, and of a bank of one sound

    std::mutex opening; // of the subsounds
    std::vector<SoundAccess::Pointer> subsounds; // made on request
    bool defersDecoders = false;

    engine::LoopPlayer player;

    // Shows that sound of the bank, or nothing.
    void show(std::shared_ptr<engine::BankSound> shown);

    [[nodiscard]] KESS_RESULT prepareToRead();
    [[nodiscard]] KESS_RESULT read(void* buffer, engine::LoopPlayer::Form form, size_t bytes, size_t frameBytes,
                                   size_t* done);

    // Keeps the error of a read or seek. If the medium failed, its error is the reason.
    [[nodiscard]] KESS_RESULT failReading(base::Error error) const;

    // Takes over the facts of an unlocked bank's only sound.
    base::Result<> adoptOnlySound();
    [[nodiscard]] KESS_RESULT checkUnlockedBank() const;
    // Of a sound that only banks have: not closed, not locked, and only one.
    [[nodiscard]] KESS_RESULT checkOneOfBank() const;
    [[nodiscard]] KESS_RESULT subsound(int index, Sound** sound);
};

} // namespace KESS
