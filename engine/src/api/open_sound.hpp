// SPDX-License-Identifier: MIT
// Opens what is in a file. Two files implement this: open_any_sound.cpp for the engine, and open_bank_only.cpp for the
// static library, which contains no decoders of sound files.
#pragma once

#include "api/sound.hpp"

namespace engine {

// suggested: the only kind of file that is accepted, unless it is KESS_SOUND_TYPE_UNKNOWN. ErrorCode::Format: the
// library doesn't read files of this kind.
base::Result<KESS::SoundAccess::Pointer> openAsSound(const FilePointer& file, KESS_SOUND_TYPE suggested);

} // namespace engine
