// The library's load entry. On Windows it records the instance handle on process
// attach and reports success for every reason; elsewhere there is no counterpart.
#ifdef _WIN32
#include <windows.h>

namespace {
HINSTANCE instanceHandle = nullptr;  // recorded for the host's sake; nothing reads it
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) instanceHandle = instance;
    return TRUE;
}
#endif
