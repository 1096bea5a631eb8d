// SPDX-License-Identifier: MIT
// The application object that widgets and file classes require.
#include <gtest/gtest.h>

#include <QApplication>

#include <memory>

namespace {

struct ApplicationEnvironment : testing::Environment
{
    void SetUp() override { mApplication = std::make_unique<QApplication>(mCount, mArguments); }
    void TearDown() override { mApplication.reset(); }

    char mName[5] = "test";
    char* mArguments[2] = {mName, nullptr};
    int mCount = 1;
    std::unique_ptr<QApplication> mApplication;
};

const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new ApplicationEnvironment);

} // namespace
