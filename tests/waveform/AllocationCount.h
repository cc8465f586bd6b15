// Test support: the waveform test binary replaces the global operator new so that a
// test can count the allocations a call makes on the current thread.
#pragma once

namespace waveform_test {

// Allocations made on this thread so far, by any form of operator new.
long allocationCount() noexcept;

}  // namespace waveform_test
