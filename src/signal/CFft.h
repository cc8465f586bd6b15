// Public transform object: the portable implementation under its library name.
// Same contract as standard::CFft_std<float> (CFft_std.h).
#pragma once

#include "signal/CFft_std.h"

namespace standardLib {

template <typename T>
class CFft;

template <>
class CFft<float> : public standard::CFft_std<float> {
public:
    using standard::CFft_std<float>::CFft_std;
};

}  // namespace standardLib
