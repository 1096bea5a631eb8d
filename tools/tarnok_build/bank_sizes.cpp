// SPDX-License-Identifier: MIT
#include "bank_sizes.hpp"

#include "kess.hpp"

#include <memory>

namespace tarnok_build {

namespace {

struct Releaser
{
    template <typename Object>
    void operator()(Object* object) const
    {
        object->release();
    }
};

} // namespace

std::vector<unsigned long long> soundSizes(const std::string& bank, const std::string& key)
{
    KESS::System* created = nullptr;
    if (KESS_System_Create(&created, KESS_VERSION) != KESS_OK)
        return {};
    const std::unique_ptr<KESS::System, Releaser> system(created);
    KESS::Sound* opened = nullptr;
    if (system->init(0, 0, nullptr) != KESS_OK || system->createSound(bank.c_str(), 0, nullptr, &opened) != KESS_OK)
        return {};
    const std::unique_ptr<KESS::Sound, Releaser> sounds(opened);
    int count = 0;
    if ((!key.empty() && sounds->setEncryptionKey(key.c_str()) != KESS_OK)
        || sounds->getNumSubSounds(&count) != KESS_OK)
        return {};

    std::vector<unsigned long long> sizes;
    for (int index = 0; index < count; ++index) {
        KESS::Sound* sound = nullptr;
        KESS_ENCODING encoding = {};
        encoding.cbsize = sizeof encoding;
        if (sounds->getSubSound(index, &sound) != KESS_OK || sound->getEncoding(&encoding) != KESS_OK)
            return {};
        sizes.push_back(encoding.dataBytes + encoding.extraBytes);
    }
    return sizes;
}

} // namespace tarnok_build
