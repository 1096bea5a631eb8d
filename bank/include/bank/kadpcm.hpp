// KADPCM: the bank's own adaptive differential PCM.
#pragma once

namespace bank::kadpcm {

}
