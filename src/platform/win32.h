// The platform calls in use, by their published names. On Windows these are the real headers and
// nothing more; elsewhere posix/win32.h declares exactly the calls that the minidriver
// makes, and the files beside it implement each of them on a well-kept library.
#pragma once

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// windows.h has to come first.
// clang-format off
#include <windows.h>
#include <winscard.h>
#include <wincrypt.h>
#include <bcrypt.h>
#include <winhttp.h>
#include <objbase.h>
// clang-format on
#else
#include "posix/win32.h"
#endif
