// Public correlation object: the portable implementation under its library name.
// Same contract as standard::Correlation_std<double> (Correlation_std.h).
#pragma once

#include "signal/Correlation_std.h"

namespace standardLib {

template <typename T>
class Correlation;

template <>
class Correlation<double> : public standard::Correlation_std<double> {
public:
    using standard::Correlation_std<double>::Correlation_std;
};

}  // namespace standardLib
