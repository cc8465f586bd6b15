// Puts a saved dither generator state on this thread for the lifetime of the scope,
// and saves the state it leaves behind: a stage that keeps its own state gives the
// same bits whichever thread runs it and whatever ran there before.
#pragma once

#include <cstdint>
#include <utility>

#include "ar/ClassicRand.h"

class DitherScope {
public:
    explicit DitherScope(std::uint32_t& saved) : saved_(saved) { std::swap(saved_, ferrotip::detail::classicRandState); }
    ~DitherScope() { std::swap(saved_, ferrotip::detail::classicRandState); }
    DitherScope(const DitherScope&) = delete;
    DitherScope& operator=(const DitherScope&) = delete;

private:
    std::uint32_t& saved_;
};
