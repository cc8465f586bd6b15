#include "crackle/MetaDeCrackler.h"

MetaDeCrackler::~MetaDeCrackler() = default;
