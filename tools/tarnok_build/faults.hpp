// SPDX-License-Identifier: MIT
// What is wrong with the inputs of a bank.
#pragma once

#include <nlohmann/json.hpp>

#include <QList>
#include <QString>

namespace tarnok_build {

enum class Severity
{
    Fatal, // the input can't be used at all
    Error, // a sound would be missing
    Warning // the bank can be built, but not as the input suggests
};

struct Fault
{
    QString file;
    qint64 line = 0; // from 1; 0: the file as a whole
    Severity severity = Severity::Error;
    const char* code = ""; // one word for programs
    QString text;
};

// The faults of all inputs, in the order in which they were found.
class Faults
{
public:
    void add(Fault fault) { mFaults.append(std::move(fault)); }

    const QList<Fault>& all() const { return mFaults; }
    bool isEmpty() const { return mFaults.isEmpty(); }
    // Whether one of them is at least as severe as that.
    bool has(Severity severity) const;

private:
    QList<Fault> mFaults;
};

// "FILE:LINE: error: TEXT", with control characters escaped.
QString describe(const Fault& fault);

nlohmann::ordered_json asJson(const Fault& fault);

// One value on one line, in ASCII.
std::string dumped(const nlohmann::ordered_json& value);

} // namespace tarnok_build
