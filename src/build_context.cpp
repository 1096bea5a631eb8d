// SPDX-License-Identifier: MIT
#include "build_context.hpp"

#include "sound_bank.hpp"

#include <cstring>

namespace TARNOK {

void createCopy(const char** destination, const QString& source)
{
    const QByteArray bytes = source.toUtf8();
    const int len = static_cast<int>(bytes.size());
    Q_ASSERT(len > 0);
    char* copy = new char[static_cast<size_t>(len) + 1];
    std::memcpy(copy, bytes.constData(), static_cast<size_t>(len));
    copy[len] = '\0';
    *destination = copy;
}

BuildContext::LibSubsound::LibSubsound()
    : TARNOK_SUBSOUND{}
{ }

BuildContext::LibSubsound::~LibSubsound()
{
    if (!fileNames)
        return;
    for (quint32 i = 0; i < numFiles; ++i) {
        Q_ASSERT(fileNames[i] != NULL);
        delete[] fileNames[i];
    }
    delete[] fileNames;
}

void BuildContext::LibSubsound::init(const SoundBank* bank, const Subsound* subsound)
{
    numFiles = static_cast<quint32>(subsound->size());
    Q_ASSERT(0 < numFiles);

    const char** names = new const char* [numFiles] {
    };
    for (quint32 i = 0; i < numFiles; ++i)
        createCopy(&names[i], subsound->at(i)->wholePath());
    fileNames = names;

    overrideQuality = static_cast<quint32>(static_cast<float>(subsound->quality()));
    desiredSampleRate = subsound->desiredSampleRate();

    // Set bits invert the bank's flags; they are not the flags themselves.
    Q_ASSERT((subsound->buildFlagOverridesMask() & (~TARNOK_BUILD_OVERRIDE_MASK)) == 0);
    overrideFlags = (subsound->buildFlagOverridesMask() & bank->profile().buildFlags()) ^ subsound->buildFlags();
}

BuildContext::BuildContext() = default;

BuildContext::~BuildContext()
{
    // A job is deleted as soon as it reports that it has finished, while its thread is still returning from run(). This
    // second read orders everything that the thread did before the code below.
    wait();
    static_cast<void>(finished());
    clear();
}

bool BuildContext::construct(const SoundBank* bank)
{
    clear();
    mNumSubsounds = static_cast<unsigned int>(bank->size());
    mSubsounds = new LibSubsound[mNumSubsounds];
    mFormat = bank->profile().format();
    mBuildFlags |= bank->profile().buildFlags();
    mQuality = bank->profile().quality();
    for (unsigned int i = 0; i < mNumSubsounds; ++i)
        mSubsounds[i].init(bank, bank->at(i));
    if (!bank->encryptionKey().isEmpty())
        createCopy(&mEncryptionKey, bank->encryptionKey());
    else
        mEncryptionKey = nullptr;
    createCopy(&mOutputFile, bank->outputFilePath());
    return true;
}

bool BuildContext::clear()
{
    delete[] mSubsounds;
    mSubsounds = nullptr;
    delete[] mEncryptionKey;
    mEncryptionKey = nullptr;
    delete[] mOutputFile;
    mOutputFile = nullptr;
    return true;
}

void BuildContext::run()
{
    // When a build is enqueued after a cancelled one, the head of the queue is started again. Usually it is still
    // running and nothing happens; if its thread has just ended, the job must not run a second time.
    if (!finished())
        mResult = cancelled()
            ? TARNOK_ERR_CANCELLED
            : Tarnok_Build(mSubsounds, mNumSubsounds, mFormat, mBuildFlags, mQuality, mEncryptionKey, mOutputFile);

    // The thread's final access to the job, even if there was nothing to do.
    mFinished.store(true, std::memory_order_release);
}

void BuildContext::fail(TARNOK_RESULT result)
{
    mResult = result;
    mFinished.store(true, std::memory_order_release);
}

const BuildContext::LibSubsound* BuildContext::subsound(unsigned int index) const
{
    Q_ASSERT(index < mNumSubsounds);
    return &mSubsounds[index];
}

} // namespace TARNOK
