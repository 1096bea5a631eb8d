#include "validate.hpp"

#include "text.hpp"

#include <iostream>

namespace tnb {

Status validate(const std::string& bank, const Key& key)
{
    const Engine engine;
    const KESS_RESULT result = engine.verify(bank, key, [&](int sound, KESS_RESULT found, const std::string& text) {
        std::cerr << "tnb: " << printable(bank) << (found == KESS_OK ? ": remark: " : ": ");
        if (sound >= 0)
            std::cerr << "sound " << sound << ": ";
        std::cerr << printable(text) << '\n';
        return true;
    });
    if (result == KESS_OK)
        std::cout << printable(bank) << ": whole\n";
    return result == KESS_OK ? Status::Whole : Status::Damaged;
}

} // namespace tnb
