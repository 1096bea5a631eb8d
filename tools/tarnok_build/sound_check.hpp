// SPDX-License-Identifier: MIT
// Whether a file can become a sound of a bank.
#pragma once

#include <QString>

#include <optional>

namespace tarnok_build {

// Why a file can't become a sound of a bank, and a word for that.
struct SoundFault
{
    const char* code;
    QString text;
};

// nullopt if the file can be used. shown is the path as the user wrote it.
std::optional<SoundFault> soundFault(const QString& path, const QString& shown);

// The existing path that differs from this one only in the case of letters; empty if there is none.
QString inOtherCase(const QString& path);

} // namespace tarnok_build
