// The standard crackle engine: CrackleEngine over FftCrackleDetector, whose click
// statistic is the residual's first difference against the hop's mean. Latency
// 1926 samples; process allocates nothing. See CrackleEngine.h for the contract.
#pragma once

#include "crackle/CrackleEngine.h"
#include "crackle/FftCrackleDetector.h"

extern template class CrackleEngine<FftCrackleDetector>;

class AdvancedFftDeCrackler final : public CrackleEngine<FftCrackleDetector> {
public:
    using CrackleEngine::CrackleEngine;
};
