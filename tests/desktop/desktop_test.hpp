// SPDX-License-Identifier: MIT
// Shared by the desktop's tests: an empty settings store, temporary directories, and access to the items of a bank.
#pragma once

#include "answers.hpp"
#include "system/system_test.hpp"
#include "utility_classes.hpp"

namespace tests {

struct DesktopTest : SystemTest
{
    void SetUp() override
    {
        SystemTest::SetUp();
        QSettings(COMPANY_NAME, APP_NAME).clear();
        for (const char* name : {"Bank", "Cache", "Profile", "ListFile", "Source"}) {
            QDir().mkpath(path(name));
            settings()->setDir(name, path(name));
        }
    }

    // An item by its position: "bank", "1" for a subsound, "1.0" for one of its files.
    static AbstractItem* itemAt(SoundBank* bank, const QString& position)
    {
        if (position == "bank")
            return bank;
        Subsound* subsound = bank->at(position.section('.', 0, 0).toInt());
        if (!position.contains('.'))
            return subsound;
        return subsound->at(position.section('.', 1, 1).toInt());
    }
};

} // namespace tests
