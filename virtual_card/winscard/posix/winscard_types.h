// The types and declarations of the SCard calls: those of the stand-in platform.
#pragma once

#include "platform/win32.h"
