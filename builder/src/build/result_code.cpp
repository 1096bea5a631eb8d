// SPDX-License-Identifier: MIT
#include "build/result_code.hpp"

namespace builder {

TARNOK_RESULT resultCode(base::ErrorCode code)
{
    using base::ErrorCode;
    switch (code) {
    case ErrorCode::NotFound:
        return TARNOK_ERR_FILE_NOT_FOUND;
    case ErrorCode::Io:
        return TARNOK_ERR_FILE_OS;
    case ErrorCode::Format:
    case ErrorCode::Version:
    case ErrorCode::Damaged:
    case ErrorCode::Unsupported:
    case ErrorCode::TooManyChannels:
    case ErrorCode::NotSeekable:
    case ErrorCode::KeyMissing:
    case ErrorCode::KeyWrong:
        return TARNOK_ERR_INVALID_FORMAT;
    case ErrorCode::Invalid:
        return TARNOK_ERR_INVALID_PARAM;
    case ErrorCode::Codec:
        return TARNOK_ERR_ENCODER;
    case ErrorCode::Engine:
        return TARNOK_ERR_KESS;
    case ErrorCode::ModuleMissing:
        return TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND;
    case ErrorCode::ModuleBad:
        return TARNOK_ERR_ENCODER_LIBRARY_BAD;
    case ErrorCode::CacheLost:
        return TARNOK_ERR_CACHE_CHUNK_MISSING;
    case ErrorCode::NothingLeft:
        return TARNOK_ERR_CANNOT_CONTINUE;
    case ErrorCode::Memory:
        return TARNOK_ERR_MEMORY;
    case ErrorCode::Cancelled:
        return TARNOK_ERR_CANCELLED;
    }
    return TARNOK_ERR_FILE_OS;
}

} // namespace builder
