// SPDX-License-Identifier: MIT
#include "validate.hpp"

#include "text.hpp"

#include <iostream>

namespace tnb {

base::Result<Status> validate(const std::string& bank, const Key& key)
{
    const base::Result<Engine> engine = startEngine();
    if (!engine)
        return engine.error();
    const auto report = [&](int sound, KESS_RESULT found, const std::string& text) {
        std::cerr << "tnb: " << printable(bank) << (found == KESS_OK ? ": remark: " : ": ");
        if (sound >= 0)
            std::cerr << "sound " << sound << ": ";
        std::cerr << printable(text) << '\n';
        return true;
    };
    const base::Result<bool> whole = verifyBank(**engine, bank, key, report);
    if (!whole)
        return whole.error();
    if (!*whole)
        return Status::Damaged;
    std::cout << printable(bank) << ": whole\n";
    return Status::Whole;
}

} // namespace tnb
