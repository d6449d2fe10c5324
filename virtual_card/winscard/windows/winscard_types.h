// The types of the SCard calls without winscard.h: that declares the calls as imported, and the
// double defines them.
#pragma once

// Keeps windows.h from including winscard.h. The statuses come with it all the same (winerror.h).
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

using SCARDCONTEXT = ULONG_PTR;
using SCARDHANDLE = ULONG_PTR;
using LPSCARDCONTEXT = SCARDCONTEXT*;
using LPSCARDHANDLE = SCARDHANDLE*;

struct SCARD_IO_REQUEST {
    DWORD dwProtocol;
    DWORD cbPciLength;
};
using LPSCARD_IO_REQUEST = SCARD_IO_REQUEST*;
using LPCSCARD_IO_REQUEST = const SCARD_IO_REQUEST*;

inline constexpr DWORD SCARD_PROTOCOL_T0 = 1;
inline constexpr DWORD SCARD_PROTOCOL_T1 = 2;

extern "C" {
extern const SCARD_IO_REQUEST g_rgSCardT0Pci;
extern const SCARD_IO_REQUEST g_rgSCardT1Pci;
}
