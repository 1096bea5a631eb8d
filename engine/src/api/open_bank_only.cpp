// SPDX-License-Identifier: MIT
#include "api/open_sound.hpp"

namespace engine {

base::Result<KESS::SoundAccess::Pointer> openAsSound(const FilePointer& file, KESS_SOUND_TYPE suggested)
{
    if (suggested != KESS_SOUND_TYPE_UNKNOWN && suggested != KESS_SOUND_TYPE_TNB)
        return base::Error{base::ErrorCode::Format, "this library opens banks alone"};
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(file->medium());
    if (!bank)
        return std::move(bank.error());
    return KESS::SoundAccess::fromBank(std::move(*bank));
}

} // namespace engine
