#include "encoders.hpp"

namespace tarnok {

bank::Error KadpcmEncoder::encode(PreparedSound&, int, bank::ByteSink&, std::stop_token, bank::Sound*)
{
    return bank::Error::Unsupported;
}

} // namespace tarnok
