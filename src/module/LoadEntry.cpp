// The library's load entry. On Windows it records the instance handle on process
// attach and reports success for every reason; elsewhere there is no counterpart.
#ifdef _WIN32
#include <windows.h>

namespace {
// Recorded for the host's sake; nothing reads it. Volatile, so that the optimiser
// keeps the store although no load follows.
HINSTANCE volatile instanceHandle = nullptr;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) instanceHandle = instance;
    return TRUE;
}
#endif
