// SPDX-License-Identifier: MIT
// What a bank is made from, for build systems.
#pragma once

#include "bank_source.hpp"

#include <nlohmann/json.hpp>

#include <QString>
#include <QStringList>

namespace tarnok_build {

// All files and folders that determine the bank, absolute and without repetitions. Only those that exist.
QStringList dependencies(const BankSource& source, const TARNOK::SoundBank* bank);

nlohmann::ordered_json dependenciesAsJson(const BankSource& source, const TARNOK::SoundBank* bank);

// A rule in the syntax that make and Ninja share. Each dependency also gets a rule of its own without a command, so
// that make doesn't stop when a file is removed.
QString dependencyRule(const QString& target, const QStringList& dependencies);

// Writes a file at once, and creates its folder. Replaces no dependency, target or other output. Returns the
// reason for a failure, or an empty text.
QString writeDependencyFile(const QString& path, const QString& target, const QStringList& dependencies,
                            const QStringList& outputs = {});

} // namespace tarnok_build
