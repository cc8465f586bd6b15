// Whether the tests run in the AddressSanitizer build. Its instrumented code runs
// several times slower, and its tests are there to check the code paths, not the
// figures: quality tests take less material there and leave their floors to the
// optimised builds.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define FERROTIP_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FERROTIP_TEST_ASAN 1
#endif
#endif

namespace testsupport {

#ifdef FERROTIP_TEST_ASAN
constexpr bool instrumentedBuild = true;
#else
constexpr bool instrumentedBuild = false;
#endif

}  // namespace testsupport
