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
    const base::Result<bool> isIntact = verifyBank(**engine, bank, key, report);
    if (!isIntact)
        return isIntact.error();
    if (!*isIntact)
        return Status::Damaged;
    std::cout << printable(bank) << ": intact\n";
    return Status::Success;
}

} // namespace tnb
