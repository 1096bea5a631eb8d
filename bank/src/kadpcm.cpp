#include "bank/kadpcm.hpp"
