#include "bank_file.hpp"

namespace kess {

KESS_RESULT BankFile::open(const char*, std::unique_ptr<BankFile>*)
{
    return KESS_ERR_FORMAT;
}

} // namespace kess
