// A DLL that does nothing: the measure for what loading ours costs beside its imports.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
    return TRUE;
}
