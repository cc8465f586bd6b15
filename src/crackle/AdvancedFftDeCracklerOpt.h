// The variant crackle engine: CrackleEngine over FftCrackleDetectorOpt, whose click
// statistic is a two-sided prediction error against a moving quantile. It costs
// more than AdvancedFftDeCrackler. Latency 1926 samples; process allocates nothing.
// See CrackleEngine.h for the contract.
#pragma once

#include "crackle/CrackleEngine.h"
#include "crackle/FftCrackleDetectorOpt.h"

extern template class CrackleEngine<FftCrackleDetectorOpt>;

class AdvancedFftDeCracklerOpt final : public CrackleEngine<FftCrackleDetectorOpt> {
public:
    using CrackleEngine::CrackleEngine;
};
